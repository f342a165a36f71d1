#pragma once

#include <chrono>

/// Measures how long something took that other processes' use of the machine may have held up.
///
/// The time in which a thread of this process was ready to run and another process had the processor does not
/// count. What else holds a process up, as a machine that stands still, does.
class UndisturbedTimer
{
public:
    UndisturbedTimer();

    /// Since it was made. Never more than the time on the wall.
    std::chrono::milliseconds GetElapsed() const;

    /// Whether more than aBound has passed. Cheaper than GetElapsed() as long as it has not.
    bool IsOver(std::chrono::milliseconds aBound) const;

private:
    using Clock = std::chrono::steady_clock;

    static std::chrono::nanoseconds GetHeldUp();

    Clock::time_point mStart;
    std::chrono::nanoseconds mHeldUp;
};
