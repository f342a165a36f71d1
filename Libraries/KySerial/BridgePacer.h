#pragma once

#include <algorithm>
#include <cstdint>

namespace KySerialLib
{

/// How long to wait before the next try of something that keeps giving nothing. A single miss costs no time, a
/// line that is dead is tried about once a second.
class BridgePacer
{
public:
    static constexpr uint32_t cFirstDelay = 10;
    static constexpr uint32_t cLongestDelay = 1000;

    /// It worked.
    void Reset() { mDelay = 0; }

    /// It did not work. \return Milliseconds to wait: 0, 10, 20, 40 and so on up to 1000.
    uint32_t GetDelay()
    {
        const uint32_t lDelay = mDelay;
        mDelay = lDelay == 0 ? cFirstDelay : std::min(lDelay * 2, cLongestDelay);
        return lDelay;
    }

private:
    uint32_t mDelay = 0;
};

} // namespace KySerialLib
