#include "Support/ProcessorTime.h"

#include <windows.h>

namespace KyTest
{

uint64_t GetProcessorTime()
{
    FILETIME lTimes[4] = {}; // made, ended, in the kernel, in the program
    ::GetProcessTimes(::GetCurrentProcess(), &lTimes[0], &lTimes[1], &lTimes[2], &lTimes[3]);
    const auto lTicks = [](const FILETIME& aTime)
    { return (uint64_t{aTime.dwHighDateTime} << 32U) + aTime.dwLowDateTime; };
    return (lTicks(lTimes[2]) + lTicks(lTimes[3])) / 10000; // of 100 ns
}

} // namespace KyTest
