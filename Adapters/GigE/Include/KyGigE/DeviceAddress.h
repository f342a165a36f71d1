#pragma once

#include <KyGigE/Export.h>

#include <cstdint>
#include <string>

namespace KyGigE
{

/// Where a device is.
struct DeviceAddress
{
    std::string
        mAddress; ///< IPv4, "192.168.0.5", or the name of a host, which the system knows the address of.
    uint16_t mPort = 3956;  ///< UDP port of its control channel.
    std::string mInterface; ///< Own IPv4 address or network interface to use; empty: the system chooses.
};

/// Takes "gev://ADDRESS-OR-HOST[:PORT][?interface=ADDRESS-OR-NAME]" apart. Asks neither the device nor the network.
/// \param aAddress  Untouched on a failure.
/// \return Empty; or why aText is no address, in words for a user.
KYGIGE_API std::string ParseDeviceAddress(const std::string& aText, DeviceAddress& aAddress);

/// The text of an address, as ParseDeviceAddress() reads it.
KYGIGE_API std::string DeviceAddressText(const DeviceAddress& aAddress);

} // namespace KyGigE
