// kyserial and kyserial-camera, each a process of its own, on a network that fails.

#include "GigE/CameraClient.h"
#include "Support/Process.h"
#include "Tools/BridgeRun.h"
#include "Tools/TerminalUser.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>
#include <vector>

using KyTest::BridgeRun;
using KyTest::Process;
using KyTest::RunTool;
using KyTest::TerminalUser;
using KyTest::ToolResult;
using testing::HasSubstr;
using testing::Not;

namespace
{

class CameraProcess
{
public:
    explicit CameraProcess(std::vector<std::string> aArguments)
    {
        const std::string lStart = "kyserial-camera: ready at ";
        aArguments.insert(aArguments.end(), {"--port", "0"});
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        EXPECT_TRUE(mProcess.Start("kyserial-camera", aArguments, lFiles));
        EXPECT_TRUE(mProcess.WaitForOutput("\n")) << mProcess.Error();
        const std::string lOutput = mProcess.Output();
        EXPECT_EQ(lOutput.find(lStart), 0U) << lOutput;
        mDevice = "gev://" + lOutput.substr(lStart.size(), lOutput.find_first_of(",\n") - lStart.size());
    }

    /// Ends it. \return Its last words.
    std::string End()
    {
        EXPECT_TRUE(mProcess.Feed("quit\n"));
        EXPECT_EQ(mProcess.Wait(), 0);
        return mProcess.Output();
    }

    Process mProcess;
    std::string mDevice;
};

// Every 5th acknowledge and every 3rd event. Bulk port 2 has an EEPROM and a sensor on an I2C bus.
TEST(FailingNetworkToolTest, I2CDetectFindsEverySlave)
{
    CameraProcess lCamera({"--drop", "ack:5", "--drop", "event:3"});
    // A read whose answer is not there within 50 ms is repeated: the machine may be busy.
    const ToolResult lResult = RunTool({"i2c", "detect", "--yes", "--json", "--port", "bulk2", "--retries",
                                        "5", "--device", lCamera.mDevice, "0x47", "0x51"});
    EXPECT_EQ(lResult.mStatus, 0) << lResult.mError;
    const nlohmann::json lFound = nlohmann::json::parse(lResult.mOutput, nullptr, false);
    ASSERT_FALSE(lFound.is_discarded()) << lResult.mOutput;
    EXPECT_EQ(lFound["addresses"], (nlohmann::json{0x48, 0x50}));
    EXPECT_THAT(lCamera.End(), Not(HasSubstr(" datagrams-dropped=0 ")));
}

TEST(FailingNetworkToolTest, ABridgeSurvivesItsCameraGoingAwayAndComingBack)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "this system has no pseudo terminals";
    }
    CameraProcess lCamera({"--fast"});
    const std::string lLink = Process::TemporaryFile(".pty");
    BridgeRun lBridge(
        {"--port", "bulk1", "--pty", lLink, "--baud", "115200", "--reconnect", "--device", lCamera.mDevice});
    {
        TerminalUser lUser(lLink);
        EXPECT_THAT(lUser.Ask("STATUS?\r\n", 41), HasSubstr("STATUS READY"));

        // Others may look, not touch.
        EXPECT_EQ(RunTool({"features", "get", "--device", lCamera.mDevice, "BulkMode"}).mOutput, "UART\n");
        EXPECT_THAT(RunTool({"features", "list", "--device", lCamera.mDevice}).mOutput,
                    HasSubstr("BulkSelector"));
        const ToolResult lOther =
            RunTool({"features", "set", "--device", lCamera.mDevice, "BulkMode", "USRT"});
        EXPECT_EQ(lOther.mStatus, 1);
        EXPECT_THAT(lOther.mError, HasSubstr("controls the device at " + lCamera.mDevice));

        ASSERT_TRUE(lCamera.mProcess.Feed("unplug\n"));
        EXPECT_TRUE(lBridge.mTool.WaitForError("the device is gone")) << lBridge.mTool.Error();
        lUser.Type("LOST?\r\n");
        EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"lost_bytes\":7"));
        ASSERT_TRUE(lCamera.mProcess.Feed("plug\n"));
        EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"reconnections\":1"));
        EXPECT_TRUE(lBridge.mTool.WaitForError("the device is back; 7 bytes to it are lost"));
        EXPECT_THAT(lUser.Ask("STATUS?\r\n", 41), HasSubstr("STATUS READY"));
    }
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 115200);
    // What it changed in the camera, it has changed back.
    RunTool({"features", "set", "--device", lCamera.mDevice, "BulkSelector", "Bulk1"});
    EXPECT_EQ(RunTool({"features", "get", "--device", lCamera.mDevice, "BulkBaudRate"}).mOutput,
              "Baud9600\n");
    lCamera.End();
    static_cast<void>(std::remove(lLink.c_str())); // ignored: the bridge has removed it
}

/// What "gev://127.0.0.1:PORT" names.
KyGvcp::Endpoint PlaceOf(const std::string& aDevice)
{
    return {0x7F000001, static_cast<uint16_t>(std::stoul("0" + aDevice.substr(aDevice.rfind(':') + 1)))};
}

TEST(NetworkToolBesideAnotherTest, ReadsADeviceThatAnotherApplicationControls)
{
    CameraProcess lCamera({"--fast"});
    CameraClient lOther(PlaceOf(lCamera.mDevice));
    lOther.Take();
    lOther.Write(KyGvcp::cHeartbeatRegister, 600000);
    const ToolResult lPorts = RunTool({"ports", "--device", lCamera.mDevice});
    EXPECT_EQ(0, lPorts.mStatus) << lPorts.mError;
    EXPECT_THAT(lPorts.mOutput, HasSubstr("uart0  0      yes        register UART  UART"));
    EXPECT_THAT(lPorts.mOutput, HasSubstr("bulk7  9      yes        features"));
    EXPECT_THAT(RunTool({"features", "list", "--device", lCamera.mDevice}).mOutput,
                HasSubstr("BulkSelector"));
    EXPECT_EQ("Bulk0\n", RunTool({"features", "get", "--device", lCamera.mDevice, "BulkSelector"}).mOutput);
    const std::string lPort = std::to_string(PlaceOf(lCamera.mDevice).mPort);
    EXPECT_THAT(
        RunTool({"devices", "--address", "127.0.0.1", "--udp-port", lPort, "--time", "20000"}).mOutput,
        HasSubstr(lCamera.mDevice));
    // All that has left the other one in control.
    EXPECT_EQ(KyGvcp::cControlAccess, lOther.Read(KyGvcp::cControlPrivilegeRegister));
    EXPECT_EQ(600000U, lOther.Read(KyGvcp::cHeartbeatRegister));
    lCamera.End();
}

TEST(DeviceIpToolTest, GivesACameraAnotherAddressAndStoresOne)
{
    CameraProcess lCamera({"--mac", "0A1B2C3D4E5F"});
    const std::string lPort = std::to_string(PlaceOf(lCamera.mDevice).mPort);
    const auto lRun = [&](const std::vector<std::string>& aArguments)
    {
        std::vector<std::string> lArguments = {"devices", "--address", "127.0.0.1", "--udp-port",
                                               lPort,     "--time",    "20000"};
        lArguments.insert(lArguments.end(), aArguments.begin(), aArguments.end());
        return RunTool(lArguments);
    };
    const ToolResult lStored = lRun({"--persistent-ip", "0A1B2C3D4E5F=127.0.0.77/8/127.0.0.254"});
    EXPECT_EQ(0, lStored.mStatus) << lStored.mError;
    EXPECT_EQ("", lStored.mOutput);
    CameraClient lClient(PlaceOf(lCamera.mDevice));
    EXPECT_EQ(0x7F00004DU, lClient.Read(KyGvcp::cPersistentAddressRegister));
    EXPECT_EQ(0xFF000000U, lClient.Read(KyGvcp::cPersistentMaskRegister));
    EXPECT_EQ(0x7F0000FEU, lClient.Read(KyGvcp::cPersistentGatewayRegister));
    EXPECT_EQ(0x7F000001U, lClient.Read(KyGvcp::cAddressRegister));

    const ToolResult lForced = lRun({"--json", "--force-ip", "0a:1b:2c:3d:4e:5f=127.0.0.78/255.0.0.0"});
    EXPECT_EQ(0, lForced.mStatus) << lForced.mError;
    const nlohmann::json lJson = nlohmann::json::parse(lForced.mOutput, nullptr, false);
    ASSERT_FALSE(lJson.is_discarded()) << lForced.mOutput;
    EXPECT_EQ("0A:1B:2C:3D:4E:5F", lJson["devices"][0]["mac"]);
    KyGvcp::Endpoint lMoved = PlaceOf(lCamera.mDevice);
    lMoved.mAddress = HasOneLoopbackAddress() ? 0x7F000001 : 0x7F00004E;
    CameraClient lThere(lMoved);
    EXPECT_EQ(0x7F00004EU, lThere.Read(KyGvcp::cAddressRegister));
    lCamera.End(); // checks that it is still there and ends in order
}

TEST(DeviceIpToolTest, RefusesWhatItCannotTakeApart)
{
    for (const auto& [lText, lReason] :
         {std::pair<std::string, std::string>{"10.0.0.1/24", "use MAC=ADDRESS/MASK[/GATEWAY]"},
          {"001122334455=10.0.0.1", "use MAC=ADDRESS/MASK[/GATEWAY]"},
          {"0011223344=10.0.0.1/24", "\"0011223344\" is no MAC address"},
          {"00:11:22:33:44-55=10.0.0.1/24", "is no MAC address"},
          {"0:0:1:1:2:2:3:3:4=10.0.0.1/24", "is no MAC address"}})
    {
        const ToolResult lResult = RunTool({"devices", "--force-ip", lText});
        EXPECT_EQ(2, lResult.mStatus) << lText;
        EXPECT_THAT(lResult.mError, HasSubstr(lReason));
    }
    const ToolResult lMask = RunTool({"devices", "--persistent-ip", "001122334455=10.0.0.1/33"});
    EXPECT_EQ(1, lMask.mStatus);
    EXPECT_THAT(lMask.mError, HasSubstr("\"33\" is no network mask; use one like 255.255.255.0"));
    EXPECT_EQ(2, RunTool({"devices", "--force-ip", "001122334455=10.0.0.1/8", "--persistent-ip",
                          "001122334455=10.0.0.1/8"})
                     .mStatus);
}

} // namespace
