// The bridge to a host port: every call of the adapter spoilt in every way, in a bridge's whole life.

#include "KySerial/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "PortMap.h"
#include "Support/FaultAdapter.h"
#include "Support/ThreadCount.h"
#include "Support/WaitFor.h"
#include "Tests/Support/HostLinkTest.h"
#include "Tests/Host/RelaysBothWays.h"

#include <set>
#include <thread>

using namespace KyTest;
using KySerialLib::PortMap;

namespace
{

class BridgeCOMTortureTest : public HostLinkTest<testing::TestWithParam<Fault>>
{
protected:
    // What a start may answer beside OK.
    static inline const std::set<uint32_t> cStartCodes{KyResult::NO_CONNECTION, KyResult::UNSUPPORTED,
                                                       KyResult::FAILURE, FaultAdapter::cFailed};

    static void Prepare(ScriptedAdapter& aDevice)
    {
        aDevice.SetRecording(false);
        AddBulkPort(aDevice);
    }

    // Bytes both ways, other settings, a recovery, while something is wrong. Bytes may be lost.
    void Use(KySerialBridge& aBridge, ScriptedAdapter& aDevice, FaultAdapter& aAdapter)
    {
        SendUpstream(aDevice, "u");
        EXPECT_EQ(mLink->Write("d"), 1U);
        const auto lIsThrough = [&] { return aAdapter.IsReached() || aBridge.GetBytesSentToDevice() > 0; };
        static_cast<void>(WaitFor(lIsThrough, std::chrono::milliseconds(100))); // without a fault most often
        EXPECT_THAT(aBridge.SetSerialPortConfiguration({19200, KyParityNone, 8, 1}), IsOK());
        EXPECT_THAT(aBridge.Recover(), IsOK());
    }

    // A whole life. \return Whether the fault was met.
    bool Live(ScriptedAdapter& aDevice, Fault aFault, int aNumber)
    {
        FaultAdapter lAdapter(aDevice);
        lAdapter.Set(aFault, aNumber, [] { std::this_thread::yield(); });
        KySerialBridge lBridge;
        const KyResult lStarted = lBridge.Start(mLink->GetName().c_str(), {}, &lAdapter, KyDeviceSerialBulk1);
        mStarted = lStarted.IsOK();
        mLeft = false;
        if (mStarted)
        {
            ++mStarts;
            Use(lBridge, aDevice, lAdapter);
            lAdapter.Heal();
            EXPECT_THAT(lBridge.Recover(), IsOK()); // after this the bridge works, whatever was before
            EXPECT_TRUE(RelaysBothWays(*mLink, aDevice, lBridge));
            EXPECT_THAT(lBridge.Stop(), IsOK());
        }
        else
        {
            ++mFailed;
            EXPECT_TRUE(cStartCodes.contains(lStarted.GetCode())) << testing::PrintToString(lStarted);
            mLeft = MayLeaveABridgesClaim(aFault, lAdapter.GetCall());
            lAdapter.Heal();
            EXPECT_THAT(lBridge.Stop(), IsResult(KyResult::NO_CONNECTION, "Bridge not started."));
        }
        EXPECT_EQ(lBridge.GetDevicePort(), KyDeviceSerialInvalid);
        return lAdapter.IsReached();
    }

    void CheckReleased(ScriptedAdapter& aDevice)
    {
        EXPECT_TRUE(HasNoMoreThreadsThan(mThreads));
        const bool lFree = PortMap::GetInstance().Lock(&aDevice, KyDeviceSerialBulk1);
        EXPECT_TRUE(lFree || mLeft);
        EXPECT_TRUE(aDevice.GetSinks().empty() || !lFree);
        // Taken above, or left.
        EXPECT_TRUE(PortMap::GetInstance().Unlock(&aDevice, KyDeviceSerialBulk1));
    }

    RecordingLogSink mLog{PriorityFatal};
    AssertRecorder mAsserts; // a device that changes its mind breaks some
    size_t mThreads = 0;
    bool mStarted = false;
    bool mLeft = false;
    int mStarts = 0;
    int mFailed = 0;
};

TEST_P(BridgeCOMTortureTest, LeavesNothingOpenWhicheverCallFails)
{
    {
        ScriptedAdapter lDevice;
        Prepare(lDevice);
        EXPECT_FALSE(Live(lDevice, Fault::None, 0));
        ASSERT_TRUE(mStarted);
    }
    mThreads = CountThreadsAtFirst();
    int lNumber = 0;
    for (bool lReached = true; lReached;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice);
        lReached = Live(lDevice, GetParam(), lNumber);
        CheckReleased(lDevice);
        ASSERT_LT(lNumber, 1000);
    }
    EXPECT_GT(lNumber, 20);
    EXPECT_GT(mStarts, 10);
    const bool lHarmless = GetParam() == Fault::Delay || GetParam() == Fault::Drop;
    EXPECT_EQ(mFailed > 5, !lHarmless) << mFailed;
}

std::string GetName(const testing::TestParamInfo<Fault>& aInfo)
{
    return GetFaultName(aInfo.param);
}

INSTANTIATE_TEST_SUITE_P(EachWay, BridgeCOMTortureTest, testing::ValuesIn(cEachFault), &GetName);

} // namespace
