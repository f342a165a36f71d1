#pragma once

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

namespace KyBench
{

/// Seconds of processor time that a process has used, counted in nanoseconds; 0 when there is none.
inline double GetCpuOf(pid_t aProcess)
{
    clockid_t lClock{};
    timespec lTime{};
    if (::clock_getcpuclockid(aProcess, &lClock) != 0 || ::clock_gettime(lClock, &lTime) != 0)
    {
        return 0;
    }
    return static_cast<double>(lTime.tv_sec) + static_cast<double>(lTime.tv_nsec) * 1e-9;
}

inline double GetOwnCpu()
{
    return GetCpuOf(0);
}

/// How often the threads of a process have gone to sleep.
inline double GetSleepsOf(pid_t aProcess)
{
    constexpr std::string_view cName = "voluntary_ctxt_switches:";
    double lSleeps = 0;
    std::error_code lError;
    const std::filesystem::path lTasks = "/proc/" + std::to_string(aProcess) + "/task";
    for (const auto& lTask : std::filesystem::directory_iterator(lTasks, lError))
    {
        std::ifstream lStatus(lTask.path() / "status");
        for (std::string lLine; std::getline(lStatus, lLine);)
        {
            if (lLine.compare(0, cName.size(), cName) == 0)
            {
                lSleeps += std::stod(lLine.substr(cName.size()));
            }
        }
    }
    return lSleeps;
}

/// Bytes of this process that are in memory.
inline double GetResident()
{
    long lSize = 0;
    long lResident = 0;
    std::FILE* const lFile = std::fopen("/proc/self/statm", "r");
    if (lFile == nullptr || std::fscanf(lFile, "%ld %ld", &lSize, &lResident) != 2)
    {
        lResident = 0;
    }
    if (lFile != nullptr)
    {
        std::fclose(lFile);
    }
    return static_cast<double>(lResident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

} // namespace KyBench
