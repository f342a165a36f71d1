// kyserial and kyserial-camera, each a process of its own, on a network that fails.

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

} // namespace
