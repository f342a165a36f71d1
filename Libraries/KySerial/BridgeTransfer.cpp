// The part of Bridge that moves and counts bytes, and has the device port work again after an absence of the
// device. It logs nothing: what fails is logged where it is found.

#include "Bridge.h"
#include "FeatureSelectorScope.h"
#include "JxUtilsLib/Thread.h"
#include "OutOfMemory.h"
#include "SerialPort.h"

#include <algorithm>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr uint32_t cLookPeriod = 50;   // ms; how late an absence of the device is noticed
constexpr uint64_t cRetryPeriod = 500; // ms
constexpr uint32_t cReceiveBufferSize = 0x10000;

} // namespace

KyResult Bridge::Recover()
{
    if (mDevicePort == nullptr)
    {
        return KyResult(KyResult::NOT_OPEN);
    }
    // The number is read before the port is opened: a device that restarts meanwhile counts as away.
    const uint64_t lGeneration = mWatch.GetGeneration();
    // A reconnecting bridge sets the device up again itself: the device may have lost its settings.
    if (ReopenDevicePort() && !mWatch.IsReconnecting())
    {
        mWatch.SetUp(lGeneration);
    }
    return KyResult(KyResult::OK);
}

// Whether the port is open now, and was closed before.
bool Bridge::ReopenDevicePort()
{
    {
        const auto lInside = mGate.Share(); // another thread may be opening the port again
        EndDeviceTransfers(true);
    }
    // No thread may be inside an engine that is replaced. The waits of those inside have been ended above.
    const auto lAlone = mGate.Alone();
    static_cast<void>(mDevicePort->Close()); // ignored: later transfers show whether the port works
    // First: the port gets another engine, which counts anew.
    CountReceived(false);
    // A port that could not be closed keeps its claim. Opening it would put a new engine in the place of the
    // one that has the claim, and no later call could ever take the port back.
    bool lIsOpen = false;
    if (!mDevicePort->IsOpened())
    {
        lIsOpen = mDevicePort->Open(mDevice, mDevicePortID).IsOK();
        UseWriteMonitor();
    }
    EndDeviceTransfers(false); // a port that could not be opened has the engine that it had
    return lIsOpen;
}

void Bridge::UseLargeBuffer()
{
    // Ignored: without the memory for it the port works with its own, smaller buffer.
    static_cast<void>(mDevicePort->SetRxBufferSize(cReceiveBufferSize));
}

// A new engine has no monitor yet.
void Bridge::UseWriteMonitor()
{
    if (mWatch.IsOn() && mDevicePort->mThis != nullptr)
    {
        mDevicePort->mThis->SetWriteMonitor(&mWatch);
    }
}

uint32_t Bridge::WatchThread(void* aBridge)
{
    static_cast<Bridge*>(aBridge)->Watch();
    return 0;
}

// Looks for the device, reports what has changed, and has the port work again if the bridge is to see to it.
void Bridge::Watch()
{
    bool lGone = false;
    uint64_t lLostBefore = GetLostToDevice();
    uint64_t lNextTry = 0;
    while (mStopEvent.Wait(cLookPeriod) == KyPlatform::WaitResult::TimedOut)
    {
        if (mWatch.LookForDevice())
        {
            if (!std::exchange(lGone, true))
            {
                mWatch.ReportGone();
            }
            if (mWatch.IsReconnecting())
            {
                TryToReconnect(lNextTry);
            }
        }
        // This is no "else", because the reconnecting above may have brought the
        // device back in this very turn.
        if (!mWatch.IsAway())
        {
            const uint64_t lLost = GetLostToDevice();
            if (std::exchange(lGone, false))
            {
                mWatch.ReportBack(lLost - std::min(lLost, lLostBefore)); // less: reset meanwhile
            }
            // The losses of the next absence are counted from here.
            lLostBefore = lLost;
        }
    }
}

void Bridge::TryToReconnect(uint64_t& aNextTry)
{
    {
        const auto lInside = mGate.Share();
        if (mDevicePort->mThis != nullptr)
        {
            mDevicePort->mThis->EndWrites(true); // the interrupt that a writer waits for does not come
        }
    }
    const uint64_t lNow = JxUtilsLib::Thread::GetTickCount();
    // A device that starts may refuse its set-up for a while, so the tries come more rarely than the looks.
    if (mWatch.IsThere() && lNow >= aNextTry)
    {
        aNextTry = lNow + cRetryPeriod;
        static_cast<void>(CatchOutOfMemory([this] { return Reconnect(); })); // ignored: the next try comes
    }
}

// Gives a device that is back its settings, then the bridge its port: the port takes some of the settings
// from the device when it is opened.
KyResult Bridge::Reconnect()
{
    const uint64_t lGeneration = mWatch.GetGeneration(); // first: the device may go again meanwhile
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, "KySerialLib::Bridge::Reconnect");
    // StopThreads() waits for this thread, and each step may take long: the flag is looked at in between.
    if (!lResult.IsOK() || mStop)
    {
        return lResult;
    }
    const uint32_t lRefused = SyncAll(GetBaudRate(), true);
    // Settings that the device refused before hold nothing up. A new refusal means that it is not ready yet.
    if ((lRefused & ~mRefusedSettings) != 0 || mStop || !ReopenDevicePort())
    {
        return KyResult(KyResult::FAILURE); // logged where it was found
    }
    {
        const auto lInside = mGate.Share();
        UseLargeBuffer(); // the engine is a new one; Recover() alone leaves it its own, smaller buffer
    }
    mRefusedSettings = lRefused;
    // Bytes go to the device again from here on, so everything that it needs has been set before.
    mWatch.SetUp(lGeneration);
    ReportSettings();
    return lResult;
}

void Bridge::ReportSettings()
{
    KySerialPortConfiguration lSettings = GetConfiguration();
    lSettings.mBaudRate = GetBaudRate();
    mWatch.ReportSettings(lSettings);
}

uint64_t Bridge::GetLostToDevice() const
{
    const KySerialBridgeFlow lFlow = mAccount.Get(BridgeWay::ToDevice);
    // A write that an absence interrupts may count as refused, so the sum is what the absence has cost.
    return lFlow.mAway + lFlow.mRefused;
}

// Ends the wait of a thread that reads from the device or writes to it.
void Bridge::EndDeviceTransfers(bool aEnd)
{
    if (mDevicePort != nullptr && mDevicePort->mThis != nullptr)
    {
        mDevicePort->mThis->EndReads(aEnd);
        mDevicePort->mThis->EndWrites(aEnd);
    }
}

bool Bridge::ReadFromDevice(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, uint32_t aTimeout)
{
    const auto lInside = mGate.Share();
    const KyResult lResult = mDevicePort->Read(aBuffer, aSize, aRead, aTimeout);
    // A flush that comes between the wake-up and the copying leaves a read that is OK and has no bytes.
    if (!lResult.IsOK() || aRead == 0)
    {
        return false;
    }
    if (mWatch.HasObserver())
    {
        CountReceived(false); // a loss is reported when it happens
        mWatch.ReportTraffic(BridgeWay::FromDevice, aBuffer, aRead);
    }
    return true;
}

// One write for the whole block: the device gets the messages that the host's program has sent, and a
// transmit FIFO does not run empty inside one.
bool Bridge::WriteToDevice(const uint8_t* aData, uint32_t aSize)
{
    mAccount.Take(BridgeWay::ToDevice, aSize);
    const uint64_t lSetup = mWatch.GetSetup();
    uint32_t lDone = 0;
    bool lFailed = false;
    bool lIsAway = false; // kept: the device may be back before the rest of the block is counted
    while (lDone < aSize && !lFailed && !mStop)
    {
        lIsAway = mWatch.IsDropping();
        if (lIsAway)
        {
            break;
        }
        // The gate is taken anew for each write, so that Recover() gets its turn between two of them.
        const auto lInside = mGate.Share();
        uint32_t lWritten = 0;
        lFailed = !mDevicePort->Write(aData + lDone, aSize - lDone, lWritten).IsOK();
        mStatistics.mBytesSentToDevice += lWritten;
        mAccount.Deliver(BridgeWay::ToDevice, lWritten);
        lDone += lWritten; // less than the block: Recover() has ended the write, and the rest follows it
    }
    // A write that a stop has ended is OK and short, so the flag decides first what became of the rest.
    if (mStop)
    {
        CutOff(BridgeWay::ToDevice, aSize - lDone);
        return true;
    }
    // A write may fail because the device has just gone. HasLost() looks, since the watch may not have seen
    // that yet. Another number of the set-up shows that the device was away and is back already.
    lIsAway = lIsAway || mWatch.IsDropping() ||
              (mWatch.IsReconnecting() && (mWatch.HasLost(lSetup) || mWatch.GetSetup() != lSetup));
    if (lDone < aSize && lIsAway)
    {
        Lose(BridgeWay::ToDevice, KySerialBridgeLoss::Away, aSize - lDone);
        return true;
    }
    Lose(BridgeWay::ToDevice, KySerialBridgeLoss::Refused, aSize - lDone);
    return !lFailed;
}

uint32_t Bridge::CountDelivery(uint32_t aSize, uint32_t aDelivered)
{
    const uint32_t lLost = aSize - aDelivered;
    mAccount.Deliver(BridgeWay::FromDevice, aDelivered);
    // A stop ends the host side's write early. What is left then was cut off, not refused.
    if (mStop)
    {
        CutOff(BridgeWay::FromDevice, lLost);
        return lLost;
    }
    Lose(BridgeWay::FromDevice, KySerialBridgeLoss::Refused, lLost);
    return 0;
}

void Bridge::CutOff(BridgeWay aWay, uint32_t aLost)
{
    if (aLost == 0)
    {
        return;
    }
    ++mStatistics.mTransferErrors;
    Lose(aWay, KySerialBridgeLoss::CutOff, aLost);
}

void Bridge::Lose(BridgeWay aWay, KySerialBridgeLoss aLoss, uint64_t aBytes)
{
    // The order is that of KySerialBridgeLoss, whose values are the indexes.
    static constexpr BridgeAccount::Loss cCounts[] = {
        &KySerialBridgeFlow::mOverrun, &KySerialBridgeFlow::mCleared, &KySerialBridgeFlow::mRefused,
        &KySerialBridgeFlow::mCutOff, &KySerialBridgeFlow::mAway};
    mAccount.Lose(aWay, cCounts[static_cast<int>(aLoss)], aBytes);
    mWatch.ReportLoss(aWay, aLoss, aBytes);
}

// Enters what the device port has received. Not while the port is being replaced.
void Bridge::CountReceived(bool aIsEnd)
{
    if (mDevicePort == nullptr || mDevicePort->mThis == nullptr)
    {
        return;
    }
    const SerialPort::ReceiveCounts lCounts = mDevicePort->mThis->TakeReceiveCounts();
    mAccount.Take(BridgeWay::FromDevice, lCounts.mReceived);
    Lose(BridgeWay::FromDevice, KySerialBridgeLoss::Overrun, lCounts.mOverrun);
    Lose(BridgeWay::FromDevice, aIsEnd ? KySerialBridgeLoss::CutOff : KySerialBridgeLoss::Cleared,
         lCounts.mCleared);
}

void Bridge::ClearReceived()
{
    const auto lInside = mGate.Share();
    static_cast<void>(mDevicePort->FlushRxBuffer()); // cannot fail
    CountReceived(false);
}

KySerialBridgeFlow Bridge::GetFlow(BridgeWay aWay)
{
    const auto lInside = mGate.Share();
    // The port counts what arrives by itself. Its count is fetched first, so that the answer is up to date.
    CountReceived(false);
    return mAccount.Get(aWay);
}

void Bridge::SetFinalFlows(KySerialBridgeFlow* aToDevice, KySerialBridgeFlow* aFromDevice)
{
    mFinalToDevice = aToDevice;
    mFinalFromDevice = aFromDevice;
}

} // namespace KySerialLib
