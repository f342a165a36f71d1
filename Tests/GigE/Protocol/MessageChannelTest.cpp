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

TEST_F(SimulatedMessageChannelTest, WaitsForNoAcknowledgeWithoutATimeout)
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

class SimulatedEventFormsTest : public testing::Test
{
protected:
    /// The packets that a channel with these forms sends for these events, each acknowledged.
    std::vector<std::vector<uint8_t>> Send(const NetworkForms& aForms,
                                           const std::vector<DeviceEvent>& aEvents)
    {
        std::vector<std::vector<uint8_t>> lPackets;
        MessageChannel lChannel([&](const Endpoint& /*aTo*/, Bytes aData)
                                { lPackets.emplace_back(aData.begin(), aData.end()); },
                                [] {}, aForms);
        const Endpoint lPeer{0x7F000001, 6000};
        lChannel.Configure({lPeer, 200, 0, Time(0)});
        for (const DeviceEvent& lEvent : aEvents)
        {
            lChannel.OnDeviceEvent(lEvent);
        }
        for (size_t lSent = 0; lChannel.Step(1s), lSent < lPackets.size(); ++lSent)
        {
            const CommandView lCommand = *ParseCommand(lPackets[lSent]);
            lChannel.HandleAcknowledge(
                lPeer,
                Packet::Acknowledge(cSuccess, static_cast<uint16_t>(lCommand.mCode + 1), lCommand.mRequestID)
                    .GetBytes());
        }
        EXPECT_EQ(aEvents.size(), lChannel.GetCounters().mSent);
        EXPECT_EQ(aEvents.size(), lChannel.GetCounters().mAcknowledged);
        return lPackets;
    }
};

TEST_F(SimulatedEventFormsTest, SeveralEventsMakeAPacketAsFarAsTheyFit)
{
    NetworkForms lForms;
    lForms.mEventsPerPacket = 3;
    const auto lPackets = Send(lForms, {{0x9000, Time(1), {1}},
                                        {0x9001, Time(2), {2, 3}},
                                        {0x9101, Time(3), {4}},
                                        {0x9102, Time(4), {5}},
                                        {0x9103, Time(5), std::vector<uint8_t>(510, 6)}});
    ASSERT_THAT(lPackets, SizeIs(3));
    const auto lFirst = ParseEvents(*ParseCommand(lPackets[0]));
    ASSERT_THAT(lFirst, SizeIs(3)); // the number
    EXPECT_EQ(0x9001, lFirst[1].mID);
    EXPECT_EQ(2U, lFirst[1].mBlockID);
    EXPECT_THAT(lFirst[1].mData, ElementsAre(2, 3));
    EXPECT_THAT(ParseEvents(*ParseCommand(lPackets[1])), SizeIs(1)); // the room
    EXPECT_THAT(ParseEvents(*ParseCommand(lPackets[2])), SizeIs(1));
}

TEST_F(SimulatedEventFormsTest, LongNumbersMakeLongItems)
{
    NetworkForms lForms;
    lForms.mLongEventIds = true;
    const auto lPackets = Send(lForms, {{0x9000, Time(7), {1, 2}}});
    ASSERT_THAT(lPackets, SizeIs(1));
    const CommandView lCommand = *ParseCommand(lPackets[0]);
    EXPECT_EQ(cExtendedID | cAcknowledgeWanted, lCommand.mFlags);
    const auto lEvents = ParseEvents(lCommand);
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(26U, lEvents[0].mItem.size());
    EXPECT_EQ(1U, lEvents[0].mBlockID);
    EXPECT_EQ(7U, lEvents[0].mTimestamp);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(1, 2));
}

TEST_F(SimulatedEventFormsTest, EventsWithoutDataLeaveAsEventAndNotTogetherWithOthers)
{
    NetworkForms lForms;
    lForms.mEventsPerPacket = 33;
    const auto lPackets =
        Send(lForms, {{0x9000, Time(1), {}}, {0x9001, Time(2), {}}, {0x9002, Time(3), {1}}});
    ASSERT_THAT(lPackets, SizeIs(2));
    EXPECT_EQ(cEvent, ParseCommand(lPackets[0])->mCode);
    EXPECT_THAT(ParseEvents(*ParseCommand(lPackets[0])), SizeIs(2));
    EXPECT_EQ(cEventData, ParseCommand(lPackets[1])->mCode);
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
