#include "Benchmarks/Linux/ByteFifo.h"

#include <atomic>
#include <climits>
#include <linux/futex.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

long Futex(uint32_t* aWord, int aOperation, uint32_t aValue)
{
    return ::syscall(SYS_futex, aWord, aOperation, aValue, nullptr, nullptr, 0);
}

void MakeMutex(pthread_mutex_t& aMutex)
{
    pthread_mutexattr_t lKind;
    ::pthread_mutexattr_init(&lKind);
    ::pthread_mutexattr_setpshared(&lKind, PTHREAD_PROCESS_SHARED);
    ::pthread_mutexattr_setrobust(&lKind, PTHREAD_MUTEX_ROBUST);
    ::pthread_mutexattr_settype(&lKind, PTHREAD_MUTEX_RECURSIVE);
    ::pthread_mutex_init(&aMutex, &lKind);
    ::pthread_mutexattr_destroy(&lKind);
}

} // namespace

void ByteFifo::Event::Set()
{
    std::atomic_ref<uint32_t>(mIsSet).store(1);
    Futex(&mIsSet, FUTEX_WAKE, INT_MAX);
}

void ByteFifo::Event::Reset()
{
    std::atomic_ref<uint32_t>(mIsSet).store(0);
}

void ByteFifo::Event::Wait()
{
    while (std::atomic_ref<uint32_t>(mIsSet).load() == 0)
    {
        Futex(&mIsSet, FUTEX_WAIT, 0);
    }
}

ByteFifo::ByteFifo(uint32_t aCapacity) : mBytes(sizeof(Section) + aCapacity)
{
    void* const lBase = ::mmap(nullptr, mBytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (lBase == MAP_FAILED)
    {
        throw std::runtime_error("no byte queue");
    }
    mSection = static_cast<Section*>(lBase);
    mData = static_cast<uint8_t*>(lBase) + sizeof(Section);
    MakeMutex(mSection->mMutex);
    mSection->mSize = aCapacity;
}

ByteFifo::~ByteFifo()
{
    ::munmap(mSection, mBytes);
}

void ByteFifo::WaitFor(Event& aEvent)
{
    aEvent.Reset();
    ::pthread_mutex_unlock(&mSection->mMutex);
    aEvent.Wait(); // a thread that comes back looks again
    ::pthread_mutex_lock(&mSection->mMutex);
}

void ByteFifo::Write(const void* aData, size_t aSize)
{
    const auto* const lData = static_cast<const uint8_t*>(aData);
    ::pthread_mutex_lock(&mSection->mMutex);
    for (size_t lDone = 0; lDone < aSize; ++lDone)
    {
        while ((mSection->mHead + 1) % mSection->mSize == mSection->mTail)
        {
            mSection->mWritten.Set();
            WaitFor(mSection->mTaken);
        }
        mData[mSection->mHead] = lData[lDone];
        mSection->mHead = (mSection->mHead + 1) % mSection->mSize;
    }
    mSection->mWritten.Set();
    ::pthread_mutex_unlock(&mSection->mMutex);
}

size_t ByteFifo::Read(void* aBuffer, size_t aSize)
{
    auto* const lBuffer = static_cast<uint8_t*>(aBuffer);
    size_t lDone = 0;
    ::pthread_mutex_lock(&mSection->mMutex);
    while (mSection->mHead == mSection->mTail)
    {
        WaitFor(mSection->mWritten);
    }
    while (lDone < aSize && mSection->mHead != mSection->mTail)
    {
        lBuffer[lDone++] = mData[mSection->mTail];
        mSection->mTail = (mSection->mTail + 1) % mSection->mSize;
    }
    mSection->mTaken.Set();
    ::pthread_mutex_unlock(&mSection->mMutex);
    return lDone;
}
