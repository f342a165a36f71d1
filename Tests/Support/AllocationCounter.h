#pragma once

#include "Support/AllocationPause.h"

#include <cstdint>

namespace KyTest
{

/// Counts the calling thread's allocations with operator new, and those with calloc() where CountsCalloc(),
/// from construction to destruction, and can let one of them fail. Only in a program that compiles
/// AllocationCounter.cpp; one at a time on a thread.
///
/// Test code that allocates in between stands under an AllocationPause.
class AllocationCounter
{
public:
    /// \param aFailing  The number, from 1, of the allocation that finds no memory; 0 for none.
    explicit AllocationCounter(int aFailing = 0);
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    /// Allocations so far, the failed one included.
    static int GetCount();

    /// Allocations with operator new less deletions so far, those under an AllocationPause included.
    static int GetLeft();

    /// Whether calls of calloc() count: where the linker leads them to another function.
    static bool CountsCalloc();
};

/// The same for all threads but the one that makes it. One at a time.
class OtherThreadsAllocations
{
public:
    /// \param aFailing  The number, from 1, of the allocation that finds no memory; 0 for none.
    explicit OtherThreadsAllocations(int aFailing);
    ~OtherThreadsAllocations();
    OtherThreadsAllocations(const OtherThreadsAllocations&) = delete;
    OtherThreadsAllocations& operator=(const OtherThreadsAllocations&) = delete;

    static int GetCount();
};

/// Bytes that the process holds now from operator new, and from calloc() where CountsCalloc(), with 16 more
/// for each block, which is about what the system's allocator adds. Any thread.
int64_t GetAllocatedBytes();

/// The most that GetAllocatedBytes() was since ForgetMostBytes(). Any thread.
int64_t GetMostBytes();
void ForgetMostBytes();

} // namespace KyTest
