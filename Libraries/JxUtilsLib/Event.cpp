#include "JxUtilsLib/Event.h"

#include <chrono>

namespace JxUtilsLib
{

Event::Event(bool aManualReset) : mManualReset(aManualReset) {}

Event::~Event() = default;

void Event::Set() noexcept
{
    // Notified under the lock: a waiter may destroy the event as soon as it got through.
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSet = true;
    if (mManualReset)
    {
        mChanged.notify_all();
    }
    else
    {
        mChanged.notify_one();
    }
}

void Event::Reset() noexcept
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSet = false;
}

bool Event::Take() noexcept
{
    const bool lWasSet = mSet;
    if (!mManualReset)
    {
        mSet = false;
    }
    return lWasSet;
}

bool Event::Wait_ms(uint32_t aTimeout) noexcept
{
    std::unique_lock<std::mutex> lLock(mMutex);
    if (mSet)
    {
        return Take(); // without a look at the clock, which costs as much as the lock
    }
    if (aTimeout == cInfinite)
    {
        mChanged.wait(lLock, [this] { return mSet; });
        return Take();
    }
    const auto lDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(aTimeout);
    mChanged.wait_until(lLock, lDeadline, [this] { return mSet; });
    return Take();
}

} // namespace JxUtilsLib
