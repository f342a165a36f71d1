#pragma once

#include "KyPlatform/SharedMemory.h"
#include "clserzmo/sharedfifo.h"

#include <atomic>
#include <string>

namespace KyTest
{

/// A FIFO of this session as it lies in memory. Takes no lock: that would mend what a dead owner has left, and wake
/// sleepers.
class RingView
{
public:
    explicit RingView(const std::string& aName) { mMemory.Open("Local\\" + aName + "Memory"); }

    bool IsValid() const { return mMemory.IsValid(); }
    bool HasCapacity(uint64_t aSize) const
    {
        return mMemory.HasSizeOf(aSize + sizeof(KySerialLib::SharedFifoHeader));
    }
    bool IsEmpty() const { return GetHead() == GetTail(); }
    bool IsFull() const { return (GetHead() + 1) % GetHeader().mSize == GetTail(); }

    KySerialLib::SharedFifoHeader& GetHeader() const
    {
        return *static_cast<KySerialLib::SharedFifoHeader*>(mMemory.GetBase());
    }
    uint8_t* GetBytes() const { return static_cast<uint8_t*>(mMemory.GetBase()); } ///< From the header on.
    uint32_t GetHead() const { return std::atomic_ref<uint32_t>(GetHeader().mHeadIndex).load(); }
    uint32_t GetTail() const { return std::atomic_ref<uint32_t>(GetHeader().mTailIndex).load(); }

    /// Lets an empty ring begin elsewhere.
    void Move(uint32_t aPlace) const { GetHeader().mTailIndex = GetHeader().mHeadIndex = aPlace; }

private:
    KyPlatform::SharedMemory mMemory;
};

} // namespace KyTest
