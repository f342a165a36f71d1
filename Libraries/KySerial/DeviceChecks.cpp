#include "DeviceChecks.h"

#include "DeviceRegisters.h"
#include "LogResult.h"
#include "PortMap.h"

namespace KySerialLib
{

namespace
{

constexpr char cNoPointer[] = "Device pointer is NULL.";
constexpr char cNotConnected[] = "The device is not currently connected.";

KyResult Fail(uint32_t aCode, const char* aMessage, const LogPlace& aPlace)
{
    return ToKyResult(
        aPlace.mLogger.LogResult(aCode, aPlace.mFile, aPlace.mLine, aPlace.mFunction, "%s", aMessage));
}

void Log(JxUtilsLib::PriorityLevel aPriority, const char* aMessage, const LogPlace& aPlace)
{
    if (aPlace.mLogger.IsPriorityEnabled(aPriority))
    {
        aPlace.mLogger.Log(aPriority, aPlace.mFile, aPlace.mLine, aPlace.mFunction, "%s", aMessage);
    }
}

} // namespace

KyResult CheckConnected(IKyDeviceAdapter* aDevice, const LogPlace& aPlace)
{
    if (aDevice == nullptr)
    {
        return Fail(KyResult::NO_CONNECTION, cNoPointer, aPlace);
    }
    if (!aDevice->IsConnected())
    {
        return Fail(KyResult::NO_CONNECTION, cNotConnected, aPlace);
    }
    return KyResult(KyResult::OK);
}

KyResult ClaimPort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort,
                   bool (*aIsSupported)(IKyDeviceAdapter*, KyDeviceSerial), const LogPlace& aPlace)
{
    KyResult lResult = CheckConnected(aDevice, aPlace);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (!aIsSupported(aDevice, aPort))
    {
        return Fail(KyResult::UNSUPPORTED, "The specified port is not supported by this device.", aPlace);
    }
    if (!PortMap::GetInstance().Lock(aDevice, aPort))
    {
        return Fail(KyResult::FAILURE, "The specified port is already in use.", aPlace);
    }
    return lResult;
}

KyResult CheckBuffer(const uint8_t* aBuffer, uint32_t aSize, const LogPlace& aPlace)
{
    if (aBuffer == nullptr && aSize > 0)
    {
        return Fail(KyResult::BAD_PARAMETER, "aBuffer pointer cannot be NULL.", aPlace);
    }
    return KyResult(KyResult::OK);
}

bool IsReachable(IKyDeviceAdapter* aDevice, const LogPlace& aPlace)
{
    if (aDevice == nullptr)
    {
        Log(JxUtilsLib::PriorityError, cNoPointer, aPlace);
        return false;
    }
    if (!aDevice->IsConnected())
    {
        Log(JxUtilsLib::PriorityError, cNotConnected, aPlace);
        return false;
    }
    return true;
}

bool IsKorvoVideoInterface(IKyDeviceAdapter* aDevice, JxUtilsLib::PriorityLevel aPriority,
                           const LogPlace& aPlace)
{
    const bool lIsKorvo = aDevice->IsKorvoVideoInterface();
    if (!lIsKorvo)
    {
        Log(aPriority, "The device is not an a Korvo video interface.", aPlace);
    }
    return lIsKorvo;
}

bool IsGigEVision(IKyDeviceAdapter* aDevice, const LogPlace& aPlace)
{
    const bool lIsGigEVision = aDevice->IsGigEVision();
    if (!lIsGigEVision)
    {
        Log(JxUtilsLib::PriorityInfo, "The device is not a GigE Vision device.", aPlace);
    }
    return lIsGigEVision;
}

bool ReadFunctionCaps(IKyDeviceAdapter* aDevice, uint32_t& aCaps, const LogPlace& aPlace)
{
    aCaps = 0;
    if (!IsReachable(aDevice, aPlace) || !IsKorvoVideoInterface(aDevice, JxUtilsLib::PriorityInfo, aPlace))
    {
        return false;
    }
    if (PortMap::IsKnownUnsupported(aDevice))
    {
        // "now" for "not": the text that log filters know.
        Log(JxUtilsLib::PriorityInfo, "Not reading DEV_REG_FUNCTION_CAPS, already know it is now supported.",
            aPlace);
        return false;
    }
    if (!IsGigEVision(aDevice, aPlace))
    {
        return false;
    }
    if (!aDevice->ReadRegister(cRegFunctionCaps, aCaps).IsOK())
    {
        aCaps = 0;
        PortMap::MarkUnsupported(aDevice);
        Log(JxUtilsLib::PriorityInfo, "Could not read device function capabilities register.", aPlace);
        return false;
    }
    return (aCaps & cCapsImplemented) != 0;
}

} // namespace KySerialLib
