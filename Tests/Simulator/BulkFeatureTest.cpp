#include "Simulator/CameraFixture.h"

#include "Simulator/RecordingPeer.h"

#include <Simulator/Peers/LoopbackPeer.h>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class BulkFeatureTest : public CameraFixture
{
protected:
    void MakeFast()
    {
        mConfiguration.mUnlimitedLineRate = true;
        Make();
    }

    void Inject(size_t aBulk, const Bytes& aBytes)
    {
        mCamera->InjectBytes(BulkPortOf(aBulk), aBytes.data(), aBytes.size());
    }
};

TEST_F(BulkFeatureTest, AMessageGoesOutWithoutHeaderAndPadding)
{
    MakeFast();
    EXPECT_EQ(Send(3, {0, 0, 0, 0, 0, 0, 0, 3, 'a', 'b', 'c', 0xEE}), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk3), ElementsAre('a', 'b', 'c'));
}

TEST_F(BulkFeatureTest, HeadersAreLittleEndianOnOtherTransports)
{
    mConfiguration.mTransport = Transport::Alternate;
    MakeFast();
    EXPECT_EQ(Send(1, {0, 0, 0, 0, 3, 0, 0, 0, 'a', 'b', 'c', 0xEE}), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), ElementsAre('a', 'b', 'c'));
    EXPECT_EQ(Send(1, Message({'a', 'b', 'c'})), Status::InvalidParameter);
}

TEST_F(BulkFeatureTest, MessagesGoOutAtTheLineRateOneAfterTheOther)
{
    Make();
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Bulk2, lPeer);
    EXPECT_EQ(Send(2, Message(Numbers(100))), Status::Ok);
    EXPECT_EQ(Send(2, Message(Numbers(100))), Status::Ok);
    mClock->Advance(Time(1041666) * 150 - 1ns);
    EXPECT_THAT(lPeer->GetBytes(), SizeIs(149));
    mClock->Advance(1ns);
    EXPECT_THAT(lPeer->GetBytes(), SizeIs(150));
}

TEST_F(BulkFeatureTest, AFullLengthMessageFits)
{
    MakeFast();
    EXPECT_EQ(Send(7, Message(Numbers(512))), Status::Ok);
    EXPECT_EQ(mCamera->GetWire(Port::Bulk7), Numbers(512));
    EXPECT_EQ(Send(7, Message(Numbers(513))), Status::InvalidParameter);
    EXPECT_EQ(Send(7, Message({})), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk7), SizeIs(512));
}

TEST_F(BulkFeatureTest, MessagesThatDoNotFitTheirHeaderAreRefused)
{
    MakeFast();
    const std::vector<Bytes> lMessages = {
        {},
        {0, 0, 0, 0},
        {0, 0, 0, 0, 0, 0, 0},
        {0, 0, 0, 0, 0, 0, 0, 1},                         // longer than what was written
        {0, 0, 0, 0, 0, 0, 0, 5, 1, 2, 3, 4},             // the same
        {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4}, // the same, far
        {0, 0, 0, 0, 0, 0, 0, 3, 1, 2, 3},                // not padded
        {0x0F, 0, 0, 0, 0, 0, 0, 4, 1, 2, 3, 4},          // flags that do not exist
        {0, 0, 0, 0x80, 0, 0, 0, 4, 1, 2, 3, 4},          // flags in the other byte order
    };
    for (const Bytes& lMessage : lMessages)
    {
        EXPECT_EQ(Send(1, lMessage), Status::InvalidParameter) << testing::PrintToString(lMessage);
    }
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mBadMessages,
              lMessages.size() - 1); // no bytes at all is no message
}

TEST_F(BulkFeatureTest, AMessageWithoutRoomIsRefusedWhole)
{
    mConfiguration.mDownstreamQueue = 100;
    Make();
    EXPECT_EQ(Send(1, Message(Numbers(80))), Status::Ok);
    EXPECT_EQ(Send(1, Message(Numbers(30))), Status::Busy);
    EXPECT_EQ(Send(1, Message(Numbers(20))), Status::Ok);
    mClock->Advance(1s);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), SizeIs(100));
}

TEST_F(BulkFeatureTest, ReceivedBytesComeAsUpstreamEventsWhileTheyAreOn)
{
    MakeFast();
    Notify(4);
    Inject(4, {1, 2, 3});
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(lEvents[0].mId, cUpstreamEvent + 4);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(1, 2, 3));
    Inject(5, {9});
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk4).mUpstreamEvents, 1U);
}

TEST_F(BulkFeatureTest, BytesWaitWhileTheirEventIsOffAndTheFifoKeepsTheOldest)
{
    mConfiguration.mBulkReceiveFifo = 4;
    MakeFast();
    Inject(1, Numbers(6));
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    Notify(1);
    EXPECT_THAT(TakeData(cUpstreamEvent + 1), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mReceiveOverflow, 2U);
    Notify(1, "Off");
    Inject(1, {7});
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
}

TEST_F(BulkFeatureTest, UpstreamEventsAreNoLongerThanTheirBuffer)
{
    mConfiguration.mUpstreamLength = 10;
    MakeFast();
    Notify(1);
    Inject(1, Numbers(25));
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(3));
    EXPECT_THAT(lEvents[0].mData, SizeIs(10));
    EXPECT_THAT(lEvents[2].mData, ElementsAre(20, 21, 22, 23, 24));
}

TEST_F(BulkFeatureTest, UpstreamFeaturesShowTheLastEvent)
{
    MakeFast();
    int64_t lLength = 99;
    EXPECT_TRUE(mCamera->GetInteger("EventBulk1UpstreamDataLength", lLength).IsOk());
    EXPECT_EQ(lLength, 0);
    Notify(1);
    Inject(1, {1, 2, 3});
    Inject(1, {4, 5});
    EXPECT_TRUE(mCamera->GetInteger("EventBulk1UpstreamDataLength", lLength).IsOk());
    EXPECT_EQ(lLength, 2);
    EXPECT_EQ(Get("EventBulk1UpstreamDataLength"), "2");
    Bytes lData(4, 0xEE);
    EXPECT_TRUE(mCamera->GetRegisterData("EventBulk1UpstreamDataBuffer", lData.data(), 4).IsOk());
    EXPECT_THAT(lData, ElementsAre(4, 5, 0, 0));
    EXPECT_TRUE(mCamera->GetInteger("EventBulk2UpstreamDataLength", lLength).IsOk());
    EXPECT_EQ(lLength, 0);
}

TEST_F(BulkFeatureTest, ACameraThatCollectsSendsBytesTogetherAndTheLineKeepsItsRate)
{
    mConfiguration.mCollects = 10ms;
    Make();
    mCamera->Plug(Port::Bulk4, std::make_shared<LoopbackPeer>());
    Notify(4);
    const auto lTake = [this]
    {
        std::vector<size_t> lSizes;
        for (const DeviceEvent& lEvent : mListener.TakeEvents())
        {
            lSizes.push_back(lEvent.mData.size());
        }
        return lSizes;
    };
    EXPECT_EQ(Send(4, Message(Numbers(25))), Status::Ok); // 1.04 ms a byte, and as much on the way back
    mClock->Advance(10ms);
    EXPECT_THAT(lTake(), IsEmpty()); // nine bytes are out, and on their way back
    mClock->Advance(10ms);
    EXPECT_THAT(lTake(), ElementsAre(9));
    mClock->Advance(30ms);
    EXPECT_THAT(lTake(), ElementsAre(9, 7));
}

TEST_F(BulkFeatureTest, Bulk0RaisesBothKindsOfEventWhenBothAreOn)
{
    MakeFast();
    Notify(0);
    Write(cInterruptEnable, 0x100);
    Inject(0, {1, 2});
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_THAT(lEvents[0].mData, ElementsAre(0, 1, 0, 0, 1, 2));
    EXPECT_THAT(lEvents[1].mData, ElementsAre(1, 2));
}

TEST_F(BulkFeatureTest, ModesThatThePortDoesNotHaveTakeNoMessages)
{
    mConfiguration.mBulk[0].mSpi = false;
    MakeFast();
    Write(cBulk0Configuration, 3U << cInterfaceShift);
    EXPECT_EQ(Send(0, Message({1})), Status::AccessDenied);
    Write(cBulk0Configuration, 6U << cInterfaceShift);
    EXPECT_EQ(Send(0, Message({1})), Status::AccessDenied);
    Write(cBulk0Configuration, 0);
    EXPECT_EQ(Get("BulkMode"), "USRT");
    EXPECT_EQ(Send(0, Message({1})), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(1));
}

TEST_F(BulkFeatureTest, TheWireRemembersTheNewestBytes)
{
    mConfiguration.mWireLimit = 3;
    MakeFast();
    EXPECT_EQ(Send(1, Message({1, 2, 3, 4, 5})), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), ElementsAre(3, 4, 5));
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mSent, 5U);
    mCamera->ClearWire(Port::Bulk1);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), IsEmpty());
}
