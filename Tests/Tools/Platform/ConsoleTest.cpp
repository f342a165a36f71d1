#include "Support/Process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using KyTest::Process;

namespace
{

/// A console belongs to a process, so each case looks at one from outside (ConsoleProbe).
class ConsoleTest : public testing::Test
{
protected:
    bool Start(const std::string& aWhat, const Process::Files& aFiles)
    {
        return mProbe.Start("ConsoleProbe", {aWhat}, aFiles);
    }

    bool StartWithTerminal(const std::string& aWhat)
    {
        return Start(aWhat, {Process::Input::Terminal, {}, false, false});
    }

    Process mProbe;
};

const Process::Files cPipe = {Process::Input::Pipe, {}, false, false};

TEST_F(ConsoleTest, ReadsAFileToItsEnd)
{
    const std::string lText(10000, 'a');
    ASSERT_TRUE(Start("copy", {Process::Input::File, lText, false, false}));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ(lText, mProbe.Output());
    EXPECT_EQ("ready\nend", mProbe.Error());
}

TEST_F(ConsoleTest, PassesEveryByteValueUnchanged)
{
    std::string lText;
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        for (int lByte = 0; lByte < 256; ++lByte)
        {
            lText += static_cast<char>(lByte);
        }
    }
    ASSERT_TRUE(Start("copy", {Process::Input::File, lText, false, false}));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ(lText, mProbe.Output());
}

TEST_F(ConsoleTest, ReadsFromAPipeWhatIsThereAndThenItsEnd)
{
    ASSERT_TRUE(Start("copy", cPipe));

    ASSERT_TRUE(mProbe.Feed("first"));
    EXPECT_TRUE(mProbe.WaitForOutput("first"));
    ASSERT_TRUE(mProbe.Feed("second"));
    EXPECT_TRUE(mProbe.WaitForOutput("firstsecond"));
    mProbe.CloseInput();

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("ready\nend", mProbe.Error());
}

TEST_F(ConsoleTest, TimesOutWhenNothingComes)
{
    const auto lStart = std::chrono::steady_clock::now();
    ASSERT_TRUE(Start("timeout", cPipe));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(60));
    EXPECT_EQ("timed out 0 no", mProbe.Error());
}

TEST_F(ConsoleTest, InterruptEndsTheReadThatRunsAndEveryLaterOne)
{
    ASSERT_TRUE(Start("interrupt", cPipe));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("interrupted 0 yesinterrupted 0 yes", mProbe.Error());
}

TEST_F(ConsoleTest, InterruptEndsTheWaitForIt)
{
    ASSERT_TRUE(Start("await thread", cPipe));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("interrupted", mProbe.Error());
}

TEST_F(ConsoleTest, RequestToEndEndsTheWaitForIt)
{
    ASSERT_TRUE(Start("await", cPipe));
    ASSERT_TRUE(mProbe.WaitForError("ready"));
    if (!mProbe.AskToEnd())
    {
        GTEST_SKIP() << "tests have no console to send a control event through on this system";
    }

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("ready\ninterrupted", mProbe.Error());
}

TEST_F(ConsoleTest, RequestToEndBecomesAnInterruptWhenWatched)
{
    ASSERT_TRUE(Start("watch", cPipe));
    ASSERT_TRUE(mProbe.WaitForError("ready"));
    if (!mProbe.AskToEnd())
    {
        GTEST_SKIP() << "tests have no console to send a control event through on this system";
    }

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("ready\ninterrupted", mProbe.Error());
}

TEST_F(ConsoleTest, RequestToEndEndsTheProcessWhenNotWatched)
{
    ASSERT_TRUE(Start("copy", cPipe));
    ASSERT_TRUE(mProbe.WaitForError("ready"));
    if (!mProbe.AskToEnd())
    {
        GTEST_SKIP() << "tests have no console to send a control event through on this system";
    }

    const auto lStart = std::chrono::steady_clock::now();
    mProbe.Wait(); // killed, or with the status that the system has for that
    EXPECT_LT(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(Process::cPatience));
    EXPECT_EQ("ready\n", mProbe.Error()) << "it has ended by itself";
}

TEST_F(ConsoleTest, WriteReportsABrokenOutput)
{
    ASSERT_TRUE(Start("flood", {Process::Input::File, {}, true, false}));

    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("broken", mProbe.Error());
}

TEST_F(ConsoleTest, FilesAreNoTerminalsAndHaveNoRawMode)
{
    ASSERT_TRUE(Start("terminals", {}));
    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("0 0", mProbe.Error());

    Process lRaw;
    ASSERT_TRUE(lRaw.Start("ConsoleProbe", {"raw"}, {}));
    EXPECT_EQ(0, lRaw.Wait());
    EXPECT_EQ(0U, lRaw.Error().find("not raw\n"));
}

TEST_F(ConsoleTest, TerminalInputIsATerminal)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    ASSERT_TRUE(StartWithTerminal("terminals"));
    EXPECT_EQ(0, mProbe.Wait());
    EXPECT_EQ("1 0", mProbe.Error());
}

TEST_F(ConsoleTest, RawModePassesSingleKeysWithoutEcho)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    ASSERT_TRUE(StartWithTerminal("raw"));
    ASSERT_TRUE(mProbe.WaitForError("raw\nready\n"));

    ASSERT_TRUE(mProbe.Feed("a\r\x03")); // Enter stays what the key sends; Ctrl-C is a key like another
    EXPECT_TRUE(mProbe.WaitForOutput("a\r\x03"));
    EXPECT_EQ("", mProbe.TerminalText());

    ASSERT_TRUE(mProbe.Feed("q"));
    ASSERT_TRUE(mProbe.WaitForError("left\nready\n"));
    ASSERT_TRUE(mProbe.Feed("b\r")); // lines and echo again
    EXPECT_TRUE(mProbe.WaitForOutput("a\r\x03qb\n"));
    EXPECT_TRUE(mProbe.WaitForTerminal("b\r\n"));
    ASSERT_TRUE(mProbe.Feed("\x04")); // the end of the input, as a terminal that takes lines has it
    EXPECT_EQ(0, mProbe.Wait());
}

TEST_F(ConsoleTest, TerminalThatIsHungUpIsTheEndOfTheInput)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    ASSERT_TRUE(StartWithTerminal("watch"));
    ASSERT_TRUE(mProbe.WaitForError("ready"));

    mProbe.CloseInput();

    EXPECT_EQ(0, mProbe.Wait()); // as the end of the input, or as the request to end that comes with it
}

} // namespace
