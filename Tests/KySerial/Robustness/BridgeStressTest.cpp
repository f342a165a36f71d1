#include "KySerial/KySerialBridge.h"

#include "KySerial/Bridge/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"
#include "Tests/Support/Repeater.h"
#include "Tests/Support/WaitFor.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <thread>

using namespace KyTest;
using KySerialLib::SharedFifo;

namespace
{

constexpr uint32_t cPatience = 60000; // ms; what comes at all comes within a few of them

class BridgeStressTest : public EngineTest, public testing::WithParamInterface<KyDeviceSerial>
{
protected:
    void SetUp() override
    {
        mDevice.SetRecording(false);
        JxUtilsLib::Logger::SetPriority(PriorityFatal);
        mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
        mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SendEvent(0x9000, Words({0x5})); }); // sent
        mTraffic.emplace([this] { Arrive(); });
    }
    void TearDown() override
    {
        mTraffic.reset();
        EngineTest::TearDown();
    }

    // Bytes come all the time from the device, at each port that is open, and from the client.
    void Arrive()
    {
        uint32_t lCount = 0;
        static_cast<void>(mDown.Write("abc", 3, lCount, 0)); // may be full while there is no bridge
        mDevice.SendEvent(0x9000, Words({0xA, 0x41}));       // received, on either UART
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }

    bool Receive(uint32_t aTimeout)
    {
        char lBytes[1024];
        uint32_t lCount = 0;
        return mUp.Read(lBytes, sizeof lBytes, lCount, aTimeout);
    }

    PrivateSession mSession;
    const KySerialLib::SharedRegistry mKeeper{true}; // so that the server has the same number each time
    SharedFifo mDown{"KySerialBridgeDownFifo1", "Local\\", 1024, true};
    SharedFifo mUp{"KySerialBridgeUpFifo1", "Local\\", 1024, true};
    KySerialBridge mBridge;
    std::optional<Repeater> mTraffic;
};

// With the other ports a thousand lives of a bridge with traffic, which the thread sanitizer watches. A third
// of them end at once, a third when a byte has come up, and a third when one has gone down.
TEST_P(BridgeStressTest, StartsAndStopsUnderTraffic)
{
    const auto lIsSent = [this] { return mBridge.GetBytesSentToDevice() > 0; };
    for (int lLife = 0; lLife < 334; ++lLife)
    {
        static_cast<void>(Receive(0)); // of a former life
        ASSERT_THAT(mBridge.Start("Server", &mDevice, GetParam()), IsOK()) << lLife;
        ASSERT_TRUE(lLife % 3 != 1 || Receive(cPatience)) << lLife;
        ASSERT_TRUE(lLife % 3 != 2 || WaitFor(lIsSent)) << lLife;
        ASSERT_THAT(mBridge.Stop(), IsOK());
    }
}

INSTANTIATE_TEST_SUITE_P(Ports, BridgeStressTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk1));

} // namespace
