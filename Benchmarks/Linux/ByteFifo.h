#pragma once

#include <cstddef>
#include <cstdint>
#include <pthread.h>

/// The queue that one would write first: one lock an operation, byte by byte with the remainder of a division
/// for each index, and two events that each operation sets under the lock, needed or not. It has the lock
/// that the product has, and must have, since a process may die: one that survives its owner and may be taken
/// twice. An event is a word that is set, and everybody who sleeps at it is woken. A peer to be measured
/// beside the product, not a part of it.
///
/// To be made before the fork.
class ByteFifo
{
public:
    explicit ByteFifo(uint32_t aCapacity);
    ~ByteFifo();
    ByteFifo(const ByteFifo&) = delete;
    ByteFifo& operator=(const ByteFifo&) = delete;

    void Write(const void* aData, size_t aSize);
    size_t Read(void* aBuffer, size_t aSize);

private:
    struct Event
    {
        uint32_t mIsSet;

        void Set();
        void Reset();
        void Wait();
    };
    struct Section
    {
        pthread_mutex_t mMutex;
        Event mWritten;
        Event mTaken;
        volatile uint32_t mSize;
        volatile uint32_t mTail;
        volatile uint32_t mHead;
    };

    void WaitFor(Event& aEvent);

    const size_t mBytes;
    Section* mSection = nullptr;
    volatile uint8_t* mData = nullptr;
};
