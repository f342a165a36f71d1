// The part of Bridge that deals with the device port's settings, which are GenICam features of the device.

#include "Bridge.h"
#include "FeatureSelectorScope.h"
#include "JxUtilsLib/Assert.h"
#include "LogResult.h"

#include <cstdio>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/Bridge";

constexpr char cUart[] = "UART";

} // namespace

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
        mRegisteredFeatures.push_back(aFeature);
    }
}

void Bridge::GetParameters()
{
    for (KyString* lText : {&mBaudRateFeature, &mParityFeature, &mStopBitsFeature, &mBulkModeFeature,
                            &mSelectorValue, &mSelectorFeature})
    {
        *lText = KyString();
    }
    mRegisteredFeatures.clear();

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
            lPrefix[4] = '\0'; // the selector says which port is meant
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
        aSaved = lText; // a value that could not be read must not be written back one day
    }
}

KyResult Bridge::BackupPortConfig()
{
    if (mDevicePortID == KyDeviceSerialInvalid)
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, "KySerialLib::Bridge::BackupPortConfig");
    if (!lResult.IsOK())
    {
        return lResult;
    }
    Backup(mBaudRateFeature, mSavedBaudRate);
    Backup(mParityFeature, mSavedParity);
    Backup(mStopBitsFeature, mSavedStopBits);
    Backup(mBulkModeFeature, mSavedBulkMode);
    return lResult;
}

void Bridge::Restore(const KyString& aFeature, const KyString& aSaved)
{
    if (aFeature.GetLength() > 0 && aSaved.GetLength() > 0 && mDevice->IsFeatureWritable(aFeature))
    {
        static_cast<void>(mDevice->SetFeatureFromString(aFeature, aSaved)); // ignored: the others still count
    }
}

KyResult Bridge::RestorePortConfig()
{
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, "KySerialLib::Bridge::RestorePortConfig");
    if (!lResult.IsOK())
    {
        return lResult;
    }
    Restore(mBaudRateFeature, mSavedBaudRate);
    Restore(mParityFeature, mSavedParity);
    Restore(mStopBitsFeature, mSavedStopBits);
    Restore(mBulkModeFeature, mSavedBulkMode);
    return lResult;
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
        // Number and base as this conversion takes them: entries of devices in the field are written to suit
        // it.
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
        // Ignored, each of them: a device that cannot be set in one respect is still set in the others.
        static_cast<void>(SyncBulkMode());
        static_cast<void>(SyncParity());
        static_cast<void>(SyncStopBits());
        static_cast<void>(SyncBaudRate(false));
    }
    return lResult;
}

KyResult Bridge::SyncBaudRate(bool aForce)
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::SyncBaudRate";
    const uint32_t lBaudRate = GetConfiguration().mBaudRate;
    if (mBaudRateFeature.GetLength() == 0 || (!aForce && lBaudRate == mDeviceBaudRate))
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
    static_cast<void>(std::snprintf(lText, sizeof lText, "Baud%u", static_cast<unsigned>(lBaudRate)));
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
    mDeviceBaudRate = lBaudRate;
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

// Both settings that come here report failures with the texts of the parity; support people know them so.
KyResult Bridge::SyncEntry(const KyString& aFeature, const KyString& aEntry, const char* aFunction)
{
    KyString lCurrent;
    if (!mDevice->GetFeatureAsString(aFeature, lCurrent).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction,
                             "Error reading device serial port parity.");
    }
    if (lCurrent == aEntry)
    {
        return KyResult(KyResult::OK);
    }
    if (!mDevice->SetFeatureFromString(aFeature, aEntry).IsOK())
    {
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, aFunction,
                             "Error setting device serial port parity.");
    }
    return KyResult(KyResult::OK);
}

KyResult Bridge::SyncParity()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::SyncParity";
    if (mParityFeature.GetLength() == 0)
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (!lResult.IsOK() || !mDevice->IsFeatureWritable(mParityFeature))
    {
        return lResult;
    }
    switch (GetConfiguration().mParity)
    {
    case KyParityNone:
        return SyncEntry(mParityFeature, "None", cFunction);
    case KyParityEven:
        return SyncEntry(mParityFeature, "Even", cFunction);
    case KyParityOdd:
        return SyncEntry(mParityFeature, "Odd", cFunction);
    }
    JX_ASSERT(false);
    return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction, "Unexpected parity value.");
}

KyResult Bridge::SyncStopBits()
{
    static constexpr char cFunction[] = "KySerialLib::Bridge::SyncStopBits";
    if (mStopBitsFeature.GetLength() == 0)
    {
        return KyResult(KyResult::OK);
    }
    FeatureSelectorScope lScope(mDevice);
    KyResult lResult = SetSelector(lScope, cFunction);
    if (!lResult.IsOK() || !mDevice->IsFeatureWritable(mStopBitsFeature))
    {
        return lResult;
    }
    switch (GetConfiguration().mStopBits)
    {
    case 1:
        return SyncEntry(mStopBitsFeature, "One", cFunction);
    case 2:
        return SyncEntry(mStopBitsFeature, "Two", cFunction);
    default:
        JX_ASSERT(false);
        return KY_LOG_RESULT(*mLogger, KyResult::UNSUPPORTED, cFunction, "Unexpected stop bits value.");
    }
}

} // namespace KySerialLib
