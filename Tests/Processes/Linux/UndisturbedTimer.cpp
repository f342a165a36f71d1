#include "Tests/Processes/Linux/UndisturbedTimer.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>

UndisturbedTimer::UndisturbedTimer() : mStart(Clock::now()), mHeldUp(GetHeldUp()) {}

std::chrono::milliseconds UndisturbedTimer::GetElapsed() const
{
    const std::chrono::nanoseconds lElapsed = Clock::now() - mStart;
    // A thread that has ended since takes its share along.
    const std::chrono::nanoseconds lHeldUp = std::max(GetHeldUp() - mHeldUp, std::chrono::nanoseconds(0));
    return std::chrono::duration_cast<std::chrono::milliseconds>(lElapsed - std::min(lElapsed, lHeldUp));
}

bool UndisturbedTimer::IsOver(std::chrono::milliseconds aBound) const
{
    return Clock::now() - mStart > aBound && GetElapsed() > aBound;
}

/// The time that the threads of now have been ready and not running; 0 on a system that does not count it.
std::chrono::nanoseconds UndisturbedTimer::GetHeldUp()
{
    std::chrono::nanoseconds lSum(0);
    std::error_code lError;
    for (std::filesystem::directory_iterator lThread("/proc/self/task", lError), lEnd;
         !lError && lThread != lEnd; lThread.increment(lError))
    {
        std::ifstream lFile(lThread->path() / "schedstat");
        int64_t lRun = 0;
        int64_t lWaited = 0;
        if (lFile >> lRun >> lWaited)
        {
            lSum += std::chrono::nanoseconds(lWaited);
        }
    }
    return lSum;
}
