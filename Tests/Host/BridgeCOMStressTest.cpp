// Lives of a bridge to a host port, with traffic.

#include "KySerial/KySerialBridge.h"

#include "JxUtilsLib/Thread.h"
#include "KySerial/BridgeFixture.h"
#include "Tests/Support/HostLinkTest.h"

#include <thread>

using namespace KyTest;
using JxUtilsLib::Thread;

namespace
{

constexpr uint32_t cPatience = 60000; // ms; what comes at all comes within a few of them

class BridgeCOMStressTest : public HostLinkTest<EngineTest>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        if (!HasLink())
        {
            return;
        }
        mDevice.SetRecording(false);
        JxUtilsLib::Logger::SetPriority(PriorityFatal);
        mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
        mTraffic = std::thread([this] { Arrive(); });
    }
    void TearDown() override
    {
        mEnd = true;
        if (mTraffic.joinable())
        {
            mTraffic.join();
        }
        EngineTest::TearDown();
    }

    // Bytes come all the time from the device, with pauses that a host port needs to pass them on; from the
    // host they come in each life once.
    void Arrive()
    {
        while (!mEnd)
        {
            mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
            Thread::Sleep(15);
        }
    }

    bool WaitUntilSent()
    {
        for (uint32_t lTime = 0; lTime < cPatience && mBridge.GetBytesSentToDevice() == 0; ++lTime)
        {
            Thread::Sleep(1);
        }
        return mBridge.GetBytesSentToDevice() > 0;
    }

    std::atomic<bool> mEnd{false};
    std::thread mTraffic;
    KySerialBridge mBridge;
};

// A third of the lives end at once, a third when a byte has come up, and a third when one has gone down.
TEST_F(BridgeCOMStressTest, StartsAndStopsUnderTraffic)
{
    for (int lLife = 0; lLife < 150; ++lLife)
    {
        static_cast<void>(mLink->Read(1000000, 0)); // of a former life
        ASSERT_THAT(mBridge.Start(mLink->GetName().c_str(), KySerialPortConfiguration(), &mDevice,
                                  KyDeviceSerialBulk1),
                    IsOK())
            << lLife;
        ASSERT_EQ(mLink->Write("abc"), 3U);
        ASSERT_TRUE(lLife % 3 != 1 || !mLink->Read(1, cPatience).empty()) << lLife;
        ASSERT_TRUE(lLife % 3 != 2 || WaitUntilSent()) << lLife;
        ASSERT_THAT(mBridge.Stop(), IsOK());
    }
}

} // namespace
