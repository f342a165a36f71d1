#pragma once

#include "KyPlatform/Deadline.h"
#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace KySerialLib
{

/// What every process finds at the start of a FIFO's section; the ring of mSize bytes follows.
struct SharedFifoHeader
{
    uint32_t mSize;      ///< Bytes of the ring.
    uint32_t mTailIndex; ///< Next byte to read.
    uint32_t mHeadIndex; ///< Next byte to write.
    uint32_t mReserved;  ///< Never written.
};

static_assert(offsetof(SharedFifoHeader, mSize) == 0 && offsetof(SharedFifoHeader, mTailIndex) == 4 &&
              offsetof(SharedFifoHeader, mHeadIndex) == 8 && offsetof(SharedFifoHeader, mReserved) == 12 &&
              sizeof(SharedFifoHeader) == 16);

/// A one-way queue of bytes between two processes: a ring in shared memory, a named lock, and two named
/// events that report to the other side that something was written or read.
///
/// It is empty when head and tail are equal and full when head is one before tail, so that at most mSize - 1
/// bytes are waiting. Made for one writing and one reading process, each with any number of threads. The
/// indexes change under the lock only, and nobody waits for an event while holding it.
///
/// What the section holds is not trusted: every operation looks at the header under the lock and refuses to
/// work with one that makes no sense. A process that dies in the middle of anything leaves the others a
/// working FIFO: the next owner of a dead process's lock sets the events anew, and no sleeper goes longer than 50
/// ms without a look at the indexes.
///
/// States: valid or not, from construction on. An invalid one fails at everything.
/// Threads: every operation by any thread.
class SharedFifo
{
public:
    /// Opens the objects of a FIFO, or makes those that do not exist. May wait 5000 ms for the lock.
    /// \param aName      Base name; the objects' names are aPrefix, aName and "Memory", "Mutex", "WriteEvent"
    ///                   and "ReadEvent".
    /// \param aPrefix    "Local\" or "Session\<number>\"; see SharedRegistry::GetPrefix().
    /// \param aCapacity  Bytes of the ring of a new section; an existing one keeps its own.
    /// \param aCreate    False opens only, and leaves an invalid FIFO when there is nothing to open.
    /// Throws std::bad_alloc only.
    SharedFifo(const std::string& aName, const std::string& aPrefix, uint32_t aCapacity, bool aCreate);
    ~SharedFifo();
    SharedFifo(const SharedFifo&) = delete;
    SharedFifo& operator=(const SharedFifo&) = delete;

    /// Whether the section is mapped and all objects are open.
    bool IsValid() const noexcept;

    /// Writes bytes, waiting for room as often as it takes.
    ///
    /// A write that leaves the FIFO exactly full waits for the reader before it returns. When the reader
    /// takes nothing in time the result is false, although every byte is stored: aWritten says so.
    /// \param aData     aSize bytes; may be null if aSize is 0.
    /// \param aWritten  Receives the bytes stored, on failure too.
    /// \param aTimeout  Milliseconds in all that it may wait for room; 0xFFFFFFFF has no end.
    /// \param aStop     Once true, ends the wait for room as its time-out does, at most 50 ms later; null:
    ///                  nothing does.
    /// \return True: every byte is stored. False: time-out, lock not to be had in 5000 ms, invalid.
    bool Write(const void* aData, uint32_t aSize, uint32_t& aWritten, uint32_t aTimeout,
               const std::atomic<bool>* aStop = nullptr) noexcept;

    /// Takes the bytes that are waiting, waiting itself only for the first.
    /// \param aBuffer   Room for aSize bytes, and at least for one: a call with aSize 0 takes one byte.
    /// \param aRead     Receives the bytes taken; 0 on failure.
    /// \param aTimeout  Milliseconds to wait for the first byte; 0 does not wait, 0xFFFFFFFF has no end.
    /// \param aStop     As in Write().
    /// \return True: one byte or more. False: none in time, lock not to be had in 5000 ms, invalid, aBuffer
    /// null.
    bool Read(void* aBuffer, uint32_t aSize, uint32_t& aRead, uint32_t aTimeout,
              const std::atomic<bool>* aStop = nullptr) noexcept;

    /// \param aCount  Receives the bytes waiting; 0 on failure.
    /// \return False: lock not to be had in 5000 ms, invalid.
    bool GetAvailable(uint32_t& aCount) noexcept;

    /// Empties a FIFO that is not valid. On a valid one it does nothing and returns false; callers rely on
    /// that.
    bool Clear() noexcept;

    /// Waits until the FIFO is empty.
    /// \param aTimeout  Milliseconds; 0 only looks, 0xFFFFFFFF has no end. A lock that is held by a stopped
    ///                  process is waited for beyond it.
    /// \return True: it was seen empty.
    bool WaitUntilEmpty(uint32_t aTimeout) noexcept;

private:
    /// The header as it was found under the lock, checked.
    struct Indexes
    {
        uint32_t mSize = 0;
        uint32_t mTail = 0;
        uint32_t mHead = 0;

        bool IsEmpty() const noexcept { return mHead == mTail; }
        /// Whether head is one before tail. Compared, since a division takes as long as the rest of a short write.
        bool IsFull() const noexcept { return mHead == (mTail == 0 ? mSize : mTail) - 1; }
        uint32_t GetUsed() const noexcept { return mHead >= mTail ? mHead - mTail : mSize - mTail + mHead; }
    };
    using Question = bool (Indexes::*)() const noexcept;

    void OpenSection(const std::string& aName, uint32_t aCapacity, bool aCreate);
    bool MakeSound(uint32_t aCapacity, bool aCreate, bool aNew, bool aOwnerDied) noexcept;
    void Initialise(uint32_t aCapacity) noexcept;
    bool Load(Indexes& aIndexes) noexcept;
    bool Lock(Indexes& aIndexes) noexcept;
    bool Enter(KyPlatform::WaitResult aLock, Indexes& aIndexes) noexcept;
    void Repair(const Indexes& aIndexes) noexcept;
    void Unlock() noexcept;
    void Unlock(KyPlatform::NamedEvent& aWake, bool aNeeded) noexcept;
    bool Peek(Question aQuestion) const noexcept;
    bool Sleep(KyPlatform::NamedEvent& aEvent, Question aWhile, const KyPlatform::Deadline& aUntil,
               const std::atomic<bool>* aStop, Indexes& aIndexes) noexcept;
    bool AwaitRoom(Indexes& aIndexes, bool aAllStored, uint32_t aTimeout,
                   const std::atomic<bool>* aStop) noexcept;
    bool AwaitData(Indexes& aIndexes, uint32_t aTimeout, const std::atomic<bool>* aStop) noexcept;
    uint32_t Store(Indexes& aIndexes, const uint8_t* aData, uint32_t aSize) noexcept;
    uint32_t Take(Indexes& aIndexes, uint8_t* aBuffer, uint32_t aSize) noexcept;

    // In the order of making; the section goes first, then the others from the last on.
    KyPlatform::NamedMutex mMutex;
    KyPlatform::NamedEvent mDataWrittenEvent;
    KyPlatform::NamedEvent mDataReadEvent;
    KyPlatform::SharedMemory mMemory;
    SharedFifoHeader* mHeader = nullptr;
    uint8_t* mData = nullptr;
    uint32_t mCapacity = 0; // mSize of the first header that made sense; under mMutex
};

} // namespace KySerialLib
