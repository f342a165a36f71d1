#include "KyPlatform/Deadline.h"

#include <gtest/gtest.h>

#include <algorithm>

using KyPlatform::cInfinite;
using KyPlatform::Deadline;
using namespace std::chrono_literals;

namespace
{

class DeadlineTest : public testing::Test
{
protected:
    DeadlineTest()
    {
        Deadline::SetClock(
            []
            {
                ++sLooks;
                return sNow;
            });
    }
    ~DeadlineTest() override { Deadline::SetClock(nullptr); }

    static inline uint64_t sNow; // nanoseconds
    static inline int sLooks;

private:
    void SetUp() override
    {
        sNow = 7000000000;
        sLooks = 0;
    }
};

TEST_F(DeadlineTest, IsOverAtItsTimeToTheNanosecond)
{
    const Deadline lDeadline(2us);
    EXPECT_EQ(lDeadline.GetTimeLeft(), 2us);
    sNow += 1999;
    EXPECT_EQ(lDeadline.GetTimeLeft(), 1ns);
    EXPECT_FALSE(lDeadline.IsOver());
    ++sNow;
    EXPECT_TRUE(lDeadline.IsOver());
    sNow += 1000;
    EXPECT_EQ(lDeadline.GetTimeLeft(), 0ns);
    EXPECT_EQ(lDeadline.GetRemaining(), 0U);
}

TEST_F(DeadlineTest, RoundsMillisecondsUpSoThatNoWaitEndsEarly)
{
    const Deadline lDeadline(20);
    EXPECT_EQ(lDeadline.GetRemaining(), 20U);
    ++sNow;
    EXPECT_EQ(lDeadline.GetRemaining(), 20U);
    EXPECT_EQ(lDeadline.GetRemaining(5), 5U);
    sNow += 19999998;
    EXPECT_EQ(lDeadline.GetRemaining(), 1U);
    ++sNow;
    EXPECT_EQ(lDeadline.GetRemaining(), 0U);
}

TEST_F(DeadlineTest, WithoutEndReadsNoClock)
{
    for (const Deadline lDeadline : {Deadline(cInfinite), Deadline(-1ns), Deadline(-1h)})
    {
        EXPECT_TRUE(lDeadline.IsEndless());
        EXPECT_FALSE(lDeadline.IsOver());
        EXPECT_LT(lDeadline.GetTimeLeft(), 0ns);
        EXPECT_EQ(lDeadline.GetRemaining(), cInfinite);
        EXPECT_EQ(lDeadline.GetRemaining(5), 5U);
    }
    EXPECT_EQ(sLooks, 0);
}

TEST_F(DeadlineTest, TheEarlierOneIsSmallerAndOneWithoutEndTheLargest)
{
    const Deadline lSoon(1ms);
    EXPECT_EQ(lSoon, Deadline(1));
    EXPECT_LT(lSoon, Deadline(2));
    EXPECT_EQ(std::min(Deadline(cInfinite), lSoon), lSoon);
    EXPECT_EQ(std::max(Deadline(3h), Deadline(-1ns)), Deadline(cInfinite));
}

} // namespace
