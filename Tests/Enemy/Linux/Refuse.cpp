// Loaded before a program's libraries: refuses one call of a kind, as a system does that is short of
// something.
//
// KY_REFUSE is the kind and which call of it, counted from the beginning of main(): "memory 17", "thread 2"
// or "descriptor 5"; 0 refuses none. At the end the number of calls of the kind is written to
// KY_REFUSE_REPORT.

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier, readability-identifier-naming): the C library's names
extern "C" void* __libc_malloc(size_t aSize);
extern "C" void* __libc_calloc(size_t aCount, size_t aSize);
extern "C" void* __libc_realloc(void* aOld, size_t aSize);
// NOLINTEND(bugprone-reserved-identifier, readability-identifier-naming)

namespace
{

enum class Kind
{
    None,
    Memory,
    Thread,
    Descriptor
};

Kind gKind = Kind::None;
int gRefused = 0;
std::atomic<bool> gBegun{false};
std::atomic<int> gCalls{0};

bool IsRefused(Kind aKind, int aError)
{
    // No program has a thread before main(), and not every program asks the question that main() begins with.
    const bool lBegun = gBegun || aKind == Kind::Thread;
    if (aKind != gKind || !lBegun || ++gCalls != gRefused)
    {
        return false;
    }
    errno = aError;
    return true;
}

int Open(int aFolder, const char* aName, int aFlags, mode_t aMode)
{
    return IsRefused(Kind::Descriptor, EMFILE)
               ? -1
               : static_cast<int>(::syscall(SYS_openat, aFolder, aName, aFlags, aMode));
}

mode_t GetMode(int aFlags, va_list aRest)
{
    return (aFlags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(aRest, mode_t) : 0;
}

struct Report
{
    Report()
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes it
        const char* const lText = std::getenv("KY_REFUSE");
        char lKind[16] = "";
        if (lText != nullptr && std::sscanf(lText, "%15s %d", lKind, &gRefused) == 2)
        {
            gKind = lKind[0] == 'm' ? Kind::Memory : lKind[0] == 't' ? Kind::Thread : Kind::Descriptor;
        }
    }
    ~Report()
    {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes it
        const char* const lPath = std::getenv("KY_REFUSE_REPORT");
        char lText[16];
        const int lSize = std::snprintf(lText, sizeof lText, "%d", gCalls.load());
        gBegun = false;
        const auto lFile =
            lPath != nullptr
                ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, lPath, O_WRONLY | O_CREAT | O_TRUNC, 0600))
                : -1;
        if (lFile >= 0)
        {
            static_cast<void>(::write(lFile, lText, static_cast<size_t>(lSize)));
            ::close(lFile);
        }
    }
};

Report gReport;

} // namespace

// NOLINTBEGIN(readability-identifier-naming, readability-inconsistent-declaration-parameter-name): the names of
// the functions are the C library's, those of the parameters are not
extern "C"
{

    void* malloc(size_t aSize) noexcept
    {
        return IsRefused(Kind::Memory, ENOMEM) ? nullptr : __libc_malloc(aSize);
    }

    void* calloc(size_t aCount, size_t aSize) noexcept
    {
        return IsRefused(Kind::Memory, ENOMEM) ? nullptr : __libc_calloc(aCount, aSize);
    }

    void* realloc(void* aOld, size_t aSize) noexcept
    {
        return IsRefused(Kind::Memory, ENOMEM) ? nullptr : __libc_realloc(aOld, aSize);
    }

    int pthread_create(pthread_t* aThread, const pthread_attr_t* aAttributes, void* (*aRun)(void*),
                       void* aArgument) noexcept
    {
        using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
        static const auto cCreate = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
        return IsRefused(Kind::Thread, EAGAIN) ? EAGAIN : cCreate(aThread, aAttributes, aRun, aArgument);
    }

    int open(const char* aName, int aFlags, ...)
    {
        va_list lRest;
        va_start(lRest, aFlags);
        const mode_t lMode = GetMode(aFlags, lRest);
        va_end(lRest);
        return Open(AT_FDCWD, aName, aFlags, lMode);
    }

    int open64(const char* aName, int aFlags, ...)
    {
        va_list lRest;
        va_start(lRest, aFlags);
        const mode_t lMode = GetMode(aFlags, lRest);
        va_end(lRest);
        return Open(AT_FDCWD, aName, aFlags, lMode);
    }

    int openat(int aFolder, const char* aName, int aFlags, ...)
    {
        va_list lRest;
        va_start(lRest, aFlags);
        const mode_t lMode = GetMode(aFlags, lRest);
        va_end(lRest);
        return Open(aFolder, aName, aFlags, lMode);
    }

    int socket(int aDomain, int aType, int aProtocol) noexcept
    {
        return IsRefused(Kind::Descriptor, EMFILE)
                   ? -1
                   : static_cast<int>(::syscall(SYS_socket, aDomain, aType, aProtocol));
    }

    int eventfd(unsigned aCount, int aFlags) noexcept
    {
        return IsRefused(Kind::Descriptor, EMFILE)
                   ? -1
                   : static_cast<int>(::syscall(SYS_eventfd2, aCount, aFlags));
    }

    /// The first question of main() is whether the standard input is open.
    int fcntl(int aDescriptor, int aCommand, ...)
    {
        va_list lRest;
        va_start(lRest, aCommand);
        void* const lArgument = va_arg(lRest, void*);
        va_end(lRest);
        if (aDescriptor == STDIN_FILENO && aCommand == F_GETFD)
        {
            gBegun = true;
        }
        return static_cast<int>(::syscall(SYS_fcntl, aDescriptor, aCommand, lArgument));
    }
}
// NOLINTEND(readability-identifier-naming, readability-inconsistent-declaration-parameter-name)
