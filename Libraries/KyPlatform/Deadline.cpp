#include "KyPlatform/Deadline.h"

#include <algorithm>
#include <atomic>
#include <chrono>

namespace KyPlatform
{

namespace
{

constexpr uint64_t cMillisecond = 1000000;

uint64_t GetSystemTime()
{
    const auto lNow = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(lNow).count());
}

std::atomic<Deadline::Clock> gClock{&GetSystemTime};

} // namespace

Deadline::Deadline(uint64_t aTimeout) noexcept
    : mEnd(aTimeout == cInfinite ? cNever : gClock.load()() + aTimeout * cMillisecond)
{
}

uint32_t Deadline::GetRemaining(uint32_t aMost) const noexcept
{
    if (IsEndless())
    {
        return aMost;
    }
    const uint64_t lNow = gClock.load()();
    const uint64_t lLeft = lNow >= mEnd ? 0 : (mEnd - lNow + cMillisecond - 1) / cMillisecond;
    return static_cast<uint32_t>(std::min<uint64_t>({lLeft, aMost, cInfinite - 1}));
}

void Deadline::SetClock(Clock aClock) noexcept
{
    gClock = aClock != nullptr ? aClock : &GetSystemTime;
}

} // namespace KyPlatform
