#include "Tools/ScriptedPort.h"

#include "kyserial/Terminal/PortStreams.h"

#include <JxUtilsLib/Event.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

using namespace KySerialTool;

namespace
{

constexpr uint32_t cPatience = 60000;

class PortReceiverTest : public testing::Test
{
protected:
    void Start()
    {
        mReceiver = std::make_unique<PortReceiver>(
            mPort, mLog,
            PortReceiver::Callbacks{[this](const std::vector<uint8_t>& aBytes)
                                    {
                                        mTaken.append(aBytes.begin(), aBytes.end());
                                        (aBytes.empty() ? mIdle : mSome).Set();
                                        return mAccept;
                                    },
                                    [this] { mFailed.Set(); }});
    }

    KyTest::ScriptedPort mPort;
    TrafficLog mLog;
    std::string mTaken; // the receiver's thread, until Stop()
    bool mAccept = true;
    JxUtilsLib::Event mSome{true};
    JxUtilsLib::Event mIdle{true};
    JxUtilsLib::Event mFailed{true};
    std::unique_ptr<PortReceiver> mReceiver;
};

TEST_F(PortReceiverTest, PassesOnWhatComes)
{
    Start();
    mPort.Arrive("one");
    ASSERT_TRUE(mSome.Wait_ms(cPatience));
    mPort.Arrive("two");
    mReceiver->Stop();

    EXPECT_EQ("onetwo", mTaken);
    EXPECT_EQ(6U, mReceiver->GetReceived());
    EXPECT_GT(mReceiver->GetLastTime(), 0U);
    EXPECT_EQ("", mReceiver->GetFailure());
}

TEST_F(PortReceiverTest, SaysThatNothingComes)
{
    Start();
    EXPECT_TRUE(mIdle.Wait_ms(cPatience));
    mReceiver->Stop();
    EXPECT_EQ(0U, mReceiver->GetReceived());
    EXPECT_EQ(0U, mReceiver->GetLastTime());
}

TEST_F(PortReceiverTest, StopPassesOnWhatHasComeBefore)
{
    for (int lRound = 0; lRound < 50; ++lRound)
    {
        mTaken.clear();
        Start();
        mPort.Arrive("late");
        mReceiver->Stop();
        ASSERT_EQ("late", mTaken);
    }
}

TEST_F(PortReceiverTest, EndsWhenBytesCannotBePassedOn)
{
    mAccept = false;
    Start();
    mPort.Arrive("x");
    ASSERT_TRUE(mFailed.Wait_ms(cPatience));
    mReceiver->Stop();
    EXPECT_EQ("cannot write to the standard output", mReceiver->GetFailure());
}

TEST_F(PortReceiverTest, EndsWhenThePortBreaksButPassesOnItsLastBytes)
{
    mPort.Arrive("last");
    mPort.SetState(KyResult(KyResult::NO_CONNECTION, "The device is gone."));
    Start();
    ASSERT_TRUE(mFailed.Wait_ms(cPatience));
    mReceiver->Stop();
    EXPECT_EQ("last", mTaken);
    EXPECT_EQ("receiving failed after 4 bytes: NO_CONNECTION: The device is gone.", mReceiver->GetFailure());
}

} // namespace
