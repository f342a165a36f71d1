// Lives of a bridge to a host port, with traffic.

#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "Support/Repeater.h"
#include "Support/WaitFor.h"
#include "Tests/Support/HostLinkTest.h"

using namespace KyTest;

namespace
{

class BridgeCOMStressTest : public HostLinkTest<EngineTest>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        mDevice.SetRecording(false);
        JxUtilsLib::Logger::SetPriority(PriorityFatal);
        mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
    }

    KySerialBridge mBridge;
};

// A third of the lives end at once, a third when a byte has come up, and a third when one has gone down.
TEST_F(BridgeCOMStressTest, StartsAndStopsUnderTraffic)
{
    // Bytes come all the time from the device, with pauses that a host port needs to pass them on; from the host
    // they come in each life once.
    const Repeater lTraffic(
        [this]
        {
            mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
            std::this_thread::sleep_for(std::chrono::milliseconds(15));
        });
    const auto lIsSent = [this] { return mBridge.GetBytesSentToDevice() > 0; };
    for (int lLife = 0; lLife < 150; ++lLife)
    {
        static_cast<void>(mLink->Read(1000000, 0)); // of a former life
        ASSERT_THAT(mBridge.Start(mLink->GetName().c_str(), KySerialPortConfiguration(), &mDevice,
                                  KyDeviceSerialBulk1),
                    IsOK())
            << lLife;
        ASSERT_EQ(mLink->Write("abc"), 3U);
        ASSERT_TRUE(lLife % 3 != 1 || !mLink->Read(1).empty()) << lLife;
        ASSERT_TRUE(lLife % 3 != 2 || WaitFor(lIsSent)) << lLife;
        ASSERT_THAT(mBridge.Stop(), IsOK());
    }
}

} // namespace
