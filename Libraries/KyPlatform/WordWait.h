#pragma once

#include "KyPlatform/WaitResult.h"

#include <atomic>
#include <cstdint>

namespace KyPlatform
{

/// Sleeping at a word in memory until another thread of the process wakes the sleepers at that word. It needs no
/// object of the system, and a word without sleepers costs nothing.
///
/// Threads: any. The word may be gone by the time of a wake: only its address counts.
class WordWait
{
public:
    WordWait() = delete;

    /// Sleeps, if the word is aValue.
    /// \param aTimeout  Milliseconds; cInfinite has no end.
    /// Comes back when it was woken, when the time is over or the word is another, and also without any
    /// reason.
    static void Sleep(const std::atomic<uint32_t>& aWord, uint32_t aValue, uint32_t aTimeout) noexcept;

    /// Wake the sleepers at a word, in no order. Do not block.
    static void WakeOne(const std::atomic<uint32_t>* aWord) noexcept;
    static void WakeAll(const std::atomic<uint32_t>* aWord) noexcept;
};

} // namespace KyPlatform
