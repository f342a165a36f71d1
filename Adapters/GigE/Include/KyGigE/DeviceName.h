#pragma once

#include <KyGigE/DeviceAddress.h>
#include <KyGigE/Discovery.h>
#include <KyGigE/Export.h>

#include <string>

namespace KyGigE
{

/// Whether aName is a name of the device: its MAC address, serial number, user name, model or IPv4 address; letter
/// case is ignored, and so are the separators of a MAC address.
KYGIGE_API bool IsNameOf(const std::string& aName, const FoundDevice& aDevice);

/// Finds the device that a user names: by "gev://ADDRESS...", by the address alone, or by what IsNameOf() knows. Only
/// these last are searched for; that blocks for DiscoveryOptions::mTime. Any thread.
/// \param aAddress  Untouched on a failure.
/// \return Empty; or, in words for a user, that no device or several have that name.
KYGIGE_API std::string FindDevice(const std::string& aName, const DiscoveryOptions& aWhere,
                                  DeviceAddress& aAddress);

} // namespace KyGigE
