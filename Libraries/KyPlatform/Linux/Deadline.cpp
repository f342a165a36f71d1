#include "KyPlatform/Linux/Deadline.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>

namespace KyPlatform
{

namespace
{

constexpr uint64_t cNever = ~uint64_t{0};
constexpr uint64_t cMillisecond = 1000000;

uint64_t Now() noexcept
{
    timespec lNow{};
    gSystem.mReadClock(CLOCK_MONOTONIC, &lNow);
    return static_cast<uint64_t>(lNow.tv_sec) * 1000 * cMillisecond + static_cast<uint64_t>(lNow.tv_nsec);
}

} // namespace

Deadline::Deadline(uint64_t aTimeout) noexcept
    : mEnd(aTimeout == cInfinite ? cNever : Now() + aTimeout * cMillisecond)
{
}

int Deadline::GetRemaining() const noexcept
{
    if (mEnd == cNever)
    {
        return -1;
    }
    const uint64_t lNow = Now();
    const uint64_t lLeft = lNow >= mEnd ? 0 : (mEnd - lNow + cMillisecond - 1) / cMillisecond;
    return static_cast<int>(std::min<uint64_t>(lLeft, INT_MAX));
}

int PollUntil(pollfd* aPolls, nfds_t aCount, const Deadline& aDeadline) noexcept
{
    for (;;)
    {
        const int lReady = gSystem.mPoll(aPolls, aCount, aDeadline.GetRemaining());
        if (lReady >= 0 || errno != EINTR)
        {
            return lReady;
        }
    }
}

} // namespace KyPlatform
