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

Deadline::Deadline(std::chrono::nanoseconds aTimeout) noexcept
    : mEnd(aTimeout.count() < 0 ? cNever : gClock.load()() + static_cast<uint64_t>(aTimeout.count()))
{
}

uint32_t Deadline::GetRemaining(uint32_t aMost) const noexcept
{
    if (IsEndless())
    {
        return aMost;
    }
    // The time is rounded up: with 0 for its last fraction a caller would spin instead of wait.
    const uint64_t lLeft = (static_cast<uint64_t>(GetTimeLeft().count()) + cMillisecond - 1) / cMillisecond;
    // cInfinite means no end, so a long time gets the number before it.
    return static_cast<uint32_t>(std::min<uint64_t>({lLeft, aMost, cInfinite - 1}));
}

std::chrono::nanoseconds Deadline::GetTimeLeft() const noexcept
{
    if (IsEndless())
    {
        return std::chrono::nanoseconds(-1);
    }
    const uint64_t lNow = gClock.load()();
    return std::chrono::nanoseconds(lNow >= mEnd ? 0 : static_cast<int64_t>(mEnd - lNow));
}

void Deadline::SetClock(Clock aClock) noexcept
{
    gClock = aClock != nullptr ? aClock : &GetSystemTime;
}

} // namespace KyPlatform
