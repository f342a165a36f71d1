#include "Tools/ScriptedPort.h"

#include "Support/PatternMatcher.h"
#include "Support/Process.h"
#include "kyserial/Terminal/PortStreams.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace KySerialTool;

namespace
{

class PortSenderTest : public testing::Test
{
protected:
    bool Send(const std::string& aText)
    {
        return mSender.Send(reinterpret_cast<const uint8_t*>(aText.data()), aText.size());
    }

    std::string FailureOf(const std::string& aText)
    {
        try
        {
            Send(aText);
            return "none";
        }
        catch (const OperationError& lError)
        {
            return lError.what();
        }
    }

    KyTest::ScriptedPort mPort;
    TrafficLog mLog;
    bool mGiveUp = false;
    PortSender mSender{mPort, mLog, [this] { return mGiveUp; }, 100};
};

const KyResult cBusy(0x8007, "Busy.");

TEST_F(PortSenderTest, SendsEverythingInPieces)
{
    const std::string lText(PortSender::cPiece * 2 + 10, 'x');
    EXPECT_TRUE(Send(lText));
    EXPECT_EQ(lText, mPort.mSent);
    EXPECT_EQ((std::vector<uint32_t>{PortSender::cPiece, PortSender::cPiece, 10}), mPort.mPieces);
    EXPECT_EQ(lText.size(), mSender.GetSent());
}

TEST_F(PortSenderTest, SendsNothingWhenThereIsNothing)
{
    EXPECT_TRUE(Send(""));
    EXPECT_TRUE(mPort.mPieces.empty());
}

TEST_F(PortSenderTest, FailureSaysHowManyBytesOfTheSessionWentOut)
{
    Send("hello");
    mPort.mSendSteps = {{3, KyResult(KyResult::TIMED_OUT, "No interrupt.")}};
    EXPECT_EQ("sending failed after 8 bytes: TIMED_OUT: No interrupt.", FailureOf("world"));
    EXPECT_EQ(8U, mSender.GetSent());
}

TEST_F(PortSenderTest, ABusyDeviceGetsTheRestLater)
{
    mPort.mSendSteps = {{0, cBusy}, {3, cBusy}, {0, cBusy}};
    EXPECT_TRUE(Send("abcdefgh"));
    EXPECT_EQ("abcdefgh", mPort.mSent);
    EXPECT_EQ((std::vector<uint32_t>{8, 8, 5, 5}), mPort.mPieces);
}

TEST_F(PortSenderTest, AnAnswerBeforeTheEndOfTheCallIsLoggedAfterWhatItAnswers)
{
    const std::string lPath = KyTest::Process::TemporaryFile(".log");
    ASSERT_EQ("", mLog.Open(lPath));
    mPort.mOnSend = [this]
    {
        const uint8_t lAnswer = 'A';
        mLog.Add(TrafficLog::cReceived, &lAnswer, 1);
    };
    EXPECT_TRUE(Send("?"));
    mLog.Flush();
    EXPECT_THAT(KyTest::ReadFile(lPath), KyTest::MatchesPattern(".*Z > 3f + \\?\n.*Z < 41 + A\n"));
    std::remove(lPath.c_str());
}

TEST_F(PortSenderTest, GivesUpOnRequestBetweenPieces)
{
    mGiveUp = true;
    EXPECT_FALSE(Send("abc"));
    EXPECT_EQ(0U, mSender.GetSent());
}

TEST_F(PortSenderTest, ADeviceThatStaysBusyFails)
{
    for (uint32_t lCall = 0; lCall < 100; ++lCall)
    {
        mPort.mSendSteps.push_back({0, cBusy});
    }
    EXPECT_EQ("sending failed after 0 bytes: 0x8007: Busy.", FailureOf("x"));
}

} // namespace
