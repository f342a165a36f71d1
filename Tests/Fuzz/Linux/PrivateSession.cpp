// A session whose files are in this process's own memory: a hundred times faster than the system's, and the
// address sanitizer sees every access beyond the end of one. One thread.

#include "Tests/Support/PrivateSession.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <map>
#include <memory>
#include <sys/file.h>
#include <sys/mman.h>

using KyPlatform::gSystem;

namespace
{

constexpr int cFolderNumber = 1000000; // of the session's folder, which is never closed
constexpr char cFolder[] = "/Session-";

struct Free
{
    void operator()(void* aMemory) const { std::free(aMemory); }
};

struct File
{
    std::unique_ptr<void, Free> mMemory{};
    size_t mSize = 0;
    ino_t mNumber = 0;
    int mHolders = 0; // shared locks
    bool mAlone = false;
};

struct Opened
{
    std::shared_ptr<File> mFile{};
    bool mShares = false;
    bool mHasAlone = false;
};

uid_t gNumber = 0;
ino_t gLastFile = 0;
int gLastOpened = cFolderNumber;
std::map<std::string, std::shared_ptr<File>> gFiles;
std::map<int, Opened> gOpened;

int Fail(int aError)
{
    errno = aError;
    return -1;
}

uid_t GetNumber()
{
    return gNumber;
}

int MakeFolder(const char* /*aName*/, mode_t /*aMode*/)
{
    return Fail(EEXIST);
}

int Open(int aFolder, const char* aName, int aFlags, mode_t /*aMode*/)
{
    if (aFolder != cFolderNumber)
    {
        return aName == cFolder + std::to_string(gNumber) ? cFolderNumber : Fail(ENOENT);
    }
    std::shared_ptr<File> lFile;
    if ((aFlags & O_TMPFILE) == O_TMPFILE)
    {
        lFile = std::make_shared<File>();
        lFile->mNumber = ++gLastFile;
    }
    else
    {
        const auto lFound = gFiles.find(aName);
        if (lFound == gFiles.end()) // nor can the folder be listed: there is nothing dead in it
        {
            return Fail(ENOENT);
        }
        lFile = lFound->second;
    }
    gOpened[++gLastOpened].mFile = std::move(lFile);
    return gLastOpened;
}

void Unlock(Opened& aOpened)
{
    aOpened.mFile->mHolders -= aOpened.mShares ? 1 : 0;
    aOpened.mFile->mAlone = aOpened.mFile->mAlone && !aOpened.mHasAlone;
    aOpened.mShares = false;
    aOpened.mHasAlone = false;
}

int Close(int aNumber)
{
    const auto lFound = gOpened.find(aNumber);
    if (lFound != gOpened.end())
    {
        Unlock(lFound->second);
        gOpened.erase(lFound);
    }
    return 0;
}

void Describe(const File& aFile, struct stat* aStatus)
{
    aStatus->st_mode = S_IFREG | S_IRUSR | S_IWUSR;
    aStatus->st_uid = gNumber;
    aStatus->st_ino = aFile.mNumber;
    aStatus->st_size = static_cast<off_t>(aFile.mSize);
}

int GetStatus(int aNumber, struct stat* aStatus)
{
    *aStatus = {};
    aStatus->st_uid = gNumber;
    aStatus->st_mode = S_IFDIR | S_IRWXU;
    if (aNumber != cFolderNumber)
    {
        Describe(*gOpened.at(aNumber).mFile, aStatus);
    }
    return 0;
}

int GetStatusOf(int /*aFolder*/, const char* aName, struct stat* aStatus, int /*aFlags*/)
{
    const auto lFound = gFiles.find(aName);
    if (lFound == gFiles.end())
    {
        return Fail(ENOENT);
    }
    *aStatus = {};
    Describe(*lFound->second, aStatus);
    return 0;
}

int SetMode(int /*aNumber*/, mode_t /*aMode*/)
{
    return 0;
}

int LockFile(int aNumber, int aHow)
{
    Opened& lOpened = gOpened.at(aNumber);
    File& lFile = *lOpened.mFile;
    const bool lAlone = (aHow & LOCK_EX) != 0;
    const int lOthers = lFile.mHolders - (lOpened.mShares ? 1 : 0);
    if ((lAlone && lOthers > 0) || (lFile.mAlone && !lOpened.mHasAlone))
    {
        return Fail(EWOULDBLOCK);
    }
    Unlock(lOpened);
    lOpened.mHasAlone = lAlone;
    lOpened.mShares = !lAlone;
    lFile.mAlone = lAlone;
    lFile.mHolders += lAlone ? 0 : 1;
    return 0;
}

int Allocate(int aNumber, off_t /*aOffset*/, off_t aSize)
{
    File& lFile = *gOpened.at(aNumber).mFile;
    lFile.mSize = static_cast<size_t>(aSize);
    lFile.mMemory.reset(std::calloc(lFile.mSize, 1));
    return lFile.mMemory != nullptr ? 0 : ENOSPC;
}

void* Map(void* /*aHint*/, size_t /*aSize*/, int /*aAccess*/, int /*aFlags*/, int aNumber, off_t /*aOffset*/)
{
    return gOpened.at(aNumber).mFile->mMemory.get();
}

int Unmap(void* /*aBase*/, size_t /*aSize*/)
{
    return 0; // the memory goes with the file
}

int Link(int /*aOldFolder*/, const char* aOld, int /*aNewFolder*/, const char* aNew, int /*aFlags*/)
{
    const std::string lOld = aOld; // "/proc/self/fd/7"
    const int lNumber = std::atoi(lOld.substr(lOld.rfind('/') + 1).c_str());
    return gFiles.emplace(aNew, gOpened.at(lNumber).mFile).second ? 0 : Fail(EEXIST);
}

int Remove(int /*aFolder*/, const char* aName, int /*aFlags*/)
{
    return gFiles.erase(aName) == 1 ? 0 : Fail(ENOENT);
}

long Futex(uint32_t* /*aWord*/, int aOperation, uint32_t /*aValue*/, const timespec* /*aTimeout*/)
{
    return aOperation == FUTEX_WAKE ? 0 : Fail(ETIMEDOUT); // there is nobody who could wake this thread
}

} // namespace

PrivateSession::PrivateSession(const std::string& aToken) : mToken(aToken), mOwner(true), mFolder(cFolder)
{
    gNumber = cFirstNumber;
    gSystem.mFolder = cFolder;
    gSystem.mGetUser = &GetNumber;
    gSystem.mMakeFolder = &MakeFolder;
    gSystem.mOpen = &Open;
    gSystem.mClose = &Close;
    gSystem.mGetStatus = &GetStatus;
    gSystem.mGetStatusOf = &GetStatusOf;
    gSystem.mSetMode = &SetMode;
    gSystem.mLockFile = &LockFile;
    gSystem.mAllocate = &Allocate;
    gSystem.mMap = &Map;
    gSystem.mUnmap = &Unmap;
    gSystem.mLink = &Link;
    gSystem.mRemove = &Remove;
    gSystem.mFutex = &Futex;
}

PrivateSession::PrivateSession() : PrivateSession(std::string()) {}

PrivateSession::~PrivateSession()
{
    gSystem = KyPlatform::GetRealSystem();
}

void PrivateSession::SetOwnNumber(uint32_t aNumber)
{
    gNumber = aNumber;
}
