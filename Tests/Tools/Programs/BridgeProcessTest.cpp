// "kyserial bridge" to a pseudo terminal, and what it says on its command line.

#include "Support/PatternMatcher.h"
#include "Support/QuickStop.h"
#include "Tools/BridgeRun.h"
#include "Tools/TerminalUser.h"

#include <KyPlatform/HostSerialPort.h>
#include <Platform/PseudoTerminal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <optional>

using namespace KyTest;
using KyPlatform::HostSerialPort;
using testing::HasSubstr;

namespace
{

class PtyBridgeTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!KyToolPlatform::PseudoTerminal::IsSupported())
        {
            GTEST_SKIP() << "this system has no pseudo terminals";
        }
    }
    ~PtyBridgeTest() override { std::remove(mLink.c_str()); }

    const std::string mLink = Process::TemporaryFile(".pty");
};

TEST_F(PtyBridgeTest, ADialogueThroughEachKindOfPort)
{
    for (const char* const lPort : {"uart0", "bulk0", "bulk1"})
    {
        BridgeRun lBridge({"--port", lPort, "--pty", mLink});
        EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus) << lPort;
        EXPECT_EQ(lBridge.End(), 0);
        EXPECT_EQ(lBridge.LastReport()["to_device"]["bytes"], 9);
        EXPECT_EQ(lBridge.LastReport()["from_device"]["bytes"], 41);
        EXPECT_EQ(lBridge.mTool.Error(), std::string(lPort) + " of sim is " + mLink +
                                             ", 9600 8N1; Ctrl-C ends\nsent 9 bytes, received 41 bytes\n");
        EXPECT_FALSE(std::filesystem::is_symlink(mLink));
    }
}

TEST_F(PtyBridgeTest, UsersAttachAndLeaveAndAttachAgain)
{
    BridgeRun lBridge({"--port", "bulk1", "--pty", mLink});
    for (int lUser = 0; lUser < 3; ++lUser)
    {
        EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus);
    }
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["from_device"]["bytes"], 3 * 41);
}

TEST_F(PtyBridgeTest, CarriesEveryByteInOrder)
{
    std::string lText;
    for (int lByte = 0; lByte < 20000; ++lByte)
    {
        lText += static_cast<char>(lByte * 7 + lByte / 256);
    }
    BridgeRun lBridge({"--port", "bulk4", "--pty", mLink, "--sim-fast"});
    TerminalUser lUser(mLink);
    for (size_t lDone = 0; lDone < lText.size(); lDone += 2000)
    {
        ASSERT_TRUE(lUser.Ask(lText.substr(lDone, 2000), 2000) == lText.substr(lDone, 2000)) << lDone;
    }
    EXPECT_EQ(lBridge.End(), 0);
}

TEST_F(PtyBridgeTest, LineSettingsBecomeTheDevices)
{
    BridgeRun lBridge(
        {"--port", "uart0", "--pty", mLink, "--baud", "115200", "--parity", "even", "--stop", "2"});
    EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 115200);
    EXPECT_THAT(lBridge.mTool.Error(), HasSubstr(", 115200 8E2; "));
}

TEST_F(PtyBridgeTest, TheRateFollowsTheUserUnlessItIsGiven)
{
    {
        BridgeRun lBridge({"--port", "bulk1", "--pty", mLink});
        EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus);
        EXPECT_EQ(lBridge.LastReport()["baud_rate"], 9600); // what the camera has
        TerminalUser lUser(mLink);
        lUser.Choose(57600);
        EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"baud_rate\":57600")) << lBridge.mTool.Output();
        EXPECT_EQ(lUser.Ask("STATUS?\r\n", 41), cLensStatus);
        EXPECT_EQ(lBridge.End(), 0);
    }
    BridgeRun lBridge({"--port", "bulk1", "--pty", mLink, "--baud", "115200"});
    TerminalUser lUser(mLink);
    lUser.Choose(57600);
    EXPECT_EQ(lUser.Ask("STATUS?\r\n", 41), cLensStatus);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_EQ(lBridge.LastReport()["baud_rate"], 115200);
}

TEST_F(PtyBridgeTest, AnswersWithoutAUserAreCounted)
{
    BridgeRun lBridge({"--port", "bulk1", "--pty", mLink});
    TerminalUser(mLink).Type("STATUS?\r\n"); // and leaves
    EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"from_device\":{\"bytes\":41,"));
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_GT(lBridge.LastReport()["unread_bytes"], 0);
}

// Every byte that was taken has been delivered or is counted as lost.
void ExpectBalance(const nlohmann::json& aReport)
{
    for (const char* const lWay : {"to_device", "from_device"})
    {
        const nlohmann::json& lLedger = aReport[lWay];
        uint64_t lSum = lLedger["delivered"].get<uint64_t>();
        for (const auto& [lReason, lBytes] : lLedger["lost"].items())
        {
            lSum += lBytes.get<uint64_t>();
        }
        EXPECT_EQ(lLedger["taken"], lSum) << lWay;
        EXPECT_EQ(lLedger["on_the_way"], 0) << lWay;
    }
}

TEST_F(PtyBridgeTest, WhatAUserLeavesUnreadIsCounted)
{
    BridgeRun lBridge({"--port", "bulk4", "--pty", mLink, "--sim-fast"});
    {
        TerminalUser lUser(mLink);
        lUser.Type(std::string(3000, 'x')); // which come back
        EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"from_device\":{\"bytes\":3000,"));
    }
    EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"unread\":3000,"));
    EXPECT_EQ(lBridge.End(), 0);
    const nlohmann::json lReport = lBridge.LastReport();
    ExpectBalance(lReport);
    EXPECT_EQ(lReport["to_device"]["delivered"], 3000);
    EXPECT_EQ(lReport["from_device"]["taken"], 3000);
    EXPECT_EQ(lReport["from_device"]["delivered"], 0);
    EXPECT_EQ(lReport["from_device"]["lost"]["unread"], 3000);
}

TEST_F(PtyBridgeTest, AFloodThatTheUserDoesNotReadIsCounted)
{
    constexpr size_t cMany = 400000; // more than all buffers together hold
    BridgeRun lBridge({"--port", "bulk4", "--pty", mLink, "--sim-fast"});
    TerminalUser lUser(mLink);
    lUser.Type(std::string(cMany, 'x'));
    EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"to_device\":{\"bytes\":400000,"));
    EXPECT_EQ(lBridge.End(), 0);
    const nlohmann::json lReport = lBridge.LastReport();
    ExpectBalance(lReport);
    EXPECT_EQ(lReport["to_device"]["taken"], cMany);
    EXPECT_GT(lReport["from_device"]["lost"]["overrun"], 0);
    EXPECT_THAT(lBridge.mTool.Error(), HasSubstr("\nnot delivered: "));
}

// The line takes four seconds for the block.
TEST_F(PtyBridgeTest, AnEndInTheMiddleOfATransferIsQuickAndSaysWhatWasNotDelivered)
{
    std::optional<BridgeRun> lBridge;
    std::optional<TerminalUser> lUser;
    ExpectQuickStop(
        [&]
        {
            lUser.reset();
            lBridge.emplace(std::vector<std::string>{"--port", "uart0", "--pty", mLink});
            lUser.emplace(mLink);
            lUser->Type(std::string(4000, 'x'));
            EXPECT_TRUE(lBridge->mTool.WaitForOutput("\"taken\":4000"));
        },
        [&] { EXPECT_EQ(lBridge->End(), 0); });
    const nlohmann::json lReport = lBridge->LastReport();
    ExpectBalance(lReport);
    EXPECT_EQ(lReport["to_device"]["taken"], 4000);
    EXPECT_LT(lReport["to_device"]["delivered"], 4000);
    EXPECT_GT(lReport["to_device"]["lost"]["stopped"], 0);
    EXPECT_THAT(lBridge->mTool.Error(), HasSubstr(" bytes to the device ("));
}

TEST_F(PtyBridgeTest, LogHasBothDirections)
{
    const std::string lLog = Process::TemporaryFile(".log");
    {
        BridgeRun lBridge({"--port", "bulk1", "--pty", mLink, "--log", lLog});
        EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus);
        EXPECT_EQ(lBridge.End(), 0);
    }
    EXPECT_THAT(ReadFile(lLog),
                MatchesPattern("....-..-..T..:..:..\\.......Z > 53 54 41 54 55 53 3f 0d 0a +STATUS\\?\\.\\.\n"
                               "....-..-..T..:..:..\\.......Z < 53 .*S(.|\n)*"));
    std::remove(lLog.c_str());
}

TEST_F(PtyBridgeTest, ALinkOfABridgeThatWasKilledGivesWay)
{
    // The system gives the number of the dead terminal to the next program that asks. If another program has it,
    // the link leads to a foreign terminal, and stays rightly.
    constexpr int cTries = 20;
    for (int lTry = 1; lTry <= cTries; ++lTry)
    {
        {
            const BridgeRun lKilled({"--port", "bulk1", "--pty", mLink});
        }
        ASSERT_TRUE(std::filesystem::is_symlink(mLink));
        const ToolResult lResult = RunTool({"bridge", "--port", "bulk1", "--pty", mLink, "--duration", "1"});
        const bool lTaken = lResult.mError.find("exists already and leads to ") != std::string::npos;
        EXPECT_EQ(lResult.mStatus, lTaken ? 1 : 0) << lResult.mError;
        if (!lTaken)
        {
            EXPECT_FALSE(std::filesystem::is_symlink(mLink)); // it was its own in the end
            return;
        }
        std::filesystem::remove(mLink);
    }
    ADD_FAILURE() << "the link never gave way";
}

TEST_F(PtyBridgeTest, AFileIsNoPlaceForTheLink)
{
    ASSERT_TRUE(WriteFile(mLink, "precious"));
    const ToolResult lResult = RunTool({"bridge", "--port", "uart0", "--pty", mLink});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_EQ(lResult.mError,
              "kyserial: --pty: " + mLink + " exists already; remove it, or use another name\n");
    EXPECT_EQ(ReadFile(mLink), "precious");
}

TEST_F(PtyBridgeTest, EndsWhenTheDeviceIsGone)
{
    const ToolResult lResult = RunTool({"bridge", "--port", "uart0", "--pty", mLink, "--sim-cut", "60"});
    EXPECT_EQ(lResult.mStatus, 1);
    EXPECT_THAT(lResult.mError, HasSubstr("\nkyserial: uart0: the connection to the device is lost\n"));
    EXPECT_FALSE(std::filesystem::is_symlink(mLink));
}

TEST_F(PtyBridgeTest, ADeviceThatIsBackHasItsSettingsAndTheUserIsStillThere)
{
    const std::string lLog = Process::TemporaryFile(".log");
    BridgeRun lBridge({"--port", "bulk1", "--pty", mLink, "--baud", "115200", "--reconnect", "--sim-cut",
                       "160", "--sim-back", "200", "--log", lLog});
    TerminalUser lUser(mLink);
    EXPECT_TRUE(lBridge.mTool.WaitForOutput("\"reconnections\":1"));
    EXPECT_EQ(lUser.Ask("STATUS?\r\n", 41), cLensStatus);
    EXPECT_EQ(lBridge.End(), 0);
    EXPECT_THAT(ReadFile(lLog), MatchesPattern("[^!]*! the device is gone\n"
                                               "[^!]*! the device is back; 0 bytes to it are lost\n[^!]*"));
    std::remove(lLog.c_str());
}

TEST_F(PtyBridgeTest, EndsAsUsualWhenTheSystemWantsItGone)
{
    BridgeRun lBridge({"--port", "bulk1", "--pty", mLink});
    EXPECT_TRUE(lBridge.mTool.Terminate());
    EXPECT_EQ(lBridge.mTool.Wait(), 0);
    EXPECT_EQ(lBridge.LastReport()["final"], true);
    EXPECT_FALSE(std::filesystem::is_symlink(mLink));
}

TEST_F(PtyBridgeTest, EndsAfterItsDuration)
{
    const ToolResult lResult = RunTool({"bridge", "--port", "uart0", "--pty", mLink, "--duration", "1"});
    EXPECT_EQ(lResult.mStatus, 0);
    EXPECT_EQ(lResult.mOutput, "");
    EXPECT_THAT(lResult.mError, HasSubstr("\nsent 0 bytes, received 0 bytes\n"));
}

TEST_F(PtyBridgeTest, ATerminalGetsAStatusLine)
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Terminal;
    lFiles.mErrorTerminal = true;
    ASSERT_TRUE(lTool.Start(
        "kyserial", {"bridge", "--port", "uart0", "--pty", mLink, "--stats-interval", "100"}, lFiles));
    EXPECT_TRUE(lTool.WaitForTerminal("\ruart0 9600 bit/s, to device 0 bytes 0/s, from device 0 bytes 0/s"));
    EXPECT_EQ(TerminalUser(mLink).Ask("STATUS?\r\n", 41), cLensStatus);
    EXPECT_TRUE(lTool.WaitForTerminal("to device 9 bytes"));
    EXPECT_TRUE(lTool.AskToEnd());
    EXPECT_EQ(lTool.Wait(), 0);
    EXPECT_EQ(lTool.Output(), "");
}

TEST(BridgeCommandTest, RefusesACommandLineWithoutSense)
{
    const std::vector<std::string> lStart = {"bridge", "--port", "uart0"};
    const auto lExpect = [&](const std::vector<std::string>& aMore, const std::string& aLine)
    {
        std::vector<std::string> lArguments = lStart;
        lArguments.insert(lArguments.end(), aMore.begin(), aMore.end());
        ExpectUsageError(lArguments, "kyserial: " + aLine);
    };
    lExpect({}, std::string("a bridge needs a host side; use ") +
                    (HostSerialPort::IsPath("/") ? "--tty, --pty, " : "") +
                    "--com, --clser, --tcp or --rfc2217");
    lExpect({"--com", "COM1", "--clser", "X"},
            "--clser: a bridge has one host side, and there is --com already");
    for (const char* const lName : {"COM", "COM0", "COM100", "COM1x", "COMx1", "XOM1", "COM01", "/dev/ttyS0"})
    {
        lExpect({"--com", lName}, "--com: \"" + std::string(lName) + "\" is no COM port; use COM1 to COM99");
    }
    lExpect({"--clser", ""}, "--clser: an empty name does not do");
    lExpect({"--clser", std::string(256, 'x')}, "--clser: the name is too long; use 255 bytes at most");
    lExpect({"--clser", "Uninitialized"},
            "--clser: \"Uninitialized\" is what the registry of servers calls an "
            "empty place; use another name");
    lExpect({"--clser", "X", "--bits", "7"},
            "--clser: Camera Link is 8N1; --parity, --bits and --stop do not belong here");
    lExpect({"--tcp", "0", "--bits", "7"},
            "--bits: belongs to --tty and --com; elsewhere characters have 8 bits");
    lExpect({"--clser", "X", "--baud", "14400"}, "--clser: Camera Link does not have 14400 bit/s; use --baud "
                                                 "9600, 19200, 38400, 57600 or 115200");
    lExpect({"--com", "COM1", "--baud", "4800"},
            "--baud: \"4800\" does not fit; use 9600, 14400, 19200, 28800, 38400, 57600 or 115200");
    lExpect({"--com", "COM1", "--bits", "9"}, "--bits: \"9\" does not fit; use 7 or 8");
    lExpect({"--com", "COM1", "--stop", "3"}, "--stop: \"3\" does not fit; use 1 or 2");
    lExpect({"--com", "COM1", "--parity", "mark"}, "--parity: \"mark\" does not fit; use none, even or odd");
    lExpect({"--com", "COM1", "--stats-interval", "99"},
            "--stats-interval: \"99\" does not fit; use 100 to 3600000 milliseconds");
}

TEST(BridgeCommandTest, SaysWhatToUseWhereThereAreNoTerminals)
{
    if (KyToolPlatform::PseudoTerminal::IsSupported())
    {
        GTEST_SKIP() << "this system has pseudo terminals and devices with a path";
    }
    ExpectUsageError({"bridge", "--port", "uart0", "--pty", "x"},
                     "kyserial: --pty: this system has no pseudo terminals; use --com");
    ExpectUsageError({"bridge", "--port", "uart0", "--tty", "/dev/ttyS0"},
                     "kyserial: --tty: this system has no terminal devices with a path; use --com");
}

TEST(BridgeCommandTest, TheHelpShowsWhatThisSystemHas)
{
    const bool lHasTerminals = HostSerialPort::IsPath("/");
    const std::string lBridge = RunTool({"bridge", "--help"}).mOutput;
    for (const char* const lText : {"--tty PATH", "--pty LINK", "/dev/ttyS0", "--pty /tmp/lens"})
    {
        EXPECT_EQ(lHasTerminals, lBridge.find(lText) != std::string::npos) << lText;
    }
    EXPECT_EQ(lHasTerminals, lBridge.find("--com COM5 --baud") == std::string::npos);
    EXPECT_THAT(lBridge, HasSubstr("--com COMn"));
    EXPECT_EQ(lHasTerminals, RunTool({"--help"}).mOutput.find("  printf 'STATUS?") != std::string::npos);
}

TEST(BridgeCommandTest, APortThatCannotBeOpenedIsAFailure)
{
    const ToolResult lCom = RunTool({"bridge", "--port", "uart0", "--com", "COM99"});
    EXPECT_EQ(lCom.mStatus, 1);
    EXPECT_EQ(lCom.mError, "kyserial: cannot bridge uart0 to COM99: FAILURE: Unable to open requested COM "
                           "port. (there is no such port)\n");
    const ToolResult lDevice =
        RunTool({"bridge", "--port", "uart0", "--com", "COM99", "--sim-no-uart-registers"});
    EXPECT_EQ(lDevice.mStatus, 1);
    EXPECT_EQ(lDevice.mError,
              "kyserial: cannot bridge uart0 to COM99: UNSUPPORTED: Requested device port not supported.\n");
}

TEST(BridgeCommandTest, ATerminalThatIsNotThereIsAFailure)
{
    if (!HostSerialPort::IsPath("/"))
    {
        GTEST_SKIP() << "this system has no terminal devices with a path";
    }
    const ToolResult lNone = RunTool({"bridge", "--port", "uart0", "--tty", "/missing/tty"});
    EXPECT_EQ(lNone.mStatus, 1);
    EXPECT_EQ(lNone.mError, "kyserial: --tty: there is no /missing/tty\n");
    const ToolResult lOther = RunTool({"bridge", "--port", "uart0", "--tty", "/dev/null"});
    EXPECT_EQ(lOther.mStatus, 1);
    EXPECT_THAT(lOther.mError, HasSubstr("Unable to open requested COM port. (it is no terminal)\n"));
}

} // namespace
