#include "Bridge.h"

#include "FeatureSelectorScope.h"
#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Thread.h"
#include "LogResult.h"
#include "OutOfMemory.h"
#include "SerialPort.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/Bridge";

constexpr char cUart[] = "UART";

// The features' entries, each with the value of the configuration that it stands for.
template<typename Value>
struct Entry
{
    Value mValue;
    const char* mText;
};
constexpr Entry<KyParity> cParities[] = {
    {KyParityNone, "None"}, {KyParityEven, "Even"}, {KyParityOdd, "Odd"}};
constexpr Entry<uint32_t> cStopBits[] = {{1, "One"}, {2, "Two"}};

// The entry that stands for a value; null: none does.
template<typename Value, size_t cCount>
const char* GetEntry(const Entry<Value> (&aEntries)[cCount], Value aValue)
{
    const auto* const lFound =
        std::find_if(std::begin(aEntries), std::end(aEntries),
                     [&](const Entry<Value>& aEntry) { return aEntry.mValue == aValue; });
    return lFound != std::end(aEntries) ? lFound->mText : nullptr;
}

} // namespace

Bridge::Bridge() : mLogger(std::make_unique<JxUtilsLib::Logger>(cLogCategory, 0)) {}

Bridge::~Bridge()
{
    Release();
}

void Bridge::Release() noexcept
{
    // The flavour's destructor has released already when the base's destructor comes here.
    if (std::exchange(mReleased, true))
    {
        return;
    }
    KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, "KySerialLib::Bridge::~Bridge",
           "Bridge releasing serial port resources.");
    static_cast<void>(CatchOutOfMemory(
        [this] { return RestorePortConfig(); })); // ignored: a destructor has no caller to report to
    if (mDevice != nullptr)
    {
        static_cast<void>(mDevice->UnregisterEventSink(this)); // ignored, like the other steps of letting go
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

// Bytes that the device port still holds are lost: Close() drops them, and nobody reads them from a port that
// cannot be closed. They have to be counted first.
void Bridge::CloseAndSettle() noexcept
{
    if (mDevicePort != nullptr)
    {
        // What was cleared until now counts as cleared. Only what the next two steps drop is cut off.
        CountReceived(false);
        static_cast<void>(mDevicePort->Close());         // ignored: nothing is left to undo
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
    mStatistics.mBytesReceivedFromDevice = 0;
    mStatistics.mTransferErrors = 0;
    // The gate keeps the engine in place. Bytes that it has received by now belong to the former account.
    const auto lInside = mGate.Share();
    CountReceived(false);
    mAccount.Reset();
}

// What a device says about its bulk ports, it says about the one that is selected.
KyResult Bridge::SelectPort(FeatureSelectorScope& aScope, KyDeviceSerial aPort)
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::OpenDevicePort";
    const KyString lSelector("BulkSelector");
    // A device without the selector has features of its own for each bulk port. UARTs never depend on it.
    if (aPort < KyDeviceSerialBulk0 || !mDevice->IsFeatureAvailable(lSelector))
    {
        return KyResult(KyResult::OK);
    }
    char lEntry[16];
    static_cast<void>(std::snprintf(lEntry, sizeof lEntry, "Bulk%d", aPort - KyDeviceSerialBulk0));
    return aScope.Set(lSelector, lEntry).IsOK()
               ? KyResult(KyResult::OK)
               : KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction, "Error setting Bulk selector.");
}

KyResult Bridge::OpenDevicePort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    // The scope lasts until the port is open: no other bridge of the device moves the selector meanwhile.
    FeatureSelectorScope lScope(aDevice);
    if (mSelectsPort || mOptions.mSelectsPort)
    {
        mDevice = aDevice;
        KyResult lSelected = SelectPort(lScope, aPort);
        if (!lSelected.IsOK())
        {
            return lSelected;
        }
    }
    // The question follows the selection, since the device answers for the bulk port that is selected.
    if (!KyDeviceSerialPort::IsSupported(aDevice, aPort))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, "KySerialLib::Bridge::OpenDevicePort",
                             "Requested device port not supported.");
    }
    mDevicePortID = aPort;
    mDevice = aDevice;
    // The watch begins before the opening: a restart of the device meanwhile shows as another connection.
    mWatch.Begin(mOptions, aDevice);
    static_cast<void>(mDevice->RegisterEventSink(this)); // ignored: this sink does nothing with events
    mDevicePort = std::make_unique<KyDeviceSerialPort>();
    KyResult lResult = mDevicePort->Open(aDevice, aPort);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    UseWriteMonitor();
    UseLargeBuffer();
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
    // Without options nobody wants to know of absences, and the device is spared the looks for it.
    if (mWatch.IsOn() && !mWatchThread.Start(&WatchThread, this))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::FAILURE, cFunction, "Unable to start bridge watch thread.");
    }
    if (mWatchThread.IsRunning())
    {
        static_cast<void>(mWatchThread.SetName("BridgeWatch"));
    }
    return KyResult(KyResult::OK);
}

void Bridge::StopThreads()
{
    const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
    // The flag is set first, because each thread that a later step wakes looks at it.
    mStop = true;
    if (mStopEvent.IsValid())
    {
        static_cast<void>(mStopEvent.Set()); // cannot fail for an event that is ours
    }
    EndHostTransfers();
    if (mWatchThread.IsRunning()) // first: it may be opening the port again, which would let transfers go on
    {
        static_cast<void>(mWatchThread.Join()); // ignored: it returns nothing
    }
    {
        // The gate keeps Recover() of another thread from replacing the engine meanwhile.
        const auto lInside = mGate.Share();
        EndDeviceTransfers(true);
    }
    for (KyPlatform::WorkerThread* lThread : {&mUpThread, &mDownThread})
    {
        if (lThread->IsRunning())
        {
            static_cast<void>(lThread->Join()); // ignored: the routines report their failures themselves
            KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, "KySerialLib::Bridge::StopThreads",
                   "Bridge threads stop time: %i.",
                   static_cast<int>(JxUtilsLib::Thread::GetTickCount() - lStart));
        }
    }
}

// The settings of the device port, which are GenICam features of the device.

KyString Bridge::FindFeature(const char* aPrefix, const char* aSuffix)
{
    char lText[64];
    static_cast<void>(std::snprintf(lText, sizeof lText, "%s%s", aPrefix, aSuffix)); // 8 + 13 bytes at most
    const KyString lName(lText);
    return mDevice != nullptr && mDevice->IsFeatureAvailable(lName) ? lName : KyString();
}

void Bridge::RegisterInterest(const KyString& aFeature)
{
    if (aFeature.GetLength() > 0)
    {
        static_cast<void>(mDevice->RegisterFeatureInterest(aFeature)); // ignored: changes are not looked at
    }
}

void Bridge::GetParameters()
{
    for (KyString* lText : {&mBaudRateFeature, &mParityFeature, &mStopBitsFeature, &mBulkModeFeature,
                            &mSelectorValue, &mSelectorFeature})
    {
        *lText = KyString();
    }
    char lPrefix[16] = "";
    const int lPort = mDevicePortID;
    if (lPort == KyDeviceSerialUart0 || lPort == KyDeviceSerialUart1)
    {
        static_cast<void>(std::snprintf(lPrefix, sizeof lPrefix, "Uart%d", lPort));
    }
    else if (lPort >= KyDeviceSerialBulk0 && lPort <= KyDeviceSerialBulk7)
    {
        mSelectorFeature = FindFeature("Bulk", "Selector");
        mBulkModeFeature = FindFeature("Bulk", "Mode");
        RegisterInterest(mBulkModeFeature);
        static_cast<void>(std::snprintf(lPrefix, sizeof lPrefix, "Bulk%d", lPort - KyDeviceSerialBulk0));
        mSelectorValue = KyString(lPrefix);
        if (mSelectorFeature.GetLength() > 0)
        {
            lPrefix[4] = '\0'; // the selector chooses the port
        }
    }
    else
    {
        KY_LOG(*mLogger, JxUtilsLib::PriorityWarning, "KySerialLib::Bridge::GetParameters",
               "Unexpected port identifier.");
        JX_ASSERT(false);
    }

    const std::pair<KyString*, const char*> lFeatures[] = {
        {&mBaudRateFeature, "BaudRate"}, {&mParityFeature, "Parity"}, {&mStopBitsFeature, "NumOfStopBits"}};
    for (const auto& [lFeature, lSuffix] : lFeatures)
    {
        *lFeature = FindFeature(lPrefix, lSuffix);
        RegisterInterest(*lFeature);
    }
}

KyResult Bridge::SetSelector(FeatureSelectorScope& aScope, const char* aFunction)
{
    // A device without a selector has features for each port. GetParameters() has found those of this one.
    if (mSelectorFeature.GetLength() == 0)
    {
        return KyResult(KyResult::OK);
    }
    if (!aScope.Set(mSelectorFeature, mSelectorValue).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction, "Error setting Bulk selector.");
    }
    return KyResult(KyResult::OK);
}

void Bridge::Backup(const KyString& aFeature, KyString& aSaved)
{
    KyString lText;
    if (aFeature.GetLength() == 0 || !mDevice->IsFeatureReadable(aFeature))
    {
        return;
    }
    if (mDevice->GetFeatureAsString(aFeature, lText).IsOK())
    {
        aSaved = lText; // only a value that was read may be written back later
    }
}

KyResult Bridge::ForEachSaved(const char* aFunction, void (Bridge::*aDo)(const KyString&, KyString&))
{
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, aFunction);
    // Without the selection the features may be those of another port, so none is touched.
    if (lResult.IsOK())
    {
        (this->*aDo)(mBaudRateFeature, mSavedBaudRate);
        (this->*aDo)(mParityFeature, mSavedParity);
        (this->*aDo)(mStopBitsFeature, mSavedStopBits);
        (this->*aDo)(mBulkModeFeature, mSavedBulkMode);
    }
    return lResult;
}

KyResult Bridge::BackupPortConfig()
{
    return mDevicePortID == KyDeviceSerialInvalid
               ? KyResult(KyResult::OK)
               : ForEachSaved("KySerialLib::Bridge::BackupPortConfig", &Bridge::Backup);
}

void Bridge::Restore(const KyString& aFeature, KyString& aSaved)
{
    // A setting that could not be read at the start has no text here, and the device keeps what it has.
    if (aFeature.GetLength() > 0 && aSaved.GetLength() > 0 && mDevice->IsFeatureWritable(aFeature))
    {
        static_cast<void>(mDevice->SetFeatureFromString(aFeature, aSaved)); // ignored: the others still count
    }
}

KyResult Bridge::RestorePortConfig()
{
    return ForEachSaved("KySerialLib::Bridge::RestorePortConfig", &Bridge::Restore);
}

KySerialPortConfiguration Bridge::ReadDeviceSettings()
{
    KySerialPortConfiguration lSettings;
    // Rate 0, parity -1 and 0 stop bits mean that the device does not say. MakeInvalid() leaves out the last.
    lSettings.MakeInvalid();
    lSettings.mStopBits = 0;
    FeatureSelectorScope lScope(mDevice);
    if (!SetSelector(lScope, "KySerialLib::Bridge::ReadDeviceSettings").IsOK())
    {
        return lSettings;
    }
    KyString lBaudRate;
    KyString lParity;
    KyString lStopBits;
    Backup(mBaudRateFeature, lBaudRate);
    Backup(mParityFeature, lParity);
    Backup(mStopBitsFeature, lStopBits);
    unsigned lRate = 0;
    lSettings.mBaudRate = std::sscanf(lBaudRate.GetAscii(), "Baud%u", &lRate) == 1 ? lRate : 0;
    for (const auto& [lEntry, lValue] : {std::pair<const char*, KyParity>{"None", KyParityNone},
                                         {"Even", KyParityEven},
                                         {"Odd", KyParityOdd}})
    {
        lSettings.mParity = lParity == lEntry ? lValue : lSettings.mParity;
    }
    lSettings.mStopBits = lStopBits == "One" ? 1 : lStopBits == "Two" ? 2 : 0;
    return lSettings;
}

KyResult Bridge::RefreshSupportedBaudRates()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::RefreshSupportedBaudRates";
    mSupportedBaudRates.clear();
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (mBaudRateFeature.GetLength() == 0 || !mDevice->IsFeatureReadable(mBaudRateFeature))
    {
        return KY_LOG_RESULT(*mLogger, KyResult::NOT_READABLE, cFunction,
                             "Device port baud rate is not readable.");
    }
    KyStringList lEntries;
    if (!mDevice->GetEnumEntries(mBaudRateFeature, lEntries).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::NOT_READABLE, cFunction,
                             "Error reading device port baud rates count.");
    }
    for (const KyString* lEntry = lEntries.GetFirst(); lEntry != nullptr; lEntry = lEntries.GetNext())
    {
        // %i takes decimal, octal and hexadecimal numbers, and ignores what follows. Entries of devices in the field
        // rely on that.
        int lBaudRate = 0;
        const bool lIsRate = std::sscanf(lEntry->GetAscii(), "Baud%i", &lBaudRate) == 1;
        if (lIsRate && IsBaudRateSupported(static_cast<uint32_t>(lBaudRate)))
        {
            mSupportedBaudRates.push_back(static_cast<uint32_t>(lBaudRate));
        }
    }
    return lResult;
}

KyResult Bridge::ConfigurePort()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::ConfigurePort";
    if (mDevicePortID == KyDeviceSerialInvalid)
    {
        return KyResult(KyResult::OK);
    }
    if (!GetConfiguration().IsValid().IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, cFunction,
                             "Could not configure device serial port, serial configuration is not valid.");
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (lResult.IsOK())
    {
        // What the device refuses now does not keep it from being set up after an absence.
        mRefusedSettings = SyncAll(GetConfiguration().mBaudRate, false);
        ReportSettings();
    }
    return lResult;
}

// A device that cannot be set in one respect is still set in the others. The result has a bit for each that
// it refuses.
uint32_t Bridge::SyncAll(uint32_t aBaudRate, bool aForce)
{
    uint32_t lRefused = 0;
    lRefused |= SyncBulkMode().IsOK() ? 0U : 1U;
    lRefused |= SyncParity().IsOK() ? 0U : 2U;
    lRefused |= SyncStopBits().IsOK() ? 0U : 4U;
    // A rate that nobody knows, of a device that does not say its own, is left to the device.
    lRefused |= aBaudRate == 0 || SetDeviceBaudRate(aBaudRate, aForce).IsOK() ? 0U : 8U;
    return lRefused;
}

KyResult Bridge::SyncBaudRate(bool aForce)
{
    return SetDeviceBaudRate(GetConfiguration().mBaudRate, aForce);
}

KyResult Bridge::SetDeviceBaudRate(uint32_t aBaudRate, bool aForce)
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::SyncBaudRate";
    // aForce asks the device itself, since its rate may have been changed past the bridge.
    if (mBaudRateFeature.GetLength() == 0 || (!aForce && aBaudRate == mDeviceBaudRate))
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    char lText[16];
    static_cast<void>(std::snprintf(lText, sizeof lText, "Baud%u", static_cast<unsigned>(aBaudRate)));
    const KyString lEntry(lText);
    KyString lCurrent;
    KyResult lStep = mDevice->GetFeatureAsString(mBaudRateFeature, lCurrent);
    if (lStep.IsOK() && lCurrent != lEntry)
    {
        lStep = mDevice->SetFeatureFromString(mBaudRateFeature, lEntry);
    }
    if (!lStep.IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "Error setting device serial port baud rate.");
    }
    // A rate that was refused is not remembered, so the next request for it goes to the device again.
    mDeviceBaudRate = aBaudRate;
    return lResult;
}

KyResult Bridge::SyncBulkMode()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::SyncBulkMode";
    if (mBulkModeFeature.GetLength() == 0)
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    KyString lMode;
    if (!mDevice->GetFeatureAsString(mBulkModeFeature, lMode).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "Error reading device serial bulk port mode.");
    }
    // A bridge joins serial lines, so a bulk port runs as UART for as long as it is bridged.
    const KyString lUart(cUart);
    if (lMode == lUart)
    {
        return lResult;
    }
    if (!mDevice->SetFeatureFromString(mBulkModeFeature, lUart).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction,
                             "Error setting device serial bulk port to UART mode.");
    }
    return lResult;
}

// The stop bits' failures have the texts of the parity too: support people know them like that.
KyResult Bridge::SyncSetting(const KyString& aFeature, const char* aEntry, const char* aFunction,
                             const char* aUnexpected)
{
    if (aFeature.GetLength() == 0)
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, aFunction);
    if (!lResult.IsOK() || !mDevice->IsFeatureWritable(aFeature))
    {
        return lResult; // a setting that the device does not let be written stays as it is
    }
    if (aEntry == nullptr)
    {
        JX_ASSERT(false); // the configuration has been checked
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction, "%s", aUnexpected);
    }
    const KyString lEntry(aEntry);
    KyString lCurrent;
    if (!mDevice->GetFeatureAsString(aFeature, lCurrent).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction,
                             "Error reading device serial port parity.");
    }
    if (lCurrent != lEntry && !mDevice->SetFeatureFromString(aFeature, lEntry).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction,
                             "Error setting device serial port parity.");
    }
    return lResult;
}

KyResult Bridge::SyncParity()
{
    return SyncSetting(mParityFeature, GetEntry(cParities, GetConfiguration().mParity),
                       "KySerialLib::Bridge::SyncParity", "Unexpected parity value.");
}

KyResult Bridge::SyncStopBits()
{
    return SyncSetting(mStopBitsFeature, GetEntry(cStopBits, GetConfiguration().mStopBits),
                       "KySerialLib::Bridge::SyncStopBits", "Unexpected stop bits value.");
}

} // namespace KySerialLib
