#include "KyPlatform/Linux/NamedFile.h"

#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/Session.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string_view>
#include <sys/file.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace KyPlatform
{

namespace
{

/// Another process holds the exclusive lock for a few microseconds, unless it is stopped just then.
constexpr std::chrono::seconds cLongestLook(5);
constexpr int cEagerLooks = 16;
constexpr size_t cLongestName = 200;

/// Whose folder a name means, and the file's name in it.
bool SplitName(const std::string& aName, uint32_t& aSession, std::string& aFile)
{
    std::string_view lRest = aName;
    constexpr std::string_view cSession = "Session\\";
    constexpr std::string_view cLocal = Session::cLocalPrefix;
    static_cast<void>(Session::GetOwnNumber(aSession)); // the user's here, which cannot fail
    if (lRest.substr(0, cLocal.size()) == cLocal)
    {
        lRest.remove_prefix(cLocal.size());
    }
    else if (lRest.substr(0, cSession.size()) == cSession)
    {
        lRest.remove_prefix(cSession.size());
        const auto [lEnd, lError] = std::from_chars(lRest.data(), lRest.data() + lRest.size(), aSession);
        if (lError != std::errc() || lEnd == lRest.data() + lRest.size() || *lEnd != '\\')
        {
            return false;
        }
        lRest.remove_prefix(static_cast<size_t>(lEnd - lRest.data()) + 1);
    }
    aFile = lRest;
    constexpr auto cNone = std::string_view::npos;
    return !lRest.empty() && lRest.size() <= cLongestName && lRest.find('/') == cNone &&
           lRest.find('\\') == cNone && lRest.find('\0') == cNone;
}

/// Opens a session's folder; makes the caller's own. Sessions of others are entered only if the folder really
/// is theirs: anybody can make a folder of any name beside it.
int OpenFolder(uint32_t aSession, bool aMake)
{
    const std::string lPath = gSystem.mFolder + std::to_string(aSession);
    if (aMake && aSession == gSystem.mGetUser() && gSystem.mMakeFolder(lPath.c_str(), S_IRWXU) != 0 &&
        errno != EEXIST)
    {
        return -1;
    }
    const int lFolder =
        gSystem.mOpen(AT_FDCWD, lPath.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
    struct stat lStatus = {};
    if (lFolder >= 0 && (gSystem.mGetStatus(lFolder, &lStatus) != 0 || lStatus.st_uid != aSession))
    {
        gSystem.mClose(lFolder);
        return -1;
    }
    return lFolder;
}

bool IsSameFile(int aFolder, const char* aName, int aFile)
{
    struct stat lNamed = {};
    struct stat lOpen = {};
    return gSystem.mGetStatusOf(aFolder, aName, &lNamed, AT_SYMLINK_NOFOLLOW) == 0 &&
           gSystem.mGetStatus(aFile, &lOpen) == 0 && lNamed.st_ino == lOpen.st_ino &&
           lNamed.st_dev == lOpen.st_dev;
}

/// Takes a file away that nobody holds.
void RemoveIfDead(int aFolder, const char* aName)
{
    const int lFile = gSystem.mOpen(aFolder, aName, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (lFile < 0)
    {
        return;
    }
    if (gSystem.mLockFile(lFile, LOCK_EX | LOCK_NB) == 0 && IsSameFile(aFolder, aName, lFile))
    {
        gSystem.mRemove(aFolder, aName, 0); // a file that stays is taken away by whoever opens its name
    }
    gSystem.mClose(lFile);
}

/// Frees the memory of processes that were killed and whose names nobody uses again.
void RemoveTheDead(int aFolder)
{
    const int lFolder = gSystem.mOpen(aFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    DIR* const lList = lFolder >= 0 ? gSystem.mOpenList(lFolder) : nullptr;
    if (lList == nullptr)
    {
        if (lFolder >= 0)
        {
            gSystem.mClose(lFolder);
        }
        return;
    }
    for (const dirent* lEntry = gSystem.mGetNext(lList); lEntry != nullptr; lEntry = gSystem.mGetNext(lList))
    {
        if (lEntry->d_name[0] != '.')
        {
            RemoveIfDead(aFolder, lEntry->d_name);
        }
    }
    gSystem.mCloseList(lList);
}

} // namespace

bool NamedFile::IsLinked(const std::string& aFile) const
{
    return IsSameFile(mFolder, aFile.c_str(), mFile);
}

/// What the file that was just opened is good for.
NamedFile::Outcome NamedFile::Judge(const std::string& aFile) const
{
    struct stat lStatus = {};
    struct stat lFolder = {};
    if (gSystem.mGetStatus(mFile, &lStatus) != 0 || gSystem.mGetStatus(mFolder, &lFolder) != 0 ||
        !S_ISREG(lStatus.st_mode))
    {
        return Outcome::Failed;
    }
    // In a folder that others may write to there may be files of theirs, or further names of other files.
    if (lStatus.st_uid != lFolder.st_uid || lStatus.st_nlink > 1)
    {
        return Outcome::Failed;
    }
    if (gSystem.mLockFile(mFile, LOCK_EX | LOCK_NB) == 0)
    {
        // Nobody held it. While we have it alone no other process can take it for its own.
        if (!IsLinked(aFile))
        {
            return Outcome::Again;
        }
        return gSystem.mRemove(mFolder, aFile.c_str(), 0) == 0 ? Outcome::Absent : Outcome::Failed;
    }
    if (errno == EWOULDBLOCK && gSystem.mLockFile(mFile, LOCK_SH | LOCK_NB) == 0)
    {
        // Its last holder may have taken it away between the two calls.
        return IsLinked(aFile) ? Outcome::Held : Outcome::Again;
    }
    return errno == EWOULDBLOCK ? Outcome::Again : Outcome::Failed;
}

NamedFile::Outcome NamedFile::Hold(const std::string& aFile)
{
    mFile = gSystem.mOpen(mFolder, aFile.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (mFile < 0)
    {
        return errno == ENOENT ? Outcome::Absent : Outcome::Failed;
    }
    const Outcome lOutcome = Judge(aFile);
    if (lOutcome != Outcome::Held)
    {
        gSystem.mClose(mFile);
        mFile = -1;
    }
    return lOutcome;
}

NamedFile::Outcome NamedFile::Make(const std::string& aFile, uint64_t aSize, Fill aFill, const void* aContext)
{
    struct stat lFolder = {};
    if (gSystem.mGetStatus(mFolder, &lFolder) != 0 || lFolder.st_uid != gSystem.mGetUser())
    {
        return Outcome::Failed; // nobody would take a file in a folder of others for one of theirs
    }
    static std::atomic_flag sSwept;
    if (!sSwept.test_and_set())
    {
        RemoveTheDead(mFolder);
    }
    // Whom the folder lets in may use what is in it.
    const mode_t lMode = lFolder.st_mode & (S_IRUSR | S_IWUSR | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH);
    mFile = gSystem.mOpen(mFolder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (mFile < 0)
    {
        return Outcome::Failed;
    }
    Outcome lOutcome = Outcome::Failed;
    if (gSystem.mSetMode(mFile, lMode) == 0 && gSystem.mLockFile(mFile, LOCK_SH | LOCK_NB) == 0 &&
        gSystem.mAllocate(mFile, 0, static_cast<off_t>(aSize)) == 0 && Map() &&
        (aFill == nullptr || aFill(mBase, aContext)))
    {
        const std::string lNameless = "/proc/self/fd/" + std::to_string(mFile);
        if (gSystem.mLink(AT_FDCWD, lNameless.c_str(), mFolder, aFile.c_str(), AT_SYMLINK_FOLLOW) == 0)
        {
            mNew = true;
            return Outcome::Held;
        }
        lOutcome = errno == EEXIST ? Outcome::Again : Outcome::Failed;
    }
    if (mBase != nullptr)
    {
        gSystem.mUnmap(mBase, mSize);
        mBase = nullptr;
    }
    gSystem.mClose(mFile);
    mFile = -1;
    return lOutcome;
}

bool NamedFile::Map()
{
    struct stat lStatus = {};
    if (gSystem.mGetStatus(mFile, &lStatus) != 0 || lStatus.st_size <= 0)
    {
        return false;
    }
    mSize = static_cast<uint64_t>(lStatus.st_size);
    void* const lBase = gSystem.mMap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_SHARED, mFile, 0);
    mBase = lBase == MAP_FAILED ? nullptr : lBase;
    return mBase != nullptr;
}

bool NamedFile::Find(const std::string& aName, const char* aKind, bool aMake)
{
    uint32_t lSession = 0;
    if (!SplitName(aName, lSession, mFileName))
    {
        return false;
    }
    mFileName += aKind;
    mFolder = OpenFolder(lSession, aMake);
    if (mFolder < 0)
    {
        return false;
    }
    mHolder = ::getpid();
    return true;
}

bool NamedFile::Open(const std::string& aName, const char* aKind)
{
    return Create(aName, aKind, 0, nullptr, nullptr);
}

bool NamedFile::Create(const std::string& aName, const char* aKind, uint64_t aSize, Fill aFill,
                       const void* aContext)
{
    if (!Find(aName, aKind, aSize != 0))
    {
        return false;
    }
    // The first look mostly does; the clock is left alone until then.
    using Clock = std::chrono::steady_clock;
    Clock::time_point lUntil = Clock::time_point::max();
    Outcome lOutcome = Outcome::Again;
    for (int lLook = 0; lOutcome == Outcome::Again && (lLook == 0 || Clock::now() < lUntil); ++lLook)
    {
        lUntil = lLook == 1 ? Clock::now() + cLongestLook : lUntil;
        if (lLook > cEagerLooks)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        lOutcome = Hold(mFileName);
        if (lOutcome == Outcome::Absent && aSize != 0)
        {
            lOutcome = Make(mFileName, aSize, aFill, aContext);
        }
    }
    return lOutcome == Outcome::Held && (mBase != nullptr || Map());
}

bool NamedFile::Close() noexcept
{
    bool lDone = true;
    if (mBase != nullptr)
    {
        lDone = gSystem.mUnmap(mBase, mSize) == 0;
        mBase = nullptr;
    }
    if (mFile >= 0)
    {
        // A child made by fork() would take the parent's file away: they share the lock.
        if (mHolder == ::getpid() && gSystem.mLockFile(mFile, LOCK_EX | LOCK_NB) == 0 && IsLinked(mFileName))
        {
            lDone = gSystem.mRemove(mFolder, mFileName.c_str(), 0) == 0 && lDone;
        }
        lDone = gSystem.mClose(mFile) == 0 && lDone;
        mFile = -1;
    }
    if (mFolder >= 0)
    {
        gSystem.mClose(mFolder);
        mFolder = -1;
    }
    mNew = false;
    return lDone;
}

void NamedFile::Abandon() noexcept
{
    mBase = nullptr;
    mFile = -1;
    mFolder = -1;
}

NamedFile* OpenRecord(const std::string& aName, const char* aKind, uint64_t aSize, uint32_t aMark) noexcept
{
    return CreateRecord(aName, aKind, aSize, aMark, nullptr, nullptr);
}

NamedFile* CreateRecord(const std::string& aName, const char* aKind, uint64_t aSize, uint32_t aMark,
                        NamedFile::Fill aFill, const void* aContext) noexcept
{
    try
    {
        auto lFile = std::make_unique<NamedFile>();
        const bool lHeld = aFill == nullptr ? lFile->Open(aName, aKind)
                                            : lFile->Create(aName, aKind, aSize, aFill, aContext);
        uint32_t lMark = 0;
        if (!lHeld || lFile->GetSize() != aSize)
        {
            return nullptr;
        }
        std::memcpy(&lMark, lFile->GetBase(), sizeof(lMark));
        return lMark == aMark ? lFile.release() : nullptr;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

} // namespace KyPlatform
