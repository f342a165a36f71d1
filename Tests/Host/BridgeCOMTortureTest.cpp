// The bridge to a host port: every call of the adapter spoilt in every way, in a bridge's whole life.

#include "KySerial/KySerialBridge.h"
#include "KySerial/Robustness/TortureFixture.h"
#include "Support/WaitFor.h"
#include "Tests/Host/RelaysBothWays.h"
#include "Tests/Support/HostLinkTest.h"

using namespace KyTest;

namespace
{

class BridgeCOMTortureTest : public TortureFixture<HostLinkTest<testing::TestWithParam<Fault>>>
{
protected:
    KyDeviceSerial GetPort() const override { return KyDeviceSerialBulk1; }
    void Prepare(ScriptedAdapter& aDevice) override
    {
        aDevice.SetRecording(false);
        AddBulkPort(aDevice);
    }
    void Live(OneRun& aRun) override
    {
        KySerialBridge lBridge;
        const KyResult lStarted =
            lBridge.Start(mLink->GetName().c_str(), {}, &aRun.mAdapter, KyDeviceSerialBulk1);
        aRun.Note("Start", lStarted, cOpenCodes);
        aRun.mMayKeepItsClaim = !lStarted.IsOK();
        if (lStarted.IsOK())
        {
            ++mStarts;
            Use(lBridge, aRun);
            aRun.mAdapter.Heal();
            EXPECT_THAT(lBridge.Recover(), IsOK()); // after this the bridge works, whatever was before
            EXPECT_TRUE(RelaysBothWays(*mLink, aRun.mDevice, lBridge));
            EXPECT_THAT(lBridge.Stop(), IsOK());
        }
        else
        {
            aRun.mAdapter.Heal();
            EXPECT_THAT(lBridge.Stop(), IsResult(KyResult::NO_CONNECTION, "Bridge not started."));
        }
        EXPECT_EQ(lBridge.GetDevicePort(), KyDeviceSerialInvalid);
    }

    // Bytes both ways, other settings, a recovery, while something is wrong. Bytes may be lost.
    void Use(KySerialBridge& aBridge, OneRun& aRun)
    {
        SendUpstream(aRun.mDevice, "u");
        EXPECT_EQ(mLink->Write("d"), 1U);
        const auto lIsThrough = [&]
        { return aRun.mAdapter.IsReached() || aBridge.GetBytesSentToDevice() > 0; };
        static_cast<void>(WaitFor(lIsThrough, std::chrono::milliseconds(100))); // without a fault most often
        EXPECT_THAT(aBridge.SetSerialPortConfiguration({19200, KyParityNone, 8, 1}), IsOK());
        EXPECT_THAT(aBridge.Recover(), IsOK());
    }

    int mStarts = 0;
};

TEST_P(BridgeCOMTortureTest, LeavesNothingOpenWhicheverCallFails)
{
    const int lSpoilt = SpoilEachCall(GetParam(), 1000);
    EXPECT_GT(lSpoilt, 19);
    EXPECT_LT(lSpoilt, 999);
    EXPECT_GT(mStarts, 10);
    const bool lHarmless = GetParam() == Fault::Delay || GetParam() == Fault::Drop;
    EXPECT_EQ(mFailures > 5, !lHarmless) << mFailures;
}

std::string GetName(const testing::TestParamInfo<Fault>& aInfo)
{
    return GetFaultName(aInfo.param);
}

INSTANTIATE_TEST_SUITE_P(EachWay, BridgeCOMTortureTest, testing::ValuesIn(cEachFault), &GetName);

} // namespace
