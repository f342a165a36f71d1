#pragma once

#include <cstdint>
#include <string>

namespace KySimulator
{

/// The forms that a camera gives to what it sends. Devices choose differently, so clients have to take all of them.
struct NetworkForms
{
    /// Events that wait go into one packet, as many as fit and this number at most.
    uint32_t mEventsPerPacket = 1;
    /// Event items have 64-bit block ids, and are 24 bytes long.
    bool mLongEventIds = false;
    /// The description is a ZIP archive.
    bool mZippedDescription = false;
    /// The first address of the description names a file of the maker's, not one in the camera.
    bool mOnlySecondUrl = false;
    /// In place of the description of the camera, if there is something in it.
    std::string mDescription{};
};

} // namespace KySimulator
