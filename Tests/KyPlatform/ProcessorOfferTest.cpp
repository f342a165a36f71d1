#include "KyPlatform/ProcessorOffer.h"

#include <gtest/gtest.h>

using KyPlatform::ProcessorOffer;

namespace
{

class ProcessorOfferTest : public testing::Test
{
protected:
    // Sleeps until an offer is due, which is then noted.
    uint32_t CountSleeps(bool aHelped, ProcessorOffer::Clock::duration aTime)
    {
        uint32_t lSleeps = 0;
        while (!mOffer.IsDue())
        {
            ++lSleeps;
        }
        mOffer.Note(aHelped, aTime);
        return lSleeps;
    }

    static constexpr std::chrono::microseconds cShort{2};
    std::atomic<uint32_t> mHistory{0};
    ProcessorOffer mOffer{mHistory};
};

TEST_F(ProcessorOfferTest, FirstComesBehindAFewSleeps)
{
    EXPECT_EQ(CountSleeps(true, cShort), ProcessorOffer::cShortestPause);
}

TEST_F(ProcessorOfferTest, OneThatHelpedIsMadeAgainAtOnce)
{
    CountSleeps(true, cShort);
    for (int lTurn = 0; lTurn < 100; ++lTurn)
    {
        EXPECT_EQ(CountSleeps(true, cShort), 0U);
    }
}

TEST_F(ProcessorOfferTest, EachThatDidNotHelpDoublesThePause)
{
    CountSleeps(false, cShort);
    for (const uint32_t lPause :
         {32U, 64U, 128U, 256U, 512U, 1024U, 2048U, 4096U, 8192U, 16384U, 32768U, 65536U, 65536U, 65536U})
    {
        EXPECT_EQ(CountSleeps(false, cShort), lPause);
    }
}

TEST_F(ProcessorOfferTest, OneThatHelpedMakesThePauseShortAgain)
{
    CountSleeps(false, cShort);
    CountSleeps(false, cShort);
    EXPECT_EQ(CountSleeps(true, cShort), 64U);
    EXPECT_EQ(CountSleeps(false, cShort), 0U);
    EXPECT_EQ(CountSleeps(false, cShort), 32U);
}

TEST_F(ProcessorOfferTest, OneThatTookATimeSliceIsNotMadeAgainForLongWhateverCameOfIt)
{
    CountSleeps(true, ProcessorOffer::cTooLong);
    EXPECT_EQ(CountSleeps(false, ProcessorOffer::cTooLong), 1024U);
    EXPECT_EQ(CountSleeps(true, ProcessorOffer::cTooLong), ProcessorOffer::cLongestPause);
    EXPECT_EQ(CountSleeps(true, cShort), ProcessorOffer::cLongestPause);
    EXPECT_EQ(CountSleeps(true, cShort), 0U);
}

TEST_F(ProcessorOfferTest, WhetherToSleepIsAskedBehindAnOfferOnly)
{
    int lAsked = 0;
    for (uint32_t lSleep = 0; lSleep < ProcessorOffer::cShortestPause; ++lSleep)
    {
        EXPECT_FALSE(mOffer.Make([&lAsked] { return ++lAsked > 0; }));
    }
    EXPECT_EQ(lAsked, 0);
    EXPECT_TRUE(mOffer.Make([&lAsked] { return ++lAsked > 0; }));
    EXPECT_EQ(lAsked, 1);
}

TEST_F(ProcessorOfferTest, WhoHasReasonToSleepIsToldToSleep)
{
    int lAsked = 0;
    for (uint32_t lSleep = 0; lSleep <= ProcessorOffer::cShortestPause; ++lSleep)
    {
        EXPECT_FALSE(mOffer.Make([&lAsked] { return ++lAsked == 0; }));
    }
    EXPECT_EQ(lAsked, 1);
    EXPECT_FALSE(mOffer.IsDue());
}

} // namespace
