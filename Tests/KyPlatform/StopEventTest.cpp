#include "KyPlatform/StopEvent.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

using KyPlatform::cInfinite;
using KyPlatform::StopEvent;
using KyPlatform::WaitResult;

namespace
{

TEST(StopEventTest, IsClosedAtFirst)
{
    StopEvent lEvent;
    EXPECT_FALSE(lEvent.IsValid());
    EXPECT_FALSE(lEvent.Set());
    EXPECT_EQ(lEvent.Wait(0), WaitResult::Failed);
    lEvent.Close();
}

TEST(StopEventTest, IsUnsetWhenMade)
{
    StopEvent lEvent;
    ASSERT_TRUE(lEvent.Create());
    EXPECT_TRUE(lEvent.IsValid());
    EXPECT_EQ(lEvent.Wait(0), WaitResult::TimedOut);
}

TEST(StopEventTest, ATimeOutTakesItsTime)
{
    StopEvent lEvent;
    ASSERT_TRUE(lEvent.Create());
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(lEvent.Wait(30), WaitResult::TimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(29));
}

TEST(StopEventTest, StaysSetForEverybody)
{
    StopEvent lEvent;
    ASSERT_TRUE(lEvent.Create());
    EXPECT_TRUE(lEvent.Set());
    EXPECT_TRUE(lEvent.Set());
    EXPECT_EQ(lEvent.Wait(0), WaitResult::Done);
    EXPECT_EQ(lEvent.Wait(cInfinite), WaitResult::Done);
}

TEST(StopEventTest, EndsEveryWait)
{
    StopEvent lEvent;
    ASSERT_TRUE(lEvent.Create());
    std::vector<std::thread> lWaiters;
    lWaiters.reserve(3);
    for (int lIndex = 0; lIndex < 3; ++lIndex)
    {
        lWaiters.emplace_back([&] { EXPECT_EQ(lEvent.Wait(cInfinite), WaitResult::Done); });
    }
    EXPECT_TRUE(lEvent.Set());
    for (std::thread& lWaiter : lWaiters)
    {
        lWaiter.join();
    }
}

TEST(StopEventTest, IsMadeAnewUnset)
{
    StopEvent lEvent;
    ASSERT_TRUE(lEvent.Create());
    EXPECT_TRUE(lEvent.Set());
    ASSERT_TRUE(lEvent.Create());
    EXPECT_EQ(lEvent.Wait(0), WaitResult::TimedOut);
    lEvent.Close();
    EXPECT_FALSE(lEvent.IsValid());
}

} // namespace
