#include <KyGigE/Discovery.h>

#include "Adapters/GigE/Client/ParseInformation.h"
#include "Adapters/GigE/Client/Search.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <tuple>

namespace KyGigE
{

using KyGvcp::Endpoint;
using KyGvcp::Interface;
using KyGvcp::SocketResult;
using KyGvcp::UdpSocket;
using Clock = std::chrono::steady_clock;

namespace
{

constexpr uint16_t cRequest = 0xFFFF;
constexpr std::chrono::milliseconds cAgain{150}; // a question or an answer may get lost
constexpr KyGvcp::SocketTime cAtOnce{0};

struct SearchSocket
{
    Interface mInterface;
    UdpSocket mSocket;
};

/// What a device is known by: two of one address may be there, on different networks, and one may have two
/// ways.
using Key = std::tuple<std::string, uint64_t, uint32_t, uint16_t>;
using Findings = std::map<Key, FoundDevice>;

bool Ask(SearchSocket& aSearch, const Endpoint& aTarget)
{
    // A device whose address does not fit its network can answer everybody only.
    const bool lBroadcast = aTarget.mAddress == KyGvcp::cBroadcastAddress;
    return aSearch.mSocket.SendTo(aTarget, KyGvcp::MakeDiscovery(cRequest, lBroadcast).GetBytes()) ==
           SocketResult::Done;
}

/// A socket of an interface. What is broadcast comes only to sockets without an address; the interface keeps
/// such a socket to itself.
bool Open(SearchSocket& aSearch, const Endpoint& aTarget)
{
    const Interface& lInterface = aSearch.mInterface;
    const bool lBroadcast = aTarget.mAddress == KyGvcp::cBroadcastAddress;
    return aSearch.mSocket.Open({lBroadcast ? 0 : lInterface.mAddress, 0}, false, lInterface.mIndex) &&
           aSearch.mSocket.AllowBroadcast() && Ask(aSearch, aTarget);
}

/// Takes one answer, if the socket has one.
void Collect(SearchSocket& aSearch, Findings& aFound)
{
    std::array<uint8_t, KyGvcp::cMaxPacket> lPacket{};
    size_t lSize = 0;
    Endpoint lFrom;
    if (aSearch.mSocket.Receive(lPacket, lSize, &lFrom, KyGvcp::SocketTime(0)) != SocketResult::Done)
    {
        return;
    }
    const auto lAnswer = KyGvcp::ParseAcknowledge(KyGvcp::Bytes(lPacket).first(lSize));
    if (lAnswer && lAnswer->mCode == KyGvcp::cDiscoveryAck && lAnswer->mRequestID == cRequest &&
        lAnswer->mStatus == KyGvcp::cSuccess && lAnswer->mPayload.size() >= KyGvcp::cDiscoverySize)
    {
        const DeviceInformation lInformation = ParseInformation(lAnswer->mPayload);
        const std::string& lInterface = aSearch.mInterface.mName;
        aFound.try_emplace(
            {lInterface, lInformation.mMac, lFrom.mAddress, lFrom.mPort},
            FoundDevice{lInformation, KyGvcp::AddressText(lFrom.mAddress), lFrom.mPort, lInterface});
    }
}

} // namespace

std::vector<Interface> MatchingInterfaces(const std::string& aWanted)
{
    std::vector<Interface> lMatching = KyGvcp::ListInterfaces();
    std::erase_if(lMatching,
                  [&](const Interface& aInterface)
                  {
                      return !aWanted.empty() && aInterface.mName != aWanted &&
                             KyGvcp::AddressText(aInterface.mAddress) != aWanted;
                  });
    return lMatching;
}

bool Search(const std::vector<Interface>& aInterfaces, const Endpoint& aTarget, uint32_t aTime,
            size_t aEnough, std::vector<FoundDevice>& aDevices)
{
    aDevices.clear();
    std::vector<std::unique_ptr<SearchSocket>> lSearches;
    std::vector<UdpSocket*> lSockets;
    for (const Interface& lInterface : aInterfaces)
    {
        auto lSearch = std::make_unique<SearchSocket>();
        lSearch->mInterface = lInterface;
        if (Open(*lSearch, aTarget))
        {
            lSockets.push_back(&lSearch->mSocket);
            lSearches.push_back(std::move(lSearch));
        }
    }
    Findings lFound;
    const Clock::time_point lEnd = Clock::now() + std::chrono::milliseconds(aTime);
    Clock::time_point lAgain = Clock::now() + cAgain;
    while (!lSearches.empty() && Clock::now() < lEnd && lFound.size() < aEnough)
    {
        const auto lLeft = std::max<KyGvcp::SocketTime>(std::min(lEnd, lAgain) - Clock::now(), cAtOnce);
        static_cast<void>(UdpSocket::Wait(lSockets, lLeft, nullptr)); // result ignored: the clock ends it
        const bool lAsk = Clock::now() >= lAgain;
        lAgain = lAsk ? Clock::time_point::max() : lAgain;
        for (const auto& lSearch : lSearches)
        {
            Collect(*lSearch, lFound);
            static_cast<void>(lAsk && Ask(*lSearch, aTarget)); // ignored: it was asked before
        }
    }
    for (auto& [lKey, lDevice] : lFound)
    {
        aDevices.push_back(std::move(lDevice));
    }
    return !lSearches.empty();
}

std::string DiscoverDevices(const DiscoveryOptions& aOptions, std::vector<FoundDevice>& aDevices)
{
    aDevices.clear();
    Endpoint lTarget{KyGvcp::cBroadcastAddress, aOptions.mPort};
    if (!aOptions.mAddress.empty())
    {
        const auto lAddress = KyGvcp::ParseAddress(aOptions.mAddress);
        if (!lAddress)
        {
            return '"' + aOptions.mAddress + "\" is no IPv4 address";
        }
        lTarget.mAddress = *lAddress;
    }
    std::vector<Interface> lInterfaces = MatchingInterfaces(aOptions.mInterface);
    if (!aOptions.mAddress.empty() && aOptions.mInterface.empty())
    {
        lInterfaces = {Interface()}; // one device: the system knows the way
    }
    if (!Search(lInterfaces, lTarget, aOptions.mTime, aOptions.mAddress.empty() ? SIZE_MAX : 1, aDevices))
    {
        return aOptions.mInterface.empty() ? "no network interface that devices can be looked for on"
                                           : "no network interface " + aOptions.mInterface;
    }
    return {};
}

} // namespace KyGigE
