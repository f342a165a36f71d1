#pragma once

#include "KyPlatform/SharedMemory.h"
#include "sharedfifo.h"

#include <atomic>
#include <string>

/// A FIFO as it lies in memory. Takes no lock: that would mend what a dead owner has left, and wake those who
/// sleep.
class RingView
{
public:
    /// \param aName  Of the FIFO, with its prefix.
    explicit RingView(const std::string& aName) { mMemory.Open(aName + "Memory"); }

    bool IsValid() const { return mMemory.IsValid(); }
    bool IsEmpty() const { return GetHead() == GetTail(); }
    bool IsFull() const { return (GetHead() + 1) % GetHeader().mSize == GetTail(); }

    /// Lets an empty ring begin elsewhere.
    void Move(uint32_t aPlace) const { GetHeader().mTailIndex = GetHeader().mHeadIndex = aPlace; }

private:
    KySerialLib::SharedFifoHeader& GetHeader() const
    {
        return *static_cast<KySerialLib::SharedFifoHeader*>(mMemory.GetBase());
    }
    uint32_t GetHead() const { return std::atomic_ref<uint32_t>(GetHeader().mHeadIndex).load(); }
    uint32_t GetTail() const { return std::atomic_ref<uint32_t>(GetHeader().mTailIndex).load(); }

    KyPlatform::SharedMemory mMemory;
};
