#include "kyserial/Doctor/NetworkChecks.h"

#include <KyGvcp/HostName.h>
#include <KyGvcp/Protocol.h>

#include <algorithm>
#include <bit>

namespace KySerialTool
{

using KyGvcp::AddressText;
using KyGvcp::Interface;

namespace
{

constexpr uint32_t cSearchTime = 1000; // milliseconds

const char* const cOpenFirewall =
    "let UDP from port 3956 through this computer's firewall (Windows: allow the program "
    "in private and public networks)";

bool IsIn(const Interface& aInterface, uint32_t aAddress)
{
    return ((aInterface.mAddress ^ aAddress) & aInterface.mMask) == 0;
}

bool IsLoopback(uint32_t aAddress)
{
    return aAddress >> 24U == 127;
}

bool IsNamed(const Interface& aInterface, const std::string& aName)
{
    return aInterface.mName == aName || AddressText(aInterface.mAddress) == aName;
}

/// Two interfaces with the same network: packets may leave at the one that the device is not at.
std::optional<std::pair<Interface, Interface>> FindTwins(const std::vector<Interface>& aInterfaces)
{
    for (const Interface& lOne : aInterfaces)
    {
        for (const Interface& lOther : aInterfaces)
        {
            // Each pair is looked at once. The masks may differ, so either network may contain the other.
            if (lOne.mIndex < lOther.mIndex && (IsIn(lOne, lOther.mAddress) || IsIn(lOther, lOne.mAddress)))
            {
                return std::pair(lOne, lOther);
            }
        }
    }
    return std::nullopt;
}

std::string ListText(const std::vector<Interface>& aInterfaces)
{
    std::string lText;
    for (const Interface& lInterface : aInterfaces)
    {
        lText += (lText.empty() ? "" : ", ") + InterfaceText(lInterface);
    }
    return lText.empty() ? "none" : lText;
}

KyGigE::DiscoveryOptions SearchOptions(const DeviceWay& aWay)
{
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mPort = aWay.mWanted.mPort;
    lOptions.mInterface = aWay.mWanted.mInterface;
    lOptions.mTime = cSearchTime;
    return lOptions;
}

/// The devices that a broadcast reaches; none when it cannot be sent.
std::vector<KyGigE::FoundDevice> HearBroadcasts(const DeviceWay& aWay)
{
    std::vector<KyGigE::FoundDevice> lDevices;
    static_cast<void>(KyGigE::DiscoverDevices(SearchOptions(aWay), lDevices)); // the text adds nothing
    return lDevices;
}

} // namespace

std::string InterfaceText(const Interface& aInterface)
{
    return AddressText(aInterface.mAddress) + '/' + std::to_string(std::popcount(aInterface.mMask)) + " (" +
           aInterface.mName + ')';
}

CheckFinding CheckInterface(const DeviceWay& aWay)
{
    const std::string lName = "interface";
    const std::string& lWanted = aWay.mWanted.mInterface;
    std::vector<Interface> lOutward = aWay.mInterfaces;
    std::erase_if(lOutward, [](const Interface& aOne) { return aOne.mLoopback; });
    const auto lDevice = KyGvcp::ParseAddress(aWay.mWanted.mAddress);
    const bool lInside = lDevice && IsLoopback(*lDevice);
    // An interface that is named is the only one in use, so the others are not looked at.
    if (!lWanted.empty())
    {
        const auto lOwn = std::find_if(aWay.mInterfaces.begin(), aWay.mInterfaces.end(),
                                       [&](const Interface& aOne) { return IsNamed(aOne, lWanted); });
        return lOwn != aWay.mInterfaces.end()
                   ? CheckFinding{lName, Verdict::Ok,
                                  InterfaceText(*lOwn) + ", as the device's name wants it"}
                   : CheckFinding{lName, Verdict::Failed,
                                  "this computer has no interface " + lWanted +
                                      " that is up and has an IPv4 address",
                                  "use one of these: " + ListText(aWay.mInterfaces)};
    }
    if (lInside)
    {
        return {lName, Verdict::Ok, "the device is on this computer"};
    }
    if (lOutward.empty())
    {
        return {lName, Verdict::Failed, "no interface is up and has an IPv4 address",
                "plug the cable in, and give the interface an address of the device's network "
                "(169.254.0.1/16 for a device without a fixed one)"};
    }
    const auto lTwins = FindTwins(lOutward);
    if (lTwins)
    {
        return {lName, Verdict::Warning,
                "two interfaces have the same network: " + ListText({lTwins->first, lTwins->second}),
                "give each a network of its own, or name the interface: gev://ADDRESS?interface=NAME"};
    }
    return {lName, Verdict::Ok, ListText(lOutward)};
}

CheckFinding CheckRoute(DeviceWay& aWay)
{
    const std::string lName = "route";
    std::string lError;
    const auto lDevice = KyGvcp::FindAddress(aWay.mWanted.mAddress, KyGvcp::cLongestLookUp, {}, lError);
    if (!lDevice)
    {
        return {lName, Verdict::Failed, lError, "use the device's IPv4 address"};
    }
    aWay.mDevice = *lDevice;
    KyGvcp::Endpoint lFrom;
    uint32_t lIndex = 0;
    for (const Interface& lInterface : aWay.mInterfaces)
    {
        // Of several addresses of the wanted interface, the one in the device's network.
        if (IsNamed(lInterface, aWay.mWanted.mInterface) &&
            (lFrom.mAddress == 0 || IsIn(lInterface, aWay.mDevice)))
        {
            lFrom.mAddress = lInterface.mAddress;
            lIndex = lInterface.mLoopback ? 0 : lInterface.mIndex;
        }
    }
    KyGvcp::UdpSocket lProbe; // connecting asks the routes, and sends nothing
    if (!lProbe.Open(lFrom, false, lIndex) || !lProbe.Connect({aWay.mDevice, aWay.mWanted.mPort}))
    {
        return {lName, Verdict::Failed, "this computer has no way to " + AddressText(aWay.mDevice),
                "give an interface an address of the device's network, or the device one of this computer's: "
                "kyserial devices --force-ip"};
    }
    const uint32_t lOwn = lProbe.GetLocal().mAddress;
    for (const Interface& lInterface : aWay.mInterfaces)
    {
        // Every address of the loop-back network is this computer's, though only one is listed.
        if (lInterface.mAddress == lOwn || (lInterface.mLoopback && IsLoopback(lOwn)))
        {
            aWay.mOwn = lInterface;
            aWay.mOwn->mAddress = lOwn;
        }
    }
    // A device at this computer's own address needs no network at all.
    aWay.mNeighbour = (aWay.mOwn && IsIn(*aWay.mOwn, aWay.mDevice)) || lOwn == aWay.mDevice;
    const std::string lText =
        AddressText(aWay.mDevice) + " from " + (aWay.mOwn ? InterfaceText(*aWay.mOwn) : AddressText(lOwn));
    return aWay.mNeighbour
               ? CheckFinding{lName, Verdict::Ok, lText + ", the same network"}
               : CheckFinding{
                     lName, Verdict::Warning, lText + ", by a router",
                     "if the device is on this computer's own cable, give both addresses of one network; "
                     "else name it by its address, and let the router pass UDP in both directions"};
}

CheckFinding CheckMtu(const DeviceWay& aWay)
{
    constexpr uint32_t cHeaders = 28; // of IP and UDP
    constexpr uint32_t cNeeded = static_cast<uint32_t>(KyGvcp::cMaxPacket) + cHeaders;
    const std::string lName = "mtu";
    const uint32_t lMtu = aWay.mOwn ? aWay.mOwn->mMtu : 0;
    if (lMtu == 0)
    {
        return {lName, Verdict::Warning, "not checked: the system does not say it"};
    }
    const std::string lText = std::to_string(lMtu) + " bytes";
    return lMtu >= cNeeded ? CheckFinding{lName, Verdict::Ok,
                                          lText + ", the control protocol needs " + std::to_string(cNeeded)}
                           : CheckFinding{lName, Verdict::Failed,
                                          lText + ", the control protocol needs " + std::to_string(cNeeded),
                                          "set the MTU of " + aWay.mOwn->mName + " to 1500"};
}

CheckFinding CheckDiscovery(DeviceWay& aWay)
{
    const std::string lName = "discovery";
    KyGigE::DiscoveryOptions lOptions = SearchOptions(aWay);
    // The device is asked alone: broadcasts are a check of their own.
    lOptions.mAddress = AddressText(aWay.mDevice);
    std::vector<KyGigE::FoundDevice> lDevices;
    const std::string lError = KyGigE::DiscoverDevices(lOptions, lDevices);
    if (!lError.empty() || lDevices.empty())
    {
        std::string lOthers;
        for (const KyGigE::FoundDevice& lOther : HearBroadcasts(aWay))
        {
            lOthers += ' ' + KyGigE::DeviceAddressText({lOther.mAddress, lOther.mPort, {}});
        }
        return {lName, Verdict::Failed,
                lError.empty() ? "nobody answers at " + KyGigE::DeviceAddressText(aWay.mWanted) : lError,
                lOthers.empty() ? std::string("look at power and cable, and at the device's address")
                                : "these devices answer a broadcast:" + lOthers};
    }
    aWay.mFound = lDevices.front();
    aWay.mFound->mInterface = aWay.mWanted.mInterface;
    const KyGigE::DeviceInformation& lInformation = aWay.mFound->mInformation;
    std::string lText;
    for (const std::string& lPart : {lInformation.mVendor, lInformation.mModel, lInformation.mSerialNumber,
                                     KyGigE::MacText(lInformation.mMac)})
    {
        lText += (lPart.empty() || lText.empty() ? "" : " ") + lPart;
    }
    return {lName, Verdict::Ok, lText};
}

CheckFinding CheckFirewall(const DeviceWay& aWay)
{
    const std::string lName = "firewall";
    const std::vector<KyGigE::FoundDevice> lHeard = HearBroadcasts(aWay);
    const bool lHears =
        std::any_of(lHeard.begin(), lHeard.end(),
                    [&](const KyGigE::FoundDevice& aOne)
                    { return aWay.mFound && aOne.mInformation.mMac == aWay.mFound->mInformation.mMac; });
    if (lHears)
    {
        return {lName, Verdict::Ok, "the device's answer to a broadcast comes in"};
    }
    if (!aWay.mFound)
    {
        return lHeard.empty()
                   ? CheckFinding{lName, Verdict::Warning, "no device at all is heard", cOpenFirewall}
                   : CheckFinding{lName, Verdict::Ok, "answers of other devices come in"};
    }
    // Broadcasts end at a router, so their absence says nothing about a firewall.
    if (!aWay.mNeighbour)
    {
        return {lName, Verdict::Warning, "not checked: a router passes no broadcasts",
                "if no bytes arrive at a port, let UDP from the device through each firewall on the way"};
    }
    return {lName, Verdict::Warning, "the device answers when it is asked alone, but not to a broadcast",
            cOpenFirewall};
}

} // namespace KySerialTool
