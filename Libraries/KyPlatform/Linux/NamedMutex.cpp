#include "KyPlatform/NamedMutex.h"

#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <new>
#include <thread>

namespace KyPlatform
{

namespace
{

constexpr char cKind[] = ".mutex";
constexpr uint32_t cMark = 0x314D794BU; // "KyM1"; the lock's layout is the C library's
constexpr time_t cSecondsForEver = 1000000000;
constexpr int cTries = 100; // a microsecond or two

struct Record
{
    uint32_t mMark;
    uint32_t mApart[15]; // the lock on a cache line of its own
    pthread_mutex_t mMutex;
};

struct Object
{
    std::unique_ptr<NamedFile> mFile;
    pthread_mutex_t* mMutex = nullptr;
    std::atomic<int> mHeld{0};             // how often a thread has it through this object; the owner's
    std::atomic<std::thread::id> mOwner{}; // that thread; none when it gives the lock back
};

bool FillRecord(void* aBase, const void* /*aContext*/)
{
    auto* const lRecord = static_cast<Record*>(aBase);
    lRecord->mMark = cMark;
    return gSystem.mInitMutex(&lRecord->mMutex) == 0;
}

/// Whether the caller has the lock through this object: it was the last to write, and takes itself out.
bool IsOwner(const Object& aObject) noexcept
{
    return aObject.mOwner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

/// By the owner. Nobody else acts on what is noted here, so the order of other processors' views does not
/// matter, and keeping it costs as much as the lock itself.
void NoteOwner(Object& aObject, int aHeld) noexcept
{
    aObject.mHeld.store(aHeld, std::memory_order_relaxed);
    aObject.mOwner.store(aHeld > 0 ? std::this_thread::get_id() : std::thread::id(),
                         std::memory_order_relaxed);
}

void* MakeObject(NamedFile* aFile) noexcept
{
    std::unique_ptr<NamedFile> lFile(aFile);
    auto* const lObject = lFile != nullptr ? new (std::nothrow) Object() : nullptr;
    if (lObject != nullptr)
    {
        lObject->mMutex = &static_cast<Record*>(lFile->GetBase())->mMutex;
        lObject->mFile = std::move(lFile);
    }
    return lObject;
}

timespec GetDeadline(uint32_t aTimeout)
{
    timespec lUntil{};
    ::clock_gettime(CLOCK_MONOTONIC, &lUntil);
    if (aTimeout == cInfinite)
    {
        lUntil.tv_sec += cSecondsForEver;
        return lUntil;
    }
    lUntil.tv_sec += aTimeout / 1000;
    lUntil.tv_nsec += static_cast<long>(aTimeout % 1000) * 1000000;
    if (lUntil.tv_nsec >= 1000000000)
    {
        lUntil.tv_nsec -= 1000000000;
        ++lUntil.tv_sec;
    }
    return lUntil;
}

} // namespace

bool NamedMutex::Create(const std::string& aName) noexcept
{
    Close();
    mObject = MakeObject(CreateRecord(aName, cKind, sizeof(Record), cMark, &FillRecord, nullptr));
    return mObject != nullptr;
}

bool NamedMutex::Open(const std::string& aName) noexcept
{
    Close();
    mObject = MakeObject(OpenRecord(aName, cKind, sizeof(Record), cMark));
    return mObject != nullptr;
}

bool NamedMutex::Close() noexcept
{
    const std::unique_ptr<Object> lObject(static_cast<Object*>(std::exchange(mObject, nullptr)));
    if (lObject == nullptr)
    {
        return true;
    }
    if (lObject->mHeld != 0)
    {
        // The owning thread's list of locks points into the file.
        lObject->mFile->Abandon();
    }
    return lObject->mFile->Close();
}

WaitResult NamedMutex::Wait(uint32_t aTimeout) noexcept
{
    if (mObject == nullptr)
    {
        return WaitResult::Failed;
    }
    auto* const lObject = static_cast<Object*>(mObject);
    // Owners hold it for less time than it takes to fall asleep and be woken.
    int lError = EBUSY;
    for (int lTry = 0; lError == EBUSY && lTry < cTries; ++lTry)
    {
        lError = gSystem.mTryLockMutex(lObject->mMutex);
    }
    if (lError == EBUSY && aTimeout != 0)
    {
        const timespec lUntil = GetDeadline(aTimeout);
        lError = gSystem.mLockMutex(lObject->mMutex, &lUntil);
    }
    switch (lError)
    {
    case 0:
        NoteOwner(*lObject, IsOwner(*lObject) ? lObject->mHeld.load(std::memory_order_relaxed) + 1 : 1);
        return WaitResult::Done;
    case EOWNERDEAD:
        if (gSystem.mMendMutex(lObject->mMutex) != 0)
        {
            gSystem.mUnlockMutex(lObject->mMutex);
            return WaitResult::Failed;
        }
        NoteOwner(*lObject, 1); // the dead may have been a thread of this process
        return WaitResult::OwnerDied;
    case EBUSY:
    case ETIMEDOUT:
        return WaitResult::TimedOut;
    default:
        return WaitResult::Failed;
    }
}

bool NamedMutex::Release() noexcept
{
    auto* const lObject = static_cast<Object*>(mObject);
    if (lObject == nullptr || !IsOwner(*lObject))
    {
        return false;
    }
    const int lHeld = lObject->mHeld.load(std::memory_order_relaxed);
    NoteOwner(*lObject, lHeld - 1); // before another thread can have it
    if (gSystem.mUnlockMutex(lObject->mMutex) != 0)
    {
        NoteOwner(*lObject, lHeld);
        return false;
    }
    return true;
}

} // namespace KyPlatform
