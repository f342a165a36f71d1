#include "KyPlatform/NamedEvent.h"
#include "Tests/KyPlatform/NamedObjectTest.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using KyPlatform::NamedEvent;
using KyPlatform::NamedMutex;
using KyPlatform::WaitResult;

namespace
{

INSTANTIATE_TYPED_TEST_SUITE_P(NamedEvent, NamedObjectTest, NamedEvent);

class NamedEventTest : public testing::Test
{
protected:
    NamedEventTest()
    {
        EXPECT_TRUE(mEvent.Create(mName));
        EXPECT_TRUE(mSecond.Open(mName));
    }

    const std::string mName = "Local\\" + UniqueName("KyEvent");
    NamedEvent mEvent;
    NamedEvent mSecond;
};

TEST_F(NamedEventTest, StartsUnset)
{
    EXPECT_EQ(mEvent.Wait(0), WaitResult::TimedOut);
}

TEST_F(NamedEventTest, StaysSetUntilReset)
{
    EXPECT_TRUE(mEvent.Set());
    EXPECT_TRUE(mEvent.Set());
    EXPECT_EQ(mSecond.Wait(0), WaitResult::Done);
    EXPECT_EQ(mSecond.Wait(KyPlatform::cInfinite), WaitResult::Done);
    EXPECT_TRUE(mSecond.Reset());
    EXPECT_TRUE(mSecond.Reset());
    EXPECT_EQ(mEvent.Wait(0), WaitResult::TimedOut);
}

TEST_F(NamedEventTest, TimeOutLastsAtLeastItsTime)
{
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(mEvent.Wait(120), WaitResult::TimedOut); // longer than a sleeper goes without a look
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(119));
}

// Often enough that the processor is offered before some of the sleeps.
TEST_F(NamedEventTest, EachOfManyWaitsTimesOut)
{
    for (int lWait = 0; lWait < 60; ++lWait)
    {
        ASSERT_EQ(mEvent.Wait(1), WaitResult::TimedOut);
    }
}

TEST_F(NamedEventTest, ThreadsTakeTurnsThousandsOfTimes)
{
    NamedEvent lBack;
    ASSERT_TRUE(lBack.Create(mName + "Back"));
    constexpr int cTurns = 3000;
    std::atomic<int> lDone{0};
    std::thread lPeer(
        [&]
        {
            for (int lTurn = 0; lTurn < cTurns; ++lTurn)
            {
                EXPECT_EQ(mSecond.Wait(60000), WaitResult::Done);
                EXPECT_TRUE(mSecond.Reset());
                ++lDone;
                EXPECT_TRUE(lBack.Set());
            }
        });
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        EXPECT_TRUE(mEvent.Set());
        EXPECT_EQ(lBack.Wait(60000), WaitResult::Done);
        EXPECT_TRUE(lBack.Reset());
        EXPECT_EQ(lDone, lTurn + 1);
    }
    lPeer.join();
    EXPECT_EQ(mEvent.Wait(1), WaitResult::TimedOut);
}

TEST_F(NamedEventTest, SetWakesEveryWaiter)
{
    std::atomic<int> lThrough{0};
    std::vector<std::thread> lWaiters;
    lWaiters.reserve(4);
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        lWaiters.emplace_back(
            [this, &lThrough, lIndex]
            {
                NamedEvent& lEvent = lIndex % 2 == 0 ? mEvent : mSecond;
                lThrough += lEvent.Wait(KyPlatform::cInfinite) == WaitResult::Done ? 1 : 0;
            });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(mEvent.Set());
    for (std::thread& lWaiter : lWaiters)
    {
        lWaiter.join();
    }
    EXPECT_EQ(lThrough, 4);
}

TEST_F(NamedEventTest, WaiterThatWasLetThroughIsNotHeldUpByAReset)
{
    for (int lTurn = 0; lTurn < 20; ++lTurn)
    {
        std::thread lWaiter([this] { EXPECT_EQ(mSecond.Wait(60000), WaitResult::Done); });
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        // Until the waiter is asleep a pulse passes unseen, so it is repeated.
        std::atomic<bool> lJoined{false};
        std::thread lPulser(
            [&]
            {
                while (!lJoined)
                {
                    EXPECT_TRUE(mEvent.Set());
                    EXPECT_TRUE(mEvent.Reset());
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
        lWaiter.join();
        lJoined = true;
        lPulser.join();
    }
}

TEST_F(NamedEventTest, WakeFollowsSetWithinMicroseconds)
{
    // The looks that a sleeper takes by itself would give 25 ms on the average.
    NamedEvent lBack;
    ASSERT_TRUE(lBack.Create(mName + "Back"));
    constexpr int cTurns = 200;
    std::thread lEcho(
        [&]
        {
            for (int lTurn = 0; lTurn < cTurns; ++lTurn)
            {
                EXPECT_EQ(mSecond.Wait(60000), WaitResult::Done);
                EXPECT_TRUE(mSecond.Reset());
                EXPECT_TRUE(lBack.Set());
            }
        });
    const auto lStart = std::chrono::steady_clock::now();
    for (int lTurn = 0; lTurn < cTurns; ++lTurn)
    {
        EXPECT_TRUE(mEvent.Set());
        EXPECT_EQ(lBack.Wait(60000), WaitResult::Done);
        EXPECT_TRUE(lBack.Reset());
    }
    lEcho.join();
    EXPECT_LT(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(10) * cTurns);
}

TEST_F(NamedEventTest, RaiseSetsWithoutWake)
{
    bool lWake = true;
    EXPECT_TRUE(mEvent.Raise(lWake));
    EXPECT_FALSE(lWake); // nobody slept
    EXPECT_EQ(mSecond.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mEvent.Wake());
}

TEST_F(NamedEventTest, SleeperFindsARaisedEventEvenWithoutWake)
{
    std::thread lWaiter([this] { EXPECT_EQ(mSecond.Wait(KyPlatform::cInfinite), WaitResult::Done); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    bool lWake = false;
    EXPECT_TRUE(mEvent.Raise(lWake)); // and the raiser dies
    lWaiter.join();
}

TEST_F(NamedEventTest, WaitThenLockTakesTheLockOnlyWhenSet)
{
    NamedMutex lMutex;
    ASSERT_TRUE(lMutex.Create(mName + "Mutex"));
    EXPECT_EQ(mEvent.WaitThenLock(lMutex, 0, 0), WaitResult::TimedOut);
    EXPECT_EQ(mEvent.WaitThenLock(lMutex, 30, 0), WaitResult::TimedOut);
    EXPECT_FALSE(lMutex.Release());
    EXPECT_TRUE(mSecond.Set());
    EXPECT_EQ(mEvent.WaitThenLock(lMutex, 0, 0), WaitResult::Done);
    EXPECT_TRUE(lMutex.Release());
}

TEST_F(NamedEventTest, WaitThenLockFailsWhenTheLockStaysTaken)
{
    NamedMutex lMutex;
    ASSERT_TRUE(lMutex.Create(mName + "Mutex"));
    ASSERT_EQ(lMutex.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mEvent.Set());
    std::thread([&] { EXPECT_EQ(mEvent.WaitThenLock(lMutex, 10, 20), WaitResult::Failed); }).join();
    EXPECT_TRUE(lMutex.Release());
}

TEST_F(NamedEventTest, WaitThenLockReportsADeadOwner)
{
    NamedMutex lMutex;
    ASSERT_TRUE(lMutex.Create(mName + "Mutex"));
    std::thread([&] { EXPECT_EQ(lMutex.Wait(0), WaitResult::Done); }).join();
    EXPECT_TRUE(mEvent.Set());
    EXPECT_EQ(mEvent.WaitThenLock(lMutex, 5000, 5000), WaitResult::OwnerDied);
    EXPECT_TRUE(lMutex.Release());
}

TEST_F(NamedEventTest, ClosedObjectRefuses)
{
    NamedMutex lMutex;
    EXPECT_EQ(mEvent.WaitThenLock(lMutex, 0, 0), WaitResult::Failed);
    EXPECT_TRUE(mEvent.Close());
    bool lWake = true;
    EXPECT_FALSE(mEvent.Set());
    EXPECT_FALSE(mEvent.Reset());
    EXPECT_FALSE(mEvent.Raise(lWake));
    EXPECT_FALSE(lWake);
    EXPECT_FALSE(mEvent.Wake());
    EXPECT_EQ(mEvent.Wait(0), WaitResult::Failed);
}

} // namespace
