#pragma once

#include <cstdint>

namespace KySerialLib
{

/// Measures a time-out by the system's 32-bit count of milliseconds. The count wraps after 49.7 days; a time
/// that spans the wrap counts as begun when that is noticed.
class TickTimer
{
public:
    /// Where the milliseconds come from.
    using Source = uint32_t (*)();

    /// Starts now.
    /// \param aTimeout  Milliseconds; 0xFFFFFFFF has no end.
    explicit TickTimer(uint32_t aTimeout) noexcept;

    /// Milliseconds since the start; 0 when the count has wrapped. Of no meaning for a time-out without end.
    uint32_t GetElapsed() noexcept;

    /// Milliseconds left of the time-out; 0xFFFFFFFF of one without end.
    uint32_t GetRemaining() noexcept;

    /// Replaces the count for the whole process; null restores the system's. For tests of the wrap.
    static void SetSource(Source aSource) noexcept;

private:
    const uint32_t mTimeout;
    uint32_t mStart;
};

} // namespace KySerialLib
