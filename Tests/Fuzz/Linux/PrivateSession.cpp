// A session whose files are in this process's own memory: a hundred times faster than the system's, and the
// address sanitizer sees every access beyond the end of one. One thread.

#include "Tests/Support/PrivateSession.h"
#include "Fuzz/FuzzInput.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <memory>
#include <string>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

using KyPlatform::gSystem;

namespace
{

constexpr int cFolderNumber = 1000000; // of the session's folder, which is never closed
constexpr char cFolder[] = "/Session-";
constexpr unsigned cSlots = 256;          // files open at once
constexpr unsigned cTurns = 1U << 20U;    // until a slot's numbers come again
constexpr int cFirst = 2 * cFolderNumber; // of the files' numbers

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
    bool mIsNamed = false;
    unsigned mOpened = 0;
};

// A number that the system gave out; those of a slot differ, so that one that was closed is known.
struct OpenFile
{
    File* mFile = nullptr;
    unsigned mTurn = 0;
    bool mShares = false;
    bool mHasAlone = false;
};

struct Name
{
    std::string mText;
    size_t mHash;
    File* mFile;
};

uid_t gNumber = 0;
std::string gFolder;
ino_t gLastFile = 0;
std::vector<Name> gNames;
std::array<OpenFile, cSlots> gOpened;
std::vector<unsigned> gFreeSlots;

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

// The fuzzer watches the C library's comparisons, each for longer than all the rest takes.
bool IsSame(const std::string& aFirst, const char* aSecond)
{
    size_t lAt = 0;
    while (lAt < aFirst.size() && aFirst[lAt] == aSecond[lAt])
    {
        ++lAt;
    }
    return lAt == aFirst.size() && aSecond[lAt] == '\0';
}

size_t GetHash(const char* aName)
{
    size_t lHash = 0;
    for (; *aName != '\0'; ++aName)
    {
        lHash = lHash * 31 + static_cast<unsigned char>(*aName);
    }
    return lHash;
}

std::vector<Name>::iterator FindName(const char* aName)
{
    const size_t lHash = GetHash(aName);
    auto lName = gNames.begin();
    while (lName != gNames.end() && (lName->mHash != lHash || !IsSame(lName->mText, aName)))
    {
        ++lName;
    }
    return lName;
}

OpenFile& GetOpened(int aNumber)
{
    const auto lPlace = static_cast<unsigned>(aNumber - cFirst);
    OpenFile& lOpened = gOpened[lPlace % cSlots];
    KY_REQUIRE(aNumber >= cFirst && lOpened.mFile != nullptr && lOpened.mTurn == lPlace / cSlots);
    return lOpened;
}

int Open(int aFolder, const char* aName, int aFlags, mode_t /*aMode*/)
{
    if (aFolder != cFolderNumber)
    {
        return IsSame(gFolder, aName) ? cFolderNumber : Fail(ENOENT);
    }
    File* lFile = nullptr;
    if ((aFlags & O_TMPFILE) == O_TMPFILE)
    {
        lFile = new File();
        lFile->mNumber = ++gLastFile;
    }
    else
    {
        const auto lFound = FindName(aName);
        if (lFound == gNames.end()) // nor can the folder be listed: there is nothing dead in it
        {
            return Fail(ENOENT);
        }
        lFile = lFound->mFile;
    }
    KY_REQUIRE(!gFreeSlots.empty());
    const unsigned lSlot = gFreeSlots.back();
    gFreeSlots.pop_back();
    OpenFile& lOpened = gOpened[lSlot];
    lOpened.mTurn = (lOpened.mTurn + 1) % cTurns;
    lOpened.mFile = lFile;
    ++lFile->mOpened;
    return cFirst + static_cast<int>(lOpened.mTurn * cSlots + lSlot);
}

void DeleteIfUnused(File* aFile)
{
    if (!aFile->mIsNamed && aFile->mOpened == 0)
    {
        delete aFile;
    }
}

void Unlock(OpenFile& aOpened)
{
    aOpened.mFile->mHolders -= aOpened.mShares ? 1 : 0;
    aOpened.mFile->mAlone = aOpened.mFile->mAlone && !aOpened.mHasAlone;
    aOpened.mShares = false;
    aOpened.mHasAlone = false;
}

int Close(int aNumber)
{
    if (aNumber != cFolderNumber)
    {
        OpenFile& lOpened = GetOpened(aNumber);
        Unlock(lOpened);
        File* const lFile = std::exchange(lOpened.mFile, nullptr);
        --lFile->mOpened;
        gFreeSlots.push_back(static_cast<unsigned>(&lOpened - gOpened.data()));
        DeleteIfUnused(lFile);
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
        Describe(*GetOpened(aNumber).mFile, aStatus);
    }
    return 0;
}

int GetStatusOf(int /*aFolder*/, const char* aName, struct stat* aStatus, int /*aFlags*/)
{
    const auto lFound = FindName(aName);
    if (lFound == gNames.end())
    {
        return Fail(ENOENT);
    }
    *aStatus = {};
    Describe(*lFound->mFile, aStatus);
    return 0;
}

int SetMode(int /*aNumber*/, mode_t /*aMode*/)
{
    return 0;
}

int LockFile(int aNumber, int aHow)
{
    OpenFile& lOpened = GetOpened(aNumber);
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
    File& lFile = *GetOpened(aNumber).mFile;
    lFile.mSize = static_cast<size_t>(aSize);
    lFile.mMemory.reset(std::calloc(lFile.mSize, 1));
    return lFile.mMemory != nullptr ? 0 : ENOSPC;
}

void* Map(void* /*aHint*/, size_t /*aSize*/, int /*aAccess*/, int /*aFlags*/, int aNumber, off_t /*aOffset*/)
{
    return GetOpened(aNumber).mFile->mMemory.get();
}

int Unmap(void* /*aBase*/, size_t /*aSize*/)
{
    return 0; // the memory goes with the file
}

int Link(int /*aOldFolder*/, const char* aOld, int /*aNewFolder*/, const char* aNew, int /*aFlags*/)
{
    if (FindName(aNew) != gNames.end())
    {
        return Fail(EEXIST);
    }
    File* const lFile = GetOpened(std::atoi(std::strrchr(aOld, '/') + 1)).mFile; // "/proc/self/fd/7"
    lFile->mIsNamed = true;
    gNames.push_back({aNew, GetHash(aNew), lFile});
    return 0;
}

int Remove(int /*aFolder*/, const char* aName, int /*aFlags*/)
{
    const auto lFound = FindName(aName);
    if (lFound == gNames.end())
    {
        return Fail(ENOENT);
    }
    File* const lFile = lFound->mFile;
    std::swap(*lFound, gNames.back());
    gNames.pop_back();
    lFile->mIsNamed = false;
    DeleteIfUnused(lFile);
    return 0;
}

long Futex(uint32_t* /*aWord*/, int aOperation, uint32_t /*aValue*/, const timespec* /*aTimeout*/)
{
    return aOperation == FUTEX_WAKE ? 0 : Fail(ETIMEDOUT); // no other thread could wake this one
}

int SetOwner(int /*aNumber*/, uid_t /*aUser*/, gid_t /*aGroup*/)
{
    return 0;
}

/// Every place is free, and this process is the only one alive that has a place.
int LockByte(int /*aNumber*/, int /*aCommand*/, struct flock* aLock)
{
    aLock->l_type = F_UNLCK;
    return 0;
}

} // namespace

// In place of the C library's, which asks the system: a file remembers who opened it.
extern "C" pid_t getpid() noexcept
{
    static const auto cProcess = static_cast<pid_t>(::syscall(SYS_getpid));
    return cProcess;
}

PrivateSession::PrivateSession() : mFolder(cFolder)
{
    SetOwnNumber(cFirstNumber);
    for (unsigned lSlot = 0; lSlot < cSlots; ++lSlot)
    {
        gFreeSlots.push_back(lSlot);
    }
    gSystem.mFolder = cFolder;
    gSystem.mGetUser = &GetNumber;
    gSystem.mMakeFolder = &MakeFolder;
    gSystem.mOpen = &Open;
    gSystem.mClose = &Close;
    gSystem.mGetStatus = &GetStatus;
    gSystem.mGetStatusOf = &GetStatusOf;
    gSystem.mSetMode = &SetMode;
    gSystem.mSetOwner = &SetOwner;
    gSystem.mLockFile = &LockFile;
    gSystem.mLockByte = &LockByte;
    gSystem.mAllocate = &Allocate;
    gSystem.mMap = &Map;
    gSystem.mUnmap = &Unmap;
    gSystem.mLink = &Link;
    gSystem.mRemove = &Remove;
    gSystem.mFutex = &Futex;
}

PrivateSession::~PrivateSession()
{
    gSystem = KyPlatform::GetRealSystem();
}

void PrivateSession::SetOwnNumber(uint32_t aNumber)
{
    gNumber = aNumber;
    gFolder = cFolder + std::to_string(aNumber);
}

void PrivateSession::Share(uint32_t /*aService*/) {}
