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

using Answer = ScriptedDevice::Answer;

TEST_F(NetworkToolTest, PortsOfADeviceThatIsLostMeanwhileAreAFailure)
{
    mDevice.SetScript(
        [](const ScriptedDevice::Command& aCommand)
        {
            // Connecting is done; the survey begins with the serial registers.
            const bool lSurvey = aCommand.mCode == KyGvcp::cReadRegister && aCommand.Word(0) >= 0xB000;
            return lSurvey ? Answer{Answer::Vanish} : Answer();
        });
    const ToolResult lResult = RunTool({"ports", "--device", Device()});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_EQ("kyserial: the connection to the device was lost\n", lResult.mError);
}

/// How long a program takes to end after it was asked to, while the device keeps it waiting.
std::chrono::milliseconds TimeToEnd(KyTest::Process& aTool)
{
    const auto lBegin = std::chrono::steady_clock::now();
    EXPECT_TRUE(aTool.AskToEnd());
    static_cast<void>(aTool.Wait()); // ignored: a signal may end it
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - lBegin);
}

TEST_F(NetworkToolTest, EndsAtOnceWhileADeviceThatPromisesForEverIsConnected)
{
    mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Promise, 0, 60000}; });
    for (const std::vector<std::string>& lCommand :
         {std::vector<std::string>{"bridge", "--port", "uart0", "--clser", "GigEToolTest"},
          {"term", "--port", "uart0"},
          {"features", "list"},
          {"ports"}})
    {
        std::vector<std::string> lArguments = lCommand;
        lArguments.insert(lArguments.end(), {"--device", Device()});
        auto lBest = std::chrono::milliseconds::max();
        for (int lTry = 0; lTry < 3 && lBest >= std::chrono::seconds(1); ++lTry) // the machine may be busy
        {
            mDevice.TakeCommands();
            KyTest::Process lTool;
            KyTest::Process::Files lFiles;
            lFiles.mInput = KyTest::Process::Input::Pipe;
            ASSERT_TRUE(lTool.Start("kyserial", lArguments, lFiles));
            ASSERT_TRUE(mDevice.WaitForCommand(KyGvcp::cDiscovery));
            lBest = std::min(lBest, TimeToEnd(lTool));
        }
        EXPECT_LT(lBest, std::chrono::seconds(1)) << lCommand[0];
    }
}

TEST_F(NetworkToolTest, ABridgeEndsWithinASecondWhileItsDeviceKeepsItWaiting)
{
    auto lBest = std::chrono::milliseconds::max();
    for (int lTry = 0; lTry < 3 && lBest >= std::chrono::seconds(1); ++lTry) // the machine may be busy
    {
        mDevice.SetScript({});
        mDevice.PutWord(0xB8FC, 0x80000001); // a UART
        KyTest::Process lTool;
        ASSERT_TRUE(lTool.Start("kyserial",
                                {"bridge", "--stats-json", "--reconnect", "--port", "uart0", "--clser",
                                 "GigEToolTest", "--device", Device()},
                                {}));
        ASSERT_TRUE(lTool.WaitForOutput("\"final\":false")) << lTool.Error();
        mDevice.SetScript([](const ScriptedDevice::Command&) { return Answer{Answer::Promise, 0, 60000}; });
        mDevice.TakeCommands();
        ASSERT_TRUE(mDevice.WaitForCommand(KyGvcp::cWriteRegister)); // a sign of life waits
        lBest = std::min(lBest, TimeToEnd(lTool));
        mDevice.ReleaseControl();
    }
    EXPECT_LT(lBest, std::chrono::seconds(1));
}

TEST_F(NetworkToolTest, SaysWhyADeviceCannotBeUsed)
{
    mDevice.GiveControlAway();
    const ToolResult lTaken = RunTool({"features", "set", "--device", Device(), "Rate", "1"});
    EXPECT_EQ(1, lTaken.mStatus);
    EXPECT_THAT(lTaken.mError, HasSubstr("kyserial: cannot connect " + Device() + ": "));
    EXPECT_THAT(lTaken.mError, HasSubstr("Another application controls the device at " + Device()));
    mDevice.SwitchOff();
    EXPECT_THAT(RunTool({"ports", "--device", Device()}).mError,
                HasSubstr("No device answers at " + Device()));
    const ToolResult lWrong = RunTool({"ports", "--device", "gev://cam_era"});
    EXPECT_EQ(2, lWrong.mStatus);
    EXPECT_THAT(
        lWrong.mError,
        HasSubstr("\"cam_era\" is no IPv4 address and no name of a host; use gev://ADDRESS-OR-HOST[:PORT]"));
}

} // namespace
