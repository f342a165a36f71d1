#include "Tests/KyPlatform/FailingSystem.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <atomic>
#include <cerrno>
#include <sys/mman.h>
#include <type_traits>

using namespace KyPlatform;

namespace
{

std::atomic<int> gCalls{0}; // bridges call from threads of their own
std::atomic<int> gFailing{0};
int gError = EIO;
SystemCalls gBefore = GetRealSystem(); // the table that is covered, a private session's perhaps

template<auto tEntry, auto tOther>
constexpr bool cAreSame = std::is_same_v<std::integral_constant<decltype(tEntry), tEntry>,
                                         std::integral_constant<decltype(tOther), tOther>>;

/// The calls that give their error as the result.
template<auto tEntry>
constexpr bool cGivesError =
    cAreSame<tEntry, &SystemCalls::mFindGroup> || cAreSame<tEntry, &SystemCalls::mFindUser> ||
    cAreSame<tEntry, &SystemCalls::mAllocate> || cAreSame<tEntry, &SystemCalls::mStartThread> ||
    cAreSame<tEntry, &SystemCalls::mNameThread>;

template<auto tEntry, typename tResult, typename... tArguments>
tResult Count(tArguments... aArguments)
{
    if (++gCalls != gFailing)
    {
        return (gBefore.*tEntry)(aArguments...);
    }
    errno = gError;
    if constexpr (cGivesError<tEntry>)
    {
        return gError;
    }
    else if constexpr (std::is_same_v<tResult, void*>)
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

const int FailingSystem::cCallsForAFreeLock = 0;

FailingSystem::FailingSystem(int aCall, Error aError)
{
    gError = aError == Error::Shortage ? EMFILE : EIO;
    gCalls = 0;
    gFailing = aCall;
    gBefore = gSystem;
    using S = SystemCalls;
    ReplaceAll<&S::mFindGroup, &S::mFindUser, &S::mMakeFolder, &S::mOpen, &S::mGetStatus, &S::mGetStatusOf,
               &S::mSetMode, &S::mSetOwner, &S::mLockFile, &S::mLockByte, &S::mAllocate, &S::mMap, &S::mLink,
               &S::mRemove, &S::mOpenList, &S::mFutex, &S::mMakeEvent, &S::mRead, &S::mWrite, &S::mPoll,
               &S::mControl, &S::mWatch, &S::mReplace, &S::mStartThread, &S::mNameThread>();
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
