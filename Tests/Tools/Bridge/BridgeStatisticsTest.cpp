#include "kyserial/Bridge/BridgeStatistics.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KySerialTool;
using std::chrono::milliseconds;

namespace
{

class BridgeStatisticsTest : public testing::Test
{
protected:
    nlohmann::json Json(const BridgeCounts& aCounts, milliseconds aTime, bool aFinal)
    {
        const std::string lText = mStatistics.Json(aCounts, mBegin + aTime, aFinal);
        EXPECT_EQ(lText.find('\n'), lText.size() - 1) << "one line";
        return nlohmann::json::parse(lText);
    }

    const BridgeStatistics::Clock::time_point mBegin{};
    BridgeStatistics mStatistics{"uart0", "Lens", mBegin};
};

TEST_F(BridgeStatisticsTest, JsonHasTheCountsOfThePort)
{
    const nlohmann::json lJson = Json({100, 200, 3, 38400, true, 5}, milliseconds(2000), false);
    EXPECT_EQ(lJson["port"], "uart0");
    EXPECT_EQ(lJson["host"], "Lens");
    EXPECT_EQ(lJson["seconds"], 2.0);
    EXPECT_EQ(lJson["final"], false);
    EXPECT_EQ(lJson["baud_rate"], 38400);
    EXPECT_EQ(lJson["connected"], true);
    EXPECT_EQ(lJson["to_device"]["bytes"], 100);
    EXPECT_EQ(lJson["from_device"]["bytes"], 200);
    EXPECT_EQ(lJson["unread_bytes"], 3);
    EXPECT_EQ(lJson["reconnections"], 5);
    EXPECT_EQ(lJson["time"].get<std::string>().size(), std::string("2025-11-21T08:53:01.123456Z").size());
}

BridgeCounts SomeLosses()
{
    BridgeCounts lCounts;
    lCounts.mLedgerToDevice.mTaken = 100;
    lCounts.mLedgerToDevice.mDelivered = 80;
    lCounts.mLedgerToDevice.mAway = 1;
    lCounts.mLedgerToDevice.mRefused = 2;
    lCounts.mLedgerToDevice.mStopped = 3;
    lCounts.mLedgerFromDevice.mTaken = 1000;
    lCounts.mLedgerFromDevice.mDelivered = 500;
    lCounts.mLedgerFromDevice.mOverrun = 10;
    lCounts.mLedgerFromDevice.mCleared = 20;
    lCounts.mLedgerFromDevice.mRefused = 30;
    lCounts.mLedgerFromDevice.mUnread = 40;
    lCounts.mLedgerFromDevice.mStopped = 50;
    return lCounts;
}

TEST_F(BridgeStatisticsTest, JsonHasTheLedgerOfEachWay)
{
    const nlohmann::json lJson = Json(SomeLosses(), milliseconds(2000), false);
    EXPECT_EQ(lJson["to_device"]["taken"], 100);
    EXPECT_EQ(lJson["to_device"]["delivered"], 80);
    EXPECT_EQ(lJson["to_device"]["lost"],
              (nlohmann::json{{"away", 1}, {"cleared", 0}, {"refused", 2}, {"stopped", 3}}));
    EXPECT_EQ(lJson["to_device"]["on_the_way"], 14);
    EXPECT_EQ(lJson["lost_bytes"], 6) << "for all reasons";
    EXPECT_EQ(lJson["from_device"]["taken"], 1000);
    EXPECT_EQ(lJson["from_device"]["delivered"], 500);
    EXPECT_EQ(
        lJson["from_device"]["lost"],
        (nlohmann::json{{"overrun", 10}, {"cleared", 20}, {"refused", 30}, {"unread", 40}, {"stopped", 50}}));
    EXPECT_EQ(lJson["from_device"]["on_the_way"], 350);
}

TEST_F(BridgeStatisticsTest, LossesAreSaidInOneLineWithTheirReasons)
{
    BridgeCounts lCounts = SomeLosses();
    EXPECT_EQ(
        LossText(lCounts),
        "not delivered: 6 bytes to the device (1 away, 2 refused, 3 stopped), 150 bytes from the device "
        "(10 overrun, 20 cleared, 30 refused, 40 unread, 50 stopped)");
    lCounts.mLedgerFromDevice = {};
    lCounts.mLedgerToDevice.mAway = 0;
    EXPECT_EQ(LossText(lCounts), "not delivered: 5 bytes to the device (2 refused, 3 stopped)");
    EXPECT_EQ(LossText({}), "");
}

TEST_F(BridgeStatisticsTest, RatesAreThoseSinceTheReportBefore)
{
    Json({100, 0, 0, 9600, true, 0}, milliseconds(1000), false);
    const nlohmann::json lJson = Json({150, 40, 0, 9600, true, 0}, milliseconds(1500), false);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 100.0);
    EXPECT_EQ(lJson["from_device"]["bytes_per_second"], 80.0);
}

TEST_F(BridgeStatisticsTest, RatesOfTheFinalReportAreThoseOfTheWholeTime)
{
    Json({100, 0, 0, 9600, true, 0}, milliseconds(1000), false);
    const nlohmann::json lJson = Json({300, 50, 0, 9600, false, 0}, milliseconds(4000), true);
    EXPECT_EQ(lJson["final"], true);
    EXPECT_EQ(lJson["connected"], false);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 75.0);
    EXPECT_EQ(lJson["from_device"]["bytes_per_second"], 12.5);
}

TEST_F(BridgeStatisticsTest, NoTimeMeansNoRate)
{
    const nlohmann::json lJson = Json({100, 200, 0, 9600, true, 0}, milliseconds(0), true);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 0.0);
}

TEST_F(BridgeStatisticsTest, LineHasBytesAndRates)
{
    EXPECT_EQ(mStatistics.Line({100, 2000, 0, 9600, true, 0}, mBegin + milliseconds(500)),
              "uart0 9600 bit/s, to device 100 bytes 200/s, from device 2000 bytes 4000/s");
    EXPECT_EQ(mStatistics.Line({100, 2000, 0, 9600, false, 0}, mBegin + milliseconds(1000)),
              "uart0 9600 bit/s, to device 100 bytes 0/s, from device 2000 bytes 0/s, device is gone");
}

// A name of the file system need not be text.
TEST(BridgeStatisticsNameTest, JsonIsTextWhateverTheNames)
{
    BridgeStatistics lStatistics("uart0", "a\xFF", {});
    EXPECT_TRUE(nlohmann::json::accept(lStatistics.Json({}, {}, false)));
}

} // namespace
