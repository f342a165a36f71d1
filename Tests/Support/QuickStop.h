#pragma once

#include "JxUtilsLib/Thread.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace KyTest
{

/// Expects that a stop takes less than 200 ms, and always ends within a time that only a busy machine
/// explains.
///
/// A thread that is to end may have to wait for a processor first. Hence several tries: most of them have to
/// be in time, at least three.
/// \param aPrepare  Brings about what is to be stopped.
/// \param aStop     Stops it; the only thing that is timed.
template<typename Prepare, typename Stop>
void ExpectQuickStop(Prepare aPrepare, Stop aStop)
{
    constexpr uint64_t cPromise = 200;   // ms
    constexpr uint64_t cExcused = 20000; // ms
    constexpr int cTries = 9;
    int lInTime = 0;
    int lLate = 0;
    while (lInTime + lLate < cTries && (lInTime < 3 || lInTime <= lLate))
    {
        aPrepare();
        if (testing::Test::HasFatalFailure())
        {
            return;
        }
        const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
        aStop();
        const uint64_t lTime = JxUtilsLib::Thread::GetTickCount() - lStart;
        EXPECT_LT(lTime, cExcused);
        lInTime += lTime < cPromise ? 1 : 0;
        lLate += lTime < cPromise ? 0 : 1;
    }
    EXPECT_GT(lInTime, lLate) << "most stops took " << cPromise << " ms or more";
}

} // namespace KyTest
