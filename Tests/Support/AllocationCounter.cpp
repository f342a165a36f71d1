#include "Support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

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

void* Allocate(size_t aSize) noexcept
{
    if (IsOtherRefused())
    {
        return nullptr;
    }
    if (gCounting && KyTest::gAllocationPause == 0 && ++gCount == gFailing)
    {
        return nullptr;
    }
    gLeft += gCounting ? 1 : 0;
    return std::malloc(aSize > 0 ? aSize : 1);
}

void Release(void* aMemory) noexcept
{
    gLeft -= gCounting && aMemory != nullptr ? 1 : 0;
    std::free(aMemory);
}

#if defined(KYTEST_WRAPS_CALLOC)
constexpr bool cCountsCalloc = true;
#else
constexpr bool cCountsCalloc = false;
#endif

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
// The linker's names for the function that it puts in the place of another, and for that other one.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __real_calloc(size_t aCount, size_t aSize);
extern "C" void* __wrap_calloc(size_t aCount, size_t aSize)
{
    if (gCounting && KyTest::gAllocationPause == 0 && ++gCount == gFailing)
    {
        return nullptr;
    }
    return __real_calloc(aCount, aSize);
}
// NOLINTEND(bugprone-reserved-identifier)
#endif
