// "kyserial doctor" with devices in good and in bad states.

#include "GigE/FakeSpace.h"
#include "GigE/ScriptedDevice.h"
#include "Tools/ToolRun.h"

#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <memory>

using KyTest::IntReg;
using KyTest::RunTool;
using KyTest::ScriptedDevice;
using KyTest::ToolResult;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

/// What "doctor --json" says, by check.
struct Outcome
{
    int mStatus = -1;
    std::string mResult{};
    std::vector<std::string> mChecks{};
    std::map<std::string, std::string> mResults{};
    std::map<std::string, std::string> mReasons{};
    std::map<std::string, std::string> mAdvice{};
};

Outcome Examine(const std::vector<std::string>& aArguments)
{
    std::vector<std::string> lArguments = {"doctor", "--json"};
    lArguments.insert(lArguments.end(), aArguments.begin(), aArguments.end());
    const ToolResult lTool = RunTool(lArguments);
    EXPECT_EQ("", lTool.mError);
    Outcome lOutcome;
    lOutcome.mStatus = lTool.mStatus;
    const nlohmann::json lJson = nlohmann::json::parse(lTool.mOutput);
    lOutcome.mResult = lJson["result"];
    for (const nlohmann::json& lCheck : lJson["checks"])
    {
        const std::string lName = lCheck["check"];
        lOutcome.mChecks.push_back(lName);
        lOutcome.mResults[lName] = lCheck["result"];
        lOutcome.mReasons[lName] = lCheck["reason"];
        lOutcome.mAdvice[lName] = lCheck["advice"];
    }
    return lOutcome;
}

const std::vector<std::string> cAllChecks = {"interface", "route",     "mtu",         "discovery", "firewall",
                                             "control",   "heartbeat", "description", "ports",     "events"};

std::string NameOf(uint16_t aPort)
{
    return "gev://127.0.0.1:" + std::to_string(aPort);
}

class DoctorTest : public testing::Test
{
protected:
    std::string Device() const { return NameOf(mDevice.GetPort()); }

    ScriptedDevice mDevice{KyTest::Description(
        "<Category Name=\"Root\"><pFeature>Rate</pFeature></Category>" + IntReg("Rate", "0x20000"))};
};

TEST(DoctorCameraTest, ACameraInGoodStatePassesEachCheck)
{
    auto lModel = std::make_shared<KySimulator::CameraModel>(KySimulator::CameraConfiguration());
    KySimulator::NetworkCamera lCamera(lModel, {{0x7F000001, 0}, false});
    ASSERT_TRUE(lCamera.Start()) << lCamera.GetError();
    const Outcome lOutcome = Examine({NameOf(lCamera.GetEndpoint().mPort)});
    EXPECT_EQ(0, lOutcome.mStatus);
    EXPECT_EQ(cAllChecks, lOutcome.mChecks);
    for (const std::string lCheck :
         {"interface", "route", "mtu", "discovery", "control", "description", "ports", "events"})
    {
        EXPECT_EQ("ok", lOutcome.mResults.at(lCheck)) << lCheck << ": " << lOutcome.mReasons.at(lCheck);
    }
    EXPECT_NE("failed", lOutcome.mResults.at("heartbeat")); // a busy machine may be slow to answer
    EXPECT_EQ("uart0 uart1 bulk0 bulk1 bulk2 bulk3 bulk4 bulk5 bulk6 bulk7", lOutcome.mReasons.at("ports"));
    EXPECT_THAT(lOutcome.mReasons.at("route"), StartsWith("127.0.0.1 from 127.0.0.1/8 "));
    // It hears broadcasts on the usual port only.
    EXPECT_EQ("warning", lOutcome.mResults.at("firewall"));
    EXPECT_THAT(lOutcome.mAdvice.at("firewall"), HasSubstr("let UDP from port 3956 through"));
}

TEST_F(DoctorTest, ALineSaysEachCheck)
{
    const ToolResult lTool = RunTool({"doctor", Device()});
    EXPECT_EQ(1, lTool.mStatus); // it has no serial ports
    EXPECT_THAT(lTool.mOutput,
                StartsWith("interface    ok       the device is on this computer\nroute        ok   "));
    EXPECT_THAT(lTool.mOutput, HasSubstr("\ndiscovery    ok       Korvo Scripted S1 02:00:12:34:56:78\n"));
    EXPECT_THAT(lTool.mOutput,
                HasSubstr("\ncontrol      ok       no other application controls the device\n"));
    EXPECT_THAT(lTool.mOutput, HasSubstr("\ndescription  ok       1 features\n"));
    EXPECT_THAT(lTool.mOutput, HasSubstr("\nports        failed   the device offers no serial port; "));
}

TEST_F(DoctorTest, GivesTheDeviceBackAndWritesNothingOfTheMakers)
{
    mDevice.TakeCommands();
    static_cast<void>(Examine({"--device", Device()}));
    EXPECT_EQ(0U, mDevice.GetWord(KyGvcp::cControlPrivilegeRegister));
    int lWrites = 0;
    for (const ScriptedDevice::Command& lCommand : mDevice.TakeCommands())
    {
        EXPECT_NE(KyGvcp::cWriteMemory, lCommand.mCode);
        const bool lWrite = lCommand.mCode == KyGvcp::cWriteRegister;
        EXPECT_TRUE(!lWrite || lCommand.Word(0) < KyGvcp::cManufacturerRegisters) << lCommand.Word(0);
        lWrites += lWrite ? 1 : 0;
    }
    EXPECT_GT(lWrites, 0);
}

TEST_F(DoctorTest, ADeviceThatIsOffFailsAtDiscovery)
{
    mDevice.SwitchOff();
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ(1, lOutcome.mStatus);
    EXPECT_EQ("failed", lOutcome.mResult);
    EXPECT_EQ(cAllChecks, lOutcome.mChecks);
    EXPECT_EQ("failed", lOutcome.mResults.at("discovery"));
    EXPECT_EQ("nobody answers at " + Device(), lOutcome.mReasons.at("discovery"));
    EXPECT_NE("", lOutcome.mAdvice.at("discovery"));
    EXPECT_EQ("warning", lOutcome.mResults.at("events"));
    EXPECT_EQ("not checked: the device does not answer", lOutcome.mReasons.at("events"));
}

TEST_F(DoctorTest, AnotherApplicationKeepsItsControl)
{
    mDevice.GiveControlAway();
    mDevice.PutWord(KyGvcp::cControlPrivilegeRegister, KyGvcp::cControlAccess);
    mDevice.PutWord(KyGvcp::cPrimaryAddressRegister, 0x0A000007);
    mDevice.PutWord(KyGvcp::cPrimaryPortRegister, 5000);
    mDevice.TakeCommands();
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("warning", lOutcome.mResults.at("control"));
    EXPECT_EQ("another application (10.0.0.7:5000) controls the device", lOutcome.mReasons.at("control"));
    EXPECT_EQ("ok", lOutcome.mResults.at("description"));
    EXPECT_EQ("warning", lOutcome.mResults.at("events"));
    for (const ScriptedDevice::Command& lCommand : mDevice.TakeCommands())
    {
        EXPECT_NE(KyGvcp::cWriteRegister, lCommand.mCode);
        EXPECT_NE(KyGvcp::cWriteMemory, lCommand.mCode);
    }
}

TEST_F(DoctorTest, ExclusiveAccessEndsTheChecks)
{
    mDevice.PutWord(KyGvcp::cControlPrivilegeRegister, KyGvcp::cExclusiveAccess);
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("another application has exclusive access", lOutcome.mReasons.at("control"));
    EXPECT_EQ("not checked: the device does not let this application read",
              lOutcome.mReasons.at("description"));
    EXPECT_EQ(cAllChecks, lOutcome.mChecks);
}

TEST(DoctorDescriptionTest, ABrokenDescriptionFailsWithItsReason)
{
    const ScriptedDevice lDevice("<RegisterDescription");
    const Outcome lOutcome = Examine({NameOf(lDevice.GetPort())});
    EXPECT_EQ(1, lOutcome.mStatus);
    EXPECT_EQ("failed", lOutcome.mResults.at("description"));
    EXPECT_THAT(lOutcome.mReasons.at("description"), HasSubstr("description"));
    EXPECT_EQ("ok", lOutcome.mResults.at("events"));
}

TEST_F(DoctorTest, ADeviceWithoutAMessageChannelFailsAtEvents)
{
    mDevice.PutWord(KyGvcp::cMessageChannelCountRegister, 0);
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ(1, lOutcome.mStatus);
    EXPECT_EQ("failed", lOutcome.mResults.at("events"));
    EXPECT_EQ("the device has no message channel, so no port can receive", lOutcome.mReasons.at("events"));
}

TEST_F(DoctorTest, ADeviceThatHidesItsEventPortNeedsAnOpenFirewall)
{
    mDevice.PutWord(KyGvcp::cMessageCapabilityRegister, 0);
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("warning", lOutcome.mResults.at("events"));
    EXPECT_THAT(lOutcome.mAdvice.at("events"), HasSubstr("firewall"));
}

TEST_F(DoctorTest, ARouterThatTranslatesAddressesFailsAtEvents)
{
    mDevice.PutWord(KyGvcp::cPrimaryAddressRegister, 0xC0A80063);
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("failed", lOutcome.mResults.at("events"));
    EXPECT_EQ("the device sees this computer as 192.168.0.99, and sends events to 127.0.0.1",
              lOutcome.mReasons.at("events"));
}

TEST_F(DoctorTest, AHeartbeatThatIsSwitchedOffIsAWarning)
{
    mDevice.PutWord(KyGvcp::cConfigurationRegister, KyGvcp::cHeartbeatDisabled);
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("warning", lOutcome.mResults.at("heartbeat"));
}

TEST_F(DoctorTest, CommandsThatHadToBeSentAgainAreAWarning)
{
    auto lCount = std::make_shared<int>(0);
    mDevice.SetScript(
        [lCount](const ScriptedDevice::Command& aCommand)
        {
            using Answer = ScriptedDevice::Answer;
            const bool lLost = aCommand.mCode == KyGvcp::cReadRegister &&
                               aCommand.Word(0) == KyGvcp::cHeartbeatRegister && ++*lCount % 7 == 0;
            return lLost ? Answer{Answer::Silence} : Answer();
        });
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ("warning", lOutcome.mResults.at("heartbeat"));
    EXPECT_THAT(lOutcome.mReasons.at("heartbeat"), HasSubstr(" of 20 commands had to be sent again"));
}

TEST_F(DoctorTest, ADeviceThatIsLostMeanwhileFails)
{
    mDevice.SetScript(
        [](const ScriptedDevice::Command& aCommand)
        {
            using Answer = ScriptedDevice::Answer;
            const bool lSurvey = aCommand.mCode == KyGvcp::cReadRegister && aCommand.Word(0) >= 0xB000;
            return lSurvey ? Answer{Answer::Vanish} : Answer();
        });
    const Outcome lOutcome = Examine({Device()});
    EXPECT_EQ(1, lOutcome.mStatus);
    EXPECT_EQ("the connection to the device was lost", lOutcome.mReasons.at("ports"));
}

TEST(DoctorWayTest, AnInterfaceThatIsNotThereFails)
{
    const Outcome lOutcome = Examine({"gev://127.0.0.1?interface=none7"});
    EXPECT_EQ(1, lOutcome.mStatus);
    EXPECT_EQ(cAllChecks, lOutcome.mChecks);
    EXPECT_EQ("failed", lOutcome.mResults.at("interface"));
    EXPECT_EQ("this computer has no interface none7 that is up and has an IPv4 address",
              lOutcome.mReasons.at("interface"));
    EXPECT_EQ("not checked: no interface", lOutcome.mReasons.at("route"));
}

TEST(DoctorWayTest, ANameThatIsNoDeviceIsAUsageError)
{
    KyTest::ExpectUsageError({"doctor", "gev://cam_era"},
                             "kyserial: DEVICE: \"cam_era\" is no IPv4 address and no name of a host; use "
                             "gev://ADDRESS-OR-HOST[:PORT][?interface=ADDRESS]");
}

TEST(DoctorWayTest, TheSimulatedCameraPasses)
{
    const Outcome lOutcome = Examine({"sim"});
    EXPECT_EQ(0, lOutcome.mStatus);
    EXPECT_EQ((std::vector<std::string>{"description", "ports", "events"}), lOutcome.mChecks);
    EXPECT_EQ("ok", lOutcome.mResult);
    EXPECT_EQ(1, Examine({"sim", "--sim-cut", "1"}).mStatus);
}

} // namespace
