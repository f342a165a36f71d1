// The bridge to a host port: every allocation refused once, the caller's and those of its threads.

#include "Support/AllocationCounter.h"

#include "Support/ForEachNth.h"
#include "Support/QuietSink.h"
#include "Support/ThreadCount.h"
#include "Tests/Host/BridgeCOMFixture.h"

using namespace KyTest;

namespace
{

constexpr char cOutOfMemory[] = "Out of memory.";

class BridgeCOMAllocationTest : public BridgeCOMLifeTest
{
protected:
    // What an operation gave back; adds to the failures for want of memory.
    void Note(const KyResult& aResult)
    {
        const AllocationPause lPause;
        mFailures += aResult.GetDescription() == KyString(cOutOfMemory) ? 1 : 0;
    }

    QuietSink mSink;
    int mFailures = 0;
};

TEST_F(BridgeCOMAllocationTest, BothPortsAreFreeWhateverAllocationFailed)
{
    const KyString lName(mLink->GetName().c_str());
    const size_t lThreads = CountThreadsAtFirst();
    int lServed = 0;
    const int lRefused = ForEachNth(
        [&](int aNth, int& aCount)
        {
            {
                const AllocationCounter lCounter(aNth);
                KySerialBridge lBridge;
                const KyResult lResult = lBridge.Start(lName, {}, &mDevice, KyDeviceSerialBulk1);
                lServed += lResult.IsOK() ? 1 : 0;
                Note(lResult);
                Note(lBridge.SetSerialPortConfiguration({19200, KyParityNone, 8, 1}));
                Note(lBridge.Recover());
                static_cast<void>(lBridge.GetSerialPort()); // must not throw
                Note(lBridge.Stop());
                aCount = AllocationCounter::GetCount();
            }
            EXPECT_TRUE(mDevice.GetSinks().empty());
            EXPECT_TRUE(HasNoMoreThreadsThan(lThreads));
            KySerialLib::BridgeCOM lNext;
            EXPECT_THAT(lNext.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
            EXPECT_THAT(lNext.OpenCOMPort(lName.GetAscii(), KySerialPortConfiguration()), IsOK());
        });
    EXPECT_GT(lRefused, 50);
    EXPECT_GT(lServed, 10);
    EXPECT_GT(mFailures, 3);
    EXPECT_EQ(mSink.GetMemoryLines(), 0);
}

TEST_F(BridgeCOMAllocationTest, RelaysOnWhateverAllocationOfItsThreadsFailed)
{
    const int lRefused = ForEachNth(
        [this](int aNth, int& aCount)
        {
            KySerialBridge lBridge;
            ASSERT_THAT(Start(lBridge), IsOK());
            const OtherThreadsAllocations lCounter(aNth);
            SendUpstream(mDevice, "up");
            EXPECT_EQ(mLink->Read(2), "up");
            const int lErrors = mSink.GetErrors();
            mDevice.SetAnswer(Slot::IsConnected, false);
            EXPECT_EQ(mLink->Write("lost"), 4U);
            EXPECT_TRUE(WaitFor([&] { return mSink.GetErrors() > lErrors; }));
            mDevice.SetAnswer(Slot::IsConnected, true);
            aCount = OtherThreadsAllocations::GetCount();
            EXPECT_EQ(mLink->Write("down"), 4U);
            EXPECT_TRUE(WaitFor([&] { return lBridge.GetBytesSentToDevice() == 4; }));
            EXPECT_THAT(lBridge.Stop(), IsOK());
        });
    EXPECT_GT(lRefused, 0); // what is refused makes texts
    EXPECT_EQ(mSink.GetMemoryLines(), 0);
}

} // namespace
