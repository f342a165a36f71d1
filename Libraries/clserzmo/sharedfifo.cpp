#include "sharedfifo.h"

#include "KernelCall.h"
#include "TickTimer.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

using KyPlatform::NamedEvent;
using KyPlatform::WaitResult;

namespace KySerialLib
{

namespace
{

/// No wait for a lock is longer: a stopped process that holds it must not stop the others.
constexpr uint32_t cLockTimeout = 5000;

/// Sleepers look at the indexes this often: a peer may die after it changed them and before it set the event.
constexpr uint32_t cLookAgain = 50;

uint32_t LoadWord(uint32_t& aWord)
{
    return std::atomic_ref<uint32_t>(aWord).load(std::memory_order_acquire);
}

void StoreWord(uint32_t& aWord, uint32_t aValue)
{
    // Bytes first, then the index that shows them: a peer that dies in between has written nothing.
    std::atomic_ref<uint32_t>(aWord).store(aValue, std::memory_order_release);
}

template<typename tObject>
void OpenOrMake(tObject& aObject, const std::string& aName, bool aCreate)
{
    if (!aObject.Open(aName) && aCreate)
    {
        aObject.Create(aName);
    }
}

} // namespace

SharedFifo::SharedFifo(const std::string& aName, const std::string& aPrefix, uint32_t aCapacity, bool aCreate)
{
    // The lock comes first: the section is opened and initialised under it.
    OpenOrMake(mMutex, aPrefix + aName + "Mutex", aCreate);
    CLSERZMO_VERIFY(mMutex.IsValid(), "( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )");
    OpenOrMake(mDataWrittenEvent, aPrefix + aName + "WriteEvent", aCreate);
    CLSERZMO_VERIFY(mDataWrittenEvent.IsValid(),
                    "( ( mDataWrittenEvent != 0 ) && ( mDataWrittenEvent != ((HANDLE)(LONG_PTR)-1) ) )");
    OpenOrMake(mDataReadEvent, aPrefix + aName + "ReadEvent", aCreate);
    CLSERZMO_VERIFY(mDataReadEvent.IsValid(),
                    "( ( mDataReadEvent != 0 ) && ( mDataReadEvent != ((HANDLE)(LONG_PTR)-1) ) )");
    OpenSection(aPrefix + aName + "Memory", aCapacity, aCreate);
}

SharedFifo::~SharedFifo()
{
    mMemory.Close();
    mDataReadEvent.Close();
    mDataWrittenEvent.Close();
    mMutex.Close();
}

void SharedFifo::OpenSection(const std::string& aName, uint32_t aCapacity, bool aCreate)
{
    // Under the lock no opener finds a section whose maker is not done with it.
    const WaitResult lLock = mMutex.Wait(cLockTimeout);
    if (!IsOwned(lLock))
    {
        return;
    }
    bool lNew = false;
    if (!mMemory.Open(aName) && aCreate)
    {
        mMemory.Create(aName, uint64_t{aCapacity} + sizeof(SharedFifoHeader), lNew);
    }
    // Another process may have made a section that has no room for a header.
    if (mMemory.IsValid() && mMemory.GetSize() >= sizeof(SharedFifoHeader))
    {
        mHeader = static_cast<SharedFifoHeader*>(mMemory.GetBase());
        mData = static_cast<uint8_t*>(mMemory.GetBase()) + sizeof(SharedFifoHeader);
        if (!MakeSound(aCapacity, aCreate, lNew, lLock == WaitResult::OwnerDied))
        {
            mHeader = nullptr;
            mData = nullptr;
        }
    }
    if (mHeader == nullptr)
    {
        mMemory.Close();
    }
    Unlock();
}

/// Brings a section just opened into order, as far as dying processes have left it in disorder.
/// \return False: it was never finished, and this process is not to do that; it must not be held on to.
bool SharedFifo::MakeSound(uint32_t aCapacity, bool aCreate, bool aNew, bool aOwnerDied) noexcept
{
    Indexes lIndexes;
    if (aNew)
    {
        Initialise(aCapacity);
    }
    else if (Load(lIndexes))
    {
        if (aOwnerDied)
        {
            Repair(lIndexes);
        }
    }
    else if (aOwnerDied && lIndexes.mSize == 0)
    {
        // The size goes last: without it the section's maker died before it was done. As long as a process
        // holds such a section, no other one can be made under its name.
        if (!aCreate || !mMemory.HasSizeOf(uint64_t{aCapacity} + sizeof(SharedFifoHeader)))
        {
            return false;
        }
        Initialise(aCapacity);
    }
    return true; // the header may be an enemy's: each operation checks it
}

void SharedFifo::Initialise(uint32_t aCapacity) noexcept
{
    // The system hands out memory full of zeros, so the ring is clear already. The size goes last: without it
    // the section is known to be unfinished.
    StoreWord(mHeader->mHeadIndex, 0);
    StoreWord(mHeader->mTailIndex, 0);
    StoreWord(mHeader->mSize, aCapacity);
    mCapacity = aCapacity;
}

bool SharedFifo::IsValid() const noexcept
{
    return mMemory.IsValid() && mHeader != nullptr && mData != nullptr && mMutex.IsValid() &&
           mDataWrittenEvent.IsValid() && mDataReadEvent.IsValid();
}

/// Reads the header once and checks it; what is used from then on is the copy.
bool SharedFifo::Load(Indexes& aIndexes) noexcept
{
    aIndexes.mSize = LoadWord(mHeader->mSize);
    aIndexes.mTail = LoadWord(mHeader->mTailIndex);
    aIndexes.mHead = LoadWord(mHeader->mHeadIndex);
    // The first header that makes sense counts. What others write there
    // later must not lead outside the section.
    if (mCapacity == 0 && mMemory.HasSizeOf(uint64_t{aIndexes.mSize} + sizeof(SharedFifoHeader)))
    {
        mCapacity = aIndexes.mSize;
    }
    return mCapacity != 0 && aIndexes.mSize == mCapacity && aIndexes.mTail < mCapacity &&
           aIndexes.mHead < mCapacity;
}

bool SharedFifo::Lock(Indexes& aIndexes) noexcept
{
    return Enter(mMutex.Wait(cLockTimeout), aIndexes);
}

/// Checks the header under the lock just taken, and repairs what a dead owner has left. \return False: the header makes
/// no sense, or the lock was not to be had; the lock is not held.
bool SharedFifo::Enter(WaitResult aLock, Indexes& aIndexes) noexcept
{
    if (!IsOwned(aLock))
    {
        return false;
    }
    if (!Load(aIndexes))
    {
        Unlock();
        return false;
    }
    if (aLock == WaitResult::OwnerDied)
    {
        Repair(aIndexes);
    }
    return true;
}

/// The dead process may have changed an index and not set the event. Only an event that is true is set: a peer
/// that an event lets through does not look at the indexes again.
void SharedFifo::Repair(const Indexes& aIndexes) noexcept
{
    bool lIgnored = false; // the dead may have set the event and not woken anybody, so everybody is woken
    if (!aIndexes.IsEmpty())
    {
        CLSERZMO_VERIFY(mDataWrittenEvent.Raise(lIgnored), "::SetEvent( mDataWrittenEvent )");
        mDataWrittenEvent.Wake();
    }
    if (!aIndexes.IsFull())
    {
        CLSERZMO_VERIFY(mDataReadEvent.Raise(lIgnored), "::SetEvent( mDataReadEvent )");
        mDataReadEvent.Wake();
    }
}

void SharedFifo::Unlock() noexcept
{
    CLSERZMO_VERIFY(mMutex.Release(), "::ReleaseMutex( mMutex )");
}

/// Wakes after the lock: a sleeper woken under it would fall asleep at the lock at once.
void SharedFifo::Unlock(NamedEvent& aWake, bool aNeeded) noexcept
{
    Unlock();
    if (aNeeded)
    {
        aWake.Wake();
    }
}

/// Looks at the indexes without the lock. The answer may be old: the caller takes the lock and looks again before
/// it acts.
bool SharedFifo::Peek(Question aQuestion) const noexcept
{
    Indexes lIndexes;
    lIndexes.mSize = LoadWord(mHeader->mSize);
    lIndexes.mTail = LoadWord(mHeader->mTailIndex);
    lIndexes.mHead = LoadWord(mHeader->mHeadIndex);
    // A header without a size ends the sleep. The look under the lock refuses it then.
    return lIndexes.mSize != 0 && (lIndexes.*aQuestion)();
}

/// Sleeps until the event is set or the indexes have changed, then takes the lock.
/// \param aWhile  What is true of the indexes as long as there is reason to sleep.
/// \return False: time-out, stop, or no sound lock; the lock is not held.
bool SharedFifo::Sleep(NamedEvent& aEvent, Question aWhile, const KyPlatform::Deadline& aUntil,
                       const std::atomic<bool>* aStop, Indexes& aIndexes) noexcept
{
    while (aStop == nullptr || !*aStop)
    {
        const uint32_t lTime = aUntil.GetRemaining(cLookAgain);
        const WaitResult lResult = aEvent.WaitThenLock(mMutex, lTime, cLockTimeout);
        if (lResult != WaitResult::TimedOut)
        {
            return Enter(lResult, aIndexes);
        }
        if (!Peek(aWhile))
        {
            return Lock(aIndexes);
        }
        // The time ends after a look: a peer may have changed an index and died before it set the event.
        if (lTime == 0)
        {
            break;
        }
    }
    return false;
}

/// The FIFO is full and locked: lets the reader drain it and waits for that.
/// \param aAllStored  Nothing is left to store: it is enough that the reader has taken something.
/// \return False: time-out, stop, or no sound lock; the lock is not held.
bool SharedFifo::AwaitRoom(Indexes& aIndexes, bool aAllStored, uint32_t aTimeout,
                           const std::atomic<bool>* aStop) noexcept
{
    const KyPlatform::Deadline lUntil(aTimeout);
    do
    {
        // Both events change under the lock, so that they agree with the indexes. The reader learns that
        // there is something to read before this thread waits for room.
        bool lWake = false;
        if (!aIndexes.IsEmpty()) // a ring of one byte is both
        {
            CLSERZMO_VERIFY(mDataWrittenEvent.Raise(lWake), "::SetEvent( mDataWrittenEvent )");
        }
        CLSERZMO_VERIFY(mDataReadEvent.Reset(), "::ResetEvent( mDataReadEvent )");
        Unlock(mDataWrittenEvent, lWake);
        if (!Sleep(mDataReadEvent, &Indexes::IsFull, lUntil, aStop, aIndexes))
        {
            return false;
        }
        // Another thread may have filled it again before this one had the lock.
    } while (!aAllStored && aIndexes.IsFull());
    return true;
}

/// The FIFO is empty and locked: waits for the writer.
/// \return False: time-out, stop, or no sound lock; the lock is not held.
bool SharedFifo::AwaitData(Indexes& aIndexes, uint32_t aTimeout, const std::atomic<bool>* aStop) noexcept
{
    if (aTimeout == 0)
    {
        Unlock();
        return false;
    }
    const KyPlatform::Deadline lUntil(aTimeout);
    do
    {
        CLSERZMO_VERIFY(mDataWrittenEvent.Reset(), "::ResetEvent( mDataWrittenEvent )");
        Unlock();
        if (!Sleep(mDataWrittenEvent, &Indexes::IsEmpty, lUntil, aStop, aIndexes))
        {
            return false;
        }
        // Another thread may have taken the bytes before this one had the lock.
    } while (aIndexes.IsEmpty());
    return true;
}

/// Stores as many bytes as fit, in at most two runs.
uint32_t SharedFifo::Store(Indexes& aIndexes, const uint8_t* aData, uint32_t aSize) noexcept
{
    const uint32_t lCount = std::min(aSize, aIndexes.mSize - 1 - aIndexes.GetUsed());
    if (lCount == 0)
    {
        return 0;
    }
    const uint32_t lFirst = std::min(lCount, aIndexes.mSize - aIndexes.mHead);
    std::memcpy(mData + aIndexes.mHead, aData, lFirst);
    aIndexes.mHead += lFirst;
    if (aIndexes.mHead == aIndexes.mSize)
    {
        aIndexes.mHead = lCount - lFirst;
        std::memcpy(mData, aData + lFirst, lCount - lFirst);
    }
    StoreWord(mHeader->mHeadIndex, aIndexes.mHead);
    return lCount;
}

/// Takes up to aSize of the bytes that are waiting, in at most two runs.
uint32_t SharedFifo::Take(Indexes& aIndexes, uint8_t* aBuffer, uint32_t aSize) noexcept
{
    const uint32_t lCount = std::min(aSize, aIndexes.GetUsed());
    const uint32_t lFirst = std::min(lCount, aIndexes.mSize - aIndexes.mTail);
    std::memcpy(aBuffer, mData + aIndexes.mTail, lFirst);
    aIndexes.mTail += lFirst;
    if (aIndexes.mTail == aIndexes.mSize)
    {
        aIndexes.mTail = lCount - lFirst;
        std::memcpy(aBuffer + lFirst, mData, lCount - lFirst);
    }
    StoreWord(mHeader->mTailIndex, aIndexes.mTail);
    return lCount;
}

bool SharedFifo::Write(const void* aData, uint32_t aSize, uint32_t& aWritten, uint32_t aTimeout,
                       const std::atomic<bool>* aStop) noexcept
{
    aWritten = 0;
    if (!IsValid() || (aData == nullptr && aSize != 0))
    {
        return false;
    }
    // The time runs from before the lock, so that the wait for the lock counts too.
    TickTimer lTimer(aTimeout);
    const WaitResult lLock = mMutex.Wait(cLockTimeout);
    // A write of no bytes succeeds without the lock too: nothing is left to store.
    if (!IsOwned(lLock))
    {
        return aWritten == aSize;
    }
    Indexes lIndexes;
    if (!Enter(lLock, lIndexes))
    {
        return false;
    }
    const auto* const lData = static_cast<const uint8_t*>(aData);
    bool lTell = false;
    do
    {
        const uint32_t lStored = Store(lIndexes, lData + aWritten, aSize - aWritten);
        aWritten += lStored;
        lTell = lStored != 0;
        // A write that leaves the FIFO exactly full waits too, although every byte is stored: it
        // promises that the reader has taken some.
        if (lIndexes.IsFull() && (lStored != 0 || aWritten < aSize))
        {
            // AwaitRoom() sets the event itself.
            lTell = false;
            if (!AwaitRoom(lIndexes, aWritten == aSize, lTimer.GetRemaining(), aStop))
            {
                return false;
            }
        }
    } while (aWritten < aSize);
    bool lWake = false;
    if (lTell)
    {
        CLSERZMO_VERIFY(mDataWrittenEvent.Raise(lWake), "::SetEvent( mDataWrittenEvent )");
    }
    Unlock(mDataWrittenEvent, lWake);
    return true;
}

bool SharedFifo::Read(void* aBuffer, uint32_t aSize, uint32_t& aRead, uint32_t aTimeout,
                      const std::atomic<bool>* aStop) noexcept
{
    aRead = 0;
    Indexes lIndexes;
    if (aBuffer == nullptr || !IsValid() || !Lock(lIndexes) ||
        (lIndexes.IsEmpty() && !AwaitData(lIndexes, aTimeout, aStop)))
    {
        return false;
    }
    CLSERZMO_VERIFY(!lIndexes.IsEmpty(), "mHeader->mHeadIndex != mHeader->mTailIndex");
    // A call with size 0 takes one byte: clients rely on a byte per call.
    aRead = Take(lIndexes, static_cast<uint8_t*>(aBuffer), std::max(aSize, 1U));
    bool lWake = false;
    // Each read sets the event, not that of a full FIFO only: WaitUntilEmpty() sleeps at it too.
    CLSERZMO_VERIFY(mDataReadEvent.Raise(lWake), "::SetEvent( mDataReadEvent )");
    Unlock(mDataReadEvent, lWake);
    return aRead > 0;
}

bool SharedFifo::GetAvailable(uint32_t& aCount) noexcept
{
    aCount = 0;
    Indexes lIndexes;
    if (!IsValid() || !Lock(lIndexes))
    {
        return false;
    }
    aCount = lIndexes.GetUsed();
    Unlock();
    return true;
}

bool SharedFifo::Clear() noexcept
{
    // A valid FIFO is left alone: callers rely on that.
    if (IsValid() || !IsOwned(mMutex.Wait(cLockTimeout)))
    {
        return false;
    }
    if (mHeader != nullptr)
    {
        StoreWord(mHeader->mHeadIndex, 0);
        StoreWord(mHeader->mTailIndex, 0);
    }
    Unlock();
    return mHeader != nullptr;
}

bool SharedFifo::WaitUntilEmpty(uint32_t aTimeout) noexcept
{
    if (!IsValid())
    {
        return false;
    }
    TickTimer lTimer(aTimeout);
    uint32_t lElapsed = 0;
    while (lElapsed <= aTimeout)
    {
        const WaitResult lLock = mMutex.Wait(cLockTimeout);
        if (lLock == WaitResult::TimedOut)
        {
            continue; // its owner is stopped, not dead
        }
        Indexes lIndexes;
        if (!Enter(lLock, lIndexes))
        {
            return false;
        }
        Unlock();
        if (lIndexes.IsEmpty())
        {
            return true;
        }
        const uint32_t lLeft = lTimer.GetRemaining();
        lElapsed = aTimeout == KyPlatform::cInfinite ? 0 : lTimer.GetElapsed();
        if (mDataReadEvent.Wait(std::min(lLeft, cLookAgain)) == WaitResult::Done)
        {
            // Every read sets it and only a full FIFO resets it, so it says nothing about how much is left.
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return false;
}

} // namespace KySerialLib
