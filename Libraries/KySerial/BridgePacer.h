#pragma once

#include "JxUtilsLib/Thread.h"

#include <algorithm>
#include <cstdint>

namespace KySerialLib
{

/// How long to wait before the next try of something that fails at once, again and again. A single failure costs
/// no time. Something that goes on failing is tried about once a second. A try that took its time needs no pause.
class BridgePacer
{
public:
    static constexpr uint32_t cFirstDelay = 10;
    static constexpr uint32_t cLongestDelay = 1000;

    /// A try begins.
    void Begin() { mBegin = JxUtilsLib::Thread::GetTickCount(); }

    /// It gave something.
    void Reset() { mDelay = 0; }

    /// It gave nothing. \return Milliseconds to wait: 0, 10, 20, 40 and so on up to 1000.
    uint32_t GetDelay()
    {
        if (JxUtilsLib::Thread::GetTickCount() - mBegin >= cFirstDelay)
        {
            mDelay = 0;
            return 0;
        }
        const uint32_t lDelay = mDelay;
        mDelay = lDelay == 0 ? cFirstDelay : std::min(lDelay * 2, cLongestDelay);
        return lDelay;
    }

private:
    uint64_t mBegin = 0;
    uint32_t mDelay = 0;
};

} // namespace KySerialLib
