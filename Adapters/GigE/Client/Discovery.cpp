#include <KyGigE/Discovery.h>

#include "Adapters/GigE/Client/FindInterface.h"
#include "Adapters/GigE/Client/ParseInformation.h"
#include "Adapters/GigE/Gvcp/UdpSocket.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>

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
constexpr size_t cMostInterfaces = 8; // that one wait takes

struct Search
{
    Interface mInterface;
    UdpSocket mSocket;
};

bool Matches(const Interface& aInterface, const std::string& aWanted)
{
    return aWanted.empty() || aInterface.mName == aWanted ||
           KyGvcp::AddressText(aInterface.mAddress) == aWanted;
}

/// Whether a socket of that interface leads to an address; the system knows better when nothing is said.
bool Ask(Search& aSearch, const Endpoint& aTarget)
{
    return aSearch.mSocket.Open({aSearch.mInterface.mAddress, 0}) && aSearch.mSocket.AllowBroadcast() &&
           aSearch.mSocket.SendTo(aTarget, KyGvcp::MakeDiscovery(cRequest, false).GetBytes()) ==
               SocketResult::Done;
}

std::vector<std::unique_ptr<Search>> AskAll(const DiscoveryOptions& aOptions, const Endpoint& aTarget)
{
    std::vector<Interface> lInterfaces;
    for (const Interface& lInterface : KyGvcp::ListInterfaces())
    {
        if (Matches(lInterface, aOptions.mInterface))
        {
            lInterfaces.push_back(lInterface);
        }
    }
    if (!aOptions.mAddress.empty() && aOptions.mInterface.empty())
    {
        lInterfaces = {Interface()}; // one device: the system knows the way
    }
    std::vector<std::unique_ptr<Search>> lSearches;
    for (const Interface& lInterface : lInterfaces)
    {
        auto lSearch = std::make_unique<Search>();
        lSearch->mInterface = lInterface;
        if (lSearches.size() < cMostInterfaces && Ask(*lSearch, aTarget))
        {
            lSearches.push_back(std::move(lSearch));
        }
    }
    return lSearches;
}

/// Takes one answer, if the socket has one.
void Collect(Search& aSearch, std::map<std::pair<uint32_t, uint16_t>, FoundDevice>& aFound)
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
        aFound.try_emplace({lFrom.mAddress, lFrom.mPort}, FoundDevice{ParseInformation(lAnswer->mPayload),
                                                                      KyGvcp::AddressText(lFrom.mAddress),
                                                                      lFrom.mPort, aSearch.mInterface.mName});
    }
}

} // namespace

bool FindInterface(const std::string& aInterface, uint32_t& aAddress)
{
    const std::vector<Interface> lInterfaces = KyGvcp::ListInterfaces();
    const auto lFound =
        std::find_if(lInterfaces.begin(), lInterfaces.end(),
                     [&](const Interface& aCandidate) { return Matches(aCandidate, aInterface); });
    if (aInterface.empty() || lFound == lInterfaces.end())
    {
        // Every address of the loop-back network is this host's, though only one is listed.
        const auto lAddress = KyGvcp::ParseAddress(aInterface);
        aAddress = lAddress.value_or(0);
        return lAddress && *lAddress >> 24U == 127;
    }
    aAddress = lFound->mAddress;
    return true;
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
    const std::vector<std::unique_ptr<Search>> lSearches = AskAll(aOptions, lTarget);
    if (lSearches.empty())
    {
        return aOptions.mInterface.empty() ? "no network interface that devices can be looked for on"
                                           : "no network interface " + aOptions.mInterface;
    }
    std::vector<UdpSocket*> lSockets;
    for (const auto& lSearch : lSearches)
    {
        lSockets.push_back(&lSearch->mSocket);
    }
    std::map<std::pair<uint32_t, uint16_t>, FoundDevice> lFound;
    const Clock::time_point lEnd = Clock::now() + std::chrono::milliseconds(aOptions.mTime);
    while (Clock::now() < lEnd && (aOptions.mAddress.empty() || lFound.empty()))
    {
        static_cast<void>(UdpSocket::Wait(lSockets, lEnd - Clock::now(), nullptr)); // the clock ends it
        for (const auto& lSearch : lSearches)
        {
            Collect(*lSearch, lFound);
        }
    }
    for (auto& [lKey, lDevice] : lFound)
    {
        aDevices.push_back(std::move(lDevice));
    }
    return {};
}

} // namespace KyGigE
