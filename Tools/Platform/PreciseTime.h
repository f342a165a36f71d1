#pragma once

#include <chrono>

namespace KyToolPlatform
{

/// The time of day as finely as the system knows it: Linux nanoseconds, Windows 100 ns. The C++ library's clock on Windows may go
/// on with the system's tick only, every 16 ms. Any thread.
std::chrono::system_clock::time_point PreciseTime() noexcept;

} // namespace KyToolPlatform
