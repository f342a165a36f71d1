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
        lDropped.swap(mWork->mActions); // an action's captures may need this thread, not that lock
        mWork->mChanged.NotifyAll();
    }
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
    LockScope lScope(mWork->mLock);
    if (!mWork->mStop)
    {
        mWork->mActions.emplace(aTime, std::move(aAction));
        mWork->mChanged.NotifyAll();
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
        catch (
            const std::bad_alloc&) // NOLINT(bugprone-empty-catch): the camera loses what it was about to do
        {
        }
        lAction = nullptr; // what it holds goes before the lock comes back
        lScope.Close();
    }
}

} // namespace KySimulator
