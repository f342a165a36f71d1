#pragma once

#include "Adapters/GigE/Gvcp/Protocol.h"
#include "Adapters/GigE/Gvcp/UdpSocket.h"

#include <KyGigE/Discovery.h>

#include <cstdint>
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
/// \return False: nobody could be asked.
bool Search(const std::vector<KyGvcp::Interface>& aInterfaces, const KyGvcp::Endpoint& aTarget,
            uint32_t aTime, size_t aEnough, std::vector<FoundDevice>& aDevices);

} // namespace KyGigE
