#pragma once

#include <cstdint>

namespace KyGigE
{

/// The numbers of a device's events. Most devices count them; others leave 0 there, or the number of an
/// image. Once a device has counted for a while, a number far from the last one is not its own.
class EventNumbers
{
public:
    /// \param aBits  Width of the number, after which it begins anew: 16 or 64.
    /// \return False: the number does not fit. The same one again does: what a device repeats it means.
    bool Fits(uint64_t aNumber, unsigned aBits);

private:
    static constexpr uint32_t cSure = 16;    // steps of one in a row
    static constexpr uint64_t cReach = 8192; // events that were lost, or that come late

    uint64_t mLast = 0;
    uint64_t mDoubted = 0;
    bool mDoubts = false;
    uint32_t mInRow = 0;
};

} // namespace KyGigE
