#include "PortMap.h"

#include "JxUtilsLib/Assert.h"
#include "JxUtilsLib/LockScope.h"
#include "KyBase/KyPermanent.h"
#include "KySerial/DeviceProtocol.h"
#include "LogResult.h"
#include "OmUtilsLib/Network/EthernetAddress.h"

#include <algorithm>
#include <new>
#include <set>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/PortMap";

// Only grows: a device that did not answer once is not asked again while the process lives.
struct UnsupportedDevices
{
    JxUtilsLib::Mutex mMutex;
    std::set<std::string> mIDs JX_GUARDED_BY(mMutex);
};

UnsupportedDevices& GetUnsupportedDevices()
{
    static KyPermanent<UnsupportedDevices> sDevices; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sDevices.Get();
}

// Throws when a text is empty for want of memory. The empty text would be another feature's name, or another
// device's identifier: a port's claim would be looked for in the wrong place and never be released.
KyString NotEmpty(KyString aText)
{
    if (aText.GetLength() == 0)
    {
        throw std::bad_alloc();
    }
    return aText;
}

// The text of a string feature, or aDefault with a warning.
std::string ReadText(IKyDeviceAdapter* aDevice, const char* aFeature, const char* aDefault,
                     const char* aWarning)
{
    KyString lText;
    if (!aDevice->GetStringValue(NotEmpty(aFeature), lText).IsOK())
    {
        const JxUtilsLib::Logger lLogger(cLogCategory);
        KY_LOG(lLogger, JxUtilsLib::PriorityWarning, "KySerialLib::PortMap::GetConnectionID", "%s", aWarning);
        return aDefault;
    }
    return {lText.GetAscii(), lText.GetLength()};
}

std::string ReadMacAddress(IKyDeviceAdapter* aDevice)
{
    int64_t lAddress = 0;
    if (!aDevice->GetIntegerValue(NotEmpty(KyDeviceProtocol::cMacAddressFeature), lAddress).IsOK())
    {
        const JxUtilsLib::Logger lLogger(cLogCategory);
        KY_LOG(lLogger, JxUtilsLib::PriorityWarning, "KySerialLib::PortMap::GetConnectionID",
               "Could not read MAC address from device node map.");
        // All devices that do not say their address have this one, and share their claims.
        return "00:11:22:33:44:55";
    }
    const OmUtilsLib::Network::EthernetAddress lMac(static_cast<uint64_t>(lAddress));
    return NotEmpty(lMac.GetString()).GetAscii();
}

} // namespace

PortMap& PortMap::GetInstance()
{
    static KyPermanent<PortMap> sInstance; // GCOVR_EXCL_BR_LINE: the compiler's guard
    return sInstance.Get();
}

PortMap::PortMap() : mLogger(std::make_unique<JxUtilsLib::Logger>(cLogCategory, 0)) {}

PortMap::~PortMap() = default;

std::string PortMap::GetConnectionID(IKyDeviceAdapter* aDevice)
{
    if (aDevice->IsGigEVision())
    {
        return ReadMacAddress(aDevice);
    }
    if (aDevice->IsAlternateTransport())
    {
        std::string lID = ReadText(aDevice, KyDeviceProtocol::cVendorFeature, "Unknown",
                                   "Could not read vendor name from device node map.");
        lID += ReadText(aDevice, KyDeviceProtocol::cSerialNumberFeature, "00000000",
                        "Could not read serial number from device node map.");
        return lID;
    }
    // Nothing distinguishes the devices of other transports, so they share their claims.
    return {};
}

PortMap::PortList* PortMap::GetPortList(const std::string& aID)
{
    std::unique_ptr<PortList>& lList = mPorts[aID];
    if (lList == nullptr)
    {
        lList = std::make_unique<PortList>();
    }
    return lList.get();
}

bool PortMap::Lock(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    PortList* const lPortList = GetPortList(GetConnectionID(aDevice));
    JX_ASSERT(lPortList != NULL);
    if (std::find(lPortList->begin(), lPortList->end(), aPort) != lPortList->end())
    {
        // The port is in use. The text speaks of the MAC address nevertheless: log filters know it.
        KY_LOG(*mLogger, JxUtilsLib::PriorityInfo, "KySerialLib::PortMap::Lock",
               "Could not read MAC address from device node map.");
        return false;
    }
    lPortList->push_back(aPort);
    return true;
}

bool PortMap::Unlock(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    PortList* const lPortList = GetPortList(GetConnectionID(aDevice));
    JX_ASSERT(lPortList != NULL);
    const auto lFound = std::find(lPortList->begin(), lPortList->end(), aPort);
    if (lFound == lPortList->end())
    {
        return false;
    }
    lPortList->erase(lFound);
    return true;
}

void PortMap::MarkUnsupported(IKyDeviceAdapter* aDevice)
{
    // The device is asked before the lock is taken: a slow one must not hold up the questions about others.
    const std::string lID = GetConnectionID(aDevice);
    UnsupportedDevices& lDevices = GetUnsupportedDevices();
    const JxUtilsLib::LockScope lLock(lDevices.mMutex);
    lDevices.mIDs.insert(lID);
}

bool PortMap::IsKnownUnsupported(IKyDeviceAdapter* aDevice)
{
    const std::string lID = GetConnectionID(aDevice);
    UnsupportedDevices& lDevices = GetUnsupportedDevices();
    const JxUtilsLib::LockScope lLock(lDevices.mMutex);
    return lDevices.mIDs.count(lID) != 0;
}

} // namespace KySerialLib
