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
        mNow = std::max(mNow, lNext->first);
        const std::function<void()> lAction = std::move(lNext->second);
        mActions.erase(lNext);
        lScope.Open();
        lAction();
        lScope.Close();
    }
    mNow = std::max(mNow, lEnd);
}

Time ManualScheduler::NextTime() const
{
    LockScope lScope(mLock);
    return mActions.empty() ? cNever : mActions.begin()->first;
}

} // namespace KySimulator
