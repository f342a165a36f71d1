#include "KyPlatform/NamedMutex.h"
#include "Tests/KyPlatform/NamedObjectTest.h"

#include <chrono>
#include <thread>
#include <vector>

using KyPlatform::NamedMutex;
using KyPlatform::WaitResult;

namespace
{

INSTANTIATE_TYPED_TEST_SUITE_P(NamedMutex, NamedObjectTest, NamedMutex);

class NamedMutexTest : public testing::Test
{
protected:
    NamedMutexTest() { EXPECT_TRUE(mMutex.Create(mName)); }

    /// Waits on a thread of its own, gives the lock back at once if it got it.
    WaitResult WaitElsewhere(uint32_t aTimeout)
    {
        WaitResult lResult = WaitResult::Failed;
        std::thread(
            [&]
            {
                lResult = mMutex.Wait(aTimeout);
                if (KyPlatform::IsOwned(lResult))
                {
                    EXPECT_TRUE(mMutex.Release());
                }
            })
            .join();
        return lResult;
    }

    const std::string mName = "Local\\" + UniqueName("KyMutex");
    NamedMutex mMutex;
};

TEST_F(NamedMutexTest, IsFreeWhenNew)
{
    EXPECT_EQ(mMutex.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(NamedMutexTest, ExcludesOtherThreads)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    EXPECT_EQ(WaitElsewhere(0), WaitResult::TimedOut);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::Done);
}

TEST_F(NamedMutexTest, ExcludesAcrossOpeners)
{
    NamedMutex lSecond;
    ASSERT_TRUE(lSecond.Open(mName));
    ASSERT_EQ(lSecond.Wait(0), WaitResult::Done);
    EXPECT_EQ(WaitElsewhere(0), WaitResult::TimedOut);
    EXPECT_TRUE(lSecond.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::Done);
}

TEST_F(NamedMutexTest, OwnerTakesItAgainAndGivesItBackAsOften)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    ASSERT_EQ(mMutex.Wait(KyPlatform::cInfinite), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::TimedOut);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::Done);
}

TEST_F(NamedMutexTest, ReleaseByAThreadThatDoesNotOwnItFails)
{
    EXPECT_FALSE(mMutex.Release());
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    std::thread([this] { EXPECT_FALSE(mMutex.Release()); }).join();
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(NamedMutexTest, TimeOutLastsAtLeastItsTime)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_EQ(WaitElsewhere(50), WaitResult::TimedOut);
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(49));
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(NamedMutexTest, WaiterGetsItWhenTheOwnerGivesItBack)
{
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    std::thread lWaiter([this] { EXPECT_EQ(WaitElsewhere(KyPlatform::cInfinite), WaitResult::Done); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(mMutex.Release());
    lWaiter.join();
}

TEST_F(NamedMutexTest, LockOfAnEndedThreadPassesOnAndSaysSoOnce)
{
    std::thread([this] { EXPECT_EQ(mMutex.Wait(0), WaitResult::Done); }).join();
    EXPECT_EQ(mMutex.Wait(5000), WaitResult::OwnerDied);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(mMutex.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
}

TEST_F(NamedMutexTest, LockOfAnEndedThreadWakesAWaiter)
{
    std::thread lOwner;
    {
        std::atomic<bool> lOwned{false};
        lOwner = std::thread(
            [&]
            {
                EXPECT_EQ(mMutex.Wait(0), WaitResult::Done);
                lOwned = true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            });
        while (!lOwned)
        {
            std::this_thread::yield();
        }
        EXPECT_EQ(mMutex.Wait(KyPlatform::cInfinite), WaitResult::OwnerDied);
        EXPECT_TRUE(mMutex.Release());
    }
    lOwner.join();
}

TEST_F(NamedMutexTest, ClosedObjectRefuses)
{
    EXPECT_TRUE(mMutex.Close());
    EXPECT_EQ(mMutex.Wait(0), WaitResult::Failed);
    EXPECT_FALSE(mMutex.Release());
}

TEST_F(NamedMutexTest, ClosingAnOwnedLockIsHarmless)
{
    NamedMutex lOther;
    ASSERT_TRUE(lOther.Open(mName));
    ASSERT_EQ(lOther.Wait(0), WaitResult::Done);
    EXPECT_TRUE(lOther.Close());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::TimedOut);
}

TEST_F(NamedMutexTest, OwnerTakesItAgainThroughAnotherOpener)
{
    NamedMutex lOther;
    ASSERT_TRUE(lOther.Open(mName));
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    ASSERT_EQ(lOther.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::TimedOut);
    EXPECT_TRUE(lOther.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::Done);
}

TEST_F(NamedMutexTest, StaysOwnedWhenTheObjectThatTookItFirstIsClosed)
{
    NamedMutex lOther;
    ASSERT_TRUE(lOther.Open(mName));
    ASSERT_EQ(mMutex.Wait(0), WaitResult::Done);
    ASSERT_EQ(lOther.Wait(0), WaitResult::Done);
    EXPECT_TRUE(mMutex.Release());
    EXPECT_TRUE(mMutex.Close());
    ASSERT_TRUE(mMutex.Open(mName));
    EXPECT_EQ(WaitElsewhere(20), WaitResult::TimedOut);
    EXPECT_TRUE(lOther.Release());
    EXPECT_EQ(WaitElsewhere(0), WaitResult::Done);
}

TEST_F(NamedMutexTest, KeepsItsCountRightAmongManyThreads)
{
    NamedMutex lOther;
    ASSERT_TRUE(lOther.Open(mName));
    constexpr int cRounds = 2000;
    // Guarded by the lock. Atomic for the thread sanitizer, which does not see that the two objects' words are one.
    std::atomic<int> lCount{0};
    std::vector<std::thread> lThreads;
    for (NamedMutex* lMutex : {&mMutex, &lOther, &mMutex, &lOther})
    {
        lThreads.emplace_back(
            [&lCount, lMutex]
            {
                for (int lRound = 0; lRound < cRounds; ++lRound)
                {
                    ASSERT_EQ(lMutex->Wait(KyPlatform::cInfinite), WaitResult::Done);
                    lCount.store(lCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
                    ASSERT_TRUE(lMutex->Release());
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
    EXPECT_EQ(lCount, 4 * cRounds);
}

} // namespace
