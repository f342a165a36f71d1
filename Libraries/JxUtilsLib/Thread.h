#pragma once

#include "JxUtilsLib/Export.h"

#include <cstdint>

namespace JxUtilsLib
{

/// What a thread asks of the system's clock.
class Thread
{
public:
    Thread() = delete;

    /// Blocks the calling thread for at least aMilliseconds; 0 only offers the processor to others.
    JXUTILSLIB_API static void Sleep(uint32_t aMilliseconds) noexcept;

    /// Milliseconds of a clock that only moves forward and that nobody sets; where it starts is unspecified.
    JXUTILSLIB_API static uint64_t GetTickCount() noexcept;
};

} // namespace JxUtilsLib
