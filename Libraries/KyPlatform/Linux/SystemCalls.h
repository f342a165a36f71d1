#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace KyPlatform
{

/// Every call into the system that this layer makes, so that a test can put a failing one in its place.
///
/// The entries are the system's own functions, with their own results and errno; those that make a descriptor
/// give numbers from 3 on (see MoveUp()). Replace them only while no other thread is in this layer.
struct SystemCalls
{
    const char* mFolder;   ///< What the sessions' folders begin with; their number follows.
    const char* mSettings; ///< The administrator's file; see SharedGroup.

    uid_t (*mGetUser)();
    bool (*mIsMember)(gid_t); ///< Whether the calling process is in a group.
    int (*mFindGroup)(const char*, struct group*, char*, size_t, struct group**);  ///< Result is the error.
    int (*mFindUser)(const char*, struct passwd*, char*, size_t, struct passwd**); ///< Result is the error.
    int (*mMakeFolder)(const char*, mode_t);
    int (*mOpen)(int, const char*, int, mode_t); ///< Relative to an open folder.
    int (*mClose)(int);
    int (*mGetStatus)(int, struct stat*);
    int (*mGetStatusOf)(int, const char*, struct stat*, int);
    int (*mSetMode)(int, mode_t);
    int (*mSetOwner)(int, uid_t, gid_t);
    int (*mLockFile)(int, int);
    int (*mLockByte)(int, int, struct flock*); ///< Sets or asks for the lock of an open file's byte.
    int (*mAllocate)(int, off_t, off_t);       ///< Result is the error.
    void* (*mMap)(void*, size_t, int, int, int, off_t);
    int (*mUnmap)(void*, size_t);
    int (*mLink)(int, const char*, int, const char*, int);
    int (*mRemove)(int, const char*, int);
    DIR* (*mOpenList)(int);
    dirent* (*mGetNext)(DIR*);
    int (*mCloseList)(DIR*);
    long (*mFutex)(uint32_t*, int, uint32_t, const timespec*);

    // Host ports, stop events and threads.
    int (*mMakeEvent)(unsigned, int);
    ssize_t (*mRead)(int, void*, size_t);
    ssize_t (*mWrite)(int, const void*, size_t);
    int (*mPoll)(pollfd*, nfds_t, int);
    int (*mControl)(int, unsigned long, void*);
    int (*mWatch)(const char*); ///< Makes a descriptor that is readable once somebody opens or closes a file.
    int (*mReplace)(int, int, int); ///< Makes the second number mean what the first one means.
    int (*mStartThread)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    int (*mNameThread)(pthread_t, const char*);
};

/// The table in use.
extern SystemCalls gSystem;

/// The table that a process starts with.
SystemCalls GetRealSystem() noexcept;

} // namespace KyPlatform
