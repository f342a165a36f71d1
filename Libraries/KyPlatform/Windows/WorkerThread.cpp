#include "KyPlatform/WorkerThread.h"

#include "KyPlatform/Windows/SystemCalls.h"

#include <memory>
#include <new>
#include <utility>

namespace KyPlatform
{

namespace
{

struct Running
{
    WorkerThread::Routine mRoutine;
    void* mArgument;
    HANDLE mHandle;
    DWORD mId;
    uint32_t mResult;
};

DWORD WINAPI Run(void* aRunning)
{
    auto* const lRunning = static_cast<Running*>(aRunning);
    lRunning->mResult = lRunning->mRoutine(lRunning->mArgument);
    return 0;
}

constexpr DWORD cNamingException = 0x406D1388;

// What debuggers expect the arguments of the naming exception to be.
struct NamingRecord
{
    DWORD mType; // 0x1000
    const char* mName;
    DWORD mThreadId;
    DWORD mFlags;
};

LONG WINAPI Swallow(EXCEPTION_POINTERS* aException)
{
    return aException->ExceptionRecord->ExceptionCode == cNamingException ? EXCEPTION_CONTINUE_EXECUTION
                                                                          : EXCEPTION_CONTINUE_SEARCH;
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
    std::unique_ptr<Running> lRunning(new (std::nothrow) Running{aRoutine, aArgument, nullptr, 0, 0});
    if (lRunning == nullptr)
    {
        return false;
    }
    lRunning->mHandle = gSystem.mCreateThread(nullptr, 0, &Run, lRunning.get(), 0, &lRunning->mId);
    if (lRunning->mHandle == nullptr)
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
    // A debugger sees the exception before any handler, profilers by handlers of theirs; ours, the last, lets
    // the program go on.
    void* const lHandler = ::AddVectoredExceptionHandler(0, &Swallow);
    if (lHandler == nullptr)
    {
        return false;
    }
    const NamingRecord lRecord{0x1000, aName, static_cast<Running*>(mObject)->mId, 0};
    ULONG_PTR lArguments[sizeof lRecord / sizeof(ULONG_PTR)];
    static_assert(sizeof lRecord % sizeof(ULONG_PTR) == 0);
    ::CopyMemory(lArguments, &lRecord, sizeof lRecord);
    ::RaiseException(cNamingException, 0, sizeof lArguments / sizeof *lArguments, lArguments);
    ::RemoveVectoredExceptionHandler(lHandler);
    return true;
}

uint32_t WorkerThread::Join() noexcept
{
    const std::unique_ptr<Running> lRunning(static_cast<Running*>(std::exchange(mObject, nullptr)));
    if (lRunning == nullptr)
    {
        return 0;
    }
    static_cast<void>(gSystem.mWait(lRunning->mHandle, INFINITE)); // cannot fail for a handle that is ours
    static_cast<void>(gSystem.mCloseHandle(lRunning->mHandle));
    return lRunning->mResult;
}

} // namespace KyPlatform
