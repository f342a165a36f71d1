#include "JxUtilsLib/Event.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using JxUtilsLib::Event;

namespace
{

int64_t Milliseconds(std::chrono::steady_clock::time_point aSince)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - aSince)
        .count();
}

TEST(EventTest, StartsUnset)
{
    EXPECT_FALSE(Event(true).Wait_ms(0));
    EXPECT_FALSE(Event(false).Wait_ms(0));
}

TEST(EventTest, ManualResetStaysSetUntilReset)
{
    Event lEvent(true);
    lEvent.Set();
    EXPECT_TRUE(lEvent.Wait_ms(0));
    EXPECT_TRUE(lEvent.Wait_ms(Event::cInfinite));
    lEvent.Reset();
    EXPECT_FALSE(lEvent.Wait_ms(0));
}

TEST(EventTest, AutoResetLetsOneWaiterThrough)
{
    Event lEvent(false);
    lEvent.Set();
    lEvent.Set();
    EXPECT_TRUE(lEvent.Wait_ms(0));
    EXPECT_FALSE(lEvent.Wait_ms(0));
    lEvent.Set();
    lEvent.Reset();
    EXPECT_FALSE(lEvent.Wait_ms(0));
}

TEST(EventTest, TimeOutLastsAtLeastItsTime)
{
    Event lEvent(true);
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_FALSE(lEvent.Wait_ms(50));
    EXPECT_GE(Milliseconds(lStart), 50);
}

// Often enough that the processor is offered before some of the sleeps.
TEST(EventTest, EachOfManyWaitsTimesOut)
{
    Event lEvent(false);
    for (int lWait = 0; lWait < 60; ++lWait)
    {
        ASSERT_FALSE(lEvent.Wait_ms(1));
    }
}

TEST(EventTest, ThreadsTakeTurnsThousandsOfTimes)
{
    Event lThere(false);
    Event lBack(false);
    constexpr int cTurns = 5000;
    std::atomic<int> lDone{0};
    std::thread lPeer(
        [&]
        {
            for (int lTurn = 0; lTurn < cTurns; ++lTurn)
            {
                EXPECT_TRUE(lThere.Wait_ms(60000));
                ++lDone;
                lBack.Set();
            }
        });
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        lThere.Set();
        EXPECT_TRUE(lBack.Wait_ms(60000));
        EXPECT_EQ(lDone, lTurn + 1);
    }
    lPeer.join();
    EXPECT_FALSE(lThere.Wait_ms(1));
    EXPECT_FALSE(lBack.Wait_ms(1));
}

TEST(EventTest, SetWakesASleepingWaiter)
{
    for (const bool lManualReset : {true, false})
    {
        Event lEvent(lManualReset);
        std::thread lSetter([&lEvent] { lEvent.Set(); });
        EXPECT_TRUE(lEvent.Wait_ms(Event::cInfinite));
        lSetter.join();
    }
}

TEST(EventTest, RaiseSetsWithoutOwingAWakeWhenNobodySleeps)
{
    Event lEvent(true);
    EXPECT_FALSE(lEvent.Raise());
    EXPECT_TRUE(lEvent.Wait_ms(0));
    EXPECT_FALSE(lEvent.Raise());
    lEvent.Wake();
    EXPECT_TRUE(lEvent.Wait_ms(0));
}

TEST(EventTest, RaiseOwesAWakeThatLetsASleeperThrough)
{
    for (const bool lManualReset : {true, false})
    {
        bool lOwed = false;
        for (int lTry = 0; lTry < 1000 && !lOwed; ++lTry)
        {
            Event lEvent(lManualReset);
            std::thread lWaiter([&lEvent] { EXPECT_TRUE(lEvent.Wait_ms(Event::cInfinite)); });
            std::this_thread::sleep_for(std::chrono::milliseconds(1)); // most often it sleeps by then
            lOwed = lEvent.Raise();
            EXPECT_FALSE(lEvent.Raise()); // set already: once is enough
            if (lOwed)
            {
                lEvent.Wake();
            }
            lWaiter.join();
        }
        EXPECT_TRUE(lOwed);
    }
}

TEST(EventTest, ManualResetWakesEveryWaiter)
{
    Event lEvent(true);
    std::atomic<int> lThrough{0};
    std::vector<std::thread> lWaiters;
    lWaiters.reserve(4);
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        lWaiters.emplace_back([&] { lThrough += lEvent.Wait_ms(Event::cInfinite) ? 1 : 0; });
    }
    lEvent.Set();
    for (std::thread& lWaiter : lWaiters)
    {
        lWaiter.join();
    }
    EXPECT_EQ(lThrough, 4);
}

TEST(EventTest, AutoResetWakesOneWaiterPerSet)
{
    Event lEvent(false);
    std::atomic<int> lThrough{0};
    Event lOneThrough(false);
    std::vector<std::thread> lWaiters;
    lWaiters.reserve(3);
    for (int lIndex = 0; lIndex < 3; ++lIndex)
    {
        lWaiters.emplace_back(
            [&]
            {
                EXPECT_TRUE(lEvent.Wait_ms(Event::cInfinite));
                ++lThrough;
                lOneThrough.Set();
            });
    }
    for (int lExpected = 1; lExpected <= 3; ++lExpected)
    {
        lEvent.Set();
        ASSERT_TRUE(lOneThrough.Wait_ms(Event::cInfinite));
        EXPECT_EQ(lThrough, lExpected);
    }
    for (std::thread& lWaiter : lWaiters)
    {
        lWaiter.join();
    }
}

} // namespace
