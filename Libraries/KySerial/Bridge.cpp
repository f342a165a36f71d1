#include "Bridge.h"

#include "FeatureSelectorScope.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Thread.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "SerialPort.h"

#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/Bridge";

constexpr uint32_t cReceiveBufferSize = 0x10000;

} // namespace

Bridge::Bridge() : mLogger(std::make_unique<JxUtilsLib::Logger>(cLogCategory, 0)) {}

Bridge::~Bridge()
{
    Release();
}

void Bridge::Release() noexcept
{
    if (std::exchange(mReleased, true))
    {
        return;
    }
    KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, "KySerialLib::Bridge::~Bridge",
           "Bridge releasing serial port resources.");
    static_cast<void>(
        CatchOutOfMemory([this] { return RestorePortConfig(); })); // ignored: nobody left to tell
    if (mDevice != nullptr)
    {
        static_cast<void>(mDevice->UnregisterEventSink(this)); // ignored, like the other steps of letting go
        mRegisteredFeatures.clear();
        for (const KyString* lFeature :
             {&mBaudRateFeature, &mParityFeature, &mStopBitsFeature, &mBulkModeFeature})
        {
            if (lFeature->GetLength() > 0)
            {
                static_cast<void>(mDevice->UnregisterFeatureInterest(*lFeature));
            }
        }
    }
    CloseAndSettle();
}

// The device port's last bytes are nobody's any more: closing it drops them, and one that cannot be closed
// keeps them to no avail.
void Bridge::CloseAndSettle() noexcept
{
    if (mDevicePort != nullptr)
    {
        CountReceived(false);
        static_cast<void>(mDevicePort->Close()); // ignored: the steps before have let go of the device
        static_cast<void>(mDevicePort->FlushRxBuffer()); // cannot fail
        CountReceived(true);
    }
    const KySerialBridgeFlow lToDevice = mAccount.Get(BridgeWay::ToDevice);
    const KySerialBridgeFlow lFromDevice = mAccount.Get(BridgeWay::FromDevice);
    if (lToDevice.mCutOff > 0 || lFromDevice.mCutOff > 0)
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, "KySerialLib::Bridge::~Bridge",
               "The stop cut off %llu of %llu bytes to the device and %llu of %llu bytes from the device.",
               static_cast<unsigned long long>(lToDevice.mCutOff),
               static_cast<unsigned long long>(lToDevice.mTaken),
               static_cast<unsigned long long>(lFromDevice.mCutOff),
               static_cast<unsigned long long>(lFromDevice.mTaken));
    }
    if (mFinalToDevice != nullptr && mFinalFromDevice != nullptr)
    {
        *mFinalToDevice = lToDevice;
        *mFinalFromDevice = lFromDevice;
    }
}

void Bridge::NotifyEvent(uint16_t /*aEventID*/, uint16_t /*aChannel*/, uint64_t /*aBlockID*/,
                         uint64_t /*aTimestamp*/, const void* /*aData*/, uint32_t /*aDataLength*/)
{
}

void Bridge::NotifyFeatureInvalidated(const KyString* /*aName*/) {}

uint32_t Bridge::GetBaudRate() const
{
    return mDeviceBaudRate;
}

uint32_t Bridge::GetSupportedBaudRate(uint32_t aIndex) const
{
    JX_EXPECT(aIndex < mSupportedBaudRates.size());
    return aIndex < mSupportedBaudRates.size() ? mSupportedBaudRates[aIndex] : 0;
}

KySerialPortConfiguration Bridge::GetConfiguration() const
{
    const JxUtilsLib::LockScope lLock(mConfigurationMutex);
    return mConfiguration;
}

void Bridge::SetConfiguration(const KySerialPortConfiguration& aConfiguration)
{
    const JxUtilsLib::LockScope lLock(mConfigurationMutex);
    mConfiguration = aConfiguration;
}

void Bridge::ResetStatistics()
{
    mStatistics.mBytesSentToDevice = 0;
    mStatistics.mSpare = 0;
    mStatistics.mBytesReceivedFromDevice = 0;
    mStatistics.mTransferErrors = 0;
    const auto lInside = mGate.Share();
    CountReceived(false);
    mAccount.Reset();
}

KyResult Bridge::OpenDevicePort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    if (!KyDeviceSerialPort::IsSupported(aDevice, aPort))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, "KySerialLib::Bridge::OpenDevicePort",
                             "Requested device port not supported.");
    }
    mDevicePortID = aPort;
    mDevice = aDevice;
    static_cast<void>(mDevice->RegisterEventSink(this)); // ignored: this sink does nothing with events
    mDevicePort = std::make_unique<KyDeviceSerialPort>();
    KyResult lResult = mDevicePort->Open(aDevice, aPort);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    // Ignored: without the memory for it the port works with its own, smaller buffer.
    static_cast<void>(mDevicePort->SetRxBufferSize(cReceiveBufferSize));
    GetParameters();
    static_cast<void>(BackupPortConfig()); // ignored: what could not be saved is not restored
    return lResult;
}

KyResult Bridge::Start()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::Start";
    if (!mStopEvent.Create())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Unable to create event required to stop bridge threads.");
    }
    if (!mUpThread.Start(GetUpThreadRoutine(), this))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Unable to start bridge upstream thread.");
    }
    static_cast<void>(mUpThread.SetName("BridgeUpstream")); // ignored: for debuggers only
    if (!mDownThread.Start(GetDownThreadRoutine(), this))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction,
                             "Unable to start bridge downstream thread.");
    }
    static_cast<void>(mDownThread.SetName("BridgeDownstream"));
    return KyResult(KyResult::OK);
}

void Bridge::StopThreads()
{
    const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
    mStop = true;
    if (mStopEvent.IsValid())
    {
        static_cast<void>(mStopEvent.Set()); // cannot fail for an event that is ours
    }
    {
        const auto lInside = mGate.Share();
        EndDeviceTransfers(true);
    }
    for (KyPlatform::WorkerThread* lThread : {&mUpThread, &mDownThread})
    {
        if (lThread->IsRunning())
        {
            static_cast<void>(lThread->Join()); // ignored: what the routines return says nothing new
            KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, "KySerialLib::Bridge::StopThreads",
                   "Bridge threads stop time: %i.",
                   static_cast<int>(JxUtilsLib::Thread::GetTickCount() - lStart));
        }
    }
}

KyResult Bridge::Recover()
{
    if (mDevicePort == nullptr)
    {
        return KyResult(KyResult::NOT_OPEN);
    }
    {
        const auto lInside = mGate.Share(); // somebody else may be opening the port again
        EndDeviceTransfers(true);
    }
    const auto lAlone = mGate.Alone();
    static_cast<void>(
        mDevicePort->Close()); // ignored: what matters is what comes through the port afterwards
    // Before the port gets another engine, which counts anew.
    CountReceived(false);
    // A port that could not be closed keeps its claim. Opening it would put a new engine in the place of the
    // one that has the claim, and no later call could ever take the port back.
    if (!mDevicePort->IsOpened())
    {
        static_cast<void>(mDevicePort->Open(mDevice, mDevicePortID));
    }
    EndDeviceTransfers(false); // a port that could not be opened has the engine that it had
    return KyResult(KyResult::OK);
}

// A thread that waits for the device to say something, or to be done, is let go at once.
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
    return lResult.IsOK() && aRead > 0;
}

// One write for the whole block: the device gets the messages that the host's program has sent, and a
// transmit FIFO does not run empty inside one.
bool Bridge::WriteToDevice(const uint8_t* aData, uint32_t aSize)
{
    mAccount.Take(BridgeWay::ToDevice, aSize);
    uint32_t lDone = 0;
    bool lFailed = false;
    while (lDone < aSize && !lFailed && !mStop)
    {
        const auto lInside = mGate.Share();
        uint32_t lWritten = 0;
        lFailed = !mDevicePort->Write(aData + lDone, aSize - lDone, lWritten).IsOK();
        mStatistics.mBytesSentToDevice += lWritten;
        mAccount.Deliver(BridgeWay::ToDevice, lWritten);
        lDone += lWritten; // less than the block: Recover() has ended the write, and the rest follows it
    }
    if (mStop)
    {
        CutOff(BridgeWay::ToDevice, aSize - lDone);
        return true;
    }
    mAccount.Lose(BridgeWay::ToDevice, &KySerialBridgeFlow::mRefused, aSize - lDone);
    return !lFailed;
}

uint32_t Bridge::CountDelivery(uint32_t aSize, uint32_t aDelivered)
{
    const uint32_t lLost = aSize - aDelivered;
    mAccount.Deliver(BridgeWay::FromDevice, aDelivered);
    if (mStop)
    {
        CutOff(BridgeWay::FromDevice, lLost);
        return lLost;
    }
    mAccount.Lose(BridgeWay::FromDevice, &KySerialBridgeFlow::mRefused, lLost);
    return 0;
}

void Bridge::CutOff(BridgeWay aWay, uint32_t aLost)
{
    if (aLost == 0)
    {
        return;
    }
    ++mStatistics.mTransferErrors;
    mAccount.Lose(aWay, &KySerialBridgeFlow::mCutOff, aLost);
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
    mAccount.Lose(BridgeWay::FromDevice, &KySerialBridgeFlow::mOverrun, lCounts.mOverrun);
    mAccount.Lose(BridgeWay::FromDevice,
                  aIsEnd ? &KySerialBridgeFlow::mCutOff : &KySerialBridgeFlow::mCleared, lCounts.mCleared);
}

KySerialBridgeFlow Bridge::GetFlow(BridgeWay aWay)
{
    const auto lInside = mGate.Share();
    CountReceived(false);
    return mAccount.Get(aWay);
}

void Bridge::SetFinalFlows(KySerialBridgeFlow* aToDevice, KySerialBridgeFlow* aFromDevice)
{
    mFinalToDevice = aToDevice;
    mFinalFromDevice = aFromDevice;
}

} // namespace KySerialLib
