#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <thread>

namespace KyTest
{

/// Threads of this process.
size_t CountThreads();

/// Threads of this process before a test starts its own. On some systems the framework keeps a thread to
/// watch each thread that has left a trace, for as long as that lives: it is here from now on.
inline size_t CountThreadsAtFirst()
{
    SCOPED_TRACE("");
    return CountThreads();
}

/// Waits until there are no more than aCount: a thread that was joined may be counted for a moment yet.
/// \return Whether it came to that within a minute.
inline bool HasNoMoreThreadsThan(size_t aCount)
{
    for (int lTry = 0; lTry < 60000 && CountThreads() > aCount; ++lTry)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return CountThreads() <= aCount;
}

} // namespace KyTest
