// Bytes in are bytes out and bytes counted as lost, each with its reason.

#include "KySerial/BridgeCLDLLFixture.h"

using namespace KyTest;
using KySerialLib::BridgeWay;

namespace
{

uint64_t OnTheirWay(const KySerialBridgeFlow& aFlow)
{
    return aFlow.mTaken - aFlow.mDelivered - aFlow.mOverrun - aFlow.mCleared - aFlow.mRefused -
           aFlow.mCutOff - aFlow.mAway;
}

class BridgeAccountTest : public BridgeFixture
{
protected:
    void SetUp() override
    {
        AddBulkPort(mDevice);
        Open(KyDeviceSerialBulk1);
    }
    KySerialBridgeFlow FromDevice() { return mBridge->GetFlow(BridgeWay::FromDevice); }
    KySerialBridgeFlow ToDevice() { return mBridge->GetFlow(BridgeWay::ToDevice); }
    // Takes what the port has, as the thread that relays does.
    uint32_t Read()
    {
        uint32_t lRead = 0;
        EXPECT_TRUE(mBridge->ReadFromDevice(mBuffer.data(), static_cast<uint32_t>(mBuffer.size()), lRead, 0));
        return lRead;
    }

    Bytes mBuffer = Bytes(100000);
};

TEST_F(BridgeAccountTest, ReceivedBytesAreOnTheirWayUntilTheHostHasThem)
{
    SendUpstream(mDevice, std::string(300, 'd'));
    EXPECT_EQ(FromDevice().mTaken, 300U);
    EXPECT_EQ(OnTheirWay(FromDevice()), 300U);
    EXPECT_EQ(mBridge->CountDelivery(Read(), 300), 0U);
    EXPECT_EQ(FromDevice().mDelivered, 300U);
    EXPECT_EQ(OnTheirWay(FromDevice()), 0U);
}

TEST_F(BridgeAccountTest, BytesThatTheHostDoesNotTakeAreRefused)
{
    SendUpstream(mDevice, std::string(300, 'd'));
    EXPECT_EQ(mBridge->CountDelivery(Read(), 120), 0U);
    EXPECT_EQ(FromDevice().mRefused, 180U);
    EXPECT_EQ(OnTheirWay(FromDevice()), 0U);
    EXPECT_EQ(mBridge->GetTransferErrors(), 0U);
}

TEST_F(BridgeAccountTest, BytesThatAStopKeepsFromTheHostAreCutOff)
{
    SendUpstream(mDevice, std::string(300, 'd'));
    const uint32_t lRead = Read();
    mBridge->StopThreads();
    EXPECT_EQ(mBridge->CountDelivery(lRead, 120), 180U);
    EXPECT_EQ(FromDevice().mCutOff, 180U);
    EXPECT_EQ(mBridge->GetTransferErrors(), 1U);
}

TEST_F(BridgeAccountTest, BytesThatGiveWayToNewerOnesAreAnOverrun)
{
    for (int lEvent = 0; lEvent < 150; ++lEvent)
    {
        SendUpstream(mDevice, std::string(512, 'd'));
    }
    EXPECT_EQ(FromDevice().mTaken, 150U * 512);
    EXPECT_EQ(FromDevice().mOverrun, 150U * 512 - 65535);
    EXPECT_EQ(mBridge->CountDelivery(Read(), 65535), 0U);
    EXPECT_EQ(OnTheirWay(FromDevice()), 0U);
}

TEST_F(BridgeAccountTest, BytesThatRecoverDropsAreCleared)
{
    for (uint64_t lTurn = 1; lTurn <= 2; ++lTurn)
    {
        SendUpstream(mDevice, std::string(300, 'd'));
        EXPECT_THAT(mBridge->Recover(), IsOK());
        EXPECT_EQ(FromDevice().mCleared, 300 * lTurn);
        EXPECT_EQ(OnTheirWay(FromDevice()), 0U);
    }
}

TEST_F(BridgeAccountTest, BytesOfADeviceThatIsAwayStayOnTheirWay)
{
    SendUpstream(mDevice, std::string(300, 'd'));
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(mBridge->Recover(), IsOK()); // cannot close the port
    EXPECT_EQ(OnTheirWay(FromDevice()), 300U);
    EXPECT_EQ(Read(), 300U);
    mDevice.SetAnswer(Slot::IsConnected, true);
}

TEST_F(BridgeAccountTest, BytesThatTheDeviceRefusesAreCounted)
{
    JxUtilsLib::Logger::SetPriority(PriorityFatal);
    const Bytes lBlock = Count(1500);
    mDevice.FailCall(Slot::SetRegisterData, 2); // of three messages
    EXPECT_FALSE(mBridge->WriteToDevice(lBlock.data(), 1500));
    EXPECT_EQ(ToDevice().mTaken, 1500U);
    EXPECT_EQ(ToDevice().mDelivered, 512U);
    EXPECT_EQ(ToDevice().mRefused, 988U);
}

TEST_F(BridgeAccountTest, BytesThatWaitAtTheEndAreCutOff)
{
    for (const bool lConnected : {true, false})
    {
        KySerialBridgeFlow lToDevice;
        KySerialBridgeFlow lFromDevice;
        mBridge.emplace();
        Open(KyDeviceSerialBulk1);
        mBridge->SetFinalFlows(&lToDevice, &lFromDevice);
        SendUpstream(mDevice, std::string(300, 'd'));
        mBridge->StopThreads();
        mDevice.SetAnswer(Slot::IsConnected, lConnected); // a port that is away cannot be closed
        TakeLog();
        End();
        EXPECT_THAT(
            TakeLog(),
            testing::Contains(testing::Field(
                &LogLine::mMessage,
                "The stop cut off 0 of 0 bytes to the device and 300 of 300 bytes from the device.")));
        EXPECT_EQ(lFromDevice.mCutOff, 300U);
        EXPECT_EQ(OnTheirWay(lFromDevice), 0U);
    }
    mDevice.SetAnswer(Slot::IsConnected, true);
}

TEST_F(BridgeAccountTest, BytesOnTheirWayAtAResetBelongToTheTimeAfterIt)
{
    SendUpstream(mDevice, std::string(300, 'd'));
    EXPECT_EQ(mBridge->CountDelivery(Read(), 300), 0U);
    SendUpstream(mDevice, std::string(20, 'd'));
    mBridge->ResetStatistics();
    EXPECT_EQ(FromDevice().mTaken, 20U);
    EXPECT_EQ(FromDevice().mDelivered, 0U);
    EXPECT_EQ(mBridge->CountDelivery(Read(), 20), 0U);
    EXPECT_EQ(OnTheirWay(FromDevice()), 0U);
}

// The whole bridge, from its FIFOs to the device.
class BridgeClientAccountTest : public BridgeCLDLLTest
{
protected:
    void StartWithAccount()
    {
        Start();
        mBridge->SetFinalFlows(&mToDevice, &mFromDevice);
    }

    KySerialBridgeFlow mToDevice;
    KySerialBridgeFlow mFromDevice;
};

TEST_F(BridgeClientAccountTest, TrafficIsDeliveredBothWays)
{
    StartWithAccount();
    EXPECT_TRUE(Send("to the device"));
    SendFromDevice("from the device");
    EXPECT_EQ(Receive(15), "from the device");
    EXPECT_TRUE(WaitFor([this] { return mBridge->GetBytesSentToDevice() == 13; }));
    mBridge.reset();
    EXPECT_EQ(mToDevice.mTaken, 13U);
    EXPECT_EQ(mToDevice.mDelivered, 13U);
    EXPECT_EQ(mFromDevice.mTaken, 15U);
    EXPECT_EQ(mFromDevice.mDelivered, 15U);
}

TEST_F(BridgeClientAccountTest, AClientThatDoesNotReadLeavesNoByteUncounted)
{
    StartWithAccount();
    FillUp();
    mBridge.reset();
    EXPECT_EQ(mFromDevice.mTaken, 5120U);
    EXPECT_EQ(mFromDevice.mDelivered, 1023U); // they stay in the FIFO for the client
    EXPECT_EQ(mFromDevice.mCutOff, 5120U - 1023);
}

} // namespace
