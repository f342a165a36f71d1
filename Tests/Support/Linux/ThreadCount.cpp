#include "Support/ThreadCount.h"

#include <filesystem>
#include <iterator>

namespace KyTest
{

size_t CountThreads()
{
    const std::filesystem::directory_iterator lThreads("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(lThreads), end(lThreads)));
}

} // namespace KyTest
