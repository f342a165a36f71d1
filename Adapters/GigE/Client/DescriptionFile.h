#pragma once

#include "Adapters/GigE/Client/ControlChannel.h"

#include <cstdint>
#include <string>

namespace KyGigE
{

/// Where in a device's memory its description lies.
struct DescriptionPlace
{
    uint32_t mAddress = 0;
    uint32_t mSize = 0;
};

/// Takes "Local:name.xml;100000;691D" apart, with or without blanks. \return False: the description is not in
/// the device, or the text makes no sense.
bool ParseDescriptionUrl(const std::string& aUrl, DescriptionPlace& aPlace);

/// Reads a device's description file, as it is stored there: that of the first address, or of the second when
/// the first leads elsewhere or cannot be read.
/// \return Also FAILURE: neither of the device's two addresses leads into its own memory.
KyResult ReadDescription(ControlChannel& aControl, std::string& aFile);

} // namespace KyGigE
