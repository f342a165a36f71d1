// How soon a bridge to Camera Link clients ends, and what it costs when a FIFO is dead.

#include "KySerial/Bridge/BridgeCLDLLFixture.h"
#include "Support/ProcessorTime.h"
#include "Support/QuickStop.h"
#include "Support/Repeater.h"

#include <atomic>
#include <functional>
#include <thread>

using namespace KyTest;
using JxUtilsLib::Thread;

namespace
{

class BridgeStopTest : public BridgeCLDLLTest
{
protected:
    // A bridge that runs, whatever ran before; the FIFOs of the one before are gone with their last user.
    void StartAnew(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        mUp = nullptr;
        mDown = nullptr;
        mBridge.emplace();
        Start(aPort);
    }
    // Expects that a bridge which runs, and is then prepared like this, stops at once.
    void ExpectQuickStopAfter(const std::function<void()>& aPrepare,
                              KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        ExpectQuickStop(
            [&]
            {
                StartAnew(aPort);
                aPrepare();
            },
            [this] { mBridge.reset(); });
    }
};

TEST_F(BridgeStopTest, AnIdleBridgeStopsAtOnce)
{
    ExpectQuickStopAfter([] { Thread::Sleep(30); });
}

TEST_F(BridgeStopTest, AFullFifoThatNobodyReadsDoesNotHoldTheStopUp)
{
    ExpectQuickStopAfter([this] { FillUp(); });
    EXPECT_FALSE(testing::Value(
        mLog.Take(), testing::Contains(testing::Field(&LogLine::mPriority, testing::Eq(PriorityError)))));
    uint32_t lWaiting = 0;
    EXPECT_TRUE(mUp->GetAvailable(lWaiting)); // a peer sees nothing of it
    EXPECT_EQ(lWaiting, 1023U);
}

TEST_F(BridgeStopTest, ABusyBridgeStopsAtOnce)
{
    const Repeater lDevice(
        [this]
        {
            SendFromDevice("0123456789");
            Thread::Sleep(1);
        });
    std::optional<Repeater> lClient;
    const auto lExchange = [this]
    {
        char lPart[100];
        uint32_t lCount = 0;
        static_cast<void>(mDown->Write("0123456789", 10, lCount, 10));
        static_cast<void>(mUp->Read(lPart, sizeof lPart, lCount, 1));
    };
    ExpectQuickStop(
        [&]
        {
            lClient.reset(); // before its FIFOs
            StartAnew();
            lClient.emplace(lExchange);
            EXPECT_TRUE(WaitFor(
                [this] {
                    return mBridge->GetBytesSentToDevice() > 0 && mBridge->GetBytesReceivedFromDevice() > 0;
                }));
        },
        [this] { mBridge.reset(); });
}

// What the client has sent would take the device's line half a second.
TEST_F(BridgeStopTest, ABridgeToASlowLineStopsAtOnce)
{
    MakeUartSlow(mDevice);
    ExpectQuickStopAfter(
        [this]
        {
            EXPECT_TRUE(Send(std::string(1000, 'c')));
            EXPECT_TRUE(WaitFor([this] { return mBridge->GetBytesSentToDevice() > 0; }));
        },
        KyDeviceSerialUart0);
    mDevice.OnCall(Slot::WriteRegister, {});
}

// A UART would wait a second for each byte, a bulk port 0.3 seconds for each chunk.
TEST_F(BridgeStopTest, ADeviceThatConfirmsNothingDoesNotHoldTheStopUp)
{
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialBulk0})
    {
        SCOPED_TRACE(lPort);
        std::atomic<bool> lSent{false};
        const auto lNote = [&lSent] { lSent = true; };
        ExpectQuickStopAfter(
            [&]
            {
                mDevice.OnCall(lPort == KyDeviceSerialUart0 ? Slot::WriteRegister : Slot::WriteMemory, lNote);
                lSent = false;
                EXPECT_TRUE(Send(std::string(600, 'c')));
                EXPECT_TRUE(WaitFor([&] { return lSent.load(); }));
            },
            lPort);
        mDevice.OnCall(Slot::WriteRegister, {});
        mDevice.OnCall(Slot::WriteMemory, {});
    }
}

// The device takes 50 ms for each of the 18 messages of a block.
TEST_F(BridgeStopTest, ASlowBulkPortDoesNotHoldTheStopUp)
{
    mDevice.SetContent("Bulk1DownstreamData", Bytes(64));
    std::atomic<int> lMessages{0};
    ExpectQuickStopAfter(
        [&]
        {
            lMessages = 0;
            mDevice.OnCall(Slot::SetRegisterData,
                           [&lMessages]
                           {
                               ++lMessages;
                               std::this_thread::sleep_for(std::chrono::milliseconds(50));
                           });
            EXPECT_TRUE(Send(std::string(1000, 'c')));
            EXPECT_TRUE(WaitFor([&] { return lMessages > 0; }));
        });
    EXPECT_LT(lMessages, 18);
    mDevice.OnCall(Slot::SetRegisterData, {});
}

TEST_F(BridgeStopTest, DamagedFifosCostLittleAndDoNotHoldTheStopUp)
{
    const auto lSpoil = []
    {
        SpoilFifo("Up");
        SpoilFifo("Down");
    };
    StartAnew();
    lSpoil();
    SendFromDevice("lost");
    Thread::Sleep(200);
    uint64_t lCost = 0;
    EXPECT_TRUE(CostsLessThanOnePercent(lCost)) << lCost << " ms in the last span";
    ExpectQuickStopAfter(
        [&]
        {
            lSpoil();
            Thread::Sleep(30);
        });
}

TEST_F(BridgeStopTest, ADeviceThatIsGoneCostsLittleAndDoesNotHoldTheStopUp)
{
    StartAnew();
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_TRUE(Send("lost"));
    EXPECT_TRUE(WaitFor([this] { return mBridge->GetTransferErrors() > 0; }));
    uint64_t lCost = 0;
    EXPECT_TRUE(CostsLessThanOnePercent(lCost)) << lCost << " ms in the last span";
    EXPECT_THAT(mBridge->Recover(), IsOK()); // still gone
    EXPECT_TRUE(CostsLessThanOnePercent(lCost)) << lCost << " ms in the last span";
    mDevice.SetAnswer(Slot::IsConnected, true);
}

} // namespace
