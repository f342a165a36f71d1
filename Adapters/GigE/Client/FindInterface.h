#pragma once

#include <cstdint>
#include <string>

namespace KyGigE
{

/// The own address to use for an interface's address or name.
/// \return False: this host has no such interface, or it is not up.
bool FindInterface(const std::string& aInterface, uint32_t& aAddress);

} // namespace KyGigE
