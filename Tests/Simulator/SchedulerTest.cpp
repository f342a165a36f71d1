#include <Simulator/Camera/Lock.h>
#include <Simulator/Time/ManualScheduler.h>
#include <Simulator/Time/RealScheduler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

using namespace KySimulator;
using namespace std::chrono_literals;

TEST(ManualSchedulerTest, StandsStillUntilItIsMoved)
{
    ManualScheduler lClock;
    EXPECT_EQ(lClock.Now(), Time(0));
    lClock.Advance(3ms);
    EXPECT_EQ(lClock.Now(), Time(3ms));
}

TEST(ManualSchedulerTest, RunsActionsInOrderOfTimeEachAtItsOwn)
{
    ManualScheduler lClock;
    std::vector<std::pair<int, Time>> lRuns;
    lClock.At(2ms, [&] { lRuns.emplace_back(2, lClock.Now()); });
    lClock.At(1ms, [&] { lRuns.emplace_back(1, lClock.Now()); });
    lClock.At(2ms, [&] { lRuns.emplace_back(3, lClock.Now()); });
    lClock.At(9ms, [&] { lRuns.emplace_back(4, lClock.Now()); });
    lClock.Advance(5ms);
    EXPECT_THAT(lRuns, testing::ElementsAre(std::pair(1, Time(1ms)), std::pair(2, Time(2ms)),
                                            std::pair(3, Time(2ms))));
    EXPECT_EQ(lClock.Now(), Time(5ms));
    EXPECT_EQ(lClock.NextTime(), Time(9ms));
}

TEST(ManualSchedulerTest, RunsWhatActionsOrderWhileItMoves)
{
    ManualScheduler lClock;
    int lRuns = 0;
    lClock.At(1ms, [&] { lClock.At(2ms, [&] { ++lRuns; }); });
    lClock.Advance(2ms);
    EXPECT_EQ(lRuns, 1);
    EXPECT_EQ(lClock.NextTime(), cNever);
}

TEST(RealSchedulerTest, RunsAnActionNotBeforeItsTime)
{
    RealScheduler lClock;
    std::promise<Time> lRan;
    const Time lDue = lClock.Now() + 20ms;
    lClock.At(lDue, [&] { lRan.set_value(lClock.Now()); });
    EXPECT_GE(lRan.get_future().get(), lDue);
}

TEST(RealSchedulerTest, AnEarlierActionOvertakesAWaitingOne)
{
    RealScheduler lClock;
    std::promise<void> lRan;
    std::atomic<bool> lLate{false};
    lClock.At(lClock.Now() + 1h, [&] { lLate = true; });
    lClock.At(lClock.Now(), [&] { lRan.set_value(); });
    lRan.get_future().get();
    EXPECT_FALSE(lLate);
}

TEST(RealSchedulerTest, ManyThreadsOrderAndEachActionRuns)
{
    RealScheduler lClock;
    constexpr int cThreads = 4;
    constexpr int cOrders = 500;
    std::atomic<int> lLeft{cThreads * cOrders};
    std::promise<void> lAllRan;
    std::vector<std::thread> lThreads;
    lThreads.reserve(cThreads);
    for (int lThread = 0; lThread < cThreads; ++lThread)
    {
        lThreads.emplace_back(
            [&]
            {
                for (int lOrder = 0; lOrder < cOrders; ++lOrder)
                {
                    lClock.At(lClock.Now() + std::chrono::microseconds(lOrder % 7 * 50),
                              [&]
                              {
                                  if (--lLeft == 0)
                                  {
                                      lAllRan.set_value();
                                  }
                              });
                }
            });
    }
    EXPECT_EQ(lAllRan.get_future().wait_for(30s), std::future_status::ready);
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
}

TEST(RealSchedulerTest, CanBeDestroyedByOneOfItsActions)
{
    auto lClock = std::make_shared<RealScheduler>();
    std::promise<void> lGone;
    RealScheduler& lReference = *lClock;
    lReference.At(Time(0),
                  [&lGone, lHeld = std::move(lClock)]() mutable
                  {
                      lHeld.reset();
                      lGone.set_value();
                  });
    EXPECT_EQ(lGone.get_future().wait_for(30s), std::future_status::ready);
}

TEST(RealSchedulerTest, DropsWaitingActionsWhenItIsDestroyed)
{
    std::atomic<bool> lRan{false};
    {
        RealScheduler lClock;
        lClock.At(lClock.Now() + 1h, [&] { lRan = true; });
    }
    EXPECT_FALSE(lRan);
}
