#pragma once

#include <cstdint>

namespace KySimulator
{

/// The forms that a camera gives to what it sends. Devices choose differently, so clients have to take all of them.
struct NetworkForms
{
    uint32_t mEventsPerPacket =
        1; ///< Events that wait go into one packet, as many as fit and this number at most.
    bool mLongEventIds = false;      ///< Event items have 64-bit block ids, and are 24 bytes long.
    bool mZippedDescription = false; ///< The description is a ZIP archive.
    bool mOnlySecondUrl =
        false; ///< The first address of the description names a file of the maker's, not one in the camera.
};

} // namespace KySimulator
