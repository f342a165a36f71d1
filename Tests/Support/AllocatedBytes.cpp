#include "Support/AllocatedBytes.h"

#include "KyBase/KyPermanent.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <unordered_map>

#if defined(KYTEST_WRAPS_CALLOC)
// The linker leads calls of calloc() and free() to the functions that begin with __wrap_, which are below.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" void* __real_calloc(size_t aCount, size_t aSize);
extern "C" void __real_free(void* aMemory);
// NOLINTEND(bugprone-reserved-identifier)
#endif

namespace
{

constexpr size_t cHead = 16; // in front of each block, keeps its size and the alignment

std::atomic<int64_t> gBytes{0};

void* Allocate(size_t aSize) noexcept
{
    auto* const lHead = static_cast<uint8_t*>(std::malloc(cHead + aSize));
    if (lHead == nullptr)
    {
        return nullptr;
    }
    std::memcpy(lHead, &aSize, sizeof aSize);
    gBytes += static_cast<int64_t>(cHead + aSize);
    return lHead + cHead;
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

void FreeForReal(void* aMemory) noexcept
{
#if defined(KYTEST_WRAPS_CALLOC)
    __real_free(aMemory);
#else
    std::free(aMemory);
#endif
}

void Release(void* aMemory) noexcept
{
    if (aMemory == nullptr)
    {
        return;
    }
    uint8_t* const lHead = static_cast<uint8_t*>(aMemory) - cHead;
    size_t lSize = 0;
    std::memcpy(&lSize, lHead, sizeof lSize);
    gBytes -= static_cast<int64_t>(cHead + lSize);
    FreeForReal(lHead);
}

} // namespace

int64_t KyTest::GetAllocatedBytes()
{
    return gBytes;
}

#if defined(KYTEST_WRAPS_CALLOC)

namespace
{

// Blocks of calloc() with their sizes. Never destroyed: the program's end frees, too.
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
    void* const lMemory = __real_calloc(aCount, aSize);
    if (lMemory != nullptr)
    {
        const std::lock_guard<std::mutex> lLock(GetClearedBlocks().mMutex);
        GetClearedBlocks().mSizes[lMemory] = aCount * aSize;
        gBytes += static_cast<int64_t>(cHead + aCount * aSize);
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
