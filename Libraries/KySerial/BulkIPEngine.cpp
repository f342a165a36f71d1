#include "BulkIPEngine.h"

#include "DeviceChecks.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/LockScope.h"
#include "KySerial/DeviceProtocol.h"
#include "LogResult.h"
#include "PortMap.h"

#include <algorithm>
#include <utility>

namespace KySerialLib
{

using namespace KyDeviceProtocol;

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/BulkIPEngine";

constexpr double cDefaultTimePerByteMs = 0.03000000003;

// The register has no field for bulk ports: a device that has a UART has bulk port 0.
bool IsBulkPresent(uint32_t aCaps)
{
    return (aCaps & cUartCountMask) != 0;
}

} // namespace

BulkIPEngine::BulkIPEngine() : mTxEmptyEvent(true), mTxRoomEvent(false), mTimePerByte(cDefaultTimePerByteMs)
{
}

BulkIPEngine::~BulkIPEngine() = default;

bool BulkIPEngine::IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::IsSupported";
    const JxUtilsLib::Logger lLogger(cLogCategory, 0);
    uint32_t lCaps = 0;
    if (!ReadFunctionCaps(aDevice, lCaps, {lLogger, cFunction}))
    {
        return false;
    }
    // The port is looked at last, so that adapters see the same accesses whatever it is.
    if (aPort != KyDeviceSerialBulk0)
    {
        KY_LOG_FATAL(lLogger, cFunction, "Port %d is invalid", static_cast<int>(aPort));
        JX_ASSERT(false);
        return false;
    }
    return IsBulkPresent(lCaps);
}

bool BulkIPEngine::IsI2CSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::IsI2CSupported";
    const JxUtilsLib::Logger lLogger(cLogCategory, 0);
    const Caller lCaller{lLogger, cFunction};
    if (!IsReachable(aDevice, lCaller) ||
        !IsKorvoVideoInterface(aDevice, JxUtilsLib::PriorityError, lCaller) ||
        !IsGigEVision(aDevice, lCaller))
    {
        return false;
    }
    // Unlike ReadFunctionCaps(), this question asks a device again that did not answer before.
    uint32_t lCaps = 0;
    if (!aDevice->ReadRegister(cFunctionCapabilities, lCaps).IsOK())
    {
        PortMap::MarkUnsupported(aDevice);
        KY_LOG(lLogger, JxUtilsLib::PriorityError, cFunction, "Failed to read %s register.",
               "function capabilities");
        return false;
    }
    // Without this bit the others of the register mean nothing.
    if ((lCaps & cImplemented) == 0)
    {
        KY_LOG(lLogger, JxUtilsLib::PriorityError, cFunction, "Implemented bit was not set.");
        return false;
    }
    if (aPort != KyDeviceSerialBulk0)
    {
        KY_LOG_FATAL(lLogger, cFunction, "Port %d is invalid", static_cast<int>(aPort));
        JX_EXPECT(false);
        return false;
    }
    uint32_t lBulkCaps = 0;
    if (!aDevice->ReadRegister(cBulkCapabilities, lBulkCaps).IsOK())
    {
        KY_LOG(lLogger, JxUtilsLib::PriorityError, cFunction, "Failed to read %s register.",
               "DEV_REG_BULK_0_3_CONFIG");
        return false;
    }
    // Only both bits together stand for I2C.
    return IsBulkPresent(lCaps) && (lBulkCaps & cBulkI2C) == cBulkI2C;
}

KyResult BulkIPEngine::Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::Open";
    KyResult lResult = ClaimPort(aDevice, aPort, &IsSupported, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    mDevice = aDevice;
    mPort = aPort;
    static_cast<void>(aDevice->RegisterEventSink(this)); // ignored: a writer without interrupts times out
    // Failures from here on leave the claim and the sink in place; the caller's Close() undoes them.
    lResult = aDevice->ReadRegister(cBulk0Configuration, mBulkConfig);
    if (lResult.IsOK())
    {
        lResult = aDevice->ReadRegister(cBulk0Rate, mBulkRate);
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    UpdateTimePerByte();
    UpdateChunkSizes();
    lResult = EnableInterrupts(false);
    // The FIFOs may still hold bytes of a former user of the port.
    return lResult.IsOK() ? ResetFifos() : lResult;
}

uint32_t BulkIPEngine::GetSpeedIndex() const
{
    return (mBulkConfig >> cSpeedShift) & cThreeBits;
}

uint32_t BulkIPEngine::GetInterface() const
{
    return (mBulkConfig >> cInterfaceShift) & cThreeBits;
}

double BulkIPEngine::GetUSRTTimePerBit() const
{
    const uint32_t lRate = cSynchronousClock / (2U << GetSpeedIndex()); // whole bits per second
    return 1000.0 / lRate;
}

double BulkIPEngine::GetUARTTimePerBit() const
{
    const uint32_t lIndex = GetSpeedIndex();
    uint32_t lSpeed = lIndex < cUartRates.size() ? cUartRates[lIndex] : 0;
    if (lIndex == cCustomRateIndex)
    {
        // The register may hold 0, which is no divisor.
        const uint32_t lDivisor = std::max(mBulkRate & 0xFFU, 1U);
        const double lPeriodSeconds = lDivisor * double{cCustomBitNanoseconds} / 1e9;
        // NOLINTNEXTLINE(bugprone-incorrect-roundings): never negative
        lSpeed = static_cast<uint32_t>(1.0 / lPeriodSeconds + 0.5);
    }
    // GCOVR_EXCL_START: the largest divisor still gives 8170
    if (lSpeed == 0)
    {
        JX_ASSERT(lSpeed != 0);
        lSpeed = 8170;
    }
    // GCOVR_EXCL_STOP
    return 1000.0 / lSpeed;
}

double BulkIPEngine::GetI2CTimePerByte()
{
    // Eight data bits and an acknowledge at 100 kHz, in milliseconds.
    return 0.09;
}

void BulkIPEngine::UpdateTimePerByte()
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::UpdateTimePerByte";
    if (!IsOpened())
    {
        KY_LOG_FATAL(*mLogger, cFunction, "Unexpected state: the device should already be available.");
        JX_ASSERT(IsOpened());
    }
    // This time stays for an interface that the library does not know: the port is opened all the same.
    mTimePerByte = cDefaultTimePerByteMs;
    // Time per bit is taken as time per byte for UART and USRT. Time-outs there never get below 300 ms, and
    // clients have tuned their own to what follows from this.
    switch (GetInterface())
    {
    case cInterfaceUsrt:
        mTimePerByte = GetUSRTTimePerBit();
        break;
    case cInterfaceUart:
        mTimePerByte = GetUARTTimePerBit();
        break;
    case cInterfaceI2C:
        mTimePerByte = GetI2CTimePerByte();
        break;
    default:
        KY_LOG_FATAL(*mLogger, cFunction, "Unknown interface selected (%d).",
                     static_cast<int>(GetInterface()));
        JX_EXPECT(false);
        break;
    }
    if ((mBulkConfig & cDoubleByteTime) != 0)
    {
        mTimePerByte *= 2;
    }
}

void BulkIPEngine::UpdateChunkSizes()
{
    mFirstChunkSize = cBulkTransmitFifo;
    mNextChunkSize =
        252U - (mBulkConfig >> cThresholdShift); // unsigned: a threshold above 252 lifts the limit
    if (GetInterface() == cInterfaceI2C)
    {
        mFirstChunkSize -= 2;
        mNextChunkSize -= 1;
    }
}

KyResult BulkIPEngine::EnableInterrupts(bool aRestore)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::EnableInterrupts";
    IKyDeviceAdapter* const lDevice = mDevice;
    // The register's other bits belong to other functions of the device. They are read first and kept.
    uint32_t lValue = 0;
    if (!lDevice->ReadRegister(cInterruptEnable, lValue).IsOK())
    {
        // Says "write" for the failed read as well; log filters look for this one text. No value was read.
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Failed to write value %x to %s register.", 0U, "Intenable");
    }
    if (!aRestore)
    {
        for (unsigned lBit = 0; lBit < mSavedInterrupts.size(); ++lBit)
        {
            mSavedInterrupts[lBit] = ((lValue >> (cFirstBulkInterruptBit + lBit)) & 1U) != 0;
        }
    }
    // GCOVR_EXCL_START: no other port has been claimed by this engine
    if (mPort != KyDeviceSerialBulk0)
    {
        JX_ASSERT(0);
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "The specified port is not supported by this device.");
    }
    // GCOVR_EXCL_STOP
    lValue |= cBulkInterrupts;
    for (unsigned lBit = 0; aRestore && lBit < mSavedInterrupts.size(); ++lBit)
    {
        const uint32_t lMask = 1U << (cFirstBulkInterruptBit + lBit);
        lValue = mSavedInterrupts[lBit] ? lValue | lMask : lValue & ~lMask;
    }
    if (!lDevice->WriteRegister(cInterruptEnable, lValue).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Failed to write value %x to %s register.", lValue, "Intenable");
    }
    return KyResult(KyResult::OK);
}

KyResult BulkIPEngine::ResetFifos()
{
    JX_ASSERT(mDevice != NULL);
    JX_ASSERT(IsOpened());
    IKyDeviceAdapter* const lDevice = mDevice;
    uint32_t lConfig = 0;
    KyResult lResult = lDevice->ReadRegister(cBulk0Configuration, lConfig);
    // The bit goes on and off again, which empties the FIFOs. The rest of the register is
    // the port's configuration and stays.
    if (lResult.IsOK())
    {
        lResult = lDevice->WriteRegister(cBulk0Configuration, lConfig | cResetFifos);
    }
    if (lResult.IsOK())
    {
        lResult = lDevice->WriteRegister(cBulk0Configuration, lConfig & ~cResetFifos);
    }
    return lResult;
}

KyResult BulkIPEngine::TransmitChunk(const uint8_t* aData, uint32_t aSize)
{
    JX_ASSERT(mDevice != NULL);
    JX_ASSERT(IsOpened());
    // The window takes nothing but data, so the flags of a transfer travel in the address.
    uint32_t lAddress = cTransmitWindow;
    lAddress |= mI2CFastMode ? cWindowFast : 0U;
    lAddress |= mI2CStop ? cWindowStop : 0U;
    lAddress |= mI2CFlag3 ? cWindowThird : 0U;
    lAddress |= mI2CTransfer ? cWindowTransfer : 0U;
    return mDevice.load()->WriteMemory(aData, lAddress, aSize);
}

uint32_t BulkIPEngine::ComputeChunkTimeout(uint32_t aSize) const
{
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): never negative
    uint32_t lTimeout = static_cast<uint32_t>(aSize * mTimePerByte + 0.5);
    // A chunk that is no I2C transfer gets 300 ms at least: clients' own time-outs build on that.
    lTimeout = std::max(lTimeout, 50U) + 100U;
    lTimeout *= 2;
    if (mI2CTransfer)
    {
        lTimeout *= 2;
        if (mI2CFastMode) // alone it changes nothing
        {
            lTimeout /= 4;
        }
    }
    return lTimeout;
}

KyResult BulkIPEngine::TxTimeOut(uint32_t aBytesWritten) const
{
    return KY_LOG_RESULT(*mLogger, KyResult::TIMED_OUT, "KySerialLib::BulkIPEngine::Write",
                         "Timed out waiting for Tx interrupt after sending %d bytes",
                         static_cast<int>(aBytesWritten));
}

KyResult BulkIPEngine::Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::Write";
    aBytesWritten = 0;
    IKyDeviceAdapter* const lDevice = mDevice;
    KyResult lResult = CheckConnected(lDevice, {*mLogger, cFunction});
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (IsMissing(aBuffer, aSize))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction, cNoBuffer);
    }
    KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, cFunction, "Sending %d bytes of data over bulk port",
           static_cast<int>(aSize));
    uint32_t lTimeout = 0;
    bool lFirst = true;
    bool lWasEmpty = false;
    while (aBytesWritten < aSize)
    {
        if (!lFirst && !AwaitInterrupt(mTxRoomEvent, lTimeout))
        {
            return TxTimeOut(aBytesWritten);
        }
        // An ended write is OK and short. A bridge goes on with the rest after
        // Recover(), or counts it as lost.
        if (AreWritesEnded())
        {
            return KyResult(KyResult::OK);
        }
        const uint32_t lBytesAllowed = lFirst ? mFirstChunkSize : mNextChunkSize;
        lFirst = false;
        // When the threshold leaves no room, one empty chunk goes out. After a second one there would be no end.
        if (lBytesAllowed == 0 && std::exchange(lWasEmpty, true))
        {
            return TxTimeOut(aBytesWritten);
        }
        JX_EXPECT(lBytesAllowed);
        const uint32_t lChunk = std::min(aSize - aBytesWritten, lBytesAllowed);
        // Reset first: an interrupt of the former chunk does not count for this one.
        ResetTxEvents();
        KY_LOG(*mLogger, JxUtilsLib::PriorityDebug, cFunction,
               "Transmitting %d byte chunk (%d bytes already sent)", static_cast<int>(lChunk),
               static_cast<int>(aBytesWritten));
        lResult = TransmitChunk(aBuffer + aBytesWritten, lChunk);
        if (!lResult.IsOK())
        {
            return lResult;
        }
        lTimeout = ComputeChunkTimeout(lChunk);
        CountSent(aBuffer + aBytesWritten, lChunk);
        aBytesWritten += lChunk;
    }
    // The next write begins with a chunk as large as the FIFO, so this one ends when the FIFO is empty.
    return AwaitInterrupt(mTxEmptyEvent, lTimeout) ? KyResult(KyResult::OK) : TxTimeOut(aBytesWritten);
}

void BulkIPEngine::NotifyEvent(uint16_t aEventID, uint16_t /*aChannel*/, uint64_t /*aBlockID*/,
                               uint64_t /*aTimestamp*/, const void* aData, uint32_t aDataLength)
{
    static constexpr char cFunction[] = "KySerialLib::BulkIPEngine::NotifyEvent";
    // A retired engine is still a sink of its adapter, but its device and its buffer may be gone.
    if (IsRetired())
    {
        return;
    }
    JX_EXPECT(mDevice != NULL);
    if (aEventID < cInterruptEvent || aEventID > cBulkInterruptEvent || aDataLength < 4 || aData == nullptr)
    {
        return;
    }
    const uint32_t lStatus = EventWord(aData, 0);
    if ((lStatus & cBulkReceive) != 0)
    {
        LockRx();
        KY_LOG(*mLogger, JxUtilsLib::PriorityDebug, cFunction, "Rx Interrupt of length %d",
               static_cast<int>(aDataLength - 4));
        PushBytes(static_cast<const uint8_t*>(aData) + 4, aDataLength - 4);
        UnlockRx();
    }
    const bool lTxEmpty = (lStatus & cBulkTransmitEmpty) != 0;
    const bool lTxPartialEmpty = (lStatus & cBulkTransmitPartialEmpty) != 0;
    if (lTxEmpty)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityDebug, cFunction, "Tx fifo empty interrupt");
    }
    if (lTxPartialEmpty)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityDebug, cFunction, "Tx fifo partial empty interrupt");
    }
    bool lWakeEmpty = false;
    bool lWakeRoom = false;
    {
        // All of an interrupt's signals at once: a writer that the first of them wakes sends the next chunk,
        // and what is left of this interrupt must not count for that one.
        const JxUtilsLib::LockScope lLock(mTxLock);
        lWakeEmpty = lTxEmpty && mTxEmptyEvent.Raise();
        // An empty FIFO has room too, and a device need not report both.
        lWakeRoom = (lTxEmpty || lTxPartialEmpty) && mTxRoomEvent.Raise();
    }
    // After the lock: a writer woken under it would fall asleep at the lock at once.
    if (lWakeEmpty)
    {
        mTxEmptyEvent.Wake();
    }
    if (lWakeRoom)
    {
        mTxRoomEvent.Wake();
    }
}

void BulkIPEngine::ResetTxEvents()
{
    const JxUtilsLib::LockScope lLock(mTxLock);
    mTxRoomEvent.Reset();
    mTxEmptyEvent.Reset();
}

KyResult BulkIPEngine::Close()
{
    return CloseDevice("KySerialLib::BulkIPEngine::Close",
                       [this](IKyDeviceAdapter* aDevice)
                       {
                           // Results ignored: the port closes all the same.
                           static_cast<void>(EnableInterrupts(true));
                           static_cast<void>(PortMap::GetInstance().Unlock(aDevice, mPort));
                           static_cast<void>(aDevice->UnregisterEventSink(this));
                       });
}

} // namespace KySerialLib
