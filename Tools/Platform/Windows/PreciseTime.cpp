#include "Platform/PreciseTime.h"

#include <cstdint>
#include <ratio>

#include <windows.h>

namespace KyToolPlatform
{

std::chrono::system_clock::time_point PreciseTime() noexcept
{
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
    constexpr int64_t c1970 = 116444736000000000; // ticks since 1601
    FILETIME lTime{};
    ::GetSystemTimePreciseAsFileTime(&lTime);
    const auto lTicks =
        static_cast<int64_t>(static_cast<uint64_t>(lTime.dwHighDateTime) << 32U | lTime.dwLowDateTime);
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(Ticks(lTicks - c1970)));
}

} // namespace KyToolPlatform
