#include "ApiCall.h"

#include "KySerial/KySerialTypes.h"
#include "ThreadText.h"

#include <cstring>

namespace KySerialCLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerialC/Call";

} // namespace

KyResult Fail(KyCode aCode, const char* aFunction, const char* aText) noexcept
{
    const JxUtilsLib::Logger lLogger(KySerialLib::cLogCategory, 0);
    return KY_LOG_RESULT(lLogger, aCode, aFunction, "%s", aText);
}

KyCode Finish(const KyResult& aResult) noexcept
{
    SetThreadText(aResult.IsOK() ? nullptr : aResult.GetDescription().GetAscii());
    return aResult.GetCode();
}

KyResult CopyText(const char* aFunction, const KyString& aText, char* aBuffer, uint32_t* aSize) noexcept
{
    if (aSize == nullptr)
    {
        return Fail(KY_BAD_PARAMETER, aFunction, "The size of the text has nowhere to go: a null pointer.");
    }
    const uint32_t lNeeded = aText.GetLength() + 1;
    const bool lFits = aBuffer != nullptr && *aSize >= lNeeded;
    *aSize = lNeeded;
    if (!lFits)
    {
        return KyResult(KY_BUFFER_TOO_SMALL); // not logged: the way to ask for the size
    }
    std::memcpy(aBuffer, aText.GetAscii(), lNeeded);
    return KyResult();
}

bool IsSerial(int32_t aSerial) noexcept
{
    return aSerial >= KyDeviceSerialUart0 && aSerial <= KyDeviceSerialBulk7;
}

} // namespace KySerialCLib
