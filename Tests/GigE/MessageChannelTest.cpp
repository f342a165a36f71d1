#include <KyGvcp/Protocol.h>
#include <Simulator/Network/MessageChannel.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

namespace
{

using namespace KyGvcp;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class SimulatedMessageChannelTest : public testing::Test
{
protected:
    using Buffer = std::vector<uint8_t>;
    static constexpr Endpoint cPeer{0x7F000001, 6000};

    SimulatedMessageChannelTest()
        : mChannel(
              [this](const Endpoint& aTo, Bytes aData)
              {
                  EXPECT_EQ(cPeer, aTo);
                  mSent.emplace_back(aData.begin(), aData.end());
              },
              [this] { ++mWakes; })
    {
        mChannel.Configure({cPeer, 200, 3, Time(0)});
    }

    void Raise(uint16_t aID, const Buffer& aData = {1, 2})
    {
        mChannel.OnDeviceEvent({aID, Time(1000), aData});
    }
    /// The events of what was sent since the last call.
    std::vector<uint16_t> TakeIds()
    {
        std::vector<uint16_t> lIds;
        for (const Buffer& lPacket : std::exchange(mSent, {}))
        {
            const auto lCommand = ParseCommand(lPacket);
            EXPECT_TRUE(lCommand.has_value());
            for (const EventView& lEvent : ParseEvents(*lCommand))
            {
                lIds.push_back(lEvent.mID);
                mLastRequest = lCommand->mRequestID;
            }
        }
        return lIds;
    }
    void Acknowledge(const Endpoint& aFrom = cPeer)
    {
        mChannel.HandleAcknowledge(aFrom,
                                   Packet::Acknowledge(cSuccess, cEventDataAck, mLastRequest).GetBytes());
    }
    void Step(Time aTime = Time(0))
    {
        mNow += aTime;
        mChannel.Step(mNow);
    }

    Time mNow{1s};
    std::vector<Buffer> mSent;
    int mWakes = 0;
    uint16_t mLastRequest = 0;
    MessageChannel mChannel;
};

TEST_F(SimulatedMessageChannelTest, SendsAnEventWithItsData)
{
    Raise(0x9101, {7, 8, 9});
    EXPECT_EQ(1, mWakes);
    EXPECT_THAT(mSent, IsEmpty()); // not on the camera's thread
    Step();
    ASSERT_THAT(mSent, SizeIs(1));
    const auto lCommand = ParseCommand(mSent[0]);
    ASSERT_TRUE(lCommand.has_value());
    EXPECT_EQ(cEventData, lCommand->mCode);
    EXPECT_EQ(cAcknowledgeWanted, lCommand->mFlags);
    const auto lEvents = ParseEvents(*lCommand);
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(0x9101, lEvents[0].mID);
    EXPECT_EQ(1000U, lEvents[0].mTimestamp);
    EXPECT_EQ(1U, lEvents[0].mBlockID);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(7, 8, 9));
    EXPECT_EQ(19, Reader(lEvents[0].mItem).Take16()); // the description finds the length there
}

TEST_F(SimulatedMessageChannelTest, SendsOneAtATimeInOrder)
{
    for (const uint16_t lID : {uint16_t{0x9000}, uint16_t{0x9001}, uint16_t{0x9102}})
    {
        Raise(lID);
    }
    Step();
    EXPECT_THAT(TakeIds(), ElementsAre(0x9000));
    Acknowledge();
    Step();
    EXPECT_THAT(TakeIds(), ElementsAre(0x9001));
    Acknowledge();
    Step();
    EXPECT_THAT(TakeIds(), ElementsAre(0x9102));
    EXPECT_EQ(2U, mChannel.GetCounters().mAcknowledged);
}

TEST_F(SimulatedMessageChannelTest, RepeatsWhatIsNotAcknowledgedAndGivesUp)
{
    Raise(0x9000);
    Raise(0x9001);
    Step();
    TakeIds();
    const uint16_t lRequest = mLastRequest;
    EXPECT_EQ(mNow + 200ms, mChannel.NextDue());
    Step(199ms);
    EXPECT_THAT(mSent, IsEmpty());
    Step(1ms);
    EXPECT_THAT(TakeIds(), ElementsAre(0x9000));
    EXPECT_EQ(lRequest, mLastRequest); // so that the application knows it again
    Step(200ms);
    Step(200ms);
    EXPECT_THAT(TakeIds(), ElementsAre(0x9000, 0x9000));
    Step(200ms);
    EXPECT_THAT(TakeIds(), ElementsAre(0x9001));
    EXPECT_EQ(3U, mChannel.GetCounters().mRepeated);
    EXPECT_EQ(1U, mChannel.GetCounters().mLost);
}

TEST_F(SimulatedMessageChannelTest, TakesTheRightAcknowledgeOnly)
{
    Raise(0x9000);
    Raise(0x9001);
    Step();
    TakeIds();
    Acknowledge({0x7F000001, 6001});
    mChannel.HandleAcknowledge(cPeer, Packet::Acknowledge(cSuccess, cEventDataAck, 999).GetBytes());
    mChannel.HandleAcknowledge(cPeer, Packet::Acknowledge(cSuccess, cEventAck, mLastRequest).GetBytes());
    mChannel.HandleAcknowledge(cPeer, {});
    Step();
    EXPECT_THAT(mSent, IsEmpty());
    Acknowledge();
    Acknowledge(); // a double one says nothing of the next event
    Step();
    EXPECT_THAT(TakeIds(), ElementsAre(0x9001));
}

TEST_F(SimulatedMessageChannelTest, WaitsForNobodyWithoutATimeout)
{
    mChannel.Configure({cPeer, 0, 3, Time(0)});
    Raise(0x9000);
    Raise(0x9001);
    Step();
    ASSERT_THAT(mSent, SizeIs(2));
    EXPECT_EQ(0, ParseCommand(mSent[0])->mFlags);
    EXPECT_EQ(cNever, mChannel.NextDue());
}

TEST_F(SimulatedMessageChannelTest, DropsWhatIsRaisedWhileClosed)
{
    mChannel.Configure({Endpoint(), 200, 3, Time(0)});
    Raise(0x9000);
    mChannel.Configure({cPeer, 200, 3, Time(0)});
    Step();
    EXPECT_THAT(mSent, IsEmpty());
    EXPECT_EQ(1U, mChannel.GetCounters().mDropped);
}

TEST_F(SimulatedMessageChannelTest, ClosingDropsWhatWaits)
{
    Raise(0x9000);
    Raise(0x9001);
    Step();
    TakeIds();
    mChannel.Configure({});
    mChannel.Configure({cPeer, 200, 3, Time(0)});
    Step(10s);
    EXPECT_THAT(mSent, IsEmpty());
}

TEST_F(SimulatedMessageChannelTest, OtherTimesDoNotDropAnything)
{
    Raise(0x9000);
    mChannel.Configure({cPeer, 50, 1, Time(400)});
    Step();
    ASSERT_THAT(mSent, SizeIs(1));
    EXPECT_EQ(600U, ParseEvents(*ParseCommand(mSent[0]))[0].mTimestamp);
    EXPECT_EQ(mNow + 50ms, mChannel.NextDue());
}

TEST_F(SimulatedMessageChannelTest, DropsAnEventThatFitsNoPacket)
{
    Raise(0x9100, Buffer(cMaxPayload - cEventItemSize + 1, 1));
    Raise(0x9101, Buffer(cMaxPayload - cEventItemSize, 1));
    Step();
    EXPECT_THAT(TakeIds(), ElementsAre(0x9101));
    EXPECT_EQ(1U, mChannel.GetCounters().mDropped);
}

TEST_F(SimulatedMessageChannelTest, NeverUsesTheRequestIdZero)
{
    mChannel.Configure({cPeer, 0, 0, Time(0)});
    for (int lEvent = 0; lEvent < 0x10001; ++lEvent)
    {
        Raise(0x9000);
        Step();
        ASSERT_NE(0, ParseCommand(mSent.back())->mRequestID);
        mSent.clear();
    }
}

} // namespace
