#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace KySerialLib
{

/// The end of a call's time.
class Deadline
{
public:
    static constexpr uint32_t cForever = 0xFFFFFFFFU;

    /// \param aTimeout  Milliseconds from now; 0xFFFFFFFF has no end.
    explicit Deadline(uint32_t aTimeout)
        : mEndless(aTimeout == cForever), mEnd(Clock::now() + std::chrono::milliseconds(aTimeout))
    {
    }

    /// Milliseconds left, rounded up; 0xFFFFFFFF without an end.
    uint32_t GetRemaining() const
    {
        if (mEndless)
        {
            return cForever;
        }
        const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(mEnd - Clock::now()).count();
        return static_cast<uint32_t>(std::clamp<int64_t>(lLeft, 0, cForever - 1));
    }

    bool IsOver() const { return GetRemaining() == 0; }

private:
    using Clock = std::chrono::steady_clock;

    bool mEndless;
    Clock::time_point mEnd;
};

} // namespace KySerialLib
