#pragma once

#include <cstdint>

namespace KyTest
{

/// Bytes that the process holds now from operator new, and from calloc() where the linker leads calls to the
/// functions of AllocatedBytes.cpp, with 16 more for each block, which is about what the system's allocator
/// adds. Only in a program that compiles AllocatedBytes.cpp. Any thread.
int64_t GetAllocatedBytes();

} // namespace KyTest
