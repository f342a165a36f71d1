#include "KyPlatform/Linux/SystemCalls.h"

#include "KyPlatform/Linux/Descriptor.h"

#include <algorithm>
#include <array>
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

namespace KyPlatform
{

namespace
{

int OpenFile(int aFolder, const char* aName, int aFlags, mode_t aMode)
{
    return MoveUp(::openat(aFolder, aName, aFlags, aMode));
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
    const int lWatch = MoveUp(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
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

int MakeEvent(unsigned aCount, int aFlags)
{
    return MoveUp(::eventfd(aCount, aFlags));
}

int LockByte(int aDescriptor, int aCommand, struct flock* aLock)
{
    return ::fcntl(aDescriptor, aCommand, aLock);
}

bool IsMember(gid_t aGroup)
{
    // The list below need not contain the effective group.
    if (::getegid() == aGroup)
    {
        return true;
    }
    std::array<gid_t, 256> lGroups{};
    const int lCount = ::getgroups(static_cast<int>(lGroups.size()), lGroups.data()); // -1: more than that
    return lCount > 0 &&
           std::find(lGroups.begin(), lGroups.begin() + lCount, aGroup) != lGroups.begin() + lCount;
}

} // namespace

SystemCalls GetRealSystem() noexcept
{
    SystemCalls lReal{};
    lReal.mFolder = "/dev/shm/KySerial-";
    lReal.mSettings = "/etc/kyserial/clser";
    lReal.mGetUser = &::geteuid;
    lReal.mIsMember = &IsMember;
    lReal.mFindGroup = &::getgrnam_r;
    lReal.mFindUser = &::getpwnam_r;
    lReal.mMakeFolder = &::mkdir;
    lReal.mOpen = &OpenFile;
    lReal.mClose = &::close;
    lReal.mGetStatus = &::fstat;
    lReal.mGetStatusOf = &::fstatat;
    lReal.mSetMode = &::fchmod;
    lReal.mSetOwner = &::fchown;
    lReal.mLockFile = &::flock;
    lReal.mLockByte = &LockByte;
    lReal.mAllocate = &::posix_fallocate;
    lReal.mMap = &::mmap;
    lReal.mUnmap = &::munmap;
    lReal.mLink = &::linkat;
    lReal.mRemove = &::unlinkat;
    lReal.mOpenList = &::fdopendir;
    lReal.mGetNext = &::readdir;
    lReal.mCloseList = &::closedir;
    lReal.mFutex = &Futex;
    lReal.mMakeEvent = &MakeEvent;
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
