// Bytes in are bytes out and bytes counted as lost, each with its reason.

#include "KySerial/Bridge/BridgeCLDLLFixture.h"

using namespace KyTest;

namespace
{

class BridgeAccountTest : public BridgeFixture
{
protected:
    void SetUp() override
    {
        AddBulkPort(mDevice);
        Open(KyDeviceSerialBulk1);
    }
    void Arrive(size_t aCount) { SendUpstream(mDevice, std::string(aCount, 'd')); }
    // Takes what the port has, as the thread that relays does.
    uint32_t Read()
    {
        uint32_t lRead = 0;
        EXPECT_TRUE(mBridge->ReadFromDevice(mBuffer.data(), static_cast<uint32_t>(mBuffer.size()), lRead, 0));
        return lRead;
    }

    Bytes mBuffer = Bytes(100000);
};

TEST_F(BridgeAccountTest, ReceivedBytesAreOnTheirWayUntilTheHostHasThemOrRefusesThemOrAStopCutsThemOff)
{
    constexpr struct
    {
        bool mIsStopped;
        uint32_t mTaken; // by the host
        uint64_t mCut;
        const char* mFlow;
    } cCases[] = {{false, 300, 0, "300 taken, 300 delivered"},
                  {false, 120, 0, "300 taken, 120 delivered, 180 refused"},
                  {true, 120, 180, "300 taken, 120 delivered, 180 cut off"}};
    for (const auto& lCase : cCases)
    {
        mBridge.emplace();
        Open(KyDeviceSerialBulk1);
        Arrive(300);
        EXPECT_EQ(FromDevice(), "300 taken");
        const uint32_t lRead = Read();
        if (lCase.mIsStopped)
        {
            mBridge->StopThreads();
        }
        EXPECT_EQ(mBridge->CountDelivery(lRead, lCase.mTaken), lCase.mCut);
        EXPECT_EQ(FromDevice(), lCase.mFlow);
        EXPECT_EQ(mBridge->GetTransferErrors(), lCase.mIsStopped ? 1U : 0U);
    }
}

TEST_F(BridgeAccountTest, BytesThatGiveWayToNewerOnesAreAnOverrun)
{
    for (int lEvent = 0; lEvent < 150; ++lEvent)
    {
        Arrive(512);
    }
    EXPECT_EQ(FromDevice(), "76800 taken, 11265 overrun");
    EXPECT_EQ(mBridge->CountDelivery(Read(), 65535), 0U);
    EXPECT_EQ(FromDevice(), "76800 taken, 65535 delivered, 11265 overrun");
}

TEST_F(BridgeAccountTest, BytesThatRecoverDropsAreCleared)
{
    for (const char* lFlow : {"300 taken, 300 cleared", "600 taken, 600 cleared"})
    {
        Arrive(300);
        EXPECT_THAT(mBridge->Recover(), IsOK());
        EXPECT_EQ(FromDevice(), lFlow);
    }
}

TEST_F(BridgeAccountTest, BytesOfADeviceThatIsAwayStayOnTheirWay)
{
    Arrive(300);
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(mBridge->Recover(), IsOK()); // cannot close the port
    EXPECT_EQ(FromDevice(), "300 taken");
    EXPECT_EQ(Read(), 300U);
    mDevice.SetAnswer(Slot::IsConnected, true);
}

TEST_F(BridgeAccountTest, BytesThatTheDeviceRefusesAreCounted)
{
    JxUtilsLib::Logger::SetPriority(PriorityFatal);
    mDevice.FailCall(Slot::SetRegisterData, 2); // of three messages
    EXPECT_FALSE(WriteBlock(*mBridge, Count(1500)));
    EXPECT_EQ(ToDevice(), "1500 taken, 512 delivered, 988 refused");
    EXPECT_EQ(mBridge->GetBytesSentToDevice(), 512U);
    EXPECT_TRUE(WriteBlock(*mBridge, Count(100)));
    EXPECT_EQ(mBridge->GetBytesSentToDevice(), 612U);
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
        Arrive(300);
        mBridge->StopThreads();
        mDevice.SetAnswer(Slot::IsConnected, lConnected); // a port that is away cannot be closed
        TakeLog();
        End();
        EXPECT_THAT(
            TakeLog(),
            testing::Contains(testing::Field(
                &LogLine::mMessage,
                "The stop cut off 0 of 0 bytes to the device and 300 of 300 bytes from the device.")));
        EXPECT_EQ(Describe(lFromDevice), "300 taken, 300 cut off");
    }
    mDevice.SetAnswer(Slot::IsConnected, true);
}

TEST_F(BridgeAccountTest, BytesOnTheirWayAtAResetBelongToTheTimeAfterIt)
{
    Arrive(300);
    EXPECT_EQ(mBridge->CountDelivery(Read(), 300), 0U);
    Arrive(20);
    mBridge->ResetStatistics();
    EXPECT_EQ(FromDevice(), "20 taken");
    EXPECT_EQ(mBridge->CountDelivery(Read(), 20), 0U);
    EXPECT_EQ(FromDevice(), "20 taken, 20 delivered");
}

// The whole bridge, from its FIFOs to the device.
class BridgeClientAccountTest : public BridgeCLDLLTest
{
protected:
    void SetUp() override
    {
        BridgeCLDLLTest::SetUp();
        Start();
        mBridge->SetFinalFlows(&mToDevice, &mFromDevice);
    }

    KySerialBridgeFlow mToDevice;
    KySerialBridgeFlow mFromDevice;
};

TEST_F(BridgeClientAccountTest, TrafficIsDeliveredBothWays)
{
    EXPECT_TRUE(Send("to the device"));
    SendFromDevice("from the device");
    EXPECT_EQ(Receive(15), "from the device");
    EXPECT_TRUE(WaitFor([this] { return mBridge->GetBytesSentToDevice() == 13; }));
    EXPECT_EQ(mBridge->GetBytesReceivedFromDevice(), 15U);
    EXPECT_EQ(mBridge->GetTransferErrors(), 0U);
    const Bytes lMessage = mDevice.GetContent("Bulk1DownstreamData");
    ASSERT_GE(lMessage.size(), 21U);
    EXPECT_EQ(std::string(lMessage.begin() + 8, lMessage.begin() + 21), "to the device"); // after the header
    mBridge.reset();
    EXPECT_EQ(Describe(mToDevice), "13 taken, 13 delivered");
    EXPECT_EQ(Describe(mFromDevice), "15 taken, 15 delivered");
}

TEST_F(BridgeClientAccountTest, AClientThatDoesNotReadLeavesNoByteUncounted)
{
    FillUp();
    mBridge.reset();
    // What was delivered stays in the FIFO for the client.
    EXPECT_EQ(Describe(mFromDevice), "5120 taken, 1023 delivered, 4097 cut off");
}

} // namespace
