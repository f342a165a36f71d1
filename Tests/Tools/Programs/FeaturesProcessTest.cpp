#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

TEST(FeaturesProcessTest, ListsTheFeaturesOfTheSimulatedCamera)
{
    const ToolResult lResult = RunTool({"features", "list"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("", lResult.mError);
    EXPECT_THAT(lResult.mOutput, HasSubstr("BulkMode                      Enumeration  RW      UART\n"));
    EXPECT_THAT(lResult.mOutput, HasSubstr("DeviceVendorName              String       RO      Korvo\n"));
    EXPECT_THAT(lResult.mOutput, HasSubstr("Bulk0DownstreamData           Register     WO      -\n"));
}

TEST(FeaturesProcessTest, JsonHasTheEntries)
{
    const nlohmann::json lJson = nlohmann::json::parse(RunTool({"features", "list", "--json"}).mOutput);
    bool lFound = false;
    for (const nlohmann::json& lFeature : lJson["features"])
    {
        if (lFeature["name"] == "BulkParity")
        {
            lFound = true;
            EXPECT_EQ((nlohmann::json{"None", "Even", "Odd"}), lFeature["entries"]);
        }
    }
    EXPECT_TRUE(lFound);
}

TEST(FeaturesProcessTest, GetsAFeature)
{
    EXPECT_EQ("UART\n", RunTool({"features", "get", "BulkMode"}).mOutput);
    const ToolResult lUnknown = RunTool({"features", "get", "Nothing"});
    EXPECT_EQ(1, lUnknown.mStatus);
    EXPECT_THAT(lUnknown.mError, HasSubstr("kyserial: cannot read Nothing: "));
}

TEST(FeaturesProcessTest, GetsARegisterInHexadecimal)
{
    const ToolResult lResult = RunTool({"features", "get", "EventBulk1UpstreamDataBuffer"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ(std::string(1024, '0') + '\n', lResult.mOutput);
}

TEST(FeaturesProcessTest, SetsAFeatureOrSaysWhyNot)
{
    EXPECT_EQ(0, RunTool({"features", "set", "BulkMode", "SPI"}).mStatus);
    const ToolResult lUnfit = RunTool({"features", "set", "BulkMode", "CAN"});
    EXPECT_EQ(1, lUnfit.mStatus);
    EXPECT_THAT(lUnfit.mError, HasSubstr("kyserial: cannot set BulkMode: "));
    EXPECT_THAT(lUnfit.mError, HasSubstr("The feature BulkMode has no entry CAN."));
    EXPECT_EQ(1, RunTool({"features", "set", "DeviceVendorName", "x"}).mStatus);
}

} // namespace
