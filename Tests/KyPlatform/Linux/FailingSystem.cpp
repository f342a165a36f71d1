#include "Tests/KyPlatform/FailingSystem.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <sys/mman.h>
#include <type_traits>

using namespace KyPlatform;

namespace
{

int gCalls = 0;
int gFailing = 0;
const SystemCalls cReal = GetRealSystem();

template<auto tEntry, typename tResult, typename... tArguments>
tResult Count(tArguments... aArguments)
{
    if (++gCalls != gFailing)
    {
        return (cReal.*tEntry)(aArguments...);
    }
    errno = EIO;
    if constexpr (std::is_same_v<tResult, void*>)
    {
        return MAP_FAILED;
    }
    else if constexpr (std::is_pointer_v<tResult>)
    {
        return nullptr;
    }
    else
    {
        return static_cast<tResult>(-1);
    }
}

template<auto tEntry, typename tResult, typename... tArguments>
void Replace(tResult (*SystemCalls::*)(tArguments...))
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
    ReplaceAll<&S::mMakeFolder, &S::mOpen, &S::mGetStatus, &S::mGetStatusOf, &S::mSetMode, &S::mLockFile,
               &S::mAllocate, &S::mMap, &S::mLink, &S::mRemove, &S::mOpenList, &S::mFutex, &S::mInitMutex,
               &S::mTryLockMutex, &S::mLockMutex, &S::mMendMutex>();
}

FailingSystem::~FailingSystem()
{
    gSystem = cReal;
}

int FailingSystem::GetCalls()
{
    return gCalls;
}
