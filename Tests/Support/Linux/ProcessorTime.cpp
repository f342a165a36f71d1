#include "Support/ProcessorTime.h"

#include <ctime>

namespace KyTest
{

uint64_t GetProcessorTime()
{
    timespec lTime{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &lTime);
    return static_cast<uint64_t>(lTime.tv_sec) * 1000 + static_cast<uint64_t>(lTime.tv_nsec) / 1000000;
}

} // namespace KyTest
