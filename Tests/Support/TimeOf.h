#pragma once

#include <chrono>

namespace KyTest
{

/// How long an action takes.
template<typename Action>
std::chrono::steady_clock::duration TimeOf(const Action& aAction)
{
    const auto lStart = std::chrono::steady_clock::now();
    aAction();
    return std::chrono::steady_clock::now() - lStart;
}

/// Whether one of five runs of an action takes less than a time. A busy machine makes some runs longer, a
/// wait that is too long in the code all of them.
template<typename Action>
bool TakesLessThan(std::chrono::milliseconds aTime, const Action& aAction)
{
    for (int lRun = 0; lRun < 5; ++lRun)
    {
        if (TimeOf(aAction) < aTime)
        {
            return true;
        }
    }
    return false;
}

} // namespace KyTest
