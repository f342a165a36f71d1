// How soon a bridge to a host port ends, and what it costs when the port is dead.

#include "Support/ProcessorTime.h"
#include "Support/QuickStop.h"
#include "Support/Repeater.h"
#include "Tests/Host/BridgeCOMFixture.h"

using namespace KyTest;
using JxUtilsLib::Thread;

namespace
{

class BridgeCOMStopTest : public BridgeCOMHostTest
{
protected:
    // A bridge that runs, whatever ran before.
    void StartAnew(KyDeviceSerial aPort = KyDeviceSerialBulk1)
    {
        mBridge.emplace();
        OpenDevice(aPort);
        Start();
    }
    // Expects that a bridge which runs, and is then prepared like this, stops at once.
    template<typename Prepare>
    void ExpectQuickStopAfter(const Prepare& aPrepare, KyDeviceSerial aPort = KyDeviceSerialBulk1)
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

TEST_F(BridgeCOMStopTest, AnIdleBridgeStopsAtOnce)
{
    ExpectQuickStopAfter([] { Thread::Sleep(30); });
    EXPECT_EQ(mDevice.GetText("Bulk1BaudRate"), "SavedBaudRate");
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

TEST_F(BridgeCOMStopTest, ABridgeThatCannotWriteToTheHostStopsAtOnce)
{
    ExpectQuickStopAfter(
        [this]
        {
            for (int lIndex = 0; lIndex < 100; ++lIndex)
            {
                SendFromDevice(std::string(512, 'x')); // more than the way to the host holds
            }
            Thread::Sleep(30);
        });
}

TEST_F(BridgeCOMStopTest, ABusyBridgeStopsAtOnce)
{
    const Repeater lDevice(
        [this]
        {
            SendFromDevice(std::string(100, 'd'));
            Thread::Sleep(1);
        });
    const Repeater lHost(
        [this]
        {
            mLink->Write("h");
            static_cast<void>(mLink->Read(1000, 0));
            Thread::Sleep(1);
        });
    ExpectQuickStopAfter(
        [this] { EXPECT_TRUE(WaitFor([this] { return mBridge->GetBytesReceivedFromDevice() > 0; })); });
}

// The block that waits for the device's line would take seconds.
TEST_F(BridgeCOMStopTest, ABridgeToASlowLineStopsAtOnce)
{
    MakeUartSlow(mDevice);
    ExpectQuickStopAfter(
        [this]
        {
            EXPECT_EQ(mLink->Write(std::string(3000, 'h')), 3000U);
            EXPECT_TRUE(WaitFor([this] { return mBridge->GetBytesSentToDevice() > 0; }));
        },
        KyDeviceSerialUart0);
    mDevice.OnCall(Slot::WriteRegister, {});
}

// The last one: some systems have one such port for all tests of a process, and it does not come back. Not
// every system fails the calls that wait already.
TEST_F(BridgeCOMStopTest, AVanishedHostPortCostsLittleAndDoesNotHoldTheStopUp)
{
    Start();
    mLink->Vanish();
    SendFromDevice("lost");
    Thread::Sleep(200);
    uint64_t lCost = 0;
    EXPECT_TRUE(CostsLessThanOnePercent(lCost)) << lCost << " ms in the last span";
    mBridge.reset();
    if (!HostLink::CanComeBack())
    {
        return; // one stop alone is no measure on a busy machine, and there is no second one
    }
    ExpectQuickStop(
        [this]
        {
            mLink->ComeBack();
            StartAnew();
            mLink->Vanish();
            Thread::Sleep(30);
        },
        [this] { mBridge.reset(); });
}

} // namespace
