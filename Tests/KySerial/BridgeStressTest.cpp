#include "KySerial/KySerialBridge.h"

#include "KySerial/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <thread>

using namespace KyTest;
using KySerialLib::SharedFifo;

namespace
{

class BridgeStressTest : public EngineTest, public testing::WithParamInterface<KyDeviceSerial>
{
protected:
    // A byte arrives at each port that is open.
    void Arrive()
    {
        mDevice.SendEvent(0x9000, Words({4, 0x41}));
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    }

    PrivateSession mSession;
    KySerialBridge mBridge;
};

// With the other ports a thousand lives of a bridge with traffic, which the thread sanitizer watches.
TEST_P(BridgeStressTest, StartsAndStopsUnderTraffic)
{
    mDevice.SetRecording(false);
    JxUtilsLib::Logger::SetPriority(PriorityFatal);
    mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
    mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SendEvent(0x9000, Words({0x11})); }); // sent
    std::atomic<bool> lEnd{false};
    std::thread lDevice(
        [&]
        {
            while (!lEnd)
            {
                Arrive();
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    const KySerialLib::SharedRegistry lKeeper(true); // so that the server has the same number each time
    SharedFifo lDown("KySerialBridgeDownFifo1", "Local\\", 1024, true);
    SharedFifo lUp("KySerialBridgeUpFifo1", "Local\\", 1024, true);
    uint64_t lSent = 0;
    for (int i = 0; i < 334; ++i)
    {
        uint32_t lCount = 0;
        static_cast<void>(lDown.Write("abc", 3, lCount, 0));
        ASSERT_THAT(mBridge.Start("Server", &mDevice, GetParam()), IsOK()) << i;
        char lBytes[100];
        static_cast<void>(lUp.Read(lBytes, sizeof lBytes, lCount, static_cast<uint32_t>(i % 10)));
        lSent += mBridge.GetBytesSentToDevice();
        ASSERT_THAT(mBridge.Stop(), IsOK());
    }
    lEnd = true;
    lDevice.join();
    EXPECT_GT(lSent, 0U);
}

INSTANTIATE_TEST_SUITE_P(Ports, BridgeStressTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk1));

} // namespace
