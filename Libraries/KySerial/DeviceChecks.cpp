#include "DeviceChecks.h"

#include "KySerial/DeviceProtocol.h"
#include "LogResult.h"
#include "PortMap.h"

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/DeviceChecks";

constexpr char cNoPointer[] = "Device pointer is NULL.";
constexpr char cNotConnected[] = "The device is not currently connected.";

} // namespace

KyResult CheckConnected(IKyDeviceAdapter* aDevice, const Caller& aCaller)
{
    if (aDevice == nullptr)
    {
        return KY_LOG_RESULT(aCaller.mLogger, KyResult::NO_CONNECTION, aCaller.mFunction, cNoPointer);
    }
    if (!aDevice->IsConnected())
    {
        return KY_LOG_RESULT(aCaller.mLogger, KyResult::NO_CONNECTION, aCaller.mFunction, cNotConnected);
    }
    return KyResult(KyResult::OK);
}

KyResult ClaimPort(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort,
                   bool (*aIsSupported)(IKyDeviceAdapter*, KyDeviceSerial), const Caller& aCaller)
{
    KyResult lResult = CheckConnected(aDevice, aCaller);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (!aIsSupported(aDevice, aPort))
    {
        return KY_LOG_RESULT(aCaller.mLogger, KyResult::UNSUPPORTED, aCaller.mFunction,
                             "The specified port is not supported by this device.");
    }
    // The claim is last, so that no refusal has to give it back.
    if (!PortMap::GetInstance().Lock(aDevice, aPort))
    {
        return KY_LOG_RESULT(aCaller.mLogger, KyResult::FAILURE, aCaller.mFunction,
                             "The specified port is already in use.");
    }
    return lResult;
}

bool IsReachable(IKyDeviceAdapter* aDevice, const Caller& aCaller)
{
    if (aDevice == nullptr)
    {
        KY_LOG(aCaller.mLogger, JxUtilsLib::PriorityError, aCaller.mFunction, cNoPointer);
        return false;
    }
    if (!aDevice->IsConnected())
    {
        KY_LOG(aCaller.mLogger, JxUtilsLib::PriorityError, aCaller.mFunction, cNotConnected);
        return false;
    }
    return true;
}

bool IsKorvoVideoInterface(IKyDeviceAdapter* aDevice, JxUtilsLib::PriorityLevel aPriority,
                           const Caller& aCaller)
{
    const bool lIsKorvo = aDevice->IsKorvoVideoInterface();
    if (!lIsKorvo)
    {
        KY_LOG(aCaller.mLogger, aPriority, aCaller.mFunction,
               "The device is not an a Korvo video interface.");
    }
    return lIsKorvo;
}

bool IsGigEVision(IKyDeviceAdapter* aDevice, const Caller& aCaller)
{
    const bool lIsGigEVision = aDevice->IsGigEVision();
    if (!lIsGigEVision)
    {
        KY_LOG(aCaller.mLogger, JxUtilsLib::PriorityInfo, aCaller.mFunction,
               "The device is not a GigE Vision device.");
    }
    return lIsGigEVision;
}

bool ReadFunctionCaps(IKyDeviceAdapter* aDevice, uint32_t& aCaps, const Caller& aCaller)
{
    aCaps = 0;
    if (!IsReachable(aDevice, aCaller) || !IsKorvoVideoInterface(aDevice, JxUtilsLib::PriorityInfo, aCaller))
    {
        return false;
    }
    if (PortMap::IsKnownUnsupported(aDevice))
    {
        // "now" instead of "not": log filters look for this text.
        KY_LOG(aCaller.mLogger, JxUtilsLib::PriorityInfo, aCaller.mFunction,
               "Not reading DEV_REG_FUNCTION_CAPS, already know it is now supported.");
        return false;
    }
    // The registers lie in the register space of GigE Vision, which no other transport has.
    if (!IsGigEVision(aDevice, aCaller))
    {
        return false;
    }
    if (!aDevice->ReadRegister(KyDeviceProtocol::cFunctionCapabilities, aCaps).IsOK())
    {
        aCaps = 0;
        PortMap::MarkUnsupported(aDevice);
        KY_LOG(aCaller.mLogger, JxUtilsLib::PriorityInfo, aCaller.mFunction,
               "Could not read device function capabilities register.");
        return false;
    }
    return (aCaps & KyDeviceProtocol::cImplemented) != 0;
}

} // namespace KySerialLib
