#include "kyserial/BridgeStatistics.h"

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

TEST_F(BridgeStatisticsTest, JsonHasTheCountsAndWhoseTheyAre)
{
    const nlohmann::json lJson = Json({100, 200, 3, 38400, true}, milliseconds(2000), false);
    EXPECT_EQ(lJson["port"], "uart0");
    EXPECT_EQ(lJson["host"], "Lens");
    EXPECT_EQ(lJson["seconds"], 2.0);
    EXPECT_EQ(lJson["final"], false);
    EXPECT_EQ(lJson["baud_rate"], 38400);
    EXPECT_EQ(lJson["connected"], true);
    EXPECT_EQ(lJson["to_device"]["bytes"], 100);
    EXPECT_EQ(lJson["from_device"]["bytes"], 200);
    EXPECT_EQ(lJson["unread_bytes"], 3);
    EXPECT_EQ(lJson["time"].get<std::string>().size(), std::string("2025-11-21T08:53:01.123456Z").size());
}

TEST_F(BridgeStatisticsTest, RatesAreThoseSinceTheReportBefore)
{
    Json({100, 0, 0, 9600, true}, milliseconds(1000), false);
    const nlohmann::json lJson = Json({150, 40, 0, 9600, true}, milliseconds(1500), false);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 100.0);
    EXPECT_EQ(lJson["from_device"]["bytes_per_second"], 80.0);
}

TEST_F(BridgeStatisticsTest, RatesOfTheFinalReportAreThoseOfTheWholeTime)
{
    Json({100, 0, 0, 9600, true}, milliseconds(1000), false);
    const nlohmann::json lJson = Json({300, 50, 0, 9600, false}, milliseconds(4000), true);
    EXPECT_EQ(lJson["final"], true);
    EXPECT_EQ(lJson["connected"], false);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 75.0);
    EXPECT_EQ(lJson["from_device"]["bytes_per_second"], 12.5);
}

TEST_F(BridgeStatisticsTest, NoTimeMeansNoRate)
{
    const nlohmann::json lJson = Json({100, 200, 0, 9600, true}, milliseconds(0), true);
    EXPECT_EQ(lJson["to_device"]["bytes_per_second"], 0.0);
}

TEST_F(BridgeStatisticsTest, LineHasBytesAndRates)
{
    EXPECT_EQ(mStatistics.Line({100, 2000, 0, 9600, true}, mBegin + milliseconds(500)),
              "uart0 9600 bit/s, to device 100 bytes 200/s, from device 2000 bytes 4000/s");
    EXPECT_EQ(mStatistics.Line({100, 2000, 0, 9600, false}, mBegin + milliseconds(1000)),
              "uart0 9600 bit/s, to device 100 bytes 0/s, from device 2000 bytes 0/s, device is gone");
}

// A name of the file system need not be text.
TEST(BridgeStatisticsNameTest, JsonIsTextWhateverTheNames)
{
    BridgeStatistics lStatistics("uart0", "a\xFF", {});
    EXPECT_TRUE(nlohmann::json::accept(lStatistics.Json({}, {}, false)));
}

} // namespace
