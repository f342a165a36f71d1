#include "Tests/KyPlatform/FailingSystem.h"

#include "KyPlatform/Windows/SystemCalls.h"

#include <type_traits>

using namespace KyPlatform;

namespace
{

int gCalls = 0;
int gFailing = 0;
const SystemCalls cReal = GetRealSystem();

template<auto tEntry, typename tResult, typename... tArguments>
tResult WINAPI Count(tArguments... aArguments)
{
    if (++gCalls != gFailing)
    {
        return (cReal.*tEntry)(aArguments...);
    }
    ::SetLastError(ERROR_ACCESS_DENIED);
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

FailingSystem::FailingSystem(int aCall)
{
    gCalls = 0;
    gFailing = aCall;
    using S = SystemCalls;
    ReplaceAll<&S::mCreateMutex, &S::mOpenMutex, &S::mCreateEvent, &S::mOpenEvent, &S::mSetEvent,
               &S::mResetEvent, &S::mCreateSemaphore, &S::mOpenSemaphore, &S::mReleaseSemaphore,
               &S::mCreateMapping, &S::mOpenMapping, &S::mMapView, &S::mQueryView, &S::mWait, &S::mWaitForAll,
               &S::mGetSession>();
}

FailingSystem::~FailingSystem()
{
    gSystem = cReal;
}

int FailingSystem::GetCalls()
{
    return gCalls;
}
