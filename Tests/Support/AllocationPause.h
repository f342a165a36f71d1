#pragma once

namespace KyTest
{

/// Above 0 while the calling thread runs test code that a counter of the library's allocations must not see.
inline thread_local int gAllocationPause = 0;

/// Keeps the calling thread's allocations out of AllocationCounter; may be nested.
class AllocationPause
{
public:
    AllocationPause() { ++gAllocationPause; }
    ~AllocationPause() { --gAllocationPause; }
    AllocationPause(const AllocationPause&) = delete;
    AllocationPause& operator=(const AllocationPause&) = delete;
};

} // namespace KyTest
