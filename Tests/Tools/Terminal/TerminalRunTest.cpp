#include "kyserial/Terminal/TerminalRun.h"
#include "Support/CapturedRun.h"
#include "Tools/ScriptedPort.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

namespace
{

using namespace KySerialTool;
using KyTest::CapturedResult;
using KyTest::Process;
using KyTest::ScriptedPort;
using testing::HasSubstr;
using testing::ThrowsMessage;

class TerminalRunTest : public testing::Test
{
protected:
    TerminalRunTest() { mOptions.mSettings.mQuietTime = 0; }

    static void Parse(TerminalOptions& aOptions, std::vector<std::string> aWords)
    {
        CLI::App lCommand;
        AddTerminalOptions(lCommand, aOptions);
        std::reverse(aWords.begin(), aWords.end()); // as the parser takes them
        lCommand.parse(aWords);
    }
    static TerminalOptions Parsed(const std::vector<std::string>& aWords)
    {
        TerminalOptions lOptions;
        Parse(lOptions, aWords);
        return lOptions;
    }
    /// Runs a session with an input that ends. \return What it has printed; mFailure is what went wrong.
    CapturedResult Run(const std::string& aInput)
    {
        return KyTest::CapturedRun(
            [&](KyToolPlatform::Console& aConsole)
            {
                Context lContext{aConsole};
                mFailure = RunTerminal(lContext, mOptions, mPort, mLog, "uart0", "uart0 of sim");
                return 0;
            },
            aInput);
    }

    TerminalOptions mOptions;
    ScriptedPort mPort;
    TrafficLog mLog;
    std::string mFailure = "not run";
};

TEST_F(TerminalRunTest, OptionsBecomeSettings)
{
    const TerminalOptions lUsual = Parsed({});
    EXPECT_EQ(300U, lUsual.mSettings.mQuietTime);
    EXPECT_FALSE(lUsual.mSettings.mForever);
    EXPECT_EQ("Ctrl-]", lUsual.mSettings.mEscape.Text());

    const TerminalOptions lOptions = Parsed({"--quiet-time", "3600000", "--escape", "^A", "--eol-send",
                                             "crlf", "--eol-show", "lf", "--hex", "--hex-input", "--send",
                                             "f", "--log", "l", "--reconnect", "--status", "-q", "--echo"});
    EXPECT_EQ(3600000U, lOptions.mSettings.mQuietTime);
    EXPECT_EQ("Ctrl-A", lOptions.mSettings.mEscape.Text());
    EXPECT_EQ(LineEnd::CrLf, lOptions.mSettings.mSendEnd);
    EXPECT_EQ(LineEnd::Lf, lOptions.mSettings.mScreen.mLineEnd);
    EXPECT_TRUE(lOptions.mSettings.mScreen.mHex && lOptions.mSettings.mHexInput && lOptions.mSettings.mEcho);
    EXPECT_TRUE(lOptions.mReconnect && lOptions.mQuiet && lOptions.mSettings.mStatus);
    EXPECT_EQ("f", lOptions.mSettings.mFile);
    EXPECT_EQ("l", lOptions.mLogFile);
}

TEST_F(TerminalRunTest, TheQuietTimeMayBeForEver)
{
    EXPECT_TRUE(Parsed({"--quiet-time", "never"}).mSettings.mForever);
    EXPECT_FALSE(Parsed({"--quiet-time", "0"}).mSettings.mForever);
}

TEST_F(TerminalRunTest, WrongValuesAreRefusedWithWhatWouldBeRight)
{
    const std::pair<std::vector<std::string>, std::string> lCases[] = {
        {{"--quiet-time", "3600001"},
         "--quiet-time: \"3600001\" is no time; use 0 to 3600000 milliseconds, or never"},
        {{"--quiet-time", "-1"}, "\"-1\" is no time"},
        {{"--quiet-time", ""}, "\"\" is no time"},
        {{"--escape", "ab"}, "--escape: \"ab\" is no key; use ^] or Ctrl-]"},
        {{"--escape", "0x100"}, "\"0x100\" is no key"},
        {{"--eol-send", "crcr"}, "--eol-send: \"crcr\" does not fit; "},
        {{"--timestamps", "local"}, "--timestamps: \"local\" does not fit; "}};
    for (const auto& lCase : lCases)
    {
        TerminalOptions lOptions;
        EXPECT_THAT([&] { Parse(lOptions, lCase.first); },
                    ThrowsMessage<CLI::ValidationError>(HasSubstr(lCase.second)));
    }
}

TEST_F(TerminalRunTest, ASessionSendsItsInputAndSaysWhatPassed)
{
    mPort.Arrive("answer");
    const CapturedResult lResult = Run("question");
    EXPECT_EQ("", mFailure);
    EXPECT_EQ("question", mPort.mSent);
    EXPECT_EQ("answer", lResult.mOutput);
    EXPECT_EQ("sent 8 bytes, received 6 bytes\n", lResult.mError);
}

TEST_F(TerminalRunTest, AQuietSessionSaysNothing)
{
    mOptions.mQuiet = true;
    EXPECT_EQ("", Run("question").mError);
    EXPECT_EQ("", mFailure);
}

TEST_F(TerminalRunTest, AFailureNamesThePort)
{
    mPort.mSendSteps = {{3, KyResult(KyResult::FAILURE, "The line is broken.")}};
    const CapturedResult lResult = Run("question");
    EXPECT_EQ("uart0: sending failed after 3 bytes: FAILURE: The line is broken.", mFailure);
    EXPECT_EQ("sent 3 bytes, received 0 bytes\n", lResult.mError) << "the counts come all the same";
}

TEST_F(TerminalRunTest, ALogThatCannotBeOpenedEndsTheSessionBeforeItBegins)
{
    KyToolPlatform::Console lConsole;
    Context lContext{lConsole};
    EXPECT_THAT([&] { PrepareSession(lContext, Process::TemporaryFile("") + "/missing/it.log", mLog); },
                ThrowsMessage<OperationError>(HasSubstr("--log: ")));
    EXPECT_NO_THROW(PrepareSession(lContext, "", mLog));
}

TEST_F(TerminalRunTest, WithoutReconnectThePortIsOpenedAtOnce)
{
    int lOpened = 0;
    const auto lOpen = [&](std::unique_ptr<BytePort>& aPort)
    {
        ++lOpened;
        aPort = std::make_unique<ScriptedPort>();
    };
    const uint32_t lLimit = mOptions.mSettings.mBusyLimit;
    const std::unique_ptr<BytePort> lPort = OpenPort(lOpen, mOptions, mLog, "uart0", "the device");
    EXPECT_EQ(1, lOpened);
    EXPECT_FALSE(lPort->IsAway());
    EXPECT_EQ(lLimit, mOptions.mSettings.mBusyLimit);
    EXPECT_THAT([&]
                { OpenPort([](auto&) { throw OperationError("not there"); }, mOptions, mLog, "uart0", "x"); },
                ThrowsMessage<OperationError>("not there"));
}

TEST_F(TerminalRunTest, WithReconnectTheUserReadsWhyThePortIsWaitedFor)
{
    mOptions.mReconnect = true;
    const std::string lFile = Process::TemporaryFile(".log");
    ASSERT_EQ("", mLog.Open(lFile));
    std::unique_ptr<BytePort> lPort;
    const CapturedResult lResult = KyTest::CapturedRun(
        [&](KyToolPlatform::Console& /*aConsole*/)
        {
            lPort = OpenPort([](auto&) { throw OperationError("not there"); }, mOptions, mLog, "Le\x1Bns",
                             "the server");
            return 0;
        });
    EXPECT_TRUE(lPort->IsAway());
    EXPECT_EQ("Le\\x1bns: waiting: not there\n", lResult.mError) << "the name of a server may have any bytes";
    mLog.Flush();
    EXPECT_THAT(KyTest::ReadFile(lFile), HasSubstr(" ! waiting: not there\n"));
    EXPECT_EQ(UINT32_MAX, mOptions.mSettings.mBusyLimit) << "input that is no terminal waits too";
    static_cast<void>(std::remove(lFile.c_str())); // ignored: it lies in the temporary folder
}

} // namespace
