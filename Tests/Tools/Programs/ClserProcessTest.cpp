// "kyserial clser" and "kyserial bridge --clser", each in a process of its own.

#include "Support/PatternMatcher.h"
#include "Support/UniqueName.h"
#include "Support/WaitFor.h"
#include "Tools/BridgeRun.h"

#include <JxUtilsLib/Thread.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using namespace KyTest;
using testing::HasSubstr;
using testing::Not;

namespace
{

class ClserProcessTest : public testing::Test
{
protected:
    /// Runs "clser term" with aInput, which ends only when aOutput has come.
    ToolResult RunTerm(const std::vector<std::string>& aArguments, const std::string& aInput,
                       const std::string& aOutput)
    {
        std::vector<std::string> lArguments = {"clser", "term", mName};
        lArguments.insert(lArguments.end(), aArguments.begin(), aArguments.end());
        Process lTool;
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        EXPECT_TRUE(lTool.Start("kyserial", lArguments, lFiles));
        EXPECT_TRUE(lTool.Feed(aInput));
        EXPECT_TRUE(lTool.WaitForOutput(aOutput)) << lTool.Error();
        lTool.CloseInput();
        const int lStatus = lTool.Wait().value_or(-1);
        return {lStatus, lTool.Output(), lTool.Error()};
    }

    const std::string mName = UniqueName("Lens");
};

TEST_F(ClserProcessTest, AClientTalksToTheDeviceAtTheRateItWants)
{
    BridgeRun lBridge({"--port", "bulk0", "--clser", mName});
    const ToolResult lResult = RunTerm({"--baud", "38400"}, "STATUS?\r\n", cLensStatus);
    EXPECT_EQ(lResult.mStatus, 0);
    EXPECT_EQ(lResult.mOutput, cLensStatus);
    EXPECT_EQ(lResult.mError, "sent 9 bytes, received 41 bytes\n");
    EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"from_device\":{\"bytes\":41,"));
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 38400);
    EXPECT_EQ(lBridge.LastReport()["final"], true);
    EXPECT_EQ(lBridge.mTool.Error(), "bulk0 of sim is " + mName +
                                         " for Camera Link clients; Ctrl-C ends\n"
                                         "sent 9 bytes, received 41 bytes\n");
}

TEST_F(ClserProcessTest, EveryByteComesBackInOrder)
{
    std::string lText;
    for (int lByte = 0; lByte < 20000; ++lByte)
    {
        lText += static_cast<char>(lByte * 7 + lByte / 256);
    }
    BridgeRun lBridge({"--port", "bulk4", "--clser", mName, "--sim-fast"});
    const ToolResult lResult = RunTerm({"--quiet"}, lText, lText);
    EXPECT_EQ(lResult.mStatus, 0);
    EXPECT_TRUE(lResult.mOutput == lText) << lResult.mOutput.size() << " bytes came back";
    EXPECT_EQ(lBridge.End(), 0);
}

TEST_F(ClserProcessTest, ListShowsTheServersThatRun)
{
    EXPECT_THAT(RunTool({"clser", "list"}).mOutput, Not(HasSubstr(mName)));
    BridgeRun lBridge({"--port", "bulk0", "--clser", mName});
    const ToolResult lTable = RunTool({"clser", "list"});
    EXPECT_EQ(lTable.mStatus, 0);
    EXPECT_THAT(lTable.mOutput, MatchesPattern("INDEX  NAME\n(.|\n)*[0-9]+ +" + mName + "\n(.|\n)*"));
    const nlohmann::json lJson = nlohmann::json::parse(RunTool({"clser", "list", "--json"}).mOutput);
    bool lFound = false;
    for (const auto& lServer : lJson["servers"])
    {
        lFound = lFound || lServer["name"] == mName;
    }
    EXPECT_TRUE(lFound);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_THAT(RunTool({"clser", "list"}).mOutput, Not(HasSubstr(mName)));
}

TEST_F(ClserProcessTest, AServerThatIsNotThereIsAFailure)
{
    const ToolResult lResult = RunTool({"clser", "term", mName});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_EQ(lResult.mError, "kyserial: there is no Camera Link server \"" + mName +
                                  "\"; 'kyserial clser list' shows those that there are\n");
}

TEST_F(ClserProcessTest, ASecondClientIsRefused)
{
    BridgeRun lBridge({"--port", "bulk4", "--clser", mName});
    Process lFirst;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(lFirst.Start("kyserial", {"clser", "term", mName}, lFiles));
    ASSERT_TRUE(lFirst.Feed("echo"));
    ASSERT_TRUE(lFirst.WaitForOutput("echo"));
    const ToolResult lResult = RunTool({"clser", "term", mName});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_EQ(lResult.mError, "kyserial: cannot attach to \"" + mName +
                                  "\": CL_ERR_PORT_IN_USE (-10003): The port is in use.\n");
    lFirst.CloseInput();
    EXPECT_EQ(lFirst.Wait(), 0);
}

TEST_F(ClserProcessTest, ASecondServerOfTheNameIsRefused)
{
    BridgeRun lBridge({"--port", "bulk4", "--clser", mName});
    const ToolResult lResult = RunTool({"bridge", "--port", "bulk4", "--clser", mName});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_EQ(lResult.mError, "kyserial: cannot bridge bulk4 to Camera Link clients as \"" + mName +
                                  "\": FAILURE: Unable to create server. A server with the same name is "
                                  "probably already active.\n");
}

TEST_F(ClserProcessTest, AServerCanOfferOneRate)
{
    BridgeRun lBridge({"--port", "bulk0", "--clser", mName, "--baud", "57600"});
    const ToolResult lOther = RunTool({"clser", "term", mName, "--baud", "38400"});
    EXPECT_EQ(lOther.mStatus, 1);
    EXPECT_EQ(lOther.mError, "kyserial: --baud 38400: CL_ERR_BAUD_RATE_NOT_SUPPORTED (-10008): The baud rate "
                             "is not supported. The server offers 57600.\n");
    EXPECT_EQ(RunTerm({}, "STATUS?\r\n", cLensStatus).mStatus, 0);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 57600);
}

TEST_F(ClserProcessTest, AServerThatHasGoneTakesNothingAnyMore)
{
    BridgeRun lBridge({"--port", "bulk4", "--clser", mName});
    Process lClient;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(lClient.Start("kyserial", {"clser", "term", mName, "--timeout", "200"}, lFiles));
    ASSERT_TRUE(lClient.Feed("echo"));
    ASSERT_TRUE(lClient.WaitForOutput("echo"));
    EXPECT_EQ(lBridge.End(), 0);
    ASSERT_TRUE(lClient.Feed("more"));
    EXPECT_EQ(lClient.Wait(), 1);
    EXPECT_EQ(lClient.Error(), "sent 4 bytes, received 4 bytes\nkyserial: " + mName +
                                   ": sending failed after 4 bytes: TIMED_OUT: CL_ERR_TIMEOUT (-10004): The "
                                   "operation has timed out.\n");
}

TEST_F(ClserProcessTest, ReconnectWaitsForEachServerAndAsksForTheRateAgain)
{
    Process lClient;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(
        lClient.Start("kyserial", {"clser", "term", mName, "--reconnect", "--baud", "57600"}, lFiles));
    ASSERT_TRUE(lClient.WaitForError(mName + ": waiting: there is no Camera Link server"));
    ASSERT_TRUE(lClient.Feed("one"));
    {
        BridgeRun lBridge({"--port", "bulk4", "--clser", mName});
        EXPECT_TRUE(lClient.WaitForOutput("one")) << lClient.Error();
        EXPECT_EQ(lBridge.End(), 0);
        EXPECT_EQ(lBridge.LastReport()["baud_rate"], 57600);
    }
    ASSERT_TRUE(lClient.WaitForError(mName + ": the server is gone: NO_CONNECTION: It has ended.\n"));
    ASSERT_TRUE(lClient.Feed("two"));
    BridgeRun lNext({"--port", "bulk4", "--clser", mName});
    EXPECT_TRUE(lClient.WaitForOutput("two")) << lClient.Error();
    lClient.CloseInput();
    EXPECT_EQ(lClient.Wait(), 0) << lClient.Error();
    EXPECT_EQ(lNext.End(), 0);
    EXPECT_EQ(lNext.LastReport()["baud_rate"], 57600);
}

/// A client that dies without closing leaves its place taken; the bridge notices that nobody holds it any more.
TEST_F(ClserProcessTest, TheNextClientGetsThePlaceOfOneThatWasKilled)
{
    BridgeRun lBridge({"--port", "bulk4", "--clser", mName, "--sim-fast"});
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        {
            Process lKilled; // at the end of this block
            Process::Files lFiles;
            lFiles.mInput = Process::Input::Pipe;
            ASSERT_TRUE(lKilled.Start("kyserial", {"clser", "term", mName}, lFiles));
            ASSERT_TRUE(lKilled.Feed("echo"));
            ASSERT_TRUE(lKilled.WaitForOutput("echo")) << lKilled.Error();
            EXPECT_THAT(RunTool({"clser", "term", mName}).mError, HasSubstr("CL_ERR_PORT_IN_USE"));
        }
        ASSERT_TRUE(WaitFor([&] { return RunTool({"clser", "term", mName}).mStatus == 0; })) << lTurn;
        EXPECT_EQ(RunTerm({}, "again", "again").mStatus, 0) << lTurn;
    }
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["to_device"]["delivered"], 3 * 9);
}

/// Every byte that a client has sent is either sent or lost.
TEST_F(ClserProcessTest, AnAbsenceOfTheDeviceIsSurvivedWithReconnect)
{
    for (const char* const lPort : {"uart1", "bulk4"})
    {
        BridgeRun lBridge({"--port", lPort, "--clser", mName, "--sim-fast", "--reconnect", "--sim-cut", "300",
                           "--sim-back", "300"});
        Process lClient;
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Pipe;
        ASSERT_TRUE(lClient.Start("kyserial", {"clser", "term", mName, "--baud", "57600"}, lFiles));
        size_t lTyped = 0;
        while (lBridge.mTool.Output().find("\"reconnections\":1") == std::string::npos)
        {
            ASSERT_LT(lTyped, 100000U) << "the device does not go and come back";
            ASSERT_TRUE(lClient.Feed("0123456789"));
            lTyped += 10;
            JxUtilsLib::Thread::Sleep(10);
        }
        EXPECT_THAT(lBridge.mTool.Output(), HasSubstr("\"connected\":false"));
        ASSERT_TRUE(lClient.Feed("again"));
        EXPECT_TRUE(lClient.WaitForOutput("again")) << lPort;
        lClient.CloseInput();
        EXPECT_EQ(lClient.Wait(), 0);
        EXPECT_EQ(lBridge.End(), 0);
        const nlohmann::json lReport = lBridge.LastReport();
        EXPECT_EQ(lReport["to_device"]["bytes"].get<size_t>() + lReport["lost_bytes"].get<size_t>(),
                  lTyped + 5)
            << lPort;
        EXPECT_GT(lReport["lost_bytes"], 0) << lPort;
        EXPECT_EQ(lReport["connected"], true);
        EXPECT_EQ(lReport["baud_rate"], 57600);
        EXPECT_THAT(lBridge.mTool.Error(),
                    MatchesPattern("(.|\n)*\n" + std::string(lPort) + ": the device is gone\n" + lPort +
                                   ": the device is back; [0-9]+ bytes to it are lost\n(.|\n)*"));
    }
}

TEST_F(ClserProcessTest, LogHasBothDirections)
{
    const std::string lLog = Process::TemporaryFile(".log");
    BridgeRun lBridge({"--port", "bulk0", "--clser", mName});
    EXPECT_EQ(RunTerm({"--log", lLog}, "STATUS?\r\n", cLensStatus).mStatus, 0);
    EXPECT_THAT(ReadFile(lLog), HasSubstr("> 53 54 41 54 55 53 3f 0d 0a"));
    EXPECT_THAT(ReadFile(lLog), HasSubstr("< 53"));
    std::remove(lLog.c_str());
}

TEST_F(ClserProcessTest, KeysGoToTheServerUntilTheEscapeKey)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    BridgeRun lBridge({"--port", "bulk0", "--clser", mName});
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Terminal;
    ASSERT_TRUE(lTool.Start("kyserial", {"clser", "term", mName}, lFiles));
    ASSERT_TRUE(lTool.WaitForError(mName + "; Ctrl-] ? shows the keys, Ctrl-] q leaves\n"));
    ASSERT_TRUE(lTool.Feed("STATUS?\r"));
    EXPECT_TRUE(lTool.WaitForOutput(cLensStatus));
    ASSERT_TRUE(lTool.Feed("\x1Dq"));
    EXPECT_EQ(lTool.Wait(), 0);
}

TEST(ClserCommandTest, RefusesACommandLineWithoutSense)
{
    ExpectUsageError({"clser"}, "kyserial: no command after 'kyserial clser'; use list or term");
    ExpectUsageError({"clser", "term"}, "kyserial: NAME is required; see 'kyserial clser term --help'");
    ExpectUsageError(
        {"clser", "term", "X", "--baud", "14400"},
        "kyserial: --baud: \"14400\" does not fit; use 9600, 19200, 38400, 57600, 115200, 230400, "
        "460800 or 921600");
    ExpectUsageError(
        {"clser", "term", "X", "--timeout", "1", "--reconnect"},
        "kyserial: --timeout and --reconnect exclude each other; see 'kyserial clser term --help'");
    ExpectUsageError({"clser", "list", "X"},
                     "kyserial: \"X\" does not belong here; 'kyserial clser list --help' lists what does");
}

} // namespace
