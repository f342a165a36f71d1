#pragma once

#include "KyPlatform/NamedEvent.h"
#include "KyPlatform/NamedMutex.h"
#include "KyPlatform/SharedMemory.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// The queue that one would write first: under the lock byte by byte, and each operation sets its event and
/// wakes whoever waits, needed or not. A peer to be measured beside the product, not a part of it.
class ByteFifo
{
public:
    ByteFifo(const std::string& aName, uint32_t aCapacity);

    void Write(const void* aData, size_t aSize);
    size_t Read(void* aBuffer, size_t aSize);

private:
    struct Header
    {
        volatile uint32_t mSize;
        volatile uint32_t mTail;
        volatile uint32_t mHead;
    };

    void Lock();
    void WaitFor(KyPlatform::NamedEvent& aEvent);

    KyPlatform::NamedMutex mMutex;
    KyPlatform::NamedEvent mWritten;
    KyPlatform::NamedEvent mTaken;
    KyPlatform::SharedMemory mMemory;
    Header* mHeader = nullptr;
    volatile uint8_t* mData = nullptr;
};
