#include "kyserial/Serve/Status/RecentTraffic.h"

#include <gtest/gtest.h>

#include <string>

using namespace KySerialTool;

namespace
{

constexpr int64_t cNoon = 1'700'000'000'000'000; // microseconds

void Add(RecentTraffic& aTraffic, bool aToDevice, int64_t aTime, const std::string& aBytes)
{
    aTraffic.Add(aToDevice, aTime, reinterpret_cast<const uint8_t*>(aBytes.data()), aBytes.size());
}

TEST(RecentTrafficTest, BytesOfOneDirectionWithoutAPauseAreOneBlock)
{
    RecentTraffic lTraffic;
    Add(lTraffic, true, cNoon, "AB");
    Add(lTraffic, true, cNoon + 19999, "C");
    Add(lTraffic, true, cNoon + 19999 + 20000, "D"); // a pause
    Add(lTraffic, false, cNoon + 39999, "E");        // the other direction
    uint64_t lNext = 0;
    const auto lBlocks = lTraffic.GetAfter(0, lNext);
    ASSERT_EQ(lBlocks.size(), 3U);
    EXPECT_EQ(lBlocks[0].mBytes, "ABC");
    EXPECT_EQ(lBlocks[0].mTime, cNoon);
    EXPECT_TRUE(lBlocks[0].mToDevice);
    EXPECT_EQ(lBlocks[1].mBytes, "D");
    EXPECT_EQ(lBlocks[1].mStart, 3U);
    EXPECT_EQ(lBlocks[2].mBytes, "E");
    EXPECT_FALSE(lBlocks[2].mToDevice);
    EXPECT_EQ(lNext, 5U);
}

TEST(RecentTrafficTest, AQuestionGetsOnlyWhatIsNewOfABlockThatHasGrown)
{
    RecentTraffic lTraffic;
    Add(lTraffic, true, cNoon, "AB");
    uint64_t lNext = 0;
    EXPECT_EQ(lTraffic.GetAfter(0, lNext).size(), 1U);
    Add(lTraffic, true, cNoon, "CD");
    const auto lBlocks = lTraffic.GetAfter(lNext, lNext);
    ASSERT_EQ(lBlocks.size(), 1U);
    EXPECT_EQ(lBlocks[0].mBytes, "CD");
    EXPECT_EQ(lBlocks[0].mStart, 2U);
    EXPECT_TRUE(lTraffic.GetAfter(lNext, lNext).empty());
    // The port has started anew: a page that asks for a later place than any gets all that there is.
    EXPECT_EQ(lTraffic.GetAfter(100, lNext).at(0).mBytes, "ABCD");
}

TEST(RecentTrafficTest, TheOldestIsForgotten)
{
    RecentTraffic lTraffic;
    Add(lTraffic, true, cNoon, std::string(100000, 'x') + "end");
    uint64_t lNext = 0;
    size_t lBytes = 0;
    for (const TrafficBlock& lBlock : lTraffic.GetAfter(0, lNext))
    {
        lBytes += lBlock.mBytes.size();
    }
    EXPECT_EQ(lNext, 100003U);
    EXPECT_LE(lBytes, RecentTraffic::cMostBytes);
    EXPECT_GT(lBytes, RecentTraffic::cMostBytes / 2);
    EXPECT_TRUE(lTraffic.GetAfter(0, lNext).back().mBytes.ends_with("end"));
    for (int lIndex = 0; lIndex < 1000; ++lIndex)
    {
        Add(lTraffic, lIndex % 2 == 0, cNoon, "y");
    }
    EXPECT_LE(lTraffic.GetAfter(0, lNext).size(), RecentTraffic::cMostBlocks);
}

} // namespace
