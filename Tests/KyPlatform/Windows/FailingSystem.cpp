#include "Tests/KyPlatform/FailingSystem.h"

#include "KyPlatform/Windows/SystemCalls.h"

#include <atomic>
#include <type_traits>

using namespace KyPlatform;

namespace
{

std::atomic<int> gCalls{0}; // bridges call from threads of their own
std::atomic<int> gFailing{0};
DWORD gError = ERROR_ACCESS_DENIED;
SystemCalls gBefore = GetRealSystem(); // the table that is covered, a private session's perhaps

template<auto tEntry, typename tResult, typename... tArguments>
tResult WINAPI Count(tArguments... aArguments)
{
    if (++gCalls != gFailing)
    {
        return (gBefore.*tEntry)(aArguments...);
    }
    ::SetLastError(gError);
    if constexpr (std::is_same_v<tResult, DWORD>)
    {
        return WAIT_FAILED;
    }
    else
    {
        return tResult{};
    }
}

template<auto tEntry, typename tResult, typename... tArguments>
void Replace(tResult (WINAPI* SystemCalls::*)(tArguments...))
{
    gSystem.*tEntry = &Count<tEntry, tResult, tArguments...>;
}

template<auto... tEntries>
void ReplaceAll()
{
    (Replace<tEntries>(tEntries), ...);
}

} // namespace

const int FailingSystem::cCallsForAFreeLock = 1;

FailingSystem::FailingSystem(int aCall, Error aError)
{
    gError = aError == Error::Shortage ? ERROR_NOT_ENOUGH_MEMORY : ERROR_ACCESS_DENIED;
    gCalls = 0;
    gFailing = aCall;
    gBefore = gSystem;
    using S = SystemCalls;
    ReplaceAll<&S::mCreateMutex, &S::mOpenMutex, &S::mCreateEvent, &S::mOpenEvent, &S::mSetEvent,
               &S::mResetEvent, &S::mCreateSemaphore, &S::mOpenSemaphore, &S::mReleaseSemaphore,
               &S::mCreateMapping, &S::mOpenMapping, &S::mMapView, &S::mQueryView, &S::mWait, &S::mWaitForAll,
               &S::mGetSession, &S::mMakeEvent, &S::mOpenPort, &S::mSetTimeouts, &S::mGetLine, &S::mSetLine,
               &S::mReadPort, &S::mWritePort, &S::mGetResult, &S::mCreateThread>();
}

FailingSystem::~FailingSystem()
{
    gSystem = gBefore;
}

void FailingSystem::Heal()
{
    gFailing = 0;
}

int FailingSystem::GetCalls()
{
    return gCalls;
}
