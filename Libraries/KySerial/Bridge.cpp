#include "Bridge.h"

#include "FeatureSelectorScope.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Thread.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "SerialPort.h"

#include <algorithm>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/Bridge";

constexpr uint32_t cReceiveBufferSize = 0x10000;

// A write to the device that the line holds up lasts this long at most, so that stopping does not wait for
// it.
constexpr uint32_t cPieceTime = 100;
constexpr uint32_t cSmallestPiece = 64;

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
    if (mDevicePort != nullptr)
    {
        static_cast<void>(mDevicePort->Close());
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
        const BridgeGateScope lInside(mGate);
        EndDeviceReads(true);
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
        const BridgeGateScope lInside(mGate); // somebody else may be opening the port again
        EndDeviceReads(true);
    }
    mGate.Shut();
    static_cast<void>(
        mDevicePort->Close()); // ignored: what matters is what comes through the port afterwards
    // A port that could not be closed keeps its claim. Opening it would put a new engine in the place of the
    // one that has the claim, and no later call could ever take the port back.
    if (!mDevicePort->IsOpened())
    {
        static_cast<void>(mDevicePort->Open(mDevice, mDevicePortID));
    }
    EndDeviceReads(false); // a port that could not be opened has the engine that it had
    mGate.Open();
    return KyResult(KyResult::OK);
}

// A thread that waits for the device to say something is let go at once.
void Bridge::EndDeviceReads(bool aEnd)
{
    if (mDevicePort != nullptr && mDevicePort->mThis != nullptr)
    {
        mDevicePort->mThis->EndReads(aEnd);
    }
}

bool Bridge::ReadFromDevice(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, uint32_t aTimeout)
{
    const BridgeGateScope lInside(mGate);
    const KyResult lResult = mDevicePort->Read(aBuffer, aSize, aRead, aTimeout);
    return lResult.IsOK() && aRead > 0;
}

// Only engines that wait for the line byte by byte or chunk by chunk are given pieces.
uint32_t Bridge::GetPieceSize() const
{
    if (mDevicePortID > KyDeviceSerialBulk0)
    {
        return UINT32_MAX;
    }
    const uint32_t lBytesPerSecond = GetBaudRate() / 10; // start, eight data bits, stop
    return std::max(static_cast<uint32_t>(uint64_t{lBytesPerSecond} * cPieceTime / 1000), cSmallestPiece);
}

bool Bridge::WriteToDevice(const uint8_t* aData, uint32_t aSize)
{
    const uint32_t lPieceSize = GetPieceSize();
    uint32_t lDone = 0;
    while (lDone < aSize && !mStop)
    {
        const BridgeGateScope lInside(mGate);
        const uint32_t lPiece = std::min(aSize - lDone, lPieceSize);
        uint32_t lWritten = 0;
        const bool lWasWritten = mDevicePort->Write(aData + lDone, lPiece, lWritten).IsOK();
        mStatistics.mBytesSentToDevice += lWritten;
        if (!lWasWritten || lWritten < lPiece)
        {
            return mStop;
        }
        lDone += lPiece;
    }
    return true;
}

} // namespace KySerialLib
