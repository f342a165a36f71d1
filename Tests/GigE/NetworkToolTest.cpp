#include "GigE/FakeSpace.h"
#include "GigE/ScriptedDevice.h"
#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using KyTest::IntReg;
using KyTest::RunTool;
using KyTest::ScriptedDevice;
using KyTest::ToolResult;
using testing::HasSubstr;

namespace
{

class NetworkToolTest : public testing::Test
{
protected:
    std::string Device() const { return "gev://127.0.0.1:" + std::to_string(mDevice.GetPort()); }

    ScriptedDevice mDevice{KyTest::Description(
        "<Category Name=\"Root\"><pFeature>Rate</pFeature></Category>" + IntReg("Rate", "0x20000"))};
};

TEST_F(NetworkToolTest, DevicesAsksAnAddress)
{
    const ToolResult lResult = RunTool({"devices", "--json", "--address", "127.0.0.1", "--udp-port",
                                        std::to_string(mDevice.GetPort()), "--time", "20000"});
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    const nlohmann::json lJson = nlohmann::json::parse(lResult.mOutput);
    ASSERT_EQ(1U, lJson["devices"].size());
    EXPECT_EQ(Device(), lJson["devices"][0]["device"]);
    EXPECT_EQ("Scripted", lJson["devices"][0]["model"]);
}

TEST_F(NetworkToolTest, DevicesSaysWhatItCannotAsk)
{
    const ToolResult lResult = RunTool({"devices", "--interface", "none7"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("kyserial: no network interface none7\n", lResult.mError);
}

TEST_F(NetworkToolTest, FeaturesListsGetsAndSets)
{
    mDevice.PutWord(0x20000, 9600);
    EXPECT_EQ("FEATURE  KIND     ACCESS  VALUE\nRate     Integer  RW      9600\n",
              RunTool({"features", "list", "--device", Device()}).mOutput);
    const ToolResult lSet = RunTool({"features", "set", "--device", Device(), "Rate", "0x100"});
    EXPECT_EQ(0, lSet.mStatus) << lSet.mError;
    EXPECT_EQ(256U, mDevice.GetWord(0x20000));
    EXPECT_EQ("256\n", RunTool({"features", "get", "-d", Device(), "Rate"}).mOutput);
}

TEST_F(NetworkToolTest, SaysWhyADeviceCannotBeUsed)
{
    mDevice.GiveControlAway();
    const ToolResult lTaken = RunTool({"ports", "--device", Device()});
    EXPECT_EQ(1, lTaken.mStatus);
    EXPECT_THAT(lTaken.mError, HasSubstr("kyserial: cannot connect " + Device() + ": "));
    EXPECT_THAT(lTaken.mError, HasSubstr("Another application controls the device at " + Device()));
    mDevice.SwitchOff();
    EXPECT_THAT(RunTool({"ports", "--device", Device()}).mError,
                HasSubstr("No device answers at " + Device()));
    const ToolResult lWrong = RunTool({"ports", "--device", "gev://camera"});
    EXPECT_EQ(2, lWrong.mStatus);
    EXPECT_THAT(lWrong.mError, HasSubstr("\"camera\" is no IPv4 address; use gev://ADDRESS[:PORT]"));
}

} // namespace
