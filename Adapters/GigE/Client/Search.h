#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"

#include <KyGigE/Discovery.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace KyGigE
{

/// The interfaces with that name or address; all of them for an empty text.
std::vector<KyGvcp::Interface> MatchingInterfaces(const std::string& aWanted);

/// Asks for devices on each of some interfaces; on one without an index, as the routes say.
/// \param aTarget  One device, or everybody (KyGvcp::cBroadcastAddress).
/// \param aTime    Milliseconds to wait for answers. \param aEnough  So many of them end the wait.
/// \param aDevices  Those that answered, by interface; each once for each interface.
/// \return False: the question could not be sent on any interface.
bool Search(const std::vector<KyGvcp::Interface>& aInterfaces, const KyGvcp::Endpoint& aTarget,
            uint32_t aTime, size_t aEnough, std::vector<FoundDevice>& aDevices);

/// Where questions go: one device, or everybody on some interfaces.
struct SearchWays
{
    KyGvcp::Endpoint mTarget;
    std::vector<KyGvcp::Interface> mInterfaces;
};

/// \return Empty; or why the options name no such place, in words for a user.
std::string FindWays(const DiscoveryOptions& aOptions, SearchWays& aWays);
/// The words for a place that nothing can be sent to.
std::string NoInterface(const DiscoveryOptions& aOptions);

/// An acknowledge that came back. Valid during the call that it is given to.
struct SearchAnswer
{
    const KyGvcp::Interface& mInterface;
    const KyGvcp::AcknowledgeView& mAcknowledge;
    const KyGvcp::Endpoint& mFrom;
};
/// \return True: no more answers are wanted.
using AnswerHandler = std::function<bool(const SearchAnswer&)>;

/// Sends a command on each of some interfaces, a little later once more, and takes the answers.
/// \param aTime  Milliseconds to wait for answers. \return False: it could not be sent anywhere.
bool AskAll(const std::vector<KyGvcp::Interface>& aInterfaces, const KyGvcp::Endpoint& aTarget,
            const KyGvcp::Packet& aCommand, uint32_t aTime, const AnswerHandler& aTake);

} // namespace KyGigE
