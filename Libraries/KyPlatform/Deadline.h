#pragma once

#include "KyPlatform/WaitResult.h"

#include <chrono>
#include <compare>
#include <cstdint>

namespace KyPlatform
{

/// The end of a wait, on a clock that nobody sets. The earlier of two is the smaller one.
class Deadline
{
public:
    /// \param aTimeout  Milliseconds from now; cInfinite has no end, and reads no clock.
    explicit Deadline(uint64_t aTimeout) noexcept;

    /// \param aTimeout  From now, to the nanosecond; a negative one has no end, and reads no clock.
    explicit Deadline(std::chrono::nanoseconds aTimeout) noexcept;

    // NOLINTNEXTLINE(readability-identifier-naming): "cmp" is a variable that the compiler makes here
    friend auto operator<=>(const Deadline&, const Deadline&) noexcept = default;

    bool IsEndless() const noexcept { return mEnd == cNever; }

    /// Milliseconds left, rounded up; 0 when the time is over, cInfinite without end.
    /// \param aMost  More than this is not returned.
    uint32_t GetRemaining(uint32_t aMost = cInfinite) const noexcept;

    /// Time left, to the nanosecond; 0 when the time is over, negative without end.
    std::chrono::nanoseconds GetTimeLeft() const noexcept;

    bool IsOver() const noexcept { return GetTimeLeft().count() == 0; }

    /// Where the time comes from, in nanoseconds.
    using Clock = uint64_t (*)();

    /// Replaces the clock for all of the process. For tests. \param aClock  Null restores the system's.
    static void SetClock(Clock aClock) noexcept;

private:
    static constexpr uint64_t cNever = ~uint64_t{0};

    uint64_t mEnd; // nanoseconds
};

} // namespace KyPlatform
