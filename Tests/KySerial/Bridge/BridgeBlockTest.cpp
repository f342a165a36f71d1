// Blocks from the host: each is one write to the device, whatever the port, and a stop or a Recover() ends it
// early.

#include "KySerial/Bridge/BridgeFixture.h"
#include "Support/WaitFor.h"

#include <atomic>
#include <thread>

using namespace KyTest;

namespace
{

constexpr uint32_t cUart = 1U << 12;
constexpr uint32_t cTxEmpty = 0x800;

class BridgeBlockTest : public BridgeFixture
{
protected:
    // The device confirms every byte of UART 0, and every chunk of bulk port 0.
    void ConfirmEverything()
    {
        mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SendEvent(0x9000, Words({1})); });
        mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({cTxEmpty})); });
    }

    void TearDown() override
    {
        for (const Slot lSlot : {Slot::WriteRegister, Slot::WriteMemory, Slot::SetRegisterData})
        {
            mDevice.OnCall(lSlot, {}); // closing the port writes registers too
        }
        BridgeFixture::TearDown();
    }

    bool Write(size_t aSize) { return WriteBlock(*mBridge, Count(aSize)); }

    // The number of calls of a kind that starts with aStart since the last look.
    std::vector<size_t> MessageSizes()
    {
        std::vector<size_t> lSizes;
        for (const std::string& lCall : mDevice.TakeCalls())
        {
            if (lCall.starts_with("SetRegisterData(") || lCall.starts_with("WriteMemory("))
            {
                const size_t lBegin = lCall.find('[');
                lSizes.push_back((lCall.find(']') - lBegin) / 3);
            }
        }
        return lSizes;
    }

    int LinesThatStartWith(const std::string& aStart)
    {
        int lCount = 0;
        for (const LogLine& lLine : TakeLog())
        {
            lCount += lLine.mMessage.starts_with(aStart) ? 1 : 0;
        }
        return lCount;
    }

    // Starts a write of 1500 bytes that the device holds up after aSlot, and waits until it does.
    std::thread StartWrite(Slot aSlot, bool& aResult)
    {
        mHeldUp = false;
        mDevice.OnCall(aSlot, [this] { mHeldUp = true; });
        std::thread lWriter([this, &aResult] { aResult = Write(1500); });
        EXPECT_TRUE(WaitFor([this] { return mHeldUp.load(); }));
        return lWriter;
    }

    std::atomic<bool> mHeldUp{false};
};

TEST_F(BridgeBlockTest, ABlockIsOneWriteToAUart)
{
    Open(KyDeviceSerialUart0);
    ConfirmEverything();
    EXPECT_TRUE(Write(1500));
    EXPECT_EQ(LinesThatStartWith("Writing 1500 bytes of data"), 1);
    EXPECT_EQ(mDevice.GetCallCount(Slot::WriteRegister), 1500);
    EXPECT_EQ(mDevice.GetCallCount(Slot::IsConnected), 1); // each write asks once
}

TEST_F(BridgeBlockTest, ABlockIsOneWriteToBulkPort0ThroughRegisters)
{
    mDevice.SetRegister(0xB898, cUart); // 9600 bit/s
    Open(KyDeviceSerialBulk0);
    ConfirmEverything();
    EXPECT_TRUE(Write(1500));
    EXPECT_EQ(LinesThatStartWith("Sending 1500 bytes of data over bulk port"), 1);
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{256, 252, 252, 252, 252, 236}));
}

TEST_F(BridgeBlockTest, ABlockIsOneMessageToBulkPort0ThroughFeatures)
{
    mDevice.SetRegister(0xB8FC, 0x80000000); // no registers for it
    mDevice.SetContent("Bulk0DownstreamData", Bytes(520));
    Open(KyDeviceSerialBulk0);
    EXPECT_TRUE(Write(308));
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{8 + 308}));
}

TEST_F(BridgeBlockTest, ABlockIsOneMessageToABulkPortAsFarAsItFits)
{
    AddBulkPort(mDevice);
    Open(KyDeviceSerialBulk1);
    EXPECT_TRUE(Write(308));
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{8 + 308}));
    EXPECT_TRUE(Write(1500));
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{520, 520, 8 + 476}));
}

// Of what is cut off, the device has taken some; both numbers are in the account and in the log.
TEST_F(BridgeBlockTest, AStopEndsAWriteAndCountsWhatIsCutOff)
{
    struct Case
    {
        KyDeviceSerial mPort;
        Slot mSlot;
        uint64_t mTaken; // by the device, until it falls silent
    };
    for (const Case& lCase : {Case{KyDeviceSerialUart0, Slot::WriteRegister, 1},
                              Case{KyDeviceSerialBulk0, Slot::WriteMemory, 256}})
    {
        SCOPED_TRACE(lCase.mPort);
        mBridge.emplace();
        Open(lCase.mPort);
        KySerialBridgeFlow lToDevice;
        KySerialBridgeFlow lFromDevice;
        mBridge->SetFinalFlows(&lToDevice, &lFromDevice);
        bool lResult = false;
        std::thread lWriter = StartWrite(lCase.mSlot, lResult);
        mBridge->StopThreads();
        lWriter.join();
        EXPECT_TRUE(lResult); // nothing that went wrong
        EXPECT_EQ(mBridge->GetBytesSentToDevice(), lCase.mTaken);
        EXPECT_EQ(mBridge->GetTransferErrors(), 1U);
        mDevice.OnCall(lCase.mSlot, {});
        TakeLog();
        End();
        EXPECT_EQ(TakeLog().back(),
                  (LogLine{PriorityWarning, "KySerialLib::Bridge::~Bridge",
                           "The stop cut off " + std::to_string(1500 - lCase.mTaken) +
                               " of 1500 bytes to the device and 0 of 0 bytes from the device."}));
        EXPECT_EQ(Describe(lToDevice), "1500 taken, " + std::to_string(lCase.mTaken) + " delivered, " +
                                           std::to_string(1500 - lCase.mTaken) + " cut off");
    }
}

TEST_F(BridgeBlockTest, AStopEndsAWriteBetweenTwoMessages)
{
    AddBulkPort(mDevice);
    Open(KyDeviceSerialBulk1);
    // In the first of three. By another thread, as an application stops a bridge: the writer holds the port.
    mDevice.OnCall(Slot::SetRegisterData, [this] { std::thread([this] { mBridge->StopThreads(); }).join(); });
    EXPECT_TRUE(Write(1500));
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{520}));
    EXPECT_EQ(mBridge->GetBytesSentToDevice(), 512U);
    EXPECT_EQ(ToDevice(), "1500 taken, 512 delivered, 988 cut off");
}

TEST_F(BridgeBlockTest, ABlockThatComesAfterTheStopIsCutOffWhole)
{
    AddBulkPort(mDevice);
    Open(KyDeviceSerialBulk1);
    mBridge->StopThreads();
    EXPECT_TRUE(Write(100));
    EXPECT_TRUE(MessageSizes().empty());
    EXPECT_EQ(ToDevice(), "100 taken, 100 cut off");
    EXPECT_EQ(mBridge->GetTransferErrors(), 1U);
}

// Nothing of the block is lost or sent twice.
TEST_F(BridgeBlockTest, AWriteThatRecoverEndsGoesOnInTheNewPort)
{
    mDevice.SetRegister(0xB898, cUart);
    Open(KyDeviceSerialBulk0);
    bool lResult = false;
    std::thread lWriter = StartWrite(Slot::WriteMemory, lResult);
    ConfirmEverything(); // from now on
    EXPECT_THAT(mBridge->Recover(), IsOK());
    lWriter.join();
    EXPECT_TRUE(lResult);
    EXPECT_EQ(MessageSizes(), (std::vector<size_t>{256, 256, 252, 252, 252, 232}));
    EXPECT_EQ(ToDevice(), "1500 taken, 1500 delivered");
}

} // namespace
