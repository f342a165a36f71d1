#include "KyPlatform/ProcessorOffer.h"

#include <algorithm>

namespace KyPlatform
{

namespace
{

/// The word: how often the pause was doubled, above the sleeps since the last offer.
constexpr uint32_t cSleeps = 0xFFFFFFU;
constexpr uint32_t cOneDoubling = cSleeps + 1;
constexpr uint32_t cMostDoublings = 12;
static_assert(ProcessorOffer::cShortestPause << cMostDoublings == ProcessorOffer::cLongestPause);
static_assert(ProcessorOffer::cLongestPause < cSleeps);

} // namespace

bool ProcessorOffer::IsDue() noexcept
{
    const uint32_t lHistory = mHistory.load(std::memory_order_relaxed);
    if ((lHistory & cSleeps) >= cShortestPause << lHistory / cOneDoubling)
    {
        return true;
    }
    mHistory.store(lHistory + 1, std::memory_order_relaxed);
    return false;
}

void ProcessorOffer::Note(bool aHelped, Clock::duration aTime) noexcept
{
    const bool lTooLong = aTime >= cTooLong;
    if (aHelped && !lTooLong)
    {
        mHistory.store(cShortestPause, std::memory_order_relaxed); // the next is due
        return;
    }
    const uint32_t lDoublings = mHistory.load(std::memory_order_relaxed) / cOneDoubling + (lTooLong ? 6 : 1);
    mHistory.store(std::min(lDoublings, cMostDoublings) * cOneDoubling, std::memory_order_relaxed);
}

} // namespace KyPlatform
