#include "kyserial/Terminal/TermSession.h"
#include "Support/CapturedRun.h"
#include "Support/WaitFor.h"
#include "Tools/ScriptedPort.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

namespace
{

using namespace KySerialTool;
using KyTest::CapturedResult;
using testing::ElementsAre;
using testing::HasSubstr;

/// A port that can be away, and that notes the rates that are set.
class SessionPort final : public KyTest::ScriptedPort
{
public:
    KyResult Send(const uint8_t* aData, uint32_t aSize, uint32_t& aSent) override
    {
        KyResult lResult = ScriptedPort::Send(aData, aSize, aSent);
        mAway = mAway || mSent.size() >= mAwayAfter;
        return lResult;
    }
    std::vector<uint8_t> Receive(uint32_t aTimeout) override
    {
        ++mReceives;
        return ScriptedPort::Receive(aTimeout);
    }
    bool IsAway() const override { return mAway; }
    void SetLine(const LineSelection& aLine) override
    {
        if (aLine.mBaudRate == 1U)
        {
            throw OperationError("the device refuses it");
        }
        mRates.push_back(aLine.mBaudRate.value_or(0));
    }

    std::atomic<bool> mAway{false};
    size_t mAwayAfter = SIZE_MAX; ///< Bytes that are sent until the device goes.
    std::atomic<int> mReceives{0};
    std::vector<uint32_t> mRates;
};

/// Ctrl-] and a key: a command of an interactive session.
std::string Key(char aKey)
{
    return std::string("\x1D") + aKey;
}

class TermSessionTest : public testing::Test
{
protected:
    using End = TermSession::End;

    TermSessionTest()
    {
        mSettings.mInteractive = true;
        mSettings.mQuietTime = 0;
    }
    ~TermSessionTest() override
    {
        static_cast<void>(std::remove(mFile.c_str())); // ignored: not every test makes it
    }

    /// Runs a session with an input that ends, and aMeanwhile on a thread beside it.
    /// \return What it has printed; mEnd, mFailure and the counts are what came of it.
    CapturedResult Run(
        const std::string& aInput,
        const std::function<void(KyToolPlatform::Console&)>& aMeanwhile = [](auto&) {})
    {
        return KyTest::CapturedRun(
            [&](KyToolPlatform::Console& aConsole)
            {
                TermSession lSession(aConsole, mPort, mLog, mSettings,
                                     [this](const std::string& aText) { mNotices.push_back(aText); });
                std::thread lMeanwhile([&] { aMeanwhile(aConsole); });
                try
                {
                    mEnd = lSession.Run();
                }
                catch (const OperationError& lError)
                {
                    mFailure = lError.what();
                }
                lMeanwhile.join();
                mDropped = lSession.GetDropped();
                return 0;
            },
            aInput);
    }

    TermSettings mSettings;
    SessionPort mPort;
    TrafficLog mLog;
    const std::string mFile = KyTest::Process::TemporaryFile(".bin");
    std::vector<std::string> mNotices;
    std::optional<End> mEnd;
    std::string mFailure;
    uint64_t mDropped = 0;
};

TEST_F(TermSessionTest, TheLeavingKeyEndsTheSessionBeforeTheRestOfTheInput)
{
    for (const char lKey : {'q', 'x'})
    {
        mPort.mSent.clear();
        Run("ab" + Key(lKey) + "cd");
        EXPECT_EQ(End::Escaped, mEnd);
        EXPECT_EQ("ab", mPort.mSent);
    }
}

TEST_F(TermSessionTest, WithoutAUserTheEscapeKeyIsAByteLikeAnyOther)
{
    mSettings.mInteractive = false;
    Run("ab" + Key('q') + "cd");
    EXPECT_EQ(End::InputEnded, mEnd);
    EXPECT_EQ("ab\x1Dqcd", mPort.mSent);
}

TEST_F(TermSessionTest, AnUnknownKeyIsNoticedAndNothingOfItIsSent)
{
    Run(Key('!') + "a");
    EXPECT_THAT(mNotices, ElementsAre("no such key; Ctrl-] ? shows them"));
    EXPECT_EQ("a", mPort.mSent);
}

TEST_F(TermSessionTest, EachSwitchSaysItsNewState)
{
    Run(Key('e') + Key('e') + Key('h') + Key('i') + Key('t') + Key('n') + Key('m'));
    EXPECT_THAT(mNotices, ElementsAre("local echo: on", "local echo: off", "hexadecimal output: on",
                                      "hexadecimal input: on", "time stamps: utc", "line ends sent: cr",
                                      "line ends shown: cr"));
    mNotices.clear();
    Run(Key('v'));
    ASSERT_EQ(1U, mNotices.size());
    EXPECT_THAT(mNotices[0], HasSubstr("local echo off, hexadecimal input off, output off, line ends sent "
                                       "asis, shown asis, time stamps none; sent 0 bytes"));
}

TEST_F(TermSessionTest, TheTimeStampsComeRoundToNone)
{
    Run(Key('t') + Key('t') + Key('t') + Key('t'));
    EXPECT_THAT(mNotices, ElementsAre("time stamps: utc", "time stamps: elapsed", "time stamps: step",
                                      "time stamps: none"));
}

TEST_F(TermSessionTest, LineEndsOfKeysAreSentAsChosen)
{
    Run("a\r" + Key('n') + Key('n') + "b\r");
    EXPECT_EQ("a\rb\n", mPort.mSent);
}

TEST_F(TermSessionTest, TheEchoShowsKeysAndWhatIsRefusedLeavesNone)
{
    mSettings.mEcho = true;
    EXPECT_EQ("ab", Run("ab").mOutput);
    mSettings.mInteractive = false;
    mSettings.mHexInput = true;
    EXPECT_EQ("", Run("4142zz").mOutput);
    EXPECT_EQ("--hex-input: \"z\" is no hexadecimal digit", mFailure);
}

// At a keyboard a wrong digit is the user's slip: the half byte before it is dropped, and typing goes on.
TEST_F(TermSessionTest, AWrongDigitIsNoticedAtAKeyboardAndAFailureInAFile)
{
    mSettings.mHexInput = true;
    Run("41 4x42 4");
    EXPECT_EQ("", mFailure);
    EXPECT_EQ("AB", mPort.mSent);
    EXPECT_THAT(mNotices, ElementsAre("\"x\" is no hexadecimal digit"));

    mPort.mSent.clear();
    mSettings.mInteractive = false;
    Run("41 4");
    EXPECT_EQ("--hex-input: the input ends within a byte", mFailure);
    EXPECT_EQ("A", mPort.mSent);
}

TEST_F(TermSessionTest, SwitchingTheHexadecimalInputForgetsHalfAByte)
{
    mSettings.mHexInput = true;
    Run("4" + Key('i') + Key('i') + "41");
    EXPECT_EQ("A", mPort.mSent);
}

TEST_F(TermSessionTest, TheRateIsAskedForAndSet)
{
    Run(Key('b') + "57600\r" + Key('b') + "fast\r" + Key('b') + "\r" + Key('b') + "1\r");
    EXPECT_THAT(mPort.mRates, ElementsAre(57600U));
    EXPECT_THAT(mNotices,
                ElementsAre("bits per second: 57600", "\"fast\" is no number", "the device refuses it"));
    EXPECT_EQ("", mPort.mSent) << "the answers are no input";
}

TEST_F(TermSessionTest, AFileThatIsMissingFailsAScriptAndIsNoticedByAUser)
{
    const std::string lMissing = mFile + ".missing";
    Run(Key('s') + lMissing + "\ra");
    ASSERT_EQ(1U, mNotices.size());
    EXPECT_THAT(mNotices[0], HasSubstr("cannot read " + lMissing));
    EXPECT_EQ("a", mPort.mSent);

    mSettings.mFile = lMissing;
    Run("b");
    EXPECT_THAT(mFailure, HasSubstr("cannot read " + lMissing));
    EXPECT_EQ("a", mPort.mSent) << "no input without the file before it";
}

TEST_F(TermSessionTest, AFileGoesOutWholeBeforeTheInput)
{
    const std::string lContent(size_t{PortSender::cPiece} * 3 + 1, 'f');
    ASSERT_TRUE(KyTest::WriteFile(mFile, lContent));
    mSettings.mInteractive = false;
    mSettings.mFile = mFile;
    Run("end");
    EXPECT_EQ(lContent + "end", mPort.mSent);
    EXPECT_TRUE(mNotices.empty()) << "a script reads the counts at the end";
}

// Sent later, they would reach the port in the middle of something else.
TEST_F(TermSessionTest, KeysThatAreTypedWhileAFileGoesOutAreDropped)
{
    const std::string lContent(size_t{PortSender::cPiece} * 3 + 1, 'f');
    ASSERT_TRUE(KyTest::WriteFile(mFile, lContent));
    // One input: the keys are there before the file goes out, however late the system hands them over.
    Run(Key('s') + mFile + "\rtyped");
    EXPECT_EQ(lContent, mPort.mSent);
    EXPECT_THAT(mNotices, ElementsAre(std::to_string(lContent.size()) + " bytes of " + mFile + " are sent"));
}

TEST_F(TermSessionTest, TheEscKeyStopsAFileBetweenTwoPieces)
{
    ASSERT_TRUE(KyTest::WriteFile(mFile, std::string(size_t{PortSender::cPiece} * 3, 'f')));
    Run(Key('s') + mFile + "\r\x1B");
    EXPECT_EQ(size_t{PortSender::cPiece}, mPort.mSent.size());
    ASSERT_EQ(1U, mNotices.size());
    EXPECT_THAT(mNotices[0], testing::StartsWith("stopped, "));
}

TEST_F(TermSessionTest, AFileStopsWhenTheDeviceGoesAway)
{
    ASSERT_TRUE(KyTest::WriteFile(mFile, std::string(size_t{PortSender::cPiece} * 3, 'f')));
    mPort.mAwayAfter = PortSender::cPiece;
    mSettings.mFile = mFile;
    Run("");
    EXPECT_THAT(mNotices, ElementsAre("stopped, " + std::to_string(PortSender::cPiece) + " bytes of " +
                                      mFile + " are sent"));
    EXPECT_EQ(size_t{PortSender::cPiece}, mPort.mSent.size());
}

// A user sees on the screen that the device is away. Keys kept for its return would surprise them then.
TEST_F(TermSessionTest, KeysForADeviceThatIsAwayAreDroppedAndCounted)
{
    mPort.mAway = true;
    Run("lost" + Key('q'));
    EXPECT_EQ(End::Escaped, mEnd);
    EXPECT_EQ("", mPort.mSent);
    EXPECT_EQ(4U, mDropped);
}

TEST_F(TermSessionTest, AScriptsInputIsKeptForADeviceThatIsAway)
{
    mSettings.mInteractive = false;
    mPort.mAway = true;
    Run("kept");
    EXPECT_EQ("kept", mPort.mSent) << "the port itself waits";
    EXPECT_EQ(0U, mDropped);
}

TEST_F(TermSessionTest, ASessionForEverListensAfterTheEndOfItsInputUntilItIsInterrupted)
{
    mSettings.mInteractive = false;
    mSettings.mForever = true;
    const CapturedResult lResult = Run("",
                                       [&](KyToolPlatform::Console& aConsole)
                                       {
                                           // Each is a wait of 20 ms; an end for the quiet time comes before.
                                           KyTest::WaitFor([&] { return mPort.mReceives >= 5; });
                                           mPort.Arrive("late");
                                           aConsole.Interrupt();
                                       });
    EXPECT_EQ("late", lResult.mOutput);
}

TEST_F(TermSessionTest, APortThatFailsEndsTheSessionWithItsReason)
{
    mSettings.mInteractive = false;
    mSettings.mForever = true;
    mPort.SetState(KyResult(KyResult::NO_CONNECTION, "The device is gone."));
    Run("");
    EXPECT_EQ("receiving failed after 0 bytes: NO_CONNECTION: The device is gone.", mFailure);
}

} // namespace
