#pragma once

#include <KyGigE/Discovery.h>
#include <KyGigE/Export.h>

#include <cstdint>
#include <string>

namespace KyGigE
{

/// Where a device is to be in its network.
struct IpSettings
{
    std::string mAddress; ///< IPv4, dotted.
    std::string mMask;    ///< Dotted: "255.255.255.0".
    std::string mGateway; ///< Dotted; empty: none.
};

/// Gives a device another address at once, until it is switched off. Works also when the device is in another
/// network than this computer, because the command is broadcast; an application that controls the device
/// prevents it. Blocks for DiscoveryOptions::mTime at most, then once more to find the device; any thread.
/// \param aWhere   As for DiscoverDevices(). With an address the command goes to that address only.
/// \param aMac     MAC address of the device, its lower 48 bits.
/// \param aDevice  The device at its new address. Untouched on a failure.
/// \return Empty; or why the device does not have the new address, in words for a user.
KYGIGE_API std::string ForceIp(const DiscoveryOptions& aWhere, uint64_t aMac, const IpSettings& aSettings,
                               FoundDevice& aDevice);

/// Stores an address in a device, which it takes each time that it is switched on. Its address of now stays.
/// The device has to be reachable, and no other application may control it. Blocks for DiscoveryOptions::mTime
/// and the device's answers; any thread.
/// \param aWhere, aMac  As for ForceIp().
/// \return Empty; or why nothing or not all was stored, in words for a user.
KYGIGE_API std::string StoreIp(const DiscoveryOptions& aWhere, uint64_t aMac, const IpSettings& aSettings);

} // namespace KyGigE
