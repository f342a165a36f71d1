#include "KyPlatform/AdaptiveSpin.h"

#include <gtest/gtest.h>

using KyPlatform::AdaptiveSpin;

namespace
{

using Clock = std::chrono::steady_clock;

class AdaptiveSpinTest : public testing::Test
{
protected:
    // Waits until a wait is tried. \return How many slept at once before.
    template<typename Question>
    uint32_t CountSleeps(const Question& aIsOver)
    {
        uint32_t lSleeps = 0;
        mAsked = 0;
        for (;;)
        {
            mOver = AdaptiveSpin(mMemory,
                                 [&]
                                 {
                                     ++mAsked;
                                     return aIsOver();
                                 });
            if (mAsked > 0)
            {
                return lSleeps;
            }
            EXPECT_FALSE(mOver);
            ++lSleeps;
        }
    }

    static bool IsOver() { return true; }
    static bool GoesOn() { return false; }
    // As if another program had the processor for a time slice.
    static bool IsLateOver()
    {
        // A loop instead of a sleep: Windows returns from sleeps under a millisecond at once.
        for (const auto lEnd = Clock::now() + std::chrono::microseconds(600); Clock::now() < lEnd;)
        {
        }
        return true;
    }

    std::atomic<uint64_t> mMemory{0};
    bool mOver = false;
    int mAsked = 0;
};

TEST_F(AdaptiveSpinTest, FirstTryComesAfterAFewSleeps)
{
    EXPECT_EQ(CountSleeps(&IsOver), 16U);
    EXPECT_TRUE(mOver);
    EXPECT_EQ(mAsked, 1);
}

TEST_F(AdaptiveSpinTest, TryThatPaysIsMadeAgainAtOnce)
{
    CountSleeps(&IsOver);
    for (int lTurn = 0; lTurn < 100; ++lTurn)
    {
        EXPECT_EQ(CountSleeps(&IsOver), 0U);
        EXPECT_TRUE(mOver);
    }
}

TEST_F(AdaptiveSpinTest, EachTryThatDoesNotPayDoublesTheSleeps)
{
    CountSleeps(&GoesOn);
    EXPECT_FALSE(mOver);
    uint32_t lBefore = 0;
    for (uint32_t lSleeps = CountSleeps(&GoesOn); lSleeps < 65536; lSleeps = CountSleeps(&GoesOn))
    {
        EXPECT_GE(lSleeps, 2 * lBefore); // more, when something else had the processor
        lBefore = lSleeps;
    }
    EXPECT_EQ(CountSleeps(&GoesOn), 65536U);
    EXPECT_EQ(CountSleeps(&GoesOn), 65536U);
}

TEST_F(AdaptiveSpinTest, WaitsThatNeverPayCostNextToNothing)
{
    int lTries = 0;
    for (int lWait = 0; lWait < 1000000; ++lWait)
    {
        bool lAsked = false;
        EXPECT_FALSE(AdaptiveSpin(mMemory, [&lAsked] { return !(lAsked = true); }));
        lTries += lAsked ? 1 : 0;
    }
    // 13 while the sleeps between two tries double from 16 to 65536; fewer, when something else had the processor.
    EXPECT_LE(lTries, 13 + 1000000 / 65536);
    EXPECT_GT(lTries, 0);
}

TEST_F(AdaptiveSpinTest, TryThatPaysMakesTheSleepsFewAgain)
{
    CountSleeps(&GoesOn);
    CountSleeps(&GoesOn);
    // Again when something else had the processor meanwhile.
    while (CountSleeps(&IsOver) != 0)
    {
    }
    EXPECT_EQ(CountSleeps(&IsOver), 0U);
}

TEST_F(AdaptiveSpinTest, TryThatTookATimeSliceIsNotMadeAgainForLongWhateverCameOfIt)
{
    CountSleeps(&IsLateOver);
    EXPECT_TRUE(mOver);
    EXPECT_EQ(CountSleeps(&IsLateOver), 1024U);
    EXPECT_TRUE(mOver);
    EXPECT_EQ(CountSleeps(&IsLateOver), 65536U);
}

TEST_F(AdaptiveSpinTest, SpinsNoMoreWhereOnlyTheYieldPays)
{
    Clock::time_point lBegin;
    const auto lAfterTheSpin = [&lBegin]
    {
        lBegin = lBegin == Clock::time_point() ? Clock::now() : lBegin;
        return Clock::now() - lBegin >= std::chrono::microseconds(2);
    };
    bool lDone = false;
    // Again when something else had the processor meanwhile, and with nothing learnt from that.
    for (int lTurn = 0; lTurn < 100 && !lDone; ++lTurn)
    {
        mMemory = 0;
        lBegin = {};
        CountSleeps(lAfterTheSpin);
        lDone = mOver && CountSleeps(&GoesOn) == 0 && mAsked == 1;
    }
    EXPECT_TRUE(lDone);
}

} // namespace
