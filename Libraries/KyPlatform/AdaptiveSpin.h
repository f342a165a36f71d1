#pragma once
#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstdint>
#include <thread>
namespace KyPlatform
{
/// What an adaptive spin has learnt, kept as a word beside what is waited for. The word 0 knows nothing yet.
struct SpinMemory
{
    uint32_t mSkip;     ///< Waits that sleep at once before the next try.
    uint16_t mSpin;     ///< Nanoseconds of the spins that paid: a mean that follows slowly.
    uint8_t mDoublings; ///< Of mSkip: 65536 at most.
    bool mKnown;
};
/// Spins before a thread parks, as the adaptive mutexes of the C library do.
///
/// A sleep and its wake-up cost several microseconds. A peer on another core often ends the wait within a spin; a
/// peer on the same core does so while this thread yields. Neither pays where waits are long, and beside a program
/// that computes a yield costs that program's time slice. So a wait that still ends in sleep doubles the number of
/// waits that sleep at once before the next try. A try that took half a millisecond, which is a time slice, multiplies
/// it by 64. The first 16 waits sleep at once: something that is waited for a few times is not worth a try.
///
/// Threads: any. When two wait at once, one may overwrite what the other has learnt, which costs a try.
/// \return Whether aIsOver() said in time that there is no reason to sleep; false: sleep.
template<typename Question>
bool AdaptiveSpin(std::atomic<uint64_t>& aMemory, const Question& aIsOver) noexcept
{
    using Clock = std::chrono::steady_clock;
    using Time = std::chrono::nanoseconds;
    auto lMemory = std::bit_cast<SpinMemory>(aMemory.load(std::memory_order_relaxed));
    lMemory = lMemory.mKnown ? lMemory : SpinMemory{16, 0, 6, true};
    bool lOver = false;
    if (lMemory.mSkip-- == 0)
    {
        const auto lBegin = Clock::now();
        const Time lLimit(lMemory.mDoublings > 0 ? 2000
                                                 : std::min(2 * int64_t{lMemory.mSpin}, int64_t{2000}));
        Time lTime(0);
        for (; !lOver && lTime < lLimit; lTime = Clock::now() - lBegin)
        {
            lOver = aIsOver();
        }
        const auto lPaid = lOver ? std::min(lTime, Time(2000)).count() : 0;
        lMemory.mSpin = static_cast<uint16_t>((int64_t{lMemory.mSpin} * 7 + lPaid) / 8);
        if (!lOver)
        {
            std::this_thread::yield(); // a peer on the same processor runs now
            lOver = aIsOver();
        }
        const bool lSlice = Clock::now() - lBegin >= std::chrono::microseconds(500);
        const int lDoublings = !lOver || lSlice ? std::min(lMemory.mDoublings + (lSlice ? 6 : 1), 18) : 0;
        lMemory.mDoublings = static_cast<uint8_t>(lDoublings);
        lMemory.mSkip = (1U << static_cast<unsigned>(lDoublings)) / 4;
    }
    aMemory.store(std::bit_cast<uint64_t>(lMemory), std::memory_order_relaxed);
    return lOver;
}
} // namespace KyPlatform
