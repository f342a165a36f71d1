#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>

namespace KyPlatform
{

/// Offers the processor to others before a thread goes to sleep.
///
/// Where the one who will end the sleep shares the processor, it does so meanwhile, and a sleep, a wake-up
/// and the system's timer for the sleep are saved. Anywhere else the offer is a call for nothing, and beside
/// a program that computes it costs that program's whole time slice. So it is made again at once only where
/// it helped; after each that did not, twice as many sleeps go by without one, and 64 times as many after one
/// that took as long as a time slice.
///
/// Threads: any. What came of earlier offers is kept in a word beside each thing that is waited for; two
/// threads that count at once may count one sleep for both.
class ProcessorOffer
{
public:
    using Clock = std::chrono::steady_clock;

    /// Sleeps that go by before the first offer, and at most between two of them.
    static constexpr uint32_t cShortestPause = 16;
    static constexpr uint32_t cLongestPause = 65536;
    /// An offer that takes as long was taken by somebody else: less than a time slice.
    static constexpr Clock::duration cTooLong = std::chrono::microseconds(500);

    /// \param aHistory  0 at first; must outlive the object.
    explicit ProcessorOffer(std::atomic<uint32_t>& aHistory) noexcept : mHistory(aHistory) {}

    /// Makes the offer, if it is time for one. Does not sleep, but may take somebody else's time slice, a few
    /// milliseconds.
    /// \param aIsOver  Says whether there is no reason to sleep any more.
    /// \return What it says behind the offer; false without one.
    template<typename Question>
    bool Make(const Question& aIsOver) noexcept
    {
        if (!IsDue())
        {
            return false;
        }
        const Clock::time_point lBegin = Clock::now();
        std::this_thread::yield();
        const bool lHelped = aIsOver();
        Note(lHelped, Clock::now() - lBegin);
        return lHelped;
    }

    /// Counts a sleep. \return Whether to offer the processor before it.
    bool IsDue() noexcept;

    /// \param aHelped  Whether the reason to sleep was gone behind the offer.
    /// \param aTime    How long it took.
    void Note(bool aHelped, Clock::duration aTime) noexcept;

private:
    std::atomic<uint32_t>& mHistory;
};

} // namespace KyPlatform
