#pragma once

#include <cstdint>
#include <string>

namespace KyGigE
{

/// Own end of a connection; zeros: the system chooses.
struct OwnSide
{
    uint32_t mAddress = 0;
    uint32_t mInterface = 0; ///< KyGvcp::Interface::mIndex.

    bool operator==(const OwnSide&) const = default;
};

/// The own side for an interface that is given by its address or name.
/// \param aDevice  What it has to reach: of several addresses the one in the device's network is taken.
/// \return Empty; or the reason why no interface fits, as a sentence: this host has no such interface, or it is not up, or
///         several have that address.
std::string FindInterface(const std::string& aInterface, uint32_t aDevice, OwnSide& aOwn);

/// The own side that the system's routes choose.
/// \return False: there is no way to the device.
bool FindRoute(uint32_t aDevice, OwnSide& aOwn);

/// The name of the interface to use where several lead to networks that have the device's address: other
/// devices may have it there. Asks on each of them; blocks for aTime milliseconds then. \param aInterface
/// Empty: the routes decide, because one interface is the only one or nobody answers. \return Empty; or, as a
/// sentence, that several devices answer.
std::string ChooseInterface(uint32_t aDevice, uint16_t aPort, uint32_t aTime, std::string& aInterface);

} // namespace KyGigE
