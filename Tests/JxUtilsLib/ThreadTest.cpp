#include "JxUtilsLib/Thread.h"

#include <gtest/gtest.h>

using JxUtilsLib::Thread;

TEST(ThreadTest, SleepLastsAtLeastItsTime)
{
    const uint64_t lStart = Thread::GetTickCount();
    Thread::Sleep(20);
    EXPECT_GE(Thread::GetTickCount() - lStart, 19U); // two readings of a clock cut down to milliseconds
}

TEST(ThreadTest, TickCountNeverGoesBack)
{
    uint64_t lLast = Thread::GetTickCount();
    for (int lTurn = 0; lTurn < 1000; ++lTurn)
    {
        Thread::Sleep(0);
        const uint64_t lNow = Thread::GetTickCount();
        ASSERT_GE(lNow, lLast);
        lLast = lNow;
    }
}
