#pragma once

#include <JxUtilsLib/ThreadSafety.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace KySimulator
{

/// A lock between threads that clang's lock analysis understands. Not recursive.
///
/// The simulator has one of its own because it must link with either shape of the serial library.
class JX_CAPABILITY("mutex") Lock
{
public:
    Lock() = default;
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void Take() JX_ACQUIRE() { mMutex.lock(); }
    void Give() JX_RELEASE() { mMutex.unlock(); }

private:
    friend class Condition;
    std::mutex mMutex;
};

/// Holds a Lock from construction to destruction; can be opened for a while.
class JX_SCOPED_CAPABILITY LockScope
{
public:
    explicit LockScope(Lock& aLock) JX_ACQUIRE(aLock) : mLock(aLock) { mLock.Take(); }
    ~LockScope() JX_RELEASE()
    {
        if (mHeld)
        {
            mLock.Give();
        }
    }
    LockScope(const LockScope&) = delete;
    LockScope& operator=(const LockScope&) = delete;

    void Open() JX_RELEASE()
    {
        mHeld = false;
        mLock.Give();
    }
    void Close() JX_ACQUIRE()
    {
        mLock.Take();
        mHeld = true;
    }

private:
    Lock& mLock;
    bool mHeld = true;
};

/// Waiting for something that a Lock guards.
class Condition
{
public:
    /// Gives the lock back while it waits. May wake without cause.
    void Wait(Lock& aLock) JX_REQUIRES(aLock)
    {
        std::unique_lock<std::mutex> lHeld(aLock.mMutex, std::adopt_lock);
        mCondition.wait(lHeld); // NOLINT(bugprone-spuriously-wake-up-functions): callers loop
        lHeld.release();
    }

    /// The same, and wakes at aTime at the latest.
    void WaitUntil(Lock& aLock, std::chrono::steady_clock::time_point aTime) JX_REQUIRES(aLock)
    {
        std::unique_lock<std::mutex> lHeld(aLock.mMutex, std::adopt_lock);
        mCondition.wait_until(lHeld, aTime); // NOLINT(bugprone-spuriously-wake-up-functions): callers loop
        lHeld.release();
    }

    void NotifyAll() { mCondition.notify_all(); }

private:
    std::condition_variable mCondition;
};

} // namespace KySimulator
