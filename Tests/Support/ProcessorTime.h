#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace KyTest
{

/// How many times longer a program may take than its optimised form does: this one is built for a debugger, and
/// sanitizers check each access.
inline constexpr uint64_t cCheckingCosts =
#if defined(KYTEST_INSTRUMENTED)
    20;
#elif defined(NDEBUG)
    1;
#else
    4;
#endif

/// Milliseconds of processor time that this process has used.
uint64_t GetProcessorTime();

/// Whether this process costs less than 1 % of a core while the calling thread sleeps: in one of several
/// spans of three seconds, because a system may charge a process for what it does on behalf of others.
/// \param aMeasured  Receives what the last span has cost.
inline bool CostsLessThanOnePercent(uint64_t& aMeasured)
{
    constexpr uint64_t cSpan = 3000; // ms
    for (int lTry = 0; lTry < 4; ++lTry)
    {
        const uint64_t lBefore = GetProcessorTime();
        std::this_thread::sleep_for(std::chrono::milliseconds(cSpan));
        aMeasured = GetProcessorTime() - lBefore;
        if (aMeasured < cSpan / 100)
        {
            return true;
        }
    }
    return false;
}

} // namespace KyTest
