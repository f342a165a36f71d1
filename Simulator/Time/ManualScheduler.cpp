#include "Simulator/Time/ManualScheduler.h"

#include <algorithm>
#include <utility>

namespace KySimulator
{

Time ManualScheduler::Now() const
{
    LockScope lScope(mLock);
    return mNow;
}

void ManualScheduler::At(Time aTime, std::function<void()> aAction)
{
    LockScope lScope(mLock);
    mActions.emplace(aTime, std::move(aAction));
}

void ManualScheduler::Advance(Time aTime)
{
    LockScope lScope(mLock);
    const Time lEnd = mNow + aTime;
    while (!mActions.empty() && mActions.begin()->first <= lEnd)
    {
        const auto lNext = mActions.begin();
        // The clock stands at each action's own time while it runs, and never goes back for one that was ordered
        // too late.
        mNow = std::max(mNow, lNext->first);
        const std::function<void()> lAction = std::move(lNext->second);
        mActions.erase(lNext);
        // Without the lock: an action orders the next one, and asks for the time.
        lScope.Open();
        lAction();
        lScope.Close();
    }
    // An action may have advanced the clock itself, further than this call wants.
    mNow = std::max(mNow, lEnd);
}

Time ManualScheduler::NextTime() const
{
    LockScope lScope(mLock);
    return mActions.empty() ? cNever : mActions.begin()->first;
}

} // namespace KySimulator
