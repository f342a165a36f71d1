#include <KyGigE/Discovery.h>

#include "Adapters/GigE/Client/ParseInformation.h"
#include "Adapters/GigE/Client/Search.h"
#include "Adapters/GigE/TextWithMemory.h"
#include "KyGvcp/HostName.h"
#include "KyPlatform/Deadline.h"

#include <algorithm>
#include <array>
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
using KyPlatform::Deadline;

namespace
{

constexpr uint32_t cAgain = 150; // milliseconds; a question or an answer may get lost
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

bool Ask(SearchSocket& aSearch, const Endpoint& aTarget, const KyGvcp::Packet& aCommand)
{
    return aSearch.mSocket.SendTo(aTarget, aCommand.GetBytes()) == SocketResult::Done;
}

/// A socket of an interface. Where what is broadcast comes only to sockets without an address, the interface
/// keeps such a socket to itself.
bool Open(SearchSocket& aSearch, const Endpoint& aTarget)
{
    const Interface& lInterface = aSearch.mInterface;
    const bool lBroadcast = aTarget.mAddress == KyGvcp::cBroadcastAddress;
    const bool lAnywhere = lBroadcast && !UdpSocket::AddressHearsBroadcasts();
    return aSearch.mSocket.Open({lAnywhere ? 0 : lInterface.mAddress, 0}, false, lInterface.mIndex) &&
           aSearch.mSocket.AllowBroadcast();
}

/// Takes one answer, if the socket has one. \return Whether that was the last one wanted.
bool Collect(SearchSocket& aSearch, const KyGvcp::CommandView& aCommand, const AnswerHandler& aTake)
{
    std::array<uint8_t, KyGvcp::cMaxPacket> lPacket{};
    size_t lSize = 0;
    Endpoint lFrom;
    if (aSearch.mSocket.Receive(lPacket, lSize, &lFrom, cAtOnce) != SocketResult::Done)
    {
        return false;
    }
    const auto lAnswer = KyGvcp::ParseAcknowledge(KyGvcp::Bytes(lPacket).first(lSize));
    // Anybody may send to this port. What does not answer this question is dropped.
    return lAnswer && lAnswer->mCode == aCommand.mCode + 1 && lAnswer->mRequestID == aCommand.mRequestID &&
           aTake({aSearch.mInterface, *lAnswer, lFrom});
}

void Note(const SearchAnswer& aAnswer, Findings& aFound)
{
    // A refusal or a short answer says nothing about a device.
    if (aAnswer.mAcknowledge.mStatus == KyGvcp::cSuccess &&
        aAnswer.mAcknowledge.mPayload.size() >= KyGvcp::cDiscoverySize)
    {
        const DeviceInformation lInformation = ParseInformation(aAnswer.mAcknowledge.mPayload);
        const std::string& lInterface = aAnswer.mInterface.mName;
        const Endpoint& lFrom = aAnswer.mFrom;
        // The first answer counts: a device that is asked twice answers twice.
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

bool AskAll(const std::vector<Interface>& aInterfaces, const Endpoint& aTarget,
            const KyGvcp::Packet& aCommand, uint32_t aTime, const AnswerHandler& aTake)
{
    const auto lCommand = KyGvcp::ParseCommand(aCommand.GetBytes());
    std::vector<std::unique_ptr<SearchSocket>> lSearches;
    std::vector<UdpSocket*> lSockets;
    // A socket for each interface: a broadcast leaves a socket on one interface only.
    for (const Interface& lInterface : aInterfaces)
    {
        auto lSearch = std::make_unique<SearchSocket>();
        lSearch->mInterface = lInterface;
        // An interface that is down, or has no way to the target, is left out; the others still find their devices.
        if (Open(*lSearch, aTarget) && Ask(*lSearch, aTarget, aCommand))
        {
            lSockets.push_back(&lSearch->mSocket);
            lSearches.push_back(std::move(lSearch));
        }
    }
    const Deadline lEnd(aTime);
    Deadline lAgain(cAgain);
    bool lDone = false;
    while (!lSearches.empty() && lCommand && !lEnd.IsOver() && !lDone)
    {
        // Result ignored: the clock ends it.
        static_cast<void>(UdpSocket::Wait(lSockets, std::min(lEnd, lAgain).GetTimeLeft(), nullptr));
        const bool lAsk = lAgain.IsOver();
        // One repetition: every device of the network answers each question.
        lAgain = lAsk ? Deadline(KyPlatform::cInfinite) : lAgain;
        for (const auto& lSearch : lSearches)
        {
            // One answer of each socket in a turn: an interface with many devices does not keep the others waiting.
            lDone = Collect(*lSearch, *lCommand, aTake) || lDone;
            static_cast<void>(lAsk && Ask(*lSearch, aTarget, aCommand)); // ignored: it was asked before
        }
    }
    return !lSearches.empty();
}

bool Search(const std::vector<Interface>& aInterfaces, const Endpoint& aTarget, uint32_t aTime,
            size_t aEnough, std::vector<FoundDevice>& aDevices)
{
    aDevices.clear();
    Findings lFound;
    // A device whose address does not fit its network can answer everybody only.
    const bool lBroadcast = aTarget.mAddress == KyGvcp::cBroadcastAddress;
    const bool lAsked =
        AskAll(aInterfaces, aTarget, KyGvcp::MakeDiscovery(KyGvcp::cBroadcastRequest, lBroadcast), aTime,
               [&](const SearchAnswer& aAnswer)
               {
                   Note(aAnswer, lFound);
                   return lFound.size() >= aEnough;
               });
    for (auto& [lKey, lDevice] : lFound)
    {
        aDevices.push_back(std::move(lDevice));
    }
    return lAsked;
}

std::string FindWays(const DiscoveryOptions& aOptions, SearchWays& aWays)
{
    aWays.mTarget = {KyGvcp::cBroadcastAddress, aOptions.mPort};
    if (!aOptions.mAddress.empty())
    {
        std::string lError;
        const auto lAddress = KyGvcp::FindAddress(aOptions.mAddress, KyGvcp::cLongestLookUp, {}, lError);
        if (!lAddress)
        {
            return lError;
        }
        aWays.mTarget.mAddress = *lAddress;
    }
    aWays.mInterfaces = MatchingInterfaces(aOptions.mInterface);
    if (!aOptions.mAddress.empty() && aOptions.mInterface.empty())
    {
        aWays.mInterfaces = {Interface()}; // one device: the system knows the way
    }
    return {};
}

std::string NoInterface(const DiscoveryOptions& aOptions)
{
    // Without sockets the interfaces cannot be listed either, and it is not the network that is missing.
    UdpSocket lTry;
    if (!lTry.Open({}))
    {
        return "devices cannot be looked for: " + lTry.GetError();
    }
    return aOptions.mInterface.empty() ? "no network interface that devices can be looked for on"
                                       : "no network interface " + aOptions.mInterface;
}

std::string DiscoverDevices(const DiscoveryOptions& aOptions, std::vector<FoundDevice>& aDevices)
{
    return TextWithMemory(cOutOfMemory,
                          [&]() -> std::string
                          {
                              aDevices.clear();
                              SearchWays lWays;
                              std::string lError = FindWays(aOptions, lWays);
                              if (lError.empty() &&
                                  !Search(lWays.mInterfaces, lWays.mTarget, aOptions.mTime,
                                          aOptions.mAddress.empty() ? SIZE_MAX : 1, aDevices))
                              {
                                  lError = NoInterface(aOptions);
                              }
                              return lError;
                          });
}

} // namespace KyGigE
