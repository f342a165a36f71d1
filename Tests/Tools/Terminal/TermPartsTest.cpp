#include "Tools/ScriptedPort.h"
#include "kyserial/Device/ReconnectingPort.h"
#include "kyserial/Terminal/KeyReader.h"
#include "kyserial/Terminal/Screen.h"
#include "kyserial/Terminal/StatusRow.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/LineEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace KySerialTool;
using namespace std::chrono;
using KyTest::ScriptedPort;
using KyToolPlatform::Console;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace
{

std::vector<uint8_t> ToBytes(const std::string& aText)
{
    return {aText.begin(), aText.end()};
}

std::string Mapped(LineEnd aEnd, const std::vector<std::string>& aPieces)
{
    LineEndMap lMap(aEnd);
    std::string lText;
    for (const std::string& lPiece : aPieces)
    {
        lText += lMap.Map(ToBytes(lPiece).data(), lPiece.size());
    }
    return lText;
}

TEST(LineEndsTest, EachKindOfLineEndBecomesTheSame)
{
    EXPECT_EQ("a\nb\nc\n\nd", Mapped(LineEnd::Lf, {"a\rb\nc\r\n\r\nd"}));
    EXPECT_EQ("a\rb\rc\r\rd", Mapped(LineEnd::Cr, {"a\rb\nc\r\n\nd"}));
    EXPECT_EQ("a\r\nb\r\nc\r\n", Mapped(LineEnd::CrLf, {"a\rb\nc\r\n"}));
    EXPECT_EQ("a\rb\nc\r\n", Mapped(LineEnd::AsIs, {"a\rb\nc\r\n"}));
}

TEST(LineEndsTest, ALineEndInTwoPiecesIsOne)
{
    EXPECT_EQ("a\nb", Mapped(LineEnd::Lf, {"a\r", "\nb"}));
    EXPECT_EQ("a\n\nb", Mapped(LineEnd::Lf, {"a\r", "\r\nb"}));
}

TEST(LineEndsTest, NamesGoBothWays)
{
    for (const LineEnd lEnd : {LineEnd::AsIs, LineEnd::Cr, LineEnd::Lf, LineEnd::CrLf})
    {
        EXPECT_EQ(lEnd, ParseLineEnd(LineEndName(lEnd)));
    }
    EXPECT_EQ(std::nullopt, ParseLineEnd("crcr"));
    EXPECT_EQ(LineEnd::AsIs, NextLineEnd(LineEnd::CrLf));
}

TEST(HexReaderTest, TwoDigitsAreAByteOverPieces)
{
    HexReader lReader;
    std::vector<uint8_t> lBytes;
    EXPECT_EQ(4U, lReader.Add(ToBytes("9f 0").data(), 4, lBytes));
    EXPECT_EQ(5U, lReader.Add(ToBytes("3,aB\n").data(), 5, lBytes));
    EXPECT_THAT(lBytes, ElementsAre(0x9F, 0x03, 0xAB));
    EXPECT_FALSE(lReader.Drop());
}

TEST(HexReaderTest, StopsAtWhatIsNoDigitAndWithinAByte)
{
    HexReader lReader;
    std::vector<uint8_t> lBytes;
    EXPECT_EQ(2U, lReader.Add(ToBytes("41x").data(), 3, lBytes));
    EXPECT_EQ(1U, lReader.Add(ToBytes("4 1").data(), 3, lBytes));
    EXPECT_TRUE(lReader.Drop());
    EXPECT_FALSE(lReader.Drop());
}

/// A KeyReader over pieces of input; after the last the input ends.
class KeyReaderTest : public testing::Test
{
protected:
    KeyReader::ReadResult Read(uint8_t* aBuffer, size_t& aRead)
    {
        aRead = 0;
        if (mPieces.empty())
        {
            return Console::ReadResult::End;
        }
        aRead = mPieces.front().copy(reinterpret_cast<char*>(aBuffer), mPieces.front().size());
        mPieces.pop_front();
        return Console::ReadResult::Data;
    }
    /// What the next event is: "bytes ...", "command ..." or "end".
    std::string Next()
    {
        const KeyReader::Event lEvent = mKeys.Next();
        if (lEvent.mCommand.has_value())
        {
            return std::string("command ") + *lEvent.mCommand;
        }
        return lEvent.mResult == Console::ReadResult::Data
                   ? "bytes " + std::string(lEvent.mBytes.begin(), lEvent.mBytes.end())
                   : "end";
    }

    std::deque<std::string> mPieces;
    KeyReader mKeys{[this](uint8_t* aBuffer, size_t, size_t& aRead, uint32_t)
                    { return Read(aBuffer, aRead); },
                    EscapeKey()};
};

TEST_F(KeyReaderTest, TheKeyAfterTheEscapeKeyIsACommand)
{
    mPieces = {"ab\x1Dqc"};
    EXPECT_EQ("bytes ab", Next());
    EXPECT_EQ("command q", Next());
    EXPECT_EQ("bytes c", Next());
    EXPECT_EQ("end", Next());
}

TEST_F(KeyReaderTest, ACommandMayComeInTwoPieces)
{
    mPieces = {"a\x1D", "?"};
    EXPECT_EQ("bytes a", Next());
    EXPECT_EQ("command ?", Next());
}

TEST_F(KeyReaderTest, ControlWithTheKeyAndCapitalsAreTheSameCommand)
{
    mPieces = {"\x1D\x11\x1DQ"};
    EXPECT_EQ("command q", Next());
    EXPECT_EQ("command q", Next());
}

TEST_F(KeyReaderTest, TheEscapeKeyTwiceIsAByte)
{
    mPieces = {"\x1D\x1D"};
    EXPECT_EQ("bytes \x1D", Next());
    EXPECT_EQ("end", Next());
}

TEST_F(KeyReaderTest, AnInputThatEndsAfterTheEscapeKeyEnds)
{
    mPieces = {"\x1D"};
    EXPECT_EQ("end", Next());
}

TEST_F(KeyReaderTest, LinesCanBeCorrectedAndGivenUp)
{
    std::string lEcho;
    const auto lLine = [&]
    { return mKeys.ReadLine([&](const std::string& aText) { lEcho += aText; }).value_or("given up"); };
    mPieces = {"\x7F"
               "fx\x7Fil",
               "e\rab\x1B"
               "ab\x03z"};
    EXPECT_EQ("file", lLine());
    EXPECT_EQ("fx\b \bile\n", lEcho);
    EXPECT_EQ("given up", lLine());
    EXPECT_EQ("given up", lLine());
    EXPECT_EQ("given up", lLine()) << "the input has ended";
}

TEST_F(KeyReaderTest, ControlCAndEscStopWhatRuns)
{
    mPieces = {"abc", "x\x03", "\x1B"};
    EXPECT_FALSE(mKeys.WantsToStop());
    EXPECT_TRUE(mKeys.WantsToStop());
    EXPECT_TRUE(mKeys.WantsToStop());
    EXPECT_FALSE(mKeys.WantsToStop());
}

class ScreenTest : public testing::Test
{
protected:
    std::string Shown(Screen& aScreen, const std::string& aText)
    {
        mShown.clear();
        EXPECT_TRUE(aScreen.Show(ToBytes(aText).data(), aText.size()));
        return mShown;
    }

    std::string mShown;
    Screen::Time mNow = sys_days(year(2025) / 11 / 21) + 8h + 53min + 1s + 123ms;
    const Screen::Write mWrite = [this](const std::string& aText)
    {
        mShown += aText;
        return true;
    };
    const std::function<Screen::Time()> mClock = [this] { return mNow; };
};

TEST_F(ScreenTest, ShowsBytesAsTheyCome)
{
    Screen lScreen(mWrite, {}, mClock);
    EXPECT_EQ("a\r\nb", Shown(lScreen, "a\r\nb"));
}

TEST_F(ScreenTest, MapsLineEnds)
{
    Screen lScreen(mWrite, {false, false, LineEnd::Lf, TimeStamps::None}, mClock);
    EXPECT_EQ("a\nb\n", Shown(lScreen, "a\rb\r\n"));
}

TEST_F(ScreenTest, EachLineBeginsWithItsTime)
{
    Screen lScreen(mWrite, {false, false, LineEnd::AsIs, TimeStamps::Utc}, mClock);
    EXPECT_EQ("[08:53:01.123] a", Shown(lScreen, "a"));
    mNow += 1s;
    EXPECT_EQ("b\n[08:53:02.123] c", Shown(lScreen, "b\nc"));
}

TEST_F(ScreenTest, TimesCountFromTheBeginningOrTheLineBefore)
{
    Screen lElapsed(mWrite, {false, false, LineEnd::AsIs, TimeStamps::Elapsed}, mClock);
    Screen lStep(mWrite, {false, false, LineEnd::AsIs, TimeStamps::Step}, mClock);
    mNow += 12345ms;
    EXPECT_EQ("[   12.345] a\n", Shown(lElapsed, "a\n"));
    EXPECT_EQ("[  +12.345] a\n", Shown(lStep, "a\n"));
    mNow += 12ms;
    EXPECT_EQ("[   12.357] b\n", Shown(lElapsed, "b\n"));
    EXPECT_EQ("[   +0.012] b\n", Shown(lStep, "b\n"));
}

TEST_F(ScreenTest, DumpHasTimesToo)
{
    Screen lScreen(mWrite, {true, true, LineEnd::AsIs, TimeStamps::Utc}, mClock);
    EXPECT_EQ("", Shown(lScreen, "ab"));
    EXPECT_THAT(Shown(lScreen, ""), HasSubstr("[08:53:01.123] 00000000  61 62 "));
}

TEST_F(ScreenTest, EchoHasLineFeeds)
{
    Screen lScreen(mWrite, {}, mClock);
    EXPECT_TRUE(lScreen.Echo(ToBytes("a\r").data(), 2));
    EXPECT_EQ("a\n", mShown);
}

TEST_F(ScreenTest, ABrokenOutputIsReported)
{
    Screen lScreen([](const std::string&) { return false; }, {}, mClock);
    EXPECT_FALSE(lScreen.Show(ToBytes("a").data(), 1));
    EXPECT_FALSE(lScreen.Echo(ToBytes("a").data(), 1));
    EXPECT_TRUE(lScreen.Show(nullptr, 0)) << "there is nothing to write";
}

TEST_F(ScreenTest, SettingsCanBeChanged)
{
    Screen lScreen(mWrite, {}, mClock);
    ScreenSettings lSettings = lScreen.GetSettings();
    lSettings.mLineEnd = LineEnd::CrLf;
    lScreen.Change(lSettings);
    EXPECT_EQ("a\r\n", Shown(lScreen, "a\n"));
}

TEST(StatusRowTest, ATextThatWouldWrapIsCut)
{
    EXPECT_EQ("0123456", FitRow("0123456789", 8));
    EXPECT_EQ("0123456", FitRow("0123456", 8));
    EXPECT_EQ("0123456789", FitRow("0123456789", 0)) << "the terminal does not know its width";
}

TEST(StatusRowTest, TheRowsAboveScrollWithoutIt)
{
    EXPECT_EQ("\n\x1B[1;23r\x1B[23;1H", StatusRow::Reserve({80, 24}));
    EXPECT_EQ("\x1B"
              "7\x1B[24;1H\x1B[7mstat\x1B[m\x1B[K\x1B"
              "8",
              StatusRow::Row({5, 24}, "status"));
    EXPECT_EQ("\x1B[r\x1B[24;1H\x1B[2K", StatusRow::Release({80, 24}));
}

/// A ReconnectingPort whose device a test takes away and brings back.
class ReconnectingPortTest : public testing::Test
{
protected:
    void Open(std::unique_ptr<BytePort>& aPort)
    {
        if (!mThere)
        {
            throw OperationError("no device", mCode);
        }
        auto lPort = std::make_unique<ScriptedPort>();
        mPort = lPort.get();
        aPort = std::move(lPort);
    }
    std::unique_ptr<ReconnectingPort> Make()
    {
        return std::make_unique<ReconnectingPort>(
            [this](std::unique_ptr<BytePort>& aPort) { Open(aPort); },
            [this](const std::string& aText) { mNotes.push_back(aText); }, "the peer", 1);
    }
    static void ReceiveUntil(ReconnectingPort& aPort, bool aAway)
    {
        for (int lTime = 0; lTime < 10000 && aPort.IsAway() != aAway; ++lTime)
        {
            aPort.Receive(2);
        }
        EXPECT_EQ(aAway, aPort.IsAway());
    }
    static KyResult SendOne(ReconnectingPort& aPort)
    {
        uint32_t lSent = 0;
        return aPort.Send(ToBytes("x").data(), 1, lSent);
    }

    bool mThere = true;
    uint32_t mCode = KyResult::NO_CONNECTION;
    ScriptedPort* mPort = nullptr;
    std::vector<std::string> mNotes;
};

TEST_F(ReconnectingPortTest, WaitsForADeviceThatIsNotThereYet)
{
    mThere = false;
    const auto lPort = Make();
    EXPECT_TRUE(lPort->IsAway());
    EXPECT_TRUE(lPort->IsBusy(SendOne(*lPort)));
    lPort->Receive(5);
    mThere = true;
    ReceiveUntil(*lPort, false);
    EXPECT_TRUE(SendOne(*lPort).IsOK());
    EXPECT_THAT(mNotes, ElementsAre("waiting: no device", "the peer is there"));
}

TEST_F(ReconnectingPortTest, OpensThePortAnewWhenTheDeviceIsBack)
{
    const auto lPort = Make();
    mPort->Arrive("last");
    mPort->SetState({KyResult::NO_CONNECTION, "gone"});
    EXPECT_EQ(ToBytes("last"), lPort->Receive(1)) << "what came before is passed on";
    EXPECT_FALSE(lPort->IsAway());
    mThere = false;
    ReceiveUntil(*lPort, true);
    EXPECT_TRUE(lPort->GetState().IsOK());
    mThere = true;
    ReceiveUntil(*lPort, false);
    EXPECT_TRUE(SendOne(*lPort).IsOK());
    EXPECT_THAT(mNotes, ElementsAre("the peer is gone: NO_CONNECTION: gone", "the peer is there"));
}

TEST_F(ReconnectingPortTest, AFailedSendOfALostDeviceIsBusy)
{
    const auto lPort = Make();
    mPort->mSendSteps.push_back({0, {KyResult::FAILURE, "cut"}});
    const KyResult lRefused = SendOne(*lPort);
    EXPECT_FALSE(lPort->IsBusy(lRefused)) << "the device is there and refuses";
    mPort->mSendSteps.push_back({0, {KyResult::FAILURE, "cut"}});
    mPort->SetState({KyResult::NO_CONNECTION, "gone"});
    EXPECT_TRUE(lPort->IsBusy(SendOne(*lPort)));
}

TEST_F(ReconnectingPortTest, DoesNotWaitForAPortThatTheDeviceLacks)
{
    mThere = false;
    mCode = KyResult::UNSUPPORTED;
    EXPECT_THAT([this] { Make(); }, ThrowsMessage<OperationError>("no device"));
}

TEST_F(ReconnectingPortTest, FailsWhenTheDeviceComesBackWithoutThePort)
{
    const auto lPort = Make();
    mPort->SetState({KyResult::NO_CONNECTION, "gone"});
    mThere = false;
    ReceiveUntil(*lPort, true);
    mCode = KyResult::UNSUPPORTED;
    for (int lTime = 0; lTime < 10000 && lPort->GetState().IsOK(); ++lTime)
    {
        lPort->Receive(2);
    }
    EXPECT_FALSE(lPort->GetState().IsOK());
}

} // namespace
