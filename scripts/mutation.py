#!/usr/bin/env python3
"""Breaks 50 places of the libraries one at a time and looks whether a test notices.

mutation.py [--build FOLDER] [--only TEXT] [--count N]

Each place is a line of a source and another form of it, an operator, a constant, a message or an order changed. The
source is changed in a copy of the tree, the test programs named with it are built, and the first that fails ends it.
A change that no test notices is printed as SURVIVED; the exit status is 1 then. Works in build/mutation.
"""
import argparse
import os
import shutil
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
PORT, BUS, BRIDGE, FIFO, CLIENT, BASE = (
    "KySerialPortTest", "KySerialBusTest", "KySerialBridgeTest", "clserzmoTest", "clserzmoClientTest", "JxUtilsLibTest")
S, C = "Libraries/KySerial/", "Libraries/clserzmo/"

# source, as it is, as it must not be, test programs
PLACES = [
    (S + "SerialPort.cpp", "aCount > mCells - 1 - GetUsed()", "aCount > mCells - GetUsed()", PORT),
    (S + "SerialPort.cpp", "mReadIndex = Advance(mWriteIndex, 1); // the", "mReadIndex = mWriteIndex; // the", PORT),
    (S + "SerialPort.cpp", "std::max(aSize, 1U), GetUsed()", "std::max(aSize, 2U), GetUsed()", PORT),
    (S + "SerialPort.cpp", "aTimeout == 0 || mReadsEnd", "aTimeout == 0", PORT + " " + BRIDGE),
    (S + "SerialPort.cpp", "std::max(aSize, 1U); // a ring", "std::max(aSize, 2U); // a ring", PORT),
    (S + "SerialPortIPEngine.cpp", "cUart1Bits{0x4, 0x8}", "cUart1Bits{0x8, 0x4}", PORT),
    (S + "SerialPortIPEngine.cpp", "return lUarts > 1;", "return lUarts > 0;", PORT),
    (S + "SerialPortIPEngine.cpp", "lWord = 1; lWord < aCount", "lWord = 2; lWord < aCount", PORT),
    (S + "SerialPortIPEngine.cpp", "Failed to write byte %d.", "Failed to write byte %d", PORT),
    (S + "SerialPortIPEngine.cpp", "aDataLength < 4", "aDataLength < 5", PORT),
    (S + "SerialPortIPEngine.cpp", "++aBytesWritten; // the device", "aBytesWritten += 2; // the device", PORT),
    (S + "BulkIPEngine.cpp", "mFirstChunkSize = 256;", "mFirstChunkSize = 255;", PORT),
    (S + "BulkIPEngine.cpp", "mNextChunkSize = 252U -", "mNextChunkSize = 252U +", PORT),
    (S + "BulkIPEngine.cpp", "std::max(lTimeout, 50U) + 100U", "std::max(lTimeout, 50U) + 99U", PORT),
    (S + "BulkIPEngine.cpp", "(aData) + 4, aDataLength - 4", "(aData) + 4, aDataLength - 5", PORT),
    (S + "BulkIPEngine.cpp", "cRxInterrupts = 0x700", "cRxInterrupts = 0x300", PORT),
    (S + "BulkIPEngine.cpp", "lConfig & ~cConfigResetFifos", "lConfig | cConfigResetFifos", PORT),
    (S + "BulkIPEngine.cpp", "aEventID > cEventBulkInterrupt", "aEventID >= cEventBulkInterrupt", PORT),
    (S + "IRegisterSerialPort.cpp", "cMaxMessage = 520", "cMaxMessage = 524", PORT),
    (S + "IRegisterSerialPort.cpp", "lTrueDataLength > lRegLength ||", "lTrueDataLength >= lRegLength ||", PORT),
    (S + "IRegisterSerialPort.cpp", "aSize + 4); // the four", "aSize); // the four", PORT + " " + BUS),
    (S + "IRegisterSerialPort.cpp", "lMessage[11] = aFinal ? 1 : 0", "lMessage[11] = aFinal ? 0 : 1", PORT + " " + BUS),
    (S + "IRegisterSerialPort.cpp", "(aSize + cPadding) & ~cPadding", "aSize & ~cPadding", PORT),
    (S + "IRegisterSerialPort.cpp", "24U - 8U * lByte", "8U * lByte", PORT),
    (S + "IRegisterSerialPort.cpp", "Couldn't get %s parameter.", "Could not get %s parameter.", PORT),
    (S + "PortMap.cpp", "lPortList->erase(lFound);", "", PORT),
    (S + "DeviceI2CBus.cpp", "lTimeout + 50", "lTimeout + 5000", BUS),
    (S + "DeviceI2CBus.cpp", "(aBufferSize >> 8U) & 0xFFU", "(aBufferSize >> 7U) & 0xFFU", BUS),
    (S + "DeviceI2CBus.cpp", "aFastMode, !aUseCombinedFormat", "aFastMode, aUseCombinedFormat", BUS),
    (S + "DeviceI2CBus.cpp", "lResult = mBulk->FlushRxBuffer();", "lResult = KyResult(KyResult::OK);", BUS),
    (S + "DeviceSPIBus.cpp", "cMaxTransfer = 255", "cMaxTransfer = 256", BUS),
    (S + "Bridge.cpp", "mStop = true;\n", "\n", BRIDGE),
    (S + "Bridge.cpp", "if (!mDevicePort->IsOpened())", "if (mDevice != nullptr)", BRIDGE),
    (S + "Bridge.cpp", "static_cast<void>(mDevice->UnregisterEventSink(this));", "", BRIDGE),
    (S + "Bridge.cpp", "mStatistics.mBytesSentToDevice += lWritten;", "mStatistics.mBytesSentToDevice += lPiece;", BRIDGE),
    (S + "BridgeSettings.cpp", "\"NumOfStopBits\"", "\"NumOfStopBit\"", BRIDGE),
    (S + "BridgeSettings.cpp", "\"Baud%i\"", "\"Baud%d\"", BRIDGE),
    (S + "BridgeSettings.cpp", "Restore(mStopBitsFeature, mSavedStopBits);", "", BRIDGE),
    (S + "BridgeCLDLL.cpp", "if (lOffered == 0)", "if (lOffered != 0)", BRIDGE),
    (S + "BridgeCLDLL.cpp", "cFifoSize = 1024", "cFifoSize = 1023", BRIDGE),
    (S + "BridgeCOM.cpp", "lLength < 4 || lLength > 5", "lLength < 4 || lLength > 6", BRIDGE),
    (S + "FeatureSelectorScope.cpp", "|| lCurrent == aValue", "", BRIDGE),
    (C + "sharedfifo.cpp", "aIndexes.mSize - 1 - aIndexes.GetUsed()", "aIndexes.mSize - aIndexes.GetUsed()", FIFO),
    (C + "sharedfifo.cpp", "aIndexes.mHead < mCapacity;", "aIndexes.mHead <= mCapacity;", FIFO),
    (C + "sharedfifo.cpp", "if (!aIndexes.IsEmpty())\n    {\n        CLSERZMO", "if (true)\n    {\n        CLSERZMO", FIFO),
    (C + "sharedregistry.cpp", "StoreWord(lPtr->mServerId, lLargest + 1);", "StoreWord(lPtr->mServerId, lLargest + 2);", FIFO),
    (C + "sharedregistry.cpp", "sizeof(lPtr->mName) - 1", "sizeof(lPtr->mName)", FIFO),
    (C + "sharedregistry.cpp", "StoreWord(lEntry.mServerActive, 0);", "", FIFO),
    (C + "Client/ClientPort.cpp", "aRead = aWhole ? 0 : TakePending", "aRead = aWhole ? TakePending(aBuffer, 0) : 0 * TakePending", CLIENT),
    (C + "Client/clser.cpp", "std::bit_floor(aPort", "std::bit_ceil(aPort", CLIENT),
]


def run(command, timeout, **more):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=timeout, **more).returncode
    except subprocess.TimeoutExpired:
        return -1


def build(folder, programs):
    return run(["cmake", "--build", folder, "-j", str(os.cpu_count()), "--target", *programs], 1200)


def judge(place, tree, folder):
    source, before, after, programs = place
    path = os.path.join(tree, source)
    text = open(path, encoding="utf-8").read()
    if text.count(before) < 1:
        return "NOT FOUND"
    with open(path, "w", encoding="utf-8") as file:
        file.write(text.replace(before, after, 1))
    try:
        if build(folder, programs.split()) != 0:
            return "NOT BUILT"
        for program in programs.split():
            # A test that hangs has noticed as well.
            if run([os.path.join(folder, "bin", program), "--gtest_fail_fast", "--gtest_brief=1"], 120, cwd=tree) != 0:
                return "noticed by " + program
        return "SURVIVED"
    finally:
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--only", default="", help="places whose source or text holds this")
    parser.add_argument("--first", type=int, default=0, help="number of the place to begin with")
    parser.add_argument("--count", type=int, default=len(PLACES), help="places at most")
    arguments = parser.parse_args()
    tree = os.path.join(ROOT, "build", "mutation", "tree")
    folder = os.path.join(ROOT, "build", "mutation", "build")
    os.makedirs(tree, exist_ok=True)
    files = subprocess.run(["git", "-C", ROOT, "ls-files"], capture_output=True, text=True, check=True).stdout.split("\n")
    for name in filter(None, files):
        target = os.path.join(tree, name)
        old = os.path.exists(target) and open(target, "rb").read()
        new = open(os.path.join(ROOT, name), "rb").read()
        if old != new:  # what has not changed is not built again
            os.makedirs(os.path.dirname(target), exist_ok=True)
            shutil.copy(os.path.join(ROOT, name), target)
    if run(["cmake", "-S", tree, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-O0"], 600) != 0:
        print("mutation: the tree cannot be configured")
        return 1
    places = [place for place in PLACES if arguments.only in place[0] + place[1]]
    places = places[arguments.first:arguments.first + arguments.count]
    programs = sorted({program for place in places for program in place[3].split()})
    if build(folder, programs) != 0:
        print("mutation: the tree cannot be built")
        return 1
    bad = 0
    begin = time.time()
    for place in places:
        verdict = judge(place, tree, folder)
        bad += not verdict.startswith("noticed")
        print(f"{verdict:32} {place[0]}: {place[1].strip()!r} -> {place[2].strip()!r}", flush=True)
    print(f"{len(places)} places broken, {len(places) - bad} noticed, in {time.time() - begin:.0f} s")
    return 1 if bad else 0


sys.exit(main())
