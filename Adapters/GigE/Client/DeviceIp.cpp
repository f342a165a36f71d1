#include <KyGigE/DeviceIp.h>

#include "Adapters/GigE/Client/OpenChannel.h"
#include "Adapters/GigE/Client/Search.h"
#include "Adapters/GigE/TextWithMemory.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace KyGigE
{

namespace
{

/// The same as numbers.
struct Numbers
{
    uint32_t mAddress = 0;
    uint32_t mMask = 0;
    uint32_t mGateway = 0; // 0: none
};

/// Ones, then zeros, and some of each.
bool IsMask(uint32_t aMask)
{
    // The inverse of a mask is one less than a power of two.
    const uint32_t lHost = ~aMask;
    return aMask != 0 && lHost != 0 && (lHost & (lHost + 1)) == 0;
}

/// An address that one device can have: no broadcast, no group, not the network itself.
bool IsHost(uint32_t aAddress, uint32_t aMask)
{
    constexpr uint32_t cFirstGroup = 0xE0000000;
    const uint32_t lHost = aAddress & ~aMask;
    return aAddress < cFirstGroup && aAddress >> 24U != 0 && lHost != 0 && lHost != ~aMask;
}

std::string Parse(const IpSettings& aSettings, Numbers& aNumbers)
{
    const auto lAddress = KyGvcp::ParseAddress(aSettings.mAddress);
    const auto lMask = KyGvcp::ParseAddress(aSettings.mMask);
    // An empty gateway means "none", which the registers write as 0.
    const auto lGateway =
        aSettings.mGateway.empty() ? std::optional<uint32_t>(0) : KyGvcp::ParseAddress(aSettings.mGateway);
    if (!lMask || !IsMask(*lMask))
    {
        return '"' + aSettings.mMask + "\" is no network mask; use one like 255.255.255.0";
    }
    if (!lAddress || !IsHost(*lAddress, *lMask))
    {
        return '"' + aSettings.mAddress + "\" is no address that a device can have with the mask " +
               aSettings.mMask;
    }
    const bool lHasGateway = !aSettings.mGateway.empty();
    if (!lGateway || (lHasGateway && (!IsHost(*lGateway, *lMask) || ((*lGateway ^ *lAddress) & *lMask) != 0)))
    {
        return '"' + aSettings.mGateway + "\" is no gateway in the network of " + aSettings.mAddress;
    }
    aNumbers = {*lAddress, *lMask, *lGateway};
    return {};
}

KyGvcp::Packet MakeForce(uint64_t aMac, const Numbers& aNumbers)
{
    // The device may have an address of another network: it can answer everybody only.
    constexpr uint8_t cFlags = KyGvcp::cAcknowledgeWanted | KyGvcp::cBroadcastAcknowledge;
    KyGvcp::Packet lPacket =
        KyGvcp::Packet::Command(KyGvcp::cForceAddress, cFlags, KyGvcp::cBroadcastRequest);
    lPacket.Add32(static_cast<uint32_t>(aMac >> 32U) & 0xFFFFU)
        .Add32(static_cast<uint32_t>(aMac & 0xFFFFFFFFU));
    for (const uint32_t lNumber : {aNumbers.mAddress, aNumbers.mMask, aNumbers.mGateway})
    {
        // Each number is the last of four words; the others are reserved.
        lPacket.Add32(0).Add32(0).Add32(0).Add32(lNumber);
    }
    return lPacket;
}

/// Looks for the device. \param aAddress  0: wherever it is.
std::optional<FoundDevice> Find(const DiscoveryOptions& aWhere, uint64_t aMac, uint32_t aAddress)
{
    DiscoveryOptions lWhere = aWhere;
    if (!aWhere.mAddress.empty() && aAddress != 0)
    {
        lWhere.mAddress = KyGvcp::AddressText(aAddress); // it has left the address where it was asked
    }
    SearchWays lWays;
    std::optional<FoundDevice> lFound;
    if (!FindWays(lWhere, lWays).empty())
    {
        return lFound;
    }
    std::vector<FoundDevice> lDevices;
    // One device is enough where one address is asked. A broadcast waits the whole time: the device may be the last
    // to answer.
    static_cast<void>(Search(lWays.mInterfaces, lWays.mTarget, aWhere.mTime,
                             lWhere.mAddress.empty() ? SIZE_MAX : 1, lDevices)); // ignored: none is found
    const auto lDevice = std::find_if(lDevices.begin(), lDevices.end(),
                                      [&](const FoundDevice& aDevice)
                                      {
                                          return aDevice.mInformation.mMac == aMac &&
                                                 (aAddress == 0 || aDevice.mInformation.mAddress == aAddress);
                                      });
    return lDevice != lDevices.end() ? std::optional(*lDevice) : lFound;
}

/// What both functions begin with: what the settings are as numbers, and where to ask. \return Empty, or what is wrong.
std::string Prepare(const DiscoveryOptions& aWhere, const IpSettings& aSettings, Numbers& aNumbers,
                    SearchWays& aWays)
{
    std::string lError = Parse(aSettings, aNumbers);
    return lError.empty() ? FindWays(aWhere, aWays) : lError;
}

std::string Missing(uint64_t aMac)
{
    return "no device with the MAC address " + MacText(aMac) + " answers";
}

/// Control of a device for as long as the object lives.
class Control
{
public:
    explicit Control(const FoundDevice& aDevice)
    {
        mResult = OpenChannel(aDevice, mChannel);
        Write(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess);
        mHasControl = mResult.IsOK();
    }
    ~Control()
    {
        if (mHasControl)
        {
            // Ignored: a device that does not answer frees itself.
            static_cast<void>(mChannel.WriteRegister(KyGvcp::cControlPrivilegeRegister, 0));
        }
    }
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    /// Does nothing after a failure.
    void Write(uint32_t aAddress, uint32_t aValue)
    {
        mResult = mResult.IsOK() ? mChannel.WriteRegister(aAddress, aValue) : mResult;
    }
    uint32_t Read(uint32_t aAddress)
    {
        uint32_t lValue = 0;
        mResult = mResult.IsOK() ? mChannel.ReadRegister(aAddress, lValue) : mResult;
        return lValue;
    }
    bool HasControl() const { return mHasControl; }
    const KyResult& GetResult() const { return mResult; }

private:
    ControlChannel mChannel{ControlTimes()};
    KyResult mResult;
    bool mHasControl = false;
};

} // namespace

std::string ForceIp(const DiscoveryOptions& aWhere, uint64_t aMac, const IpSettings& aSettings,
                    FoundDevice& aDevice)
{
    return TextWithMemory(
        cOutOfMemory,
        [&]() -> std::string
        {
            Numbers lNumbers;
            SearchWays lWays;
            std::string lError = Prepare(aWhere, aSettings, lNumbers, lWays);
            if (!lError.empty())
            {
                return lError;
            }
            std::optional<uint16_t> lStatus;
            const bool lSent =
                AskAll(lWays.mInterfaces, lWays.mTarget, MakeForce(aMac, lNumbers), aWhere.mTime,
                       [&](const SearchAnswer& aAnswer)
                       {
                           lStatus = aAnswer.mAcknowledge.mStatus;
                           // A device that does not know the command may refuse what is meant for
                           // another one.
                           return *lStatus == KyGvcp::cSuccess ||
                                  lWays.mTarget.mAddress != KyGvcp::cBroadcastAddress;
                       });
            if (!lSent)
            {
                return NoInterface(aWhere);
            }
            // No answer is no refusal: the device may have taken the address and be unable to answer from it.
            if (lStatus.value_or(KyGvcp::cSuccess) != KyGvcp::cSuccess)
            {
                return "the device " + MacText(aMac) + " refused: " + KyGvcp::NameOfStatus(*lStatus) +
                       (*lStatus == KyGvcp::cAccessDenied ? " (another application controls it)" : "");
            }
            // A device in another network may not be able to answer, and has the address all the same.
            std::optional<FoundDevice> lFound = Find(aWhere, aMac, lNumbers.mAddress);
            if (!lFound)
            {
                return lStatus ? "the device " + MacText(aMac) + " has taken the address " +
                                     aSettings.mAddress + ", but does not answer there"
                               : Missing(aMac);
            }
            aDevice = std::move(*lFound);
            return {};
        });
}

std::string StoreIp(const DiscoveryOptions& aWhere, uint64_t aMac, const IpSettings& aSettings)
{
    return TextWithMemory(
        cOutOfMemory,
        [&]() -> std::string
        {
            Numbers lNumbers;
            SearchWays lWays;
            std::string lError = Prepare(aWhere, aSettings, lNumbers, lWays);
            if (!lError.empty())
            {
                return lError;
            }
            // The device is written to where it is now. The stored address counts from its next start.
            const std::optional<FoundDevice> lFound = Find(aWhere, aMac, 0);
            if (!lFound)
            {
                return Missing(aMac);
            }
            Control lControl(*lFound);
            const uint32_t lCapability = lControl.Read(KyGvcp::cInterfaceCapabilityRegister);
            if (lControl.GetResult().IsOK() && (lCapability & KyGvcp::cPersistentIp) == 0)
            {
                return "the device " + MacText(aMac) + " does not store an address";
            }
            lControl.Write(KyGvcp::cPersistentAddressRegister, lNumbers.mAddress);
            lControl.Write(KyGvcp::cPersistentMaskRegister, lNumbers.mMask);
            lControl.Write(KyGvcp::cPersistentGatewayRegister, lNumbers.mGateway);
            // Last: what it switches on is complete then.
            const uint32_t lConfiguration = lControl.Read(KyGvcp::cInterfaceConfigurationRegister);
            lControl.Write(KyGvcp::cInterfaceConfigurationRegister, lConfiguration | KyGvcp::cPersistentIp);
            if (lControl.GetResult().IsOK())
            {
                return {};
            }
            return lControl.GetResult().GetCode() == KyGvcp::cAccessDenied && !lControl.HasControl()
                       ? "another application controls the device " + MacText(aMac)
                       : "the device " + MacText(aMac) + ": " +
                             lControl.GetResult().GetDescription().GetAscii();
        });
}

} // namespace KyGigE
