#include "KyPlatform/Linux/NamedFile.h"

#include "KyPlatform/Deadline.h"
#include "KyPlatform/Linux/Obstacle.h"
#include "KyPlatform/Linux/SharedGroup.h"
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
#include <optional>
#include <string_view>
#include <sys/file.h>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace KyPlatform
{

namespace
{

/// Milliseconds. Another process holds the exclusive lock for microseconds, unless it is stopped at that moment.
constexpr uint32_t cLongestLook = 5000;
constexpr int cEagerLooks = 16;
constexpr size_t cLongestName = 200;

/// Splits an object's name into the session, whose folder has the file, and the file's name in that folder.
bool SplitName(const std::string& aName, uint32_t& aSession, std::string& aFile)
{
    std::string_view lRest = aName;
    constexpr std::string_view cSession = "Session\\";
    constexpr std::string_view cLocal = Session::cLocalPrefix;
    static_cast<void>(Session::GetOwnNumber(aSession)); // it is the user's number here, which is always known
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
    // A slash would lead out of the session's folder.
    constexpr auto cNone = std::string_view::npos;
    return !lRest.empty() && lRest.size() <= cLongestName && lRest.find('/') == cNone &&
           lRest.find('\\') == cNone && lRest.find('\0') == cNone;
}

/// Members of the group can open files by name. They can neither list nor make files.
constexpr mode_t cSharedFolder = S_IRWXU | S_IXGRP;

/// Opens the caller's own folder to the group that the administrator has named.
/// \return False: the system refused, and the folder stays the user's alone.
bool ShareFolder(int aFolder, const struct stat& aStatus, gid_t aGroup)
{
    if (aStatus.st_gid == aGroup && (aStatus.st_mode & ACCESSPERMS) == cSharedFolder)
    {
        return true;
    }
    // The descriptor at hand is one of a path only, through which neither owner nor rights can be changed.
    const int lFolder = gSystem.mOpen(aFolder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0);
    if (lFolder < 0)
    {
        return false;
    }
    constexpr uid_t cSameUser = static_cast<uid_t>(-1);
    // The group is set first, because the rights would let the folder's former group in.
    const bool lDone =
        gSystem.mSetOwner(lFolder, cSameUser, aGroup) == 0 && gSystem.mSetMode(lFolder, cSharedFolder) == 0;
    gSystem.mClose(lFolder);
    return lDone;
}

bool IsSameFile(int aFolder, const char* aName, int aFile)
{
    struct stat lNamed = {};
    struct stat lOpen = {};
    return gSystem.mGetStatusOf(aFolder, aName, &lNamed, AT_SYMLINK_NOFOLLOW) == 0 &&
           gSystem.mGetStatus(aFile, &lOpen) == 0 && lNamed.st_ino == lOpen.st_ino &&
           lNamed.st_dev == lOpen.st_dev;
}

/// Removes a file that nobody holds.
void RemoveIfDead(int aFolder, const char* aName)
{
    const int lFile = gSystem.mOpen(aFolder, aName, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (lFile < 0)
    {
        return;
    }
    // Between the opening and the lock another process may have removed the
    // file and made one of the same name.
    if (gSystem.mLockFile(lFile, LOCK_EX | LOCK_NB) == 0 && IsSameFile(aFolder, aName, lFile))
    {
        gSystem.mRemove(aFolder, aName, 0); // ignored: the next opener of the name removes a file that stays
    }
    gSystem.mClose(lFile);
}

/// Removes the files that killed processes have left. Nobody else may ever use their names again.
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

/// A file that does not exist is no obstacle: a server makes it, and to a client it says that nobody serves.
void NoteUnlessAbsent(const char* aWhat)
{
    if (errno != ENOENT)
    {
        Obstacle::Note(aWhat, errno);
    }
}

/// A place for one more holder of this process, different from its last one. The places of other processes
/// differ most likely.
uint32_t GetNextPlace()
{
    static std::atomic<uint32_t> sLast{0};
    uint32_t lLast = sLast.load();
    uint32_t lNext = 0;
    do
    {
        const auto lTime = std::chrono::steady_clock::now().time_since_epoch().count();
        // Knuth's multiplier spreads the time and the process number over all places.
        const auto lMixed = static_cast<uint64_t>(lTime + ::getpid()) * 0x9E3779B97F4A7C15ULL;
        lNext = static_cast<uint32_t>((lMixed >> 32) % NamedFile::cLastPlace) + 1;
    } while (lNext == lLast || !sLast.compare_exchange_weak(lLast, lNext));
    return lNext;
}

struct flock GetPlaces(uint32_t aFirst, uint32_t aCount)
{
    struct flock lPlaces = {};
    lPlaces.l_type = F_WRLCK;
    lPlaces.l_whence = SEEK_SET;
    lPlaces.l_start = aFirst;
    lPlaces.l_len = aCount;
    return lPlaces;
}

} // namespace

/// Opens a session's folder; makes the caller's own. Another user's folder is opened only when the administrator
/// has named a group that both users are in. Without one its content proves nothing: anybody can make a folder
/// of that name.
int NamedFile::OpenFolder(uint32_t aSession, bool aMake)
{
    mOwn = aSession == gSystem.mGetUser();
    SharedGroup lShared;
    const bool lHasGroup = (aMake || !mOwn) && lShared.Read();
    if (!mOwn && !lHasGroup)
    {
        return -1;
    }
    const std::string lPath = gSystem.mFolder + std::to_string(aSession);
    if (aMake && mOwn && gSystem.mMakeFolder(lPath.c_str(), S_IRWXU) != 0 && errno != EEXIST)
    {
        Obstacle::Note("its folder cannot be made", errno);
        return -1;
    }
    // O_PATH needs no right to read, which members of the group do not have. O_NOFOLLOW keeps links out.
    const int lFolder =
        gSystem.mOpen(AT_FDCWD, lPath.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC, 0);
    struct stat lStatus = {};
    if (lFolder < 0 || gSystem.mGetStatus(lFolder, &lStatus) != 0)
    {
        NoteUnlessAbsent("its folder cannot be opened");
    }
    else if (lStatus.st_uid == aSession && (mOwn || lStatus.st_gid == lShared.mGroup))
    {
        mShared = lHasGroup && (!mOwn || ShareFolder(lFolder, lStatus, lShared.mGroup));
        return lFolder;
    }
    if (lFolder >= 0)
    {
        gSystem.mClose(lFolder);
    }
    return -1;
}

bool NamedFile::IsLinked(const std::string& aFile) const
{
    return IsSameFile(mFolder, aFile.c_str(), mFile);
}

/// Decides whether the file that was just opened can be used.
NamedFile::Outcome NamedFile::Examine(const std::string& aFile) const
{
    struct stat lStatus = {};
    struct stat lFolder = {};
    if (gSystem.mGetStatus(mFile, &lStatus) != 0 || gSystem.mGetStatus(mFolder, &lFolder) != 0)
    {
        Obstacle::Note("a file cannot be examined", errno);
        return Outcome::Failed;
    }
    if (!S_ISREG(lStatus.st_mode))
    {
        return Outcome::Failed;
    }
    // Others may be able to write to the folder: they could put files or hard links there.
    if (lStatus.st_uid != lFolder.st_uid || lStatus.st_nlink > 1 ||
        (!mOwn && lStatus.st_gid != lFolder.st_gid))
    {
        Obstacle::Note("a file of somebody else is in the way", 0);
        return Outcome::Failed;
    }
    if (gSystem.mLockFile(mFile, LOCK_EX | LOCK_NB) == 0)
    {
        // Nobody held it. As long as this process has the exclusive lock, no other one can hold it.
        if (!IsLinked(aFile))
        {
            return Outcome::Again;
        }
        // A dead file in another user's folder stays: only that user removes it.
        if (!mOwn || gSystem.mRemove(mFolder, aFile.c_str(), 0) == 0)
        {
            return Outcome::Absent;
        }
        Obstacle::Note("what a dead process left cannot be removed", errno);
        return Outcome::Failed;
    }
    if (errno == EWOULDBLOCK && gSystem.mLockFile(mFile, LOCK_SH | LOCK_NB) == 0)
    {
        // Its last holder may have removed it between the two calls.
        return IsLinked(aFile) ? Outcome::Held : Outcome::Again;
    }
    if (errno == EWOULDBLOCK)
    {
        return Outcome::Again;
    }
    Obstacle::Note("a file cannot be locked", errno);
    return Outcome::Failed;
}

NamedFile::Outcome NamedFile::Hold(const std::string& aFile)
{
    mFile = gSystem.mOpen(mFolder, aFile.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (mFile < 0)
    {
        NoteUnlessAbsent("a file cannot be opened");
        return errno == ENOENT ? Outcome::Absent : Outcome::Failed;
    }
    const Outcome lOutcome = Examine(aFile);
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
        return Outcome::Failed; // openers refuse a file whose owner is not the folder's
    }
    static std::atomic_flag sSwept;
    if (!sSwept.test_and_set())
    {
        RemoveTheDead(mFolder);
    }
    mFile = gSystem.mOpen(mFolder, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (mFile < 0)
    {
        Obstacle::Note("a file cannot be made", errno);
        return Outcome::Failed;
    }
    const Outcome lOutcome = Complete(aFile, lFolder.st_gid, aSize, aFill, aContext);
    if (lOutcome == Outcome::Held)
    {
        mNew = true;
        return lOutcome;
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

/// Prepares a new file: rights, lock, size, content. The name comes last, so that nobody opens half a file.
NamedFile::Outcome NamedFile::Complete(const std::string& aFile, gid_t aGroup, uint64_t aSize, Fill aFill,
                                       const void* aContext)
{
    constexpr mode_t cUser = S_IRUSR | S_IWUSR;
    constexpr uid_t cSameUser = static_cast<uid_t>(-1);
    const bool lIsOpen = !mShared || (gSystem.mSetOwner(mFile, cSameUser, aGroup) == 0 &&
                                      gSystem.mSetMode(mFile, cUser | S_IRGRP | S_IWGRP) == 0);
    if (!lIsOpen || gSystem.mLockFile(mFile, LOCK_SH | LOCK_NB) != 0)
    {
        Obstacle::Note("a new file cannot be prepared", errno);
        return Outcome::Failed;
    }
    // Memory is reserved now: later a full system would end the process that touches a missing page.
    const int lError = gSystem.mAllocate(mFile, 0, static_cast<off_t>(aSize));
    if (lError != 0)
    {
        Obstacle::Note("there is no room for a file", lError);
        return Outcome::Failed;
    }
    if (!Map() || (aFill != nullptr && !aFill(mBase, aContext)))
    {
        return Outcome::Failed;
    }
    // The name is given by way of /proc, because a descriptor itself can be
    // named by privileged processes only.
    const std::string lNameless = "/proc/self/fd/" + std::to_string(mFile);
    if (gSystem.mLink(AT_FDCWD, lNameless.c_str(), mFolder, aFile.c_str(), AT_SYMLINK_FOLLOW) == 0)
    {
        return Outcome::Held;
    }
    // Another process was faster, and its file is the one to open.
    if (errno == EEXIST)
    {
        return Outcome::Again;
    }
    Obstacle::Note(errno == ENOENT ? "a file gets no name without /proc" : "a file cannot be named", errno);
    return Outcome::Failed;
}

bool NamedFile::Map()
{
    struct stat lStatus = {};
    if (gSystem.mGetStatus(mFile, &lStatus) != 0)
    {
        Obstacle::Note("a file cannot be examined", errno);
        return false;
    }
    // Another process of the user may have emptied the file, and an empty file cannot be mapped.
    if (lStatus.st_size <= 0)
    {
        return false;
    }
    mSize = static_cast<uint64_t>(lStatus.st_size);
    void* const lBase = gSystem.mMap(nullptr, mSize, PROT_READ | PROT_WRITE, MAP_SHARED, mFile, 0);
    if (lBase == MAP_FAILED)
    {
        Obstacle::Note("a file cannot be mapped", errno);
    }
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
    // Mostly the first look succeeds, so the clock is read only after it.
    std::optional<Deadline> lUntil;
    Outcome lOutcome = Outcome::Again;
    for (int lLook = 0; lOutcome == Outcome::Again && (!lUntil || lUntil->GetRemaining() > 0); ++lLook)
    {
        if (lLook == 1)
        {
            lUntil.emplace(cLongestLook);
        }
        // Mostly the other process is done within microseconds. A stopped one must not cost a processor.
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
        // A child made by fork() must not remove the parent's file: both share the lock.
        if (mOwn && mHolder == ::getpid() && gSystem.mLockFile(mFile, LOCK_EX | LOCK_NB) == 0 &&
            IsLinked(mFileName))
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
    mPlace = 0;
    return lDone;
}

bool NamedFile::HoldAgain() noexcept
{
    // Locks belong to the opening that the parent and the child share, so the child opens the file anew.
    const int lFile =
        gSystem.mOpen(mFolder, mFileName.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0);
    if (lFile < 0)
    {
        return false;
    }
    if (!IsLinked(mFileName) || !IsSameFile(mFolder, mFileName.c_str(), lFile) ||
        gSystem.mLockFile(lFile, LOCK_SH | LOCK_NB) != 0)
    {
        gSystem.mClose(lFile);
        return false;
    }
    gSystem.mClose(mFile); // leaves the shared lock to the parent
    mFile = lFile;
    mHolder = ::getpid();
    return TakePlace();
}

bool NamedFile::TakePlace() noexcept
{
    constexpr int cTries = 16; // mostly the first is free, unless somebody has taken them all
    for (int lTry = 0; lTry < cTries; ++lTry)
    {
        mPlace = GetNextPlace();
        struct flock lPlace = GetPlaces(mPlace, 1);
        if (gSystem.mLockByte(mFile, F_OFD_SETLK, &lPlace) == 0)
        {
            return true;
        }
        if (errno != EAGAIN && errno != EACCES)
        {
            break;
        }
    }
    Obstacle::Note("a file cannot be locked", errno);
    mPlace = 0;
    return false;
}

bool NamedFile::IsTaken(uint32_t aFirst, uint32_t aCount) const noexcept
{
    struct flock lPlaces = GetPlaces(aFirst, aCount);
    // When the system does not answer, the owner counts as alive: a living owner must not lose its lock.
    return gSystem.mLockByte(mFile, F_OFD_GETLK, &lPlaces) != 0 || lPlaces.l_type != F_UNLCK;
}

bool NamedFile::IsSameAs(const NamedFile& aOther) const noexcept
{
    struct stat lOwn = {};
    struct stat lOther = {};
    return gSystem.mGetStatus(mFile, &lOwn) == 0 && gSystem.mGetStatus(aOther.mFile, &lOther) == 0 &&
           lOwn.st_ino == lOther.st_ino && lOwn.st_dev == lOther.st_dev;
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
        // The name alone proves nothing: another process may have put any file there.
        if (!lHeld || lFile->GetSize() != aSize)
        {
            return nullptr;
        }
        std::memcpy(&lMark, lFile->GetBase(), sizeof(lMark));
        return lMark == aMark ? lFile.release() : nullptr;
    }
    catch (const std::bad_alloc&)
    {
        Obstacle::Note("there is no memory", ENOMEM);
        return nullptr;
    }
}

} // namespace KyPlatform
