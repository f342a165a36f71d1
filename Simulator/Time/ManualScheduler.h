#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Time/Scheduler.h"

#include <map>

namespace KySimulator
{

/// A clock that moves only by Advance(); actions run on the thread that moves it.
class ManualScheduler : public Scheduler
{
public:
    ManualScheduler() = default;

    Time Now() const override;
    void At(Time aTime, std::function<void()> aAction) override;

    /// Moves on by aTime and runs everything that falls due on the way, in order of time: an action sees the
    /// time that it was ordered for. Actions may order further ones; these run too when they fall due.
    /// Any thread, one at a time; not from inside an action.
    void Advance(Time aTime);

    /// Time of the next action; cNever without one.
    Time NextTime() const;

private:
    mutable Lock mLock;
    Time mNow JX_GUARDED_BY(mLock){0};
    std::multimap<Time, std::function<void()>> mActions JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
