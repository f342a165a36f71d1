#include "Simulator/Time/RealScheduler.h"

#include "KyPlatform/Timers.h"
#include "Simulator/Camera/Lock.h"

#include <map>
#include <new>
#include <utility>

namespace KySimulator
{

struct RealScheduler::Work
{
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    Lock mLock;
    Condition mChanged;
    bool mStop JX_GUARDED_BY(mLock) = false;
    std::multimap<Time, std::function<void()>> mActions JX_GUARDED_BY(mLock);

    Time Now() const { return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - mStart); }
};

RealScheduler::RealScheduler() : mWork(std::make_shared<Work>())
{
    mThread = std::thread([lWork = mWork] { Run(lWork); });
}

RealScheduler::~RealScheduler()
{
    std::multimap<Time, std::function<void()>> lDropped;
    {
        LockScope lScope(mWork->mLock);
        mWork->mStop = true;
        // Dropped after the lock: what an action holds may be a camera, whose end calls this scheduler.
        lDropped.swap(mWork->mActions);
        mWork->mChanged.NotifyAll();
    }
    // The last owner may be an action, which runs on this very thread. The thread holds its work and ends by
    // itself.
    if (mThread.get_id() == std::this_thread::get_id())
    {
        mThread.detach();
    }
    else
    {
        mThread.join();
    }
}

Time RealScheduler::Now() const
{
    return mWork->Now();
}

void RealScheduler::At(Time aTime, std::function<void()> aAction)
{
    // Held to the end of this call: the action may destroy this scheduler as soon as the lock is free, and the last owner of
    // the work would free the lock while it is given back here.
    const std::shared_ptr<Work> lWork = mWork;
    LockScope lScope(lWork->mLock);
    // An action that runs during the end may order another one, which nobody would run.
    if (!lWork->mStop)
    {
        const auto lOrdered = lWork->mActions.emplace(aTime, std::move(aAction));
        // The thread sleeps until the next action is due: a later one is no reason to wake.
        if (lOrdered == lWork->mActions.begin())
        {
            lWork->mChanged.NotifyAll();
        }
    }
}

void RealScheduler::Run(const std::shared_ptr<Work>& aWork)
{
    KyPlatform::TightenTimers(); // a byte has left, or has come, at its time on the line
    LockScope lScope(aWork->mLock);
    while (!aWork->mStop)
    {
        if (aWork->mActions.empty())
        {
            aWork->mChanged.Wait(aWork->mLock);
            continue;
        }
        const auto lNext = aWork->mActions.begin();
        // Woken early by an action that is due sooner, or by the end: looked at again from the start.
        if (lNext->first > aWork->Now())
        {
            aWork->mChanged.WaitUntil(aWork->mLock, aWork->mStart + lNext->first);
            continue;
        }
        std::function<void()> lAction = std::move(lNext->second);
        aWork->mActions.erase(lNext);
        lScope.Open();
        try
        {
            lAction();
        }
        // NOLINTNEXTLINE(bugprone-empty-catch): out of memory, the camera loses this action and goes on
        catch (const std::bad_alloc&)
        {
        }
        lAction = nullptr; // what it holds goes before the lock comes back
        lScope.Close();
    }
}

} // namespace KySimulator
