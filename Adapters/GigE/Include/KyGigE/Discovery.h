#pragma once

#include <KyGigE/DeviceInformation.h>
#include <KyGigE/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KyGigE
{

/// Where devices are looked for.
struct DiscoveryOptions
{
    /// Address of one device, dotted; empty: every device that a broadcast reaches.
    std::string mAddress;
    uint16_t mPort = 3956; ///< UDP port of their control channel.
    /// Own address or name of the interface to look on; empty: all.
    std::string mInterface;
    /// Milliseconds to wait for answers; a single device ends the wait.
    uint32_t mTime = 1000;
};

/// A device that answered.
struct FoundDevice
{
    DeviceInformation mInformation;
    std::string mAddress; ///< What it answered from, dotted.
    uint16_t mPort = 0;
    std::string mInterface; ///< Name of the interface that it was found on.
};

/// Looks for devices. A broadcast leaves the host on each interface that is searched. Blocks for
/// DiscoveryOptions::mTime; any thread.
/// \param aDevices  Those that answered, by interface and MAC address; each once for each interface that
///                  reaches it. Empty on a failure.
/// \return Empty; or why nothing could be asked, in words for a user.
KYGIGE_API std::string DiscoverDevices(const DiscoveryOptions& aOptions, std::vector<FoundDevice>& aDevices);

} // namespace KyGigE
