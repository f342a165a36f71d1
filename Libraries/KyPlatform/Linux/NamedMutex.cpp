#include "KyPlatform/NamedMutex.h"

#include "KyPlatform/Deadline.h"
#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/Obstacle.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <linux/futex.h>
#include <memory>
#include <new>
#include <pthread.h>
#include <thread>

namespace KyPlatform
{

namespace
{

constexpr char cKind[] = ".mutex";
constexpr uint32_t cMark = 0x324D794BU; // "KyM2"

/// The word: the owner's place in the file, 0 when the lock is free, and two flags. There are no addresses in
/// it, so whatever others write there, this process touches nothing but the word.
constexpr uint32_t cSleepers = 0x80000000U; // somebody may be asleep
constexpr uint32_t cEnded = 0x40000000U;    // the thread that owns it has ended
constexpr uint32_t cOwner = NamedFile::cLastPlace;

constexpr int cTries = 100;         // a microsecond or two
constexpr uint32_t cLookAgain = 10; // ms after which a sleeper asks whether the owner lives

struct Record
{
    uint32_t mMark;
    uint32_t mApart[15]; // the lock on a cache line of its own
    uint32_t mWord;
};

struct Object
{
    std::unique_ptr<NamedFile> mFile;
    std::atomic<uint32_t> mFork{0};        // see IsOurs()
    std::atomic<uint32_t> mHeld{0};        // how often a thread has it through this object; the owner's
    std::atomic<std::thread::id> mOwner{}; // that thread; none when it gives the lock back
    uint32_t mTaken = 0;                   // the place in the word since then; the owner's
    Object* mNext = nullptr;               // in the owner's list
    Object* mBefore = nullptr;             // among the abandoned

    std::atomic_ref<uint32_t> GetWord() const noexcept
    {
        return std::atomic_ref<uint32_t>(static_cast<Record*>(mFile->GetBase())->mWord);
    }
};

/// How often this process and its parents have been forked, doubled.
std::atomic<uint32_t> gFork{0};

void CountFork()
{
    gFork += 2;
}

const int cForkCounted = ::pthread_atfork(nullptr, nullptr, &CountFork);

/// Objects that were closed while a thread owned their locks: they hold these until the process ends.
std::atomic<Object*> gAbandoned{nullptr};

uint32_t* GetAddress(const Object& aObject) noexcept
{
    return &static_cast<Record*>(aObject.mFile->GetBase())->mWord;
}

/// Gives up what the object's owner has. \param aLeft  What the word is from then on.
/// \return False: others have written the word meanwhile, and it is left to them.
bool Leave(const Object& aObject, uint32_t aLeft) noexcept
{
    const std::atomic_ref<uint32_t> lWord = aObject.GetWord();
    uint32_t lFound = lWord.load(std::memory_order_relaxed);
    // The word of a thread that ends keeps its place and its flags: the next
    // owner sees that an owner has died.
    do
    {
        if ((lFound & cOwner) != aObject.mTaken)
        {
            return false;
        }
    } while (!lWord.compare_exchange_weak(lFound, aLeft | (aLeft != 0 ? lFound : 0)));
    if ((lFound & cSleepers) != 0)
    {
        // Ignored: a sleeper that is not woken looks again after cLookAgain.
        static_cast<void>(gSystem.mFutex(GetAddress(aObject), FUTEX_WAKE, 1, nullptr));
    }
    return true;
}

/// By the owner. Nobody else acts on what is noted here, so the order of other processors' views does not
/// matter, and keeping it costs as much as the lock itself.
void NoteOwner(Object& aObject, uint32_t aHeld) noexcept
{
    aObject.mHeld.store(aHeld, std::memory_order_relaxed);
    aObject.mOwner.store(aHeld > 0 ? std::this_thread::get_id() : std::thread::id(),
                         std::memory_order_relaxed);
}

/// What a thread holds, linked through the objects.
class HeldLocks
{
public:
    HeldLocks() noexcept = default;
    /// The thread ends: its locks pass on.
    ~HeldLocks()
    {
        Object* lNext = nullptr;
        for (Object* lObject = GetFirst(); lObject != nullptr; lObject = lNext)
        {
            lNext = lObject->mNext; // the next owner links the object into its own list, or closes it
            NoteOwner(*lObject, 0); // a later thread may get the same number
            static_cast<void>(Leave(*lObject, cEnded)); // ignored: it is not this thread's any more
        }
        mFirst = nullptr; // static objects that are destroyed later may still take locks
    }
    HeldLocks(const HeldLocks&) = delete;
    HeldLocks& operator=(const HeldLocks&) = delete;

    void Add(Object& aObject) noexcept
    {
        aObject.mNext = GetFirst();
        mFirst = &aObject;
    }

    void Remove(const Object& aObject) noexcept
    {
        Object** lLink = &mFirst;
        while (*lLink != nullptr && *lLink != &aObject)
        {
            lLink = &(*lLink)->mNext;
        }
        *lLink = *lLink != nullptr ? aObject.mNext : nullptr;
    }

    /// Another object through which the thread has the same lock; null when the thread has no other.
    const Object* FindOther(const Object& aObject) noexcept
    {
        for (const Object* lObject = GetFirst(); lObject != nullptr; lObject = lObject->mNext)
        {
            if (lObject != &aObject && lObject->mFile->IsSameAs(*aObject.mFile))
            {
                return lObject;
            }
        }
        return nullptr;
    }

private:
    /// A child made by fork() has nothing of what its parent's thread holds.
    Object* GetFirst() noexcept
    {
        if (mFork != gFork)
        {
            mFork = gFork;
            mFirst = nullptr;
        }
        return mFirst;
    }

    Object* mFirst = nullptr;
    uint32_t mFork = gFork;
};

thread_local HeldLocks gHeld;

bool FillRecord(void* aBase, const void* /*aContext*/)
{
    static_cast<Record*>(aBase)->mMark = cMark;
    return true;
}

/// Whether the caller has the lock through this object: it was the last to write, and takes itself out.
bool IsOwner(const Object& aObject) noexcept
{
    return aObject.mOwner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

void* MakeObject(NamedFile* aFile) noexcept
{
    std::unique_ptr<NamedFile> lFile(aFile);
    // The lock's word names its owner by the place, so a holder without one cannot own the lock.
    if (lFile == nullptr || !lFile->TakePlace())
    {
        return nullptr;
    }
    auto* const lObject = new (std::nothrow) Object();
    if (lObject == nullptr)
    {
        Obstacle::Note("there is no memory", ENOMEM);
        return nullptr;
    }
    lObject->mFile = std::move(lFile);
    lObject->mFork = gFork.load();
    return lObject;
}

/// Whether the object is this process's own; in a child made by fork() it is made so. The child shares the
/// parent's descriptors and with them its place, and the one must not be taken for the other when it dies.
bool IsOurs(Object& aObject) noexcept
{
    const uint32_t lFork = gFork;
    uint32_t lFound = aObject.mFork;
    while (lFound != lFork)
    {
        const uint32_t lBusy = lFork + 1;
        if (lFound == lBusy || !aObject.mFork.compare_exchange_weak(lFound, lBusy))
        {
            std::this_thread::yield(); // another thread does it
            lFound = aObject.mFork;
            continue;
        }
        const bool lDone = aObject.mFile->HoldAgain();
        if (lDone)
        {
            NoteOwner(aObject, 0); // what the parent's thread has is not the child's
        }
        aObject.mFork = lDone ? lFork : lFound;
        return lDone;
    }
    return true;
}

/// Takes the lock if its word is still what it was.
bool Replace(const Object& aObject, uint32_t& aFound, uint32_t aFlags) noexcept
{
    const uint32_t lMine = aObject.mFile->GetPlace() | (aFound & cSleepers) | aFlags;
    return aObject.GetWord().compare_exchange_strong(aFound, lMine, std::memory_order_acquire);
}

/// Tries once. \param aFound  Receives the word. \return TimedOut: another owns it.
WaitResult TryTake(const Object& aObject, uint32_t& aFound, uint32_t aFlags) noexcept
{
    // Relaxed order is enough: only the exchange that takes the lock has to see the former owner's writes.
    aFound = aObject.GetWord().load(std::memory_order_relaxed);
    if ((aFound & cOwner) == 0 && Replace(aObject, aFound, aFlags))
    {
        return WaitResult::Done;
    }
    if ((aFound & cOwner) != 0 && (aFound & cEnded) != 0 && Replace(aObject, aFound, aFlags))
    {
        return WaitResult::OwnerDied;
    }
    return WaitResult::TimedOut;
}

/// Takes the lock of an owner whose process has died: the system has taken its place back.
WaitResult TakeFromDead(const Object& aObject, uint32_t aFound, uint32_t aFlags) noexcept
{
    const uint32_t lOwner = aFound & cOwner;
    // The system leaves out this holder's own lock, so its own place would look dead.
    const bool lIsDead =
        lOwner != 0 && lOwner != aObject.mFile->GetPlace() && !aObject.mFile->IsTaken(lOwner, 1);
    return lIsDead && Replace(aObject, aFound, aFlags) ? WaitResult::OwnerDied : WaitResult::TimedOut;
}

/// Sleeps while the word is what it was, a short time at most. \return False: the system does not let it.
bool Sleep(const Object& aObject, uint32_t aFound, uint32_t aTime) noexcept
{
    const timespec lTime{0, static_cast<long>(aTime) * 1000000};
    return gSystem.mFutex(GetAddress(aObject), FUTEX_WAIT, aFound, &lTime) == 0 || errno == EAGAIN ||
           errno == EINTR || errno == ETIMEDOUT;
}

/// Waits for a lock that another owns.
WaitResult Await(const Object& aObject, uint32_t aTimeout) noexcept
{
    const Deadline lUntil(aTimeout);
    uint32_t lFound = 0;
    WaitResult lResult = TryTake(aObject, lFound, 0);
    lResult = IsOwned(lResult) ? lResult : TakeFromDead(aObject, lFound, 0);
    while (!IsOwned(lResult))
    {
        const uint32_t lTime = lUntil.GetRemaining(cLookAgain);
        if (lTime == 0)
        {
            break;
        }
        const uint32_t lAsleep = lFound | cSleepers;
        const bool lIsFree = (lFound & cOwner) == 0;
        if (!lIsFree && (lFound == lAsleep || aObject.GetWord().compare_exchange_strong(lFound, lAsleep)))
        {
            if (!Sleep(aObject, lAsleep, lTime))
            {
                return WaitResult::Failed;
            }
        }
        // A thread that slept does not know whether others still sleep, so it keeps the flag for them.
        lResult = TryTake(aObject, lFound, cSleepers);
        lResult = IsOwned(lResult) ? lResult : TakeFromDead(aObject, lFound, cSleepers);
    }
    return lResult;
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
    std::unique_ptr<Object> lObject(static_cast<Object*>(std::exchange(mObject, nullptr)));
    if (lObject == nullptr)
    {
        return true;
    }
    // A thread owns the lock through this object, or began to and still does through another one: its place
    // says that it lives.
    const bool lIsOwned =
        lObject->mFork == gFork &&
        (lObject->mHeld != 0 || (lObject->GetWord().load() & ~cSleepers) == lObject->mFile->GetPlace());
    if (!lIsOwned)
    {
        return lObject->mFile->Close();
    }
    lObject->mBefore = gAbandoned;
    while (!gAbandoned.compare_exchange_weak(lObject->mBefore, lObject.get()))
    {
    }
    static_cast<void>(lObject.release()); // linked
    return true;
}

WaitResult NamedMutex::Wait(uint32_t aTimeout) noexcept
{
    auto* const lObject = static_cast<Object*>(mObject);
    if (lObject == nullptr || !IsOurs(*lObject))
    {
        return WaitResult::Failed;
    }
    if (IsOwner(*lObject))
    {
        NoteOwner(*lObject, lObject->mHeld.load(std::memory_order_relaxed) + 1);
        return WaitResult::Done;
    }
    // A thread may take the lock again through another object of the same name, as on the other system.
    const Object* const lOther = gHeld.FindOther(*lObject);
    WaitResult lResult = lOther != nullptr ? WaitResult::Done : WaitResult::TimedOut;
    // Owners hold it for less time than it takes to fall asleep and be woken.
    uint32_t lFound = 0;
    for (int lTry = 0; !IsOwned(lResult) && lTry < cTries; ++lTry)
    {
        lResult = TryTake(*lObject, lFound, 0);
    }
    lResult = IsOwned(lResult) ? lResult : Await(*lObject, aTimeout);
    if (IsOwned(lResult))
    {
        lObject->mTaken = lOther != nullptr ? lOther->mTaken : lObject->mFile->GetPlace();
        NoteOwner(*lObject, 1);
        gHeld.Add(*lObject);
    }
    return lResult;
}

bool NamedMutex::Release() noexcept
{
    auto* const lObject = static_cast<Object*>(mObject);
    if (lObject == nullptr || lObject->mFork != gFork || !IsOwner(*lObject))
    {
        return false;
    }
    const uint32_t lHeld = lObject->mHeld.load(std::memory_order_relaxed) - 1;
    NoteOwner(*lObject, lHeld); // before another thread can have it
    if (lHeld != 0)
    {
        return true;
    }
    gHeld.Remove(*lObject);
    // The word stays when another object of the thread still has the same lock.
    return gHeld.FindOther(*lObject) != nullptr || Leave(*lObject, 0);
}

} // namespace KyPlatform
