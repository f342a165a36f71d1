#include "KySerialC/LineSettings.h"

#include "ApiCall.h"
#include "LineSettingsForm.h"

namespace KySerialCLib
{

namespace
{

bool HasSize(const KyLineSettings* aSettings)
{
    return aSettings != nullptr && aSettings->mSize == sizeof(KyLineSettings);
}

KyResult NoSettings(const char* aFunction)
{
    return Fail(KY_BAD_PARAMETER, aFunction, "No line settings: a null pointer, or the size is not set.");
}

} // namespace

KyResult Convert(const char* aFunction, const KyLineSettings* aSettings,
                 KySerialPortConfiguration& aConfiguration)
{
    if (!HasSize(aSettings))
    {
        return NoSettings(aFunction);
    }
    aConfiguration =
        KySerialPortConfiguration(aSettings->mBaudRate, static_cast<KyParity>(aSettings->mParity),
                                  aSettings->mBitsPerByte, aSettings->mStopBits);
    return KyResult();
}

KyResult Convert(const char* aFunction, const KySerialPortConfiguration& aConfiguration,
                 KyLineSettings* aSettings)
{
    if (!HasSize(aSettings))
    {
        return NoSettings(aFunction);
    }
    aSettings->mBaudRate = aConfiguration.mBaudRate;
    aSettings->mParity = aConfiguration.mParity;
    aSettings->mBitsPerByte = aConfiguration.mBitsPerByte;
    aSettings->mStopBits = aConfiguration.mStopBits;
    return KyResult();
}

} // namespace KySerialCLib

using namespace KySerialCLib;

KyCode KyLineSettingsInit(KyLineSettings* aSettings)
{
    static constexpr char cFunction[] = "KyLineSettingsInit";
    return Run(
        [&]() -> KyResult
        {
            if (aSettings == nullptr)
            {
                return Fail(KY_BAD_PARAMETER, cFunction, "A null pointer for the settings.");
            }
            aSettings->mSize = sizeof(KyLineSettings);
            return Convert(cFunction, KySerialPortConfiguration(), aSettings);
        });
}

KyCode KyLineSettingsCheck(const KyLineSettings* aSettings)
{
    return Run(
        [&]() -> KyResult
        {
            KySerialPortConfiguration lConfiguration;
            KyResult lResult = Convert("KyLineSettingsCheck", aSettings, lConfiguration);
            return lResult.IsOK() ? lConfiguration.IsValid() : lResult;
        });
}
