#include "Tests/KyPlatform/ThreadName.h"

#include "Tests/KyPlatform/Windows/SystemHeader.h"

#include <cstring>
#include <vector>

namespace
{

std::vector<std::string> gNames;
void* gHandler = nullptr;

// Sees what a debugger sees: the exception, before the thread layer swallows it.
LONG WINAPI See(EXCEPTION_POINTERS* aException)
{
    const EXCEPTION_RECORD& lRecord = *aException->ExceptionRecord;
    struct
    {
        DWORD mType;
        const char* mName;
        DWORD mThread;
        DWORD mFlags;
    } lNaming{};
    if (lRecord.ExceptionCode == 0x406D1388 && lRecord.NumberParameters == sizeof lNaming / sizeof(ULONG_PTR))
    {
        std::memcpy(&lNaming, lRecord.ExceptionInformation, sizeof lNaming);
        const bool lOther = lNaming.mThread != 0 && lNaming.mThread != ::GetCurrentThreadId();
        if (lNaming.mType == 0x1000 && lNaming.mFlags == 0 && lOther)
        {
            gNames.emplace_back(lNaming.mName);
        }
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

ThreadNameWatch::ThreadNameWatch()
{
    gHandler = ::AddVectoredExceptionHandler(1, &See);
}

ThreadNameWatch::~ThreadNameWatch()
{
    ::RemoveVectoredExceptionHandler(gHandler);
    gNames.clear();
}

bool ThreadNameWatch::HasSeen(const std::string& aName) const
{
    return !gNames.empty() && gNames.back() == aName;
}
