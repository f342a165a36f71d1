#pragma once

#include <chrono>
#include <functional>

namespace KySimulator
{

/// Simulated time: nanoseconds since the scheduler was made.
using Time = std::chrono::nanoseconds;

/// "Never", as the time of the next thing to do.
constexpr Time cNever = Time::max();

/// The clock of a simulated camera, and the hand that calls it when a time has come.
///
/// RealScheduler follows the wall clock; ManualScheduler stands still until a test moves it.
class Scheduler
{
public:
    virtual ~Scheduler() = default;

    /// Time now. Any thread.
    virtual Time Now() const = 0;

    /// Has aAction called once, at aTime or as soon after it as possible, without any lock held. Actions of
    /// the same time run in the order in which they were given. Any thread, also from inside an action.
    virtual void At(Time aTime, std::function<void()> aAction) = 0;

protected:
    Scheduler() = default;
    Scheduler(const Scheduler&) = default;
    Scheduler& operator=(const Scheduler&) = default;
};

} // namespace KySimulator
