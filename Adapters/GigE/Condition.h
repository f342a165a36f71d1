#pragma once

#include <JxUtilsLib/Mutex.h>

#include <chrono>
#include <condition_variable>

namespace KyGigE
{

/// Waiting for something that a JxUtilsLib::Mutex guards.
class Condition
{
public:
    /// Gives the lock back while it waits. May wake without cause.
    void Wait(JxUtilsLib::Mutex& aMutex) JX_REQUIRES(aMutex)
    {
        Held lHeld{aMutex};
        mCondition.wait(lHeld); // NOLINT(bugprone-spuriously-wake-up-functions): callers loop
    }

    /// The same, for aMilliseconds at the longest.
    void WaitFor(JxUtilsLib::Mutex& aMutex, uint32_t aMilliseconds) JX_REQUIRES(aMutex)
    {
        Held lHeld{aMutex};
        // NOLINTNEXTLINE(bugprone-spuriously-wake-up-functions): callers loop
        mCondition.wait_for(lHeld, std::chrono::milliseconds(aMilliseconds));
    }

    void NotifyAll() { mCondition.notify_all(); }

private:
    /// A mutex that is held, as the standard library wants it.
    struct Held
    {
        JxUtilsLib::Mutex& mMutex;

        // NOLINTNEXTLINE(readability-identifier-naming): the standard library's name
        void lock() JX_NO_THREAD_SAFETY_ANALYSIS { mMutex.Wait(); }
        // NOLINTNEXTLINE(readability-identifier-naming): the standard library's name
        void unlock() JX_NO_THREAD_SAFETY_ANALYSIS { mMutex.Release(); }
    };

    std::condition_variable_any mCondition;
};

} // namespace KyGigE
