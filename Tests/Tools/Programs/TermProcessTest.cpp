#include "Support/PatternMatcher.h"
#include "Tools/ToolRun.h"

#include <KyPlatform/HostSerialPort.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

std::string AllBytes(size_t aCount)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aCount; ++lIndex)
    {
        lText += static_cast<char>(lIndex * 7 + lIndex / 256);
    }
    return lText;
}

/// Runs "kyserial term" with aInput, which ends only when aOutput has come: an answer may take its time on a
/// busy machine.
ToolResult RunTerm(const std::vector<std::string>& aArguments, const std::string& aInput,
                   const std::string& aOutput)
{
    std::vector<std::string> lArguments = {"term"};
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

TEST(TermProcessTest, PrintsTheLensControllersAnswer)
{
    for (const char* const lPort : {"uart0", "bulk0", "bulk1"})
    {
        const ToolResult lResult = RunTerm({"--port", lPort}, "STATUS?\r\n", cLensStatus);
        EXPECT_EQ(0, lResult.mStatus) << lPort;
        EXPECT_EQ(cLensStatus, lResult.mOutput) << lPort;
        EXPECT_EQ("sent 9 bytes, received 41 bytes\n", lResult.mError) << lPort;
    }
}

TEST(TermProcessTest, Bulk0WorksThroughFeaturesToo)
{
    const ToolResult lResult =
        RunTerm({"--port", "bulk0", "--sim-no-uart-registers"}, "STATUS?\r\n", cLensStatus);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ(cLensStatus, lResult.mOutput);
}

TEST(TermProcessTest, PassesEveryByteInOrderAndLosesNone)
{
    const std::string lText = AllBytes(20000);
    const ToolResult lResult = RunTerm({"--port", "bulk4", "--sim-fast", "--quiet"}, lText, lText);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_TRUE(lText == lResult.mOutput) << lResult.mOutput.size() << " bytes came back";
    EXPECT_EQ("", lResult.mError);
}

TEST(TermProcessTest, WaitsWhileTheDevicesQueueIsFull)
{
    const std::string lText = AllBytes(150000); // the simulated camera queues 65536 bytes ahead of the line
    const ToolResult lResult = RunTerm({"--port", "bulk5", "--sim-fast", "--quiet"}, lText, lText);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_TRUE(lText == lResult.mOutput) << lResult.mOutput.size() << " bytes came back";
}

TEST(TermProcessTest, SwitchesAPortThatRunsAnotherProtocolToUart)
{
    const ToolResult lResult = RunTerm({"--port", "bulk2"}, "echo", "echo");
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("echo", lResult.mOutput);
}

TEST(TermProcessTest, TakesAnswersThatComeAfterTheEndOfTheInput)
{
    const ToolResult lResult = RunTool({"term", "--port", "uart0", "--quiet-time", "3000"}, "STATUS?\r\n");
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ(cLensStatus, lResult.mOutput);
}

TEST(TermProcessTest, EmptyInputEndsAfterTheQuietTime)
{
    const ToolResult lResult = RunTool({"term", "--port", "uart1", "--quiet-time", "0"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("sent 0 bytes, received 0 bytes\n", lResult.mError);
}

TEST(TermProcessTest, HexShowsWhatComesAsADump)
{
    // The second line is shown at the end only: the first is what to wait for, and the quiet time for the
    // rest.
    const ToolResult lResult = RunTerm({"--port", "uart1", "--hex", "--quiet-time", "3000"},
                                       "0123456789abcdef\r\n", "|0123456789abcdef|\n");
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("00000000  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  |0123456789abcdef|\n"
              "00000010  0d 0a                                            |..|\n",
              lResult.mOutput);
}

TEST(TermProcessTest, LogHasBothDirectionsWithTimes)
{
    const std::string lLog = Process::TemporaryFile(".log");
    EXPECT_EQ(0, RunTerm({"--port", "bulk1", "--log", lLog}, "STATUS?\r\n", cLensStatus).mStatus);
    const std::string lText = ReadFile(lLog);
    EXPECT_THAT(lText,
                MatchesPattern("....-..-..T..:..:..\\.......Z > 53 54 41 54 55 53 3f 0d 0a +STATUS\\?\\.\\.\n"
                               "....-..-..T..:..:..\\.......Z < 53 .*S(.|\n)*"));
    std::remove(lLog.c_str());
}

TEST(TermProcessTest, LogThatCannotBeWrittenIsAFailure)
{
    const ToolResult lResult = RunTool({"term", "--port", "uart0", "--log", "missing/folder/file"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("kyserial: --log: cannot write missing/folder/file: No such file or directory\n",
              lResult.mError);
}

TEST(TermProcessTest, LogThatCannotGoOnIsAFailureWithItsReason)
{
    if (!KyPlatform::HostSerialPort::IsPath("/"))
    {
        GTEST_SKIP() << "this system has no device that is always full";
    }
    const ToolResult lResult = RunTool({"term", "--port", "bulk4", "--log", "/dev/full"}, "x");
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError,
                HasSubstr("kyserial: --log: cannot write /dev/full: No space left on device\n"));
}

TEST(TermProcessTest, UnsupportedPortIsAFailureWithTheLibrarysCodeAndWords)
{
    const ToolResult lResult = RunTool({"term", "--port", "uart0", "--sim-no-uart-registers"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ(
        "kyserial: cannot open uart0: UNSUPPORTED: The specified port is not supported by this device.\n",
        lResult.mError);
}

TEST(TermProcessTest, LostConnectionSaysHowManyBytesWentOut)
{
    const ToolResult lResult =
        RunTool({"term", "--port", "uart1", "--sim-cut", "200"}, std::string(1000, 'x'));
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError,
                MatchesPattern("sent [0-9]+ bytes, received [0-9]+ bytes\n"
                               "kyserial: uart1: (sending|receiving) failed after [0-9]+ bytes: .*\n"));
}

TEST(TermProcessTest, BrokenOutputEndsTheProgramWithAClearError)
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe; // which stays open: only the broken output can end the program
    lFiles.mBrokenOutput = true;
    ASSERT_TRUE(lTool.Start("kyserial", {"term", "--port", "bulk4"}, lFiles));
    ASSERT_TRUE(lTool.Feed("echo\n"));
    EXPECT_EQ(1, lTool.Wait());
    EXPECT_THAT(lTool.Error(), MatchesPattern("sent 5 bytes, received [1-5] bytes\n"
                                              "kyserial: bulk4: cannot write to the standard output\n"));
}

TEST(TermProcessTest, ShowsWhatComesWhileTheInputIsStillOpen)
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(lTool.Start("kyserial", {"term", "--port", "uart0", "--quiet-time", "100"}, lFiles));
    ASSERT_TRUE(lTool.Feed("STATUS?\r\n"));
    ASSERT_TRUE(lTool.WaitForOutput(cLensStatus)) << lTool.Error();
    ASSERT_TRUE(lTool.Feed("ID?\r\n"));
    EXPECT_TRUE(lTool.WaitForOutput("KYLENS"));
    lTool.CloseInput();
    EXPECT_EQ(0, lTool.Wait());
}

/// Ctrl-C in a session that waits for input.
TEST(TermProcessTest, InterruptClosesThePortAndPrintsTheCounts)
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(lTool.Start("kyserial", {"term", "--port", "bulk4", "--log-level", "warning"}, lFiles));
    ASSERT_TRUE(lTool.Feed("echo"));
    ASSERT_TRUE(lTool.WaitForOutput("echo"));
    if (!lTool.AskToEnd())
    {
        GTEST_SKIP() << "tests have no console to send a control event through on this system";
    }
    EXPECT_EQ(1, lTool.Wait());
    // A port that was not closed would be warned about.
    EXPECT_EQ("sent 4 bytes, received 4 bytes\n"
              "kyserial: interrupted before the end of the input\n",
              lTool.Error());
}

TEST(TermProcessTest, InterruptIsTheWayToStopListening)
{
    Process lTool;
    ASSERT_TRUE(lTool.Start("kyserial", {"term", "--port", "bulk4", "--quiet-time", "never"},
                            {Process::Input::File, "echo", false, false}));
    ASSERT_TRUE(lTool.WaitForOutput("echo"));
    if (!lTool.AskToEnd())
    {
        GTEST_SKIP() << "tests have no console to send a control event through on this system";
    }
    EXPECT_EQ(0, lTool.Wait());
    EXPECT_EQ("sent 4 bytes, received 4 bytes\n", lTool.Error());
}

TEST(TermProcessTest, LineEndsAreMappedBothWays)
{
    const ToolResult lResult =
        RunTerm({"--port", "bulk4", "--eol-send", "crlf", "--eol-show", "lf"}, "a\nb\n", "a\nb\n");
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("a\nb\n", lResult.mOutput);
    EXPECT_EQ("sent 6 bytes, received 6 bytes\n", lResult.mError);
}

TEST(TermProcessTest, LinesHaveTimes)
{
    const ToolResult lResult = RunTerm({"--port", "bulk4", "--timestamps", "elapsed"}, "a\nb\n", "b\n");
    EXPECT_THAT(lResult.mOutput, MatchesPattern("\\[ +[0-9.]+\\] a\n\\[ +[0-9.]+\\] b\n"));
}

TEST(TermProcessTest, InputMayBeHexadecimal)
{
    EXPECT_EQ("Hi!", RunTerm({"--port", "bulk4", "--hex-input"}, "48 69\n21", "Hi!").mOutput);
    const ToolResult lHalf = RunTool({"term", "--port", "bulk4", "--hex-input"}, "48 6");
    EXPECT_EQ(1, lHalf.mStatus);
    EXPECT_THAT(lHalf.mError, HasSubstr("kyserial: bulk4: --hex-input: the input ends within a byte\n"));
    EXPECT_THAT(RunTool({"term", "--port", "bulk4", "--hex-input"}, "48 x").mError,
                HasSubstr("kyserial: bulk4: --hex-input: \"x\" is no hexadecimal digit\n"));
}

TEST(TermProcessTest, AFileIsSentBeforeTheInput)
{
    const std::string lFile = Process::TemporaryFile(".data");
    ASSERT_TRUE(WriteFile(lFile, "file "));
    EXPECT_EQ("file input", RunTerm({"--port", "bulk4", "--send", lFile}, "input", "file input").mOutput);
    std::remove(lFile.c_str());
    const ToolResult lMissing = RunTool({"term", "--port", "bulk4", "--send", lFile});
    EXPECT_EQ(1, lMissing.mStatus);
    EXPECT_THAT(lMissing.mError,
                HasSubstr("kyserial: bulk4: cannot read " + lFile + ": No such file or directory\n"));
    EXPECT_THAT(RunTool({"term", "--port", "bulk4", "--send", Process::ProgramFolder()}).mError,
                HasSubstr(": it is a directory\n"));
}

TEST(TermProcessTest, ALineIsSet)
{
    EXPECT_EQ(cLensStatus, RunTerm({"--port", "uart0", "--baud", "115200", "--parity", "even", "--stop", "2"},
                                   "STATUS?\r\n", cLensStatus)
                               .mOutput);
    const ToolResult lResult = RunTool({"term", "--port", "uart0", "--bits", "7"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError, HasSubstr("the device's ports have 8 data bits"));
}

TEST(TermProcessTest, ReconnectGoesOnWhenTheDeviceIsBack)
{
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Pipe;
    ASSERT_TRUE(lTool.Start(
        "kyserial", {"term", "--port", "bulk4", "--reconnect", "--sim-cut", "100", "--sim-back", "100"},
        lFiles));
    for (int lTime = 0; lTime < 1000 && lTool.Error().find("the device is there") == std::string::npos;
         ++lTime)
    {
        ASSERT_TRUE(lTool.Feed("x"));
        lTool.WaitForOutput("x");
    }
    EXPECT_TRUE(lTool.WaitForError("bulk4: the device is gone: NO_CONNECTION"));
    EXPECT_TRUE(lTool.WaitForError("bulk4: the device is there\n"));
    ASSERT_TRUE(lTool.Feed("after"));
    EXPECT_TRUE(lTool.WaitForOutput("after"));
    lTool.CloseInput();
    EXPECT_EQ(0, lTool.Wait());
}

TEST(TermProcessTest, LogForNetworkAnalysersIsPcapng)
{
    const std::string lLog = Process::TemporaryFile(".pcapng");
    EXPECT_EQ(0, RunTerm({"--port", "bulk1", "--log", lLog}, "STATUS?\r\n", cLensStatus).mStatus);
    EXPECT_EQ("\x0A\x0D\x0D\x0A", ReadFile(lLog).substr(0, 4));
    EXPECT_THAT(ReadFile(lLog), HasSubstr("STATUS?\r\n"));
    std::remove(lLog.c_str());
}

/// A terminal as the input.
class InteractiveTermTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!Process::HasTerminals())
        {
            GTEST_SKIP() << "no terminal to give to a program on this system";
        }
    }

    void Start(const std::vector<std::string>& aArguments)
    {
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Terminal;
        ASSERT_TRUE(mTool.Start("kyserial", aArguments, lFiles));
        ASSERT_TRUE(mTool.WaitForError("leaves\n"));
    }
    /// The keys, each after the escape key.
    static std::string Commands(const std::string& aKeys)
    {
        std::string lText;
        for (const char lKey : aKeys)
        {
            lText += std::string("\x1D") + lKey;
        }
        return lText;
    }
    void Leave()
    {
        ASSERT_TRUE(mTool.Feed("\x1Dq"));
        EXPECT_EQ(0, mTool.Wait());
    }

    Process mTool;
};

TEST_F(InteractiveTermTest, KeysGoToThePortUntilTheEscapeKey)
{
    Start({"term", "--port", "uart0"});
    EXPECT_EQ("uart0 of sim; Ctrl-] ? shows the keys, Ctrl-] q leaves\n", mTool.Error());
    ASSERT_TRUE(mTool.Feed("STATUS?\r"));
    EXPECT_TRUE(mTool.WaitForOutput(cLensStatus));
    Leave();
    EXPECT_THAT(mTool.Error(), HasSubstr("sent 8 bytes, received 41 bytes\n"));
    EXPECT_EQ("", mTool.TerminalText()) << "keys are not echoed";
}

TEST_F(InteractiveTermTest, ControlCAndOtherKeysAreSentLikeAnyOther)
{
    Start({"term", "--port", "bulk4"});
    ASSERT_TRUE(mTool.Feed("\x03\x04\x1A\x11\x13"));
    EXPECT_TRUE(mTool.WaitForOutput("\x03\x04\x1A\x11\x13"));
    Leave();
}

TEST_F(InteractiveTermTest, TheEscapeKeyCanBeAnother)
{
    Start({"term", "--port", "bulk4", "--escape", "^A"});
    EXPECT_EQ("bulk4 of sim; Ctrl-A ? shows the keys, Ctrl-A q leaves\n", mTool.Error());
    ASSERT_TRUE(mTool.Feed("x\x1Dy\x01q"));
    EXPECT_EQ(0, mTool.Wait());
    EXPECT_THAT(mTool.Error(), HasSubstr("sent 3 bytes"));
}

TEST_F(InteractiveTermTest, TheMenuShowsTheKeys)
{
    Start({"term", "--port", "bulk4"});
    ASSERT_TRUE(mTool.Feed("\x1D?"));
    EXPECT_TRUE(mTool.WaitForError("keys after Ctrl-] (Ctrl-] twice sends it):\n"));
    for (const char* const lLine : {"  q  leave\n", "  e  local echo on or off\n", "  s  send a file\n"})
    {
        EXPECT_TRUE(mTool.WaitForError(lLine));
    }
    ASSERT_TRUE(mTool.Feed("\x1D!"));
    EXPECT_TRUE(mTool.WaitForError("no such key; Ctrl-] ? shows them\n"));
    Leave();
    EXPECT_THAT(mTool.Error(), HasSubstr("sent 0 bytes"));
}

TEST_F(InteractiveTermTest, KeysSwitchWhatIsShownAndSent)
{
    Start({"term", "--port", "bulk4", "--echo"});
    ASSERT_TRUE(mTool.Feed("a\r"));
    EXPECT_TRUE(mTool.WaitForOutput("a\n")) << "the echo has a line feed, the answer a carriage return";
    ASSERT_TRUE(mTool.Feed(Commands("ennmmmthhv")));
    EXPECT_TRUE(
        mTool.WaitForError("local echo off, hexadecimal input off, output off, line ends sent lf, shown "
                           "crlf, time stamps utc; sent 2 bytes"));
    ASSERT_TRUE(mTool.Feed("bc\r"));
    EXPECT_TRUE(mTool.WaitForOutput("bc\r\n"));
    ASSERT_TRUE(mTool.Feed("d"));
    EXPECT_TRUE(mTool.WaitForOutput("] d"));
    Leave();
    EXPECT_THAT(mTool.Error(), HasSubstr("sent 6 bytes"));
}

TEST_F(InteractiveTermTest, HexadecimalDigitsAreTypedAsBytes)
{
    Start({"term", "--port", "bulk4", "--hex-input"});
    ASSERT_TRUE(mTool.Feed("48 6g69"));
    EXPECT_TRUE(mTool.WaitForError("\"g\" is no hexadecimal digit\n"));
    EXPECT_TRUE(mTool.WaitForOutput("Hi"));
    Leave();
}

TEST_F(InteractiveTermTest, AFileIsSentFromTheMenu)
{
    const std::string lFile = Process::TemporaryFile(".data");
    ASSERT_TRUE(WriteFile(lFile, "from the file"));
    Start({"term", "--port", "bulk4"});
    ASSERT_TRUE(mTool.Feed("\x1Ds" + lFile + "x\x7F\r"));
    EXPECT_TRUE(mTool.WaitForOutput("from the file"));
    EXPECT_TRUE(mTool.WaitForError("13 bytes of " + lFile + " are sent\n"));
    ASSERT_TRUE(mTool.Feed("\x1Ds" + lFile + ".missing\r"));
    EXPECT_TRUE(mTool.WaitForError("cannot read " + lFile + ".missing: No such file or directory\n"));
    Leave();
    std::remove(lFile.c_str());
}

TEST_F(InteractiveTermTest, TheRateIsSetFromTheMenu)
{
    Start({"term", "--port", "uart0"});
    ASSERT_TRUE(mTool.Feed("\x1D"
                           "b115200\r"));
    EXPECT_TRUE(mTool.WaitForError("bits per second: 115200\n"));
    ASSERT_TRUE(mTool.Feed("\x1D"
                           "b1\r"));
    EXPECT_TRUE(mTool.WaitForError("uart0: cannot set BaudRate to Baud1: "));
    Leave();
}

TEST_F(InteractiveTermTest, KeysAreNotKeptWhileTheDeviceIsAway)
{
    Start({"term", "--port", "bulk4", "--reconnect", "--sim-cut", "100", "--sim-back", "60000"});
    for (int lTime = 0; lTime < 1000 && mTool.Error().find("the device is gone") == std::string::npos;
         ++lTime)
    {
        ASSERT_TRUE(mTool.Feed("x"));
    }
    ASSERT_TRUE(mTool.WaitForError("bulk4: the device is gone: NO_CONNECTION"));
    ASSERT_TRUE(mTool.Feed("xyz"));
    Leave();
    EXPECT_THAT(mTool.Error(), MatchesPattern("(.|\n)*; [0-9]+ bytes were not sent\n"));
}

TEST_F(InteractiveTermTest, EndsWhenTheTerminalIsHungUp)
{
    Start({"term", "--port", "bulk4"});
    mTool.CloseInput();
    EXPECT_TRUE(mTool.Wait().has_value());
}

} // namespace
