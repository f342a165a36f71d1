#include "Adapters/GigE/Client/EventNumbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace
{

using KyGigE::EventNumbers;

/// Numbers after those of a device that has counted to 100, and whether the last of them fits.
struct Sequence
{
    const char* mWhat;
    std::vector<uint64_t> mNumbers;
    bool mFits;
};

class EventNumbersTest : public testing::Test
{
protected:
    static bool LastFits(unsigned aBits, uint64_t aLast, const std::vector<uint64_t>& aNumbers)
    {
        EventNumbers lNumbers;
        for (uint64_t lNumber = aLast - 99; lNumber != aLast + 1; ++lNumber)
        {
            EXPECT_TRUE(lNumbers.Fits(lNumber, aBits)) << lNumber;
        }
        bool lFits = false;
        for (const uint64_t lNumber : aNumbers)
        {
            lFits = lNumbers.Fits(lNumber, aBits);
        }
        return lFits;
    }
};

TEST_F(EventNumbersTest, ANumberFarFromTheLastOneIsDoubtedOnce)
{
    const std::vector<Sequence> lSequences = {
        {"the next", {101}, true},
        {"after a loss", {8000}, true},
        {"late", {50}, true},
        {"far away", {30000}, false},
        {"far away, and again", {30000, 30000}, true},
        {"far away, then another one", {30000, 40000}, false},
        {"far away, then the next", {30000, 101}, true},
        {"the next of a number that was doubted", {30000, 30001}, false},
        {"the next of a number that was believed", {30000, 30000, 30001}, true},
        {"far again, after a number that was believed", {30000, 30000, 100}, true}};
    for (const Sequence& lSequence : lSequences)
    {
        EXPECT_EQ(lSequence.mFits, LastFits(16, 100, lSequence.mNumbers)) << lSequence.mWhat;
    }
}

TEST_F(EventNumbersTest, ACounterBeginsAnewAfterItsLastNumber)
{
    EXPECT_TRUE(LastFits(16, 65535, {1})) << "0 may be left out";
    EXPECT_TRUE(LastFits(16, 65535, {0}));
    EXPECT_FALSE(LastFits(64, 65535, {1})) << "a counter of 64 bits goes on";
    EXPECT_TRUE(LastFits(64, UINT64_MAX - 1, {UINT64_MAX, 1}));
}

// Some devices leave 0 there, or the number of an image.
TEST_F(EventNumbersTest, ADeviceThatDoesNotCountIsNeverDoubted)
{
    EventNumbers lNumbers;
    for (const uint64_t lNumber : std::vector<uint64_t>{0, 0, 7, 40000, 0, 20000, 7, 7, 60000})
    {
        EXPECT_TRUE(lNumbers.Fits(lNumber, 16)) << lNumber;
    }
}

TEST_F(EventNumbersTest, ALateEventDoesNotSetTheCounterBack)
{
    EXPECT_TRUE(LastFits(16, 20000, {12000, 28000})) << "28000 is near 20000, not near 12000";
}

} // namespace
