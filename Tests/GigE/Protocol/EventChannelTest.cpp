#include "GigE/CameraClient.h"
#include "GigE/ScriptedDevice.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/MessageChannel.h"

#include <JxUtilsLib/Event.h>
#include <gmock/gmock.h>

#include <future>

using KyGigE::MessageChannel;
using KyTest::IsOK;
using KyTest::ScriptedDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;

namespace
{

constexpr uint32_t cLoopback = 0x7F000001;

class EventChannelTest : public testing::Test
{
protected:
    struct Heard
    {
        uint16_t mID;
        uint64_t mTime;
        Bytes mData;
    };

    EventChannelTest()
    {
        EXPECT_THAT(mChannel.Open(cLoopback, mDevice.GetAddress(),
                                  [this](const KyGvcp::EventView& aEvent) { Hear(aEvent); }),
                    IsOK());
        mDevice.PutWord(KyGvcp::cMessageAddressRegister, cLoopback);
        mDevice.PutWord(KyGvcp::cMessagePortRegister, mChannel.GetLocal().mPort);
    }
    ~EventChannelTest() override { mChannel.Close(); }

    void Hear(const KyGvcp::EventView& aEvent)
    {
        if (mInHandler)
        {
            mInHandler();
        }
        mHeard.push_back({aEvent.mID, aEvent.mTimestamp, {aEvent.mData.begin(), aEvent.mData.end()}});
    }

    /// What was heard until now, everything that has come included.
    std::vector<Heard> TakeHeard()
    {
        std::promise<std::vector<Heard>> lHeard;
        mChannel.Post([&] { lHeard.set_value(std::exchange(mHeard, {})); });
        return lHeard.get_future().get();
    }

    ScriptedDevice mDevice{""};
    /// Has the channel's thread do something with each event from now on.
    void SetInHandler(std::function<void()> aInHandler)
    {
        std::promise<void> lDone;
        mChannel.Post(
            [&]
            {
                mInHandler = std::move(aInHandler);
                lDone.set_value();
            });
        lDone.get_future().get();
    }

    std::function<void()> mInHandler; // the channel's thread only
    std::vector<Heard> mHeard;        // the channel's thread only
    MessageChannel mChannel;
};

TEST_F(EventChannelTest, ReportsAnEventWithItsData)
{
    ASSERT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1, 2, 3}, 0, 77)));
    const auto lHeard = TakeHeard();
    ASSERT_EQ(lHeard.size(), 1U);
    EXPECT_EQ(lHeard[0].mID, 0x9000);
    EXPECT_EQ(lHeard[0].mTime, 77U);
    EXPECT_THAT(lHeard[0].mData, ElementsAre(1, 2, 3));
}

TEST_F(EventChannelTest, AcknowledgesBeforeItReports)
{
    JxUtilsLib::Event lGo(true);
    SetInHandler([&] { EXPECT_TRUE(lGo.Wait_ms(20000)); });
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1})));
    lGo.Set();
    EXPECT_EQ(TakeHeard().size(), 1U);
}

TEST_F(EventChannelTest, LeavesOutARepetitionButAcknowledgesIt)
{
    for (int lRound = 0; lRound < 3; ++lRound)
    {
        EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 5, 100)));
    }
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {2}, 6, 101)));
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 5, 100))); // a late one
    EXPECT_EQ(TakeHeard().size(), 2U);
    EXPECT_EQ(mChannel.GetRepeats(), 3U);
}

TEST_F(EventChannelTest, LeavesOutARepetitionThatThousandsHaveOvertaken)
{
    constexpr uint16_t cBehind = 5000; // half a second of a line at 115200 bit/s with an event a byte
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 65000, 100)));
    for (uint16_t lNext = 1; lNext <= cBehind; ++lNext)
    {
        const auto lIdentifier = static_cast<uint16_t>(lNext < 536 ? 65000 + lNext : lNext - 535);
        ASSERT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {2}, lIdentifier, 100U + lNext)));
    }
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 65000, 100)));
    EXPECT_EQ(TakeHeard().size(), 1U + cBehind);
    EXPECT_EQ(mChannel.GetRepeats(), 1U);
}

TEST_F(EventChannelTest, ADeviceThatStartsAnewIsHeardAlthoughItsIdentifiersRepeat)
{
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 1, 100)));
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, 1, 7)));
    EXPECT_EQ(TakeHeard().size(), 2U);
}

TEST_F(EventChannelTest, OtherHostsAreNotListenedTo)
{
    if (HasOneLoopbackAddress())
    {
        GTEST_SKIP() << "this system has one loopback address";
    }
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, 9);
    KyGvcp::AddEvent(lPacket, 0x9000, 1, 1, {});
    const KyGvcp::Bytes lBytes = lPacket.GetBytes();
    mDevice.SendPacket({lBytes.begin(), lBytes.end()}, 0x7F000002);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9100, {})));
    const auto lHeard = TakeHeard();
    ASSERT_EQ(lHeard.size(), 1U);
    EXPECT_EQ(lHeard[0].mID, 0x9100);
}

TEST_F(EventChannelTest, OtherPortsOfTheDevicesHostAreNotListenedTo)
{
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, 9);
    KyGvcp::AddEvent(lPacket, 0x9000, 1, 1, {});
    const KyGvcp::Bytes lBytes = lPacket.GetBytes();
    // The port of the first event, until a register says which it is.
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9100, {})));
    mDevice.SendPacket({lBytes.begin(), lBytes.end()}, cLoopback);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9101, {})));
    EXPECT_EQ(TakeHeard().size(), 2U);
    mChannel.Listen(static_cast<uint16_t>(mDevice.GetWord(KyGvcp::cMessageSourcePortRegister)));
    mDevice.SendPacket({lBytes.begin(), lBytes.end()}, cLoopback);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9102, {})));
    EXPECT_EQ(TakeHeard().size(), 1U);
    EXPECT_EQ(mChannel.GetForeign(), 2U);
}

TEST_F(EventChannelTest, TakesNoEventWhileItIsDeaf)
{
    mChannel.Deafen();
    const uint16_t lEvent = mDevice.SendEvent(0x9000, {1});
    EXPECT_THAT(TakeHeard(), IsEmpty());
    mChannel.Listen(0);
    mDevice.SendEvent(0x9000, {1}, lEvent, 1); // the device repeats what nobody acknowledges
    EXPECT_TRUE(mDevice.WaitForAcknowledge(lEvent));
    EXPECT_EQ(TakeHeard().size(), 1U);
}

TEST_F(EventChannelTest, ANumberFarFromTheLastOneCountsWhenTheDeviceInsists)
{
    for (uint16_t lNumber = 1; lNumber <= 40; ++lNumber)
    {
        ASSERT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1}, lNumber)));
    }
    TakeHeard();
    mDevice.SendEvent(0x9000, {2}, 30000, 1000);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {3}, 41)));
    auto lHeard = TakeHeard();
    ASSERT_EQ(lHeard.size(), 1U);
    EXPECT_THAT(lHeard[0].mData, ElementsAre(3));
    EXPECT_EQ(mChannel.GetForeign(), 1U);
    mDevice.SendEvent(0x9000, {4}, 20000, 1001);
    mDevice.SendEvent(0x9000, {4}, 20000, 1001);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(20000));
    EXPECT_EQ(TakeHeard().size(), 1U);
}

TEST_F(EventChannelTest, EventsWithPaddingAreHeard)
{
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, 7);
    KyGvcp::AddEvent(lPacket, 0x9000, 1, 1, Bytes{1, 2, 3});
    lPacket.Add(Bytes{0}); // to a multiple of 4, within the header's length
    const KyGvcp::Bytes lBytes = lPacket.GetBytes();
    Bytes lPadded(lBytes.begin(), lBytes.end());
    mDevice.SendPacket(lPadded, 0);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(7));
    lPadded[7] = 8;
    lPadded.resize(lPadded.size() + 18); // to the network's shortest frame, after the header's length
    mDevice.SendPacket(lPadded, 0);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(8));
    const auto lHeard = TakeHeard();
    ASSERT_EQ(lHeard.size(), 2U);
    EXPECT_THAT(lHeard[0].mData, ElementsAre(1, 2, 3));
    EXPECT_THAT(lHeard[1].mData, ElementsAre(1, 2, 3));
}

TEST_F(EventChannelTest, EventsThatMakeNoSenseAreAcknowledgedAndLeftOut)
{
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(KyGvcp::cEventData, KyGvcp::cAcknowledgeWanted, 7);
    lPacket.Add16(400).Add16(0x9000).Add64(0).Add32(0); // an item longer than the packet
    const KyGvcp::Bytes lBytes = lPacket.GetBytes();
    mDevice.SendPacket({lBytes.begin(), lBytes.end()}, 0);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(7));
    mDevice.SendPacket({0x42, 0x01, 0x00, 0xC2, 0x00, 0x40, 0x00, 0x09}, 0); // announces more than it has
    EXPECT_TRUE(mDevice.WaitForAcknowledge(9));
    EXPECT_THAT(TakeHeard(), IsEmpty());
}

TEST_F(EventChannelTest, GoesOnAtAnotherAddress)
{
    const uint16_t lBefore = mChannel.GetLocal().mPort;
    EXPECT_THAT(mChannel.Move(cLoopback + 4, 0), IsOK());
    EXPECT_EQ(mChannel.GetLocal().mAddress, cLoopback + 4);
    mDevice.PutWord(KyGvcp::cMessageAddressRegister, cLoopback + 4);
    mDevice.PutWord(KyGvcp::cMessagePortRegister, mChannel.GetLocal().mPort);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {1})));
    EXPECT_EQ(TakeHeard().size(), 1U);
    EXPECT_NE(lBefore, 0);
}

TEST_F(EventChannelTest, WhatIsNoEventIsNothing)
{
    mDevice.SendPacket({}, 0);
    mDevice.SendPacket({0x42, 0x01, 0x00, 0xC2, 0x00, 0x40, 0x00, 0x63},
                       0); // acknowledged, as another number
    mDevice.SendPacket({0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0, 0, 0, 0}, 0);
    mDevice.SendPacket(Bytes(548, 0xFF), 0);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9100, {})));
    EXPECT_EQ(TakeHeard().size(), 1U);
}

TEST_F(EventChannelTest, DoesOtherThingsOnTheSameThread)
{
    std::thread::id lEventThread;
    SetInHandler([&] { lEventThread = std::this_thread::get_id(); });
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {})));
    std::promise<std::thread::id> lTaskThread;
    mChannel.Post([&] { lTaskThread.set_value(std::this_thread::get_id()); });
    EXPECT_EQ(lTaskThread.get_future().get(), lEventThread);
    EXPECT_NE(lEventThread, std::this_thread::get_id());
}

TEST_F(EventChannelTest, ClosesWhileEventsCome)
{
    for (uint16_t lRound = 1; lRound < 50; ++lRound)
    {
        mDevice.SendEvent(0x9000, {1}, lRound);
    }
    mChannel.Close();
    const size_t lHeard = mHeard.size();
    EXPECT_LE(lHeard, 49U);
}

} // namespace
