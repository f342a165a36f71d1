#pragma once

#include "JxUtilsLib/Mutex.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>

namespace JxUtilsLib
{

/// Waiting for something that a Mutex guards. What one awaited byte costs counts elsewhere: see Event.
///
/// Threads: any.
class Condition
{
public:
    /// Gives the lock back while it waits. May wake without cause: callers loop.
    void Wait(Mutex& aMutex) JX_REQUIRES(aMutex)
    {
        Held lHeld(aMutex);
        mCondition.wait(lHeld.mLock); // NOLINT(bugprone-spuriously-wake-up-functions): callers loop
    }

    /// The same, for aMilliseconds at the longest, on a clock that nobody sets.
    void WaitFor(Mutex& aMutex, uint32_t aMilliseconds) JX_REQUIRES(aMutex)
    {
        Held lHeld(aMutex);
        // NOLINTNEXTLINE(bugprone-spuriously-wake-up-functions): callers loop
        mCondition.wait_until(lHeld.mLock,
                              std::chrono::steady_clock::now() + std::chrono::milliseconds(aMilliseconds));
    }

    /// Wakes all waiting threads. The caller may hold the lock.
    void NotifyAll() noexcept { mCondition.notify_all(); }

private:
    /// A Mutex that the caller holds, and holds again afterwards, as the standard library wants it.
    struct Held
    {
        explicit Held(Mutex& aMutex) : mLock(aMutex.mMutex, std::adopt_lock) {}
        ~Held() { mLock.release(); }
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;

        std::unique_lock<std::mutex> mLock;
    };

    std::condition_variable mCondition;
};

} // namespace JxUtilsLib
