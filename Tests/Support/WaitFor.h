#pragma once

#include <chrono>
#include <thread>

namespace KyTest
{

/// Waits until a condition holds, which is asked every other millisecond.
/// \return Whether it came to that in time; the time is what only a dead lock or a lost wake-up takes.
template<typename Condition>
bool WaitFor(const Condition& aCondition, std::chrono::milliseconds aPatience = std::chrono::seconds(60))
{
    const auto lEnd = std::chrono::steady_clock::now() + aPatience;
    while (!aCondition())
    {
        if (std::chrono::steady_clock::now() > lEnd)
        {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace KyTest
