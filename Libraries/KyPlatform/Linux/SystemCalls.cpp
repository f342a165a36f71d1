#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/futex.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KYPLATFORM_THREAD_SANITIZER
#endif
#endif

namespace KyPlatform
{

namespace
{

int OpenFile(int aFolder, const char* aName, int aFlags, mode_t aMode)
{
    return ::openat(aFolder, aName, aFlags, aMode);
}

long Futex(uint32_t* aWord, int aOperation, uint32_t aValue, const timespec* aTimeout)
{
    return ::syscall(SYS_futex, aWord, aOperation, aValue, aTimeout, nullptr, 0);
}

int Control(int aDescriptor, unsigned long aRequest, void* aArgument)
{
    return ::ioctl(aDescriptor, aRequest, aArgument);
}

int Watch(const char* aPath)
{
    const int lWatch = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (lWatch >= 0 && ::inotify_add_watch(lWatch, aPath, IN_OPEN | IN_CLOSE) < 0)
    {
        const int lError = errno;
        ::close(lWatch);
        errno = lError;
        return -1;
    }
    return lWatch;
}

int Replace(int aFrom, int aTo, int aFlags)
{
    return ::dup3(aFrom, aTo, aFlags);
}

int InitMutex(pthread_mutex_t* aMutex)
{
    pthread_mutexattr_t lKind;
    int lError = ::pthread_mutexattr_init(&lKind);
    lError = lError != 0 ? lError : ::pthread_mutexattr_setpshared(&lKind, PTHREAD_PROCESS_SHARED);
    lError = lError != 0 ? lError : ::pthread_mutexattr_setrobust(&lKind, PTHREAD_MUTEX_ROBUST);
    lError = lError != 0 ? lError : ::pthread_mutexattr_settype(&lKind, PTHREAD_MUTEX_RECURSIVE);
    lError = lError != 0 ? lError : ::pthread_mutex_init(aMutex, &lKind);
    ::pthread_mutexattr_destroy(&lKind);
    return lError;
}

int LockMutex(pthread_mutex_t* aMutex, const timespec* aUntil)
{
#if defined(KYPLATFORM_THREAD_SANITIZER)
    // The sanitizer of this compiler sees locks that were taken from the dead only in pthread_mutex_trylock.
    timespec lNow{};
    int lError = EBUSY;
    do
    {
        constexpr timespec cPause{0, 1000000};
        ::nanosleep(&cPause, nullptr);
        lError = ::pthread_mutex_trylock(aMutex);
        ::clock_gettime(CLOCK_MONOTONIC, &lNow);
    } while (lError == EBUSY && (lNow.tv_sec < aUntil->tv_sec ||
                                 (lNow.tv_sec == aUntil->tv_sec && lNow.tv_nsec < aUntil->tv_nsec)));
    return lError == EBUSY ? ETIMEDOUT : lError;
#else
    return ::pthread_mutex_clocklock(aMutex, CLOCK_MONOTONIC, aUntil);
#endif
}

} // namespace

SystemCalls GetRealSystem() noexcept
{
    SystemCalls lReal{};
    lReal.mFolder = "/dev/shm/KySerial-";
    lReal.mGetUser = &::geteuid;
    lReal.mMakeFolder = &::mkdir;
    lReal.mOpen = &OpenFile;
    lReal.mClose = &::close;
    lReal.mGetStatus = &::fstat;
    lReal.mGetStatusOf = &::fstatat;
    lReal.mSetMode = &::fchmod;
    lReal.mLockFile = &::flock;
    lReal.mAllocate = &::posix_fallocate;
    lReal.mMap = &::mmap;
    lReal.mUnmap = &::munmap;
    lReal.mLink = &::linkat;
    lReal.mRemove = &::unlinkat;
    lReal.mOpenList = &::fdopendir;
    lReal.mGetNext = &::readdir;
    lReal.mCloseList = &::closedir;
    lReal.mFutex = &Futex;
    lReal.mInitMutex = &InitMutex;
    lReal.mTryLockMutex = &::pthread_mutex_trylock;
    lReal.mLockMutex = &LockMutex;
    lReal.mMendMutex = &::pthread_mutex_consistent;
    lReal.mUnlockMutex = &::pthread_mutex_unlock;
    lReal.mMakeEvent = &::eventfd;
    lReal.mRead = &::read;
    lReal.mWrite = &::write;
    lReal.mPoll = &::poll;
    lReal.mControl = &Control;
    lReal.mWatch = &Watch;
    lReal.mReplace = &Replace;
    lReal.mStartThread = &::pthread_create;
    lReal.mNameThread = &::pthread_setname_np;
    return lReal;
}

SystemCalls gSystem = GetRealSystem();

} // namespace KyPlatform
