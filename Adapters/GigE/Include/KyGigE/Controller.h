#pragma once

#include <KyGigE/Discovery.h>
#include <KyGigE/Export.h>

#include <cstdint>
#include <string>

namespace KyGigE
{

/// Which application controls a device.
struct Controller
{
    bool mControlled = false;
    bool mExclusive = false; ///< Others may not even read.
    std::string mAddress;    ///< IPv4, dotted; empty: nobody, or the device does not say it.
    uint16_t mPort = 0;      ///< UDP port of the application; 0 with an empty address.
};

/// Asks a device who controls it, without taking control. Blocks for the device's answers, 0.8 s at most when it
/// answers nothing; any thread.
/// \param aController  Untouched on a failure.
/// \return Empty; or why the device does not say it, in words for a user.
KYGIGE_API std::string FindController(const FoundDevice& aDevice, Controller& aController);

} // namespace KyGigE
