#include "Benchmarks/Linux/ByteFifo.h"

#include <stdexcept>

namespace
{

void Signal(KyPlatform::NamedEvent& aEvent)
{
    bool lWake = false;
    aEvent.Raise(lWake);
    aEvent.Wake();
}

} // namespace

ByteFifo::ByteFifo(const std::string& aName, uint32_t aCapacity)
{
    bool lNew = false;
    if (!mMutex.Create("Local\\" + aName + "M") || !mWritten.Create("Local\\" + aName + "W") ||
        !mTaken.Create("Local\\" + aName + "R") ||
        !mMemory.Create("Local\\" + aName + "S", sizeof(Header) + aCapacity, lNew))
    {
        throw std::runtime_error("no byte queue");
    }
    mHeader = static_cast<Header*>(mMemory.GetBase());
    mData = static_cast<uint8_t*>(mMemory.GetBase()) + sizeof(Header);
    mHeader->mSize = aCapacity;
}

void ByteFifo::Lock()
{
    if (!KyPlatform::IsOwned(mMutex.Wait(KyPlatform::cInfinite)))
    {
        throw std::runtime_error("no lock");
    }
}

void ByteFifo::WaitFor(KyPlatform::NamedEvent& aEvent)
{
    aEvent.Reset();
    mMutex.Release();
    static_cast<void>(aEvent.Wait(KyPlatform::cInfinite)); // who comes back looks again
    Lock();
}

void ByteFifo::Write(const void* aData, size_t aSize)
{
    const auto* const lData = static_cast<const uint8_t*>(aData);
    Lock();
    for (size_t lDone = 0; lDone < aSize; ++lDone)
    {
        while ((mHeader->mHead + 1) % mHeader->mSize == mHeader->mTail)
        {
            Signal(mWritten);
            WaitFor(mTaken);
        }
        mData[mHeader->mHead] = lData[lDone];
        mHeader->mHead = (mHeader->mHead + 1) % mHeader->mSize;
    }
    Signal(mWritten);
    mMutex.Release();
}

size_t ByteFifo::Read(void* aBuffer, size_t aSize)
{
    auto* const lBuffer = static_cast<uint8_t*>(aBuffer);
    size_t lDone = 0;
    Lock();
    while (mHeader->mHead == mHeader->mTail)
    {
        WaitFor(mWritten);
    }
    while (lDone < aSize && mHeader->mHead != mHeader->mTail)
    {
        lBuffer[lDone++] = mData[mHeader->mTail];
        mHeader->mTail = (mHeader->mTail + 1) % mHeader->mSize;
    }
    Signal(mTaken);
    mMutex.Release();
    return lDone;
}
