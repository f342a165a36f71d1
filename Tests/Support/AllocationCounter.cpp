#include "Support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(KYTEST_WRAPS_CALLOC)
#include "KyBase/KyPermanent.h"

#include <mutex>
#include <unordered_map>

// The linker directs calls of calloc() and free() to the functions named __wrap_*, at the end of this file, and
// offers the functions of the C library under the names __real_*.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" void* __real_calloc(size_t aCount, size_t aSize);
extern "C" void __real_free(void* aMemory);
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace
{

constexpr size_t cHead = 16; // in front of each block: keeps the block's size and its alignment

std::atomic<int64_t> gBytes{0};
std::atomic<int64_t> gMostBytes{0};

void AddBytes(size_t aSize) noexcept
{
    const int64_t lBytes = gBytes += static_cast<int64_t>(cHead + aSize);
    for (int64_t lMost = gMostBytes; lMost < lBytes && !gMostBytes.compare_exchange_weak(lMost, lBytes);)
    {
    }
}

thread_local bool gCounting = false;
thread_local int gCount = 0;
thread_local int gLeft = 0;
thread_local int gFailing = 0;

thread_local bool gIsOther = true;
std::atomic<bool> gCountingOthers{false};
std::atomic<int> gOthersCount{0};
std::atomic<int> gOthersFailing{0};

bool IsOtherRefused() noexcept
{
    return gCountingOthers && gIsOther && KyTest::gAllocationPause == 0 && ++gOthersCount == gOthersFailing;
}

bool IsRefused() noexcept
{
    return gCounting && KyTest::gAllocationPause == 0 && ++gCount == gFailing;
}

void* Allocate(size_t aSize) noexcept
{
    if (IsOtherRefused() || IsRefused())
    {
        return nullptr;
    }
    auto* const lHead = static_cast<uint8_t*>(std::malloc(cHead + aSize));
    if (lHead == nullptr)
    {
        return nullptr;
    }
    gLeft += gCounting ? 1 : 0;
    AddBytes(aSize);
    std::memcpy(lHead, &aSize, sizeof aSize);
    return lHead + cHead;
}

#if defined(KYTEST_WRAPS_CALLOC)
constexpr bool cCountsCalloc = true;
constexpr auto cFree = &__real_free;
#else
constexpr bool cCountsCalloc = false;
constexpr auto cFree = &std::free;
#endif

void Release(void* aMemory) noexcept
{
    if (aMemory == nullptr)
    {
        return;
    }
    uint8_t* const lHead = static_cast<uint8_t*>(aMemory) - cHead;
    size_t lSize = 0;
    std::memcpy(&lSize, lHead, sizeof lSize);
    gLeft -= gCounting ? 1 : 0;
    gBytes -= static_cast<int64_t>(cHead + lSize);
    cFree(lHead);
}

void* AllocateOrThrow(size_t aSize)
{
    void* const lMemory = Allocate(aSize);
    if (lMemory == nullptr)
    {
        throw std::bad_alloc();
    }
    return lMemory;
}

} // namespace

namespace KyTest
{

AllocationCounter::AllocationCounter(int aFailing)
{
    gCount = 0;
    gLeft = 0;
    gFailing = aFailing;
    gCounting = true;
}

AllocationCounter::~AllocationCounter()
{
    gCounting = false;
}

bool AllocationCounter::CountsCalloc()
{
    return cCountsCalloc;
}

int AllocationCounter::GetCount()
{
    return gCount;
}

int AllocationCounter::GetLeft()
{
    return gLeft;
}

OtherThreadsAllocations::OtherThreadsAllocations(int aFailing)
{
    gIsOther = false;
    gOthersCount = 0;
    gOthersFailing = aFailing;
    gCountingOthers = true;
}

OtherThreadsAllocations::~OtherThreadsAllocations()
{
    gCountingOthers = false;
    gIsOther = true;
}

int OtherThreadsAllocations::GetCount()
{
    return gOthersCount;
}

int64_t GetAllocatedBytes()
{
    return gBytes;
}

int64_t GetMostBytes()
{
    return gMostBytes;
}

void ForgetMostBytes()
{
    gMostBytes = gBytes.load();
}

} // namespace KyTest

// The whole set, so that no form of delete meets memory of another form of new.

void* operator new(size_t aSize)
{
    return AllocateOrThrow(aSize);
}
void* operator new[](size_t aSize)
{
    return AllocateOrThrow(aSize);
}
void* operator new(size_t aSize, const std::nothrow_t& /*aTag*/) noexcept
{
    return Allocate(aSize);
}
void* operator new[](size_t aSize, const std::nothrow_t& /*aTag*/) noexcept
{
    return Allocate(aSize);
}
void operator delete(void* aMemory) noexcept
{
    Release(aMemory);
}
void operator delete[](void* aMemory) noexcept
{
    Release(aMemory);
}
void operator delete(void* aMemory, size_t /*aSize*/) noexcept
{
    Release(aMemory);
}
void operator delete[](void* aMemory, size_t /*aSize*/) noexcept
{
    Release(aMemory);
}
void operator delete(void* aMemory, const std::nothrow_t& /*aTag*/) noexcept
{
    Release(aMemory);
}
void operator delete[](void* aMemory, const std::nothrow_t& /*aTag*/) noexcept
{
    Release(aMemory);
}

#if defined(KYTEST_WRAPS_CALLOC)

namespace
{

// Blocks of calloc() with their sizes. Never destroyed: memory is freed until the program's very end.
struct ClearedBlocks
{
    std::mutex mMutex;
    std::unordered_map<void*, size_t> mSizes;
};

ClearedBlocks& GetClearedBlocks()
{
    static KyPermanent<ClearedBlocks> sBlocks;
    return sBlocks.Get();
}

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" void* __wrap_calloc(size_t aCount, size_t aSize)
{
    void* const lMemory = IsRefused() ? nullptr : __real_calloc(aCount, aSize);
    if (lMemory != nullptr)
    {
        const KyTest::AllocationPause lPause;
        const std::lock_guard<std::mutex> lLock(GetClearedBlocks().mMutex);
        GetClearedBlocks().mSizes[lMemory] = aCount * aSize;
        AddBytes(aCount * aSize);
    }
    return lMemory;
}

extern "C" void __wrap_free(void* aMemory)
{
    {
        const std::lock_guard<std::mutex> lLock(GetClearedBlocks().mMutex);
        const auto lFound = GetClearedBlocks().mSizes.find(aMemory);
        if (lFound != GetClearedBlocks().mSizes.end())
        {
            gBytes -= static_cast<int64_t>(cHead + lFound->second);
            GetClearedBlocks().mSizes.erase(lFound);
        }
    }
    __real_free(aMemory);
}
// NOLINTEND(bugprone-reserved-identifier)

#endif
