#include "KyPlatform/WorkerThread.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Timers.h"

#include <cstring>
#include <memory>
#include <new>
#include <pthread.h>
#include <utility>

namespace KyPlatform
{

namespace
{

struct Running
{
    WorkerThread::Routine mRoutine;
    void* mArgument;
    pthread_t mThread;
    uint32_t mResult;
};

void* Run(void* aRunning)
{
    TightenTimers();
    auto* const lRunning = static_cast<Running*>(aRunning);
    lRunning->mResult = lRunning->mRoutine(lRunning->mArgument);
    return nullptr;
}

} // namespace

WorkerThread::~WorkerThread()
{
    static_cast<void>(Join()); // ignored: no caller can ask for the result any more
}

bool WorkerThread::Start(Routine aRoutine, void* aArgument) noexcept
{
    if (mObject != nullptr || aRoutine == nullptr)
    {
        return false;
    }
    std::unique_ptr<Running> lRunning(new (std::nothrow) Running{aRoutine, aArgument, {}, 0});
    if (lRunning == nullptr || gSystem.mStartThread(&lRunning->mThread, nullptr, &Run, lRunning.get()) != 0)
    {
        return false;
    }
    mObject = lRunning.release();
    return true;
}

bool WorkerThread::SetName(const char* aName) noexcept
{
    if (mObject == nullptr || aName == nullptr)
    {
        return false;
    }
    char lName[16] = {}; // the system refuses longer ones
    std::strncpy(lName, aName, sizeof lName - 1);
    return gSystem.mNameThread(static_cast<Running*>(mObject)->mThread, lName) == 0;
}

uint32_t WorkerThread::Join() noexcept
{
    const std::unique_ptr<Running> lRunning(static_cast<Running*>(std::exchange(mObject, nullptr)));
    if (lRunning == nullptr)
    {
        return 0;
    }
    ::pthread_join(lRunning->mThread, nullptr); // fails only for threads that are not ours to join
    return lRunning->mResult;
}

} // namespace KyPlatform
