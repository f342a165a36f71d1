#include "Platform/PreciseTime.h"

namespace KyToolPlatform
{

std::chrono::system_clock::time_point PreciseTime() noexcept
{
    return std::chrono::system_clock::now();
}

} // namespace KyToolPlatform
