#include "KyPlatform/NamedSemaphore.h"
#include "Tests/KyPlatform/NamedObjectTest.h"

#include <atomic>
#include <thread>
#include <vector>

using KyPlatform::NamedSemaphore;

namespace
{

INSTANTIATE_TYPED_TEST_SUITE_P(NamedSemaphore, NamedObjectTest, NamedSemaphore);

class NamedSemaphoreTest : public testing::Test
{
protected:
    const std::string mName = "Local\\" + UniqueName("KySemaphore");
};

TEST_F(NamedSemaphoreTest, CountIsTakenDownToZero)
{
    NamedSemaphore lSemaphore;
    ASSERT_TRUE(lSemaphore.Create(mName, 2, 3));
    EXPECT_TRUE(lSemaphore.TryTake());
    EXPECT_TRUE(lSemaphore.TryTake());
    EXPECT_FALSE(lSemaphore.TryTake());
}

TEST_F(NamedSemaphoreTest, CountStopsAtItsMaximum)
{
    NamedSemaphore lSemaphore;
    ASSERT_TRUE(lSemaphore.Create(mName, 0, 2));
    EXPECT_FALSE(lSemaphore.TryTake());
    EXPECT_TRUE(lSemaphore.Release());
    EXPECT_TRUE(lSemaphore.Release());
    EXPECT_FALSE(lSemaphore.Release());
    EXPECT_TRUE(lSemaphore.TryTake());
    EXPECT_TRUE(lSemaphore.TryTake());
    EXPECT_FALSE(lSemaphore.TryTake());
}

TEST_F(NamedSemaphoreTest, OpenersShareTheCount)
{
    NamedSemaphore lFirst;
    NamedSemaphore lSecond;
    NamedSemaphore lThird;
    ASSERT_TRUE(lFirst.Create(mName, 1, 1));
    ASSERT_TRUE(lSecond.Open(mName));
    ASSERT_TRUE(lThird.Create(mName, 1, 1)); // finds it as it is
    EXPECT_TRUE(lSecond.TryTake());
    EXPECT_FALSE(lFirst.TryTake());
    EXPECT_FALSE(lThird.TryTake());
    EXPECT_TRUE(lThird.Release());
    EXPECT_TRUE(lFirst.TryTake());
}

TEST_F(NamedSemaphoreTest, ClosingGivesNothingBack)
{
    NamedSemaphore lFirst;
    NamedSemaphore lSecond;
    ASSERT_TRUE(lFirst.Create(mName, 1, 1));
    ASSERT_TRUE(lSecond.Open(mName));
    EXPECT_TRUE(lSecond.TryTake());
    EXPECT_TRUE(lSecond.Close());
    EXPECT_FALSE(lFirst.TryTake());
}

TEST_F(NamedSemaphoreTest, BadCountsAreRefused)
{
    NamedSemaphore lSemaphore;
    EXPECT_FALSE(lSemaphore.Create(mName, 0, 0));
    EXPECT_FALSE(lSemaphore.Create(mName, 2, 1));
    EXPECT_FALSE(lSemaphore.Create(mName, 1, 0x80000000U));
    EXPECT_FALSE(lSemaphore.IsValid());
}

TEST_F(NamedSemaphoreTest, MoveTakesTheObjectAlong)
{
    NamedSemaphore lFirst;
    ASSERT_TRUE(lFirst.Create(mName, 1, 1));
    NamedSemaphore lSecond(std::move(lFirst));
    EXPECT_TRUE(lSecond.TryTake());
    NamedSemaphore lThird;
    lThird = std::move(lSecond);
    EXPECT_TRUE(lThird.Release());
}

TEST_F(NamedSemaphoreTest, ManyThreadsTakeEachOneOnce)
{
    NamedSemaphore lSemaphore;
    ASSERT_TRUE(lSemaphore.Create(mName, 100, 100));
    std::atomic<int> lTaken{0};
    std::vector<std::thread> lThreads;
    lThreads.reserve(4);
    for (int lIndex = 0; lIndex < 4; ++lIndex)
    {
        lThreads.emplace_back(
            [&]
            {
                while (lSemaphore.TryTake())
                {
                    ++lTaken;
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
    EXPECT_EQ(lTaken, 100);
}

TEST_F(NamedSemaphoreTest, KnowsWhetherOthersHaveItOpen)
{
    NamedSemaphore lSemaphore;
    EXPECT_TRUE(lSemaphore.IsHeldByOthers()); // closed: nothing is known
    ASSERT_TRUE(lSemaphore.Create(mName, 1, 1));
    EXPECT_FALSE(lSemaphore.IsHeldByOthers());
    NamedSemaphore lOther;
    ASSERT_TRUE(lOther.Open(mName));
    EXPECT_TRUE(lSemaphore.IsHeldByOthers());
    EXPECT_TRUE(lOther.IsHeldByOthers());
    EXPECT_TRUE(lOther.Close());
    EXPECT_FALSE(lSemaphore.IsHeldByOthers());
}

TEST_F(NamedSemaphoreTest, ClosedObjectRefuses)
{
    NamedSemaphore lSemaphore;
    EXPECT_FALSE(lSemaphore.TryTake());
    EXPECT_FALSE(lSemaphore.Release());
}

} // namespace
