// The bridge to a host port: every call into the system refused once while it opens the port, and every call
// of the adapter spoilt once.

#include "BridgeCOM.h"
#include "JxUtilsLib/Thread.h"
#include "KySerial/BridgeFixture.h"
#include "KySerial/KySerialBridge.h"
#include "PortMap.h"
#include "Support/FaultAdapter.h"
#include "Support/ThreadCount.h"
#include "Support/WaitFor.h"
#include "Tests/Host/HostLinkTest.h"
#include "Tests/KyPlatform/FailingSystem.h"

#include <set>

using namespace KyTest;
using KySerialLib::BridgeCOM;
using KySerialLib::PortMap;

namespace
{

class BridgeCOMFaultTest : public HostLinkTest<testing::Test>
{
protected:
    void SetUp() override
    {
        HostLinkTest::SetUp();
        if (!HasLink())
        {
            return;
        }
        Prepare(mDevice);
    }

    static void Prepare(ScriptedAdapter& aDevice)
    {
        aDevice.SetRecording(false);
        AddBulkPort(aDevice);
    }

    // A whole life: started, reconfigured, recovered, stopped. \return Whether the fault was met.
    bool Live(ScriptedAdapter& aDevice, Fault aFault, int aNumber)
    {
        FaultAdapter lAdapter(aDevice);
        lAdapter.Set(aFault, aNumber);
        KySerialBridge lBridge;
        const KySerialPortConfiguration lLine;
        const KyResult lStarted =
            lBridge.Start(mLink->GetName().c_str(), lLine, &lAdapter, KyDeviceSerialBulk1);
        if (lStarted.IsOK())
        {
            EXPECT_THAT(lBridge.SetSerialPortConfiguration({19200, KyParityNone, 8, 1}), IsOK());
            EXPECT_THAT(lBridge.Recover(), IsOK());
            lAdapter.Heal();
            EXPECT_THAT(lBridge.Recover(), IsOK());
            EXPECT_THAT(lBridge.Stop(), IsOK());
        }
        EXPECT_EQ(lBridge.GetDevicePort(), KyDeviceSerialInvalid);
        mStarts += lStarted.IsOK() ? 1 : 0;
        mFailed += lStarted.IsOK() ? 0 : 1;
        return lAdapter.IsReached();
    }

    // Everything that calls the system: bytes both ways, other settings, a recovery. Bytes may be lost.
    void Use(KySerialBridge& aBridge)
    {
        SendUpstream(mDevice, "u");
        // On Windows the other end of the link is a port too, and the refused call may be its write.
        EXPECT_TRUE(mLink->Write("down") == 4 || mLink->Write("down") == 4);
        EXPECT_TRUE(WaitFor([&] { return aBridge.GetBytesReceivedFromDevice() == 1; }));
        static_cast<void>(
            WaitFor([&] { return aBridge.GetBytesSentToDevice() >= 4; }, std::chrono::milliseconds(30)));
        const KyResult lSet = aBridge.SetSerialPortConfiguration({19200, KyParityNone, 8, 1});
        EXPECT_TRUE(lSet.IsOK() || lSet.GetCode() == KyResult::FAILURE);
        EXPECT_THAT(aBridge.Recover(), IsOK());
    }

    // Whether a byte comes through each way, sooner or later.
    bool Relays(const KySerialBridge& aBridge)
    {
        const uint64_t lSent = aBridge.GetBytesSentToDevice();
        std::string lGot;
        const auto lComes = [&]
        {
            SendUpstream(mDevice, "!");
            mLink->Write("!");
            lGot += mLink->Read(1, 100);
            // Not more often: the port waits for a pause.
            const std::chrono::milliseconds cPause(200);
            return WaitFor([&] { return aBridge.GetBytesSentToDevice() > lSent; }, cPause) &&
                   lGot.ends_with('!');
        };
        return WaitFor(lComes, std::chrono::seconds(20));
    }

    RecordingLogSink mLog{PriorityFatal};
    AssertRecorder mAsserts; // calls that cannot fail do
    ScriptedAdapter mDevice;
    int mStarts = 0;
    int mFailed = 0;
};

TEST_F(BridgeCOMFaultTest, OpensThePortAfterEachRefusalOfTheSystem)
{
    std::set<std::string> lTexts;
    int lCalls = 0;
    for (int lFailing = 1; lFailing == 1 || lCalls >= lFailing - 1; ++lFailing)
    {
        SCOPED_TRACE(lFailing);
        BridgeCOM lBridge;
        ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
        {
            const FailingSystem lSystem(lFailing);
            const KyResult lOpened =
                lBridge.OpenCOMPort(mLink->GetName().c_str(), KySerialPortConfiguration());
            EXPECT_TRUE(lOpened.IsOK() || lOpened.GetCode() == KyResult::FAILURE);
            lTexts.insert(lOpened.GetDescription().GetAscii());
            lCalls = FailingSystem::GetCalls();
        }
        EXPECT_THAT(lBridge.OpenCOMPort(mLink->GetName().c_str(), KySerialPortConfiguration()), IsOK());
    }
    EXPECT_THAT(lTexts, testing::IsSupersetOf({std::string("Unable to open requested COM port."),
                                               std::string("Unable to set COM port timeouts."),
                                               std::string("Unable to read current COM port configuration."),
                                               std::string("Unable to set COM port configuraton.")}));
}

TEST_F(BridgeCOMFaultTest, GoesOnAfterEachRefusalOfTheSystem)
{
    EXPECT_FALSE(Live(mDevice, Fault::None, 0)); // the thread sanitizer adds a thread of its own to the first
    mStarts = 0;
    const size_t lThreads = CountThreadsAtFirst();
    int lCalls = 0;
    for (int lFailing = 1; lFailing == 1 || lCalls >= lFailing - 1; ++lFailing)
    {
        SCOPED_TRACE(lFailing);
        const FailingSystem lSystem(lFailing);
        KySerialBridge lBridge;
        if (lBridge.Start(mLink->GetName().c_str(), {}, &mDevice, KyDeviceSerialBulk1).IsOK())
        {
            ++mStarts;
            Use(lBridge);
            FailingSystem::Heal(); // a refused set of the stop event would leave the reader asleep
            EXPECT_TRUE(Relays(lBridge));
            EXPECT_THAT(lBridge.Stop(), IsOK());
        }
        else
        {
            ++mFailed;
        }
        lCalls = FailingSystem::GetCalls();
        EXPECT_TRUE(HasNoMoreThreadsThan(lThreads));
        EXPECT_TRUE(mDevice.GetSinks().empty());
    }
    EXPECT_GT(mStarts, 10);
    EXPECT_GT(mFailed, 5);
}

TEST_F(BridgeCOMFaultTest, LeavesNothingBehindWhateverCallOfTheAdapterIsRefused)
{
    EXPECT_FALSE(Live(mDevice, Fault::None, 0));
    mStarts = 0;
    const size_t lThreads = CountThreadsAtFirst();
    int lNumber = 0;
    for (bool lReached = true; lReached;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice);
        lReached = Live(lDevice, Fault::Once, lNumber);
        EXPECT_TRUE(HasNoMoreThreadsThan(lThreads));
        // A device that seems to be away just when a start gives up keeps its claim.
        const bool lFree = PortMap::GetInstance().Lock(&lDevice, KyDeviceSerialBulk1);
        EXPECT_TRUE(lFree || mFailed > 0);
        EXPECT_TRUE(lDevice.GetSinks().empty() || !lFree);
        static_cast<void>(
            PortMap::GetInstance().Unlock(&lDevice, KyDeviceSerialBulk1)); // taken above, or left
    }
    EXPECT_GT(lNumber, 20);
    EXPECT_GT(mStarts, 10);
    EXPECT_GT(mFailed, 5);
}

TEST_F(BridgeCOMFaultTest, LogsTheRefusalOfBytesForAPortThatHasVanished)
{
    if (!HostLink::CanComeBack())
    {
        GTEST_SKIP() << "a port of this system that has vanished does not refuse bytes";
    }
    JxUtilsLib::Logger::SetPriority(PriorityError);
    KySerialBridge lBridge;
    ASSERT_THAT(lBridge.Start(mLink->GetName().c_str(), {}, &mDevice, KyDeviceSerialBulk1), IsOK());
    mLink->Vanish();
    mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
    bool lFound = false;
    for (int lTry = 0; lTry < 6000 && !lFound; ++lTry)
    {
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
        JxUtilsLib::Thread::Sleep(10);
        for (const LogLine& lLine : mLog.Take())
        {
            lFound = lFound || lLine.mMessage.starts_with("WriteFile failure: 0x");
        }
    }
    EXPECT_TRUE(lFound);
    EXPECT_THAT(lBridge.Stop(), IsOK());
}

TEST_F(BridgeCOMFaultTest, RefusesTheOtherKindsOperation)
{
    KySerialBridge lBridge;
    ASSERT_THAT(lBridge.Start(mLink->GetName().c_str(), {}, &mDevice, KyDeviceSerialBulk1), IsOK());
    EXPECT_THAT(lBridge.SetHardCodedBaudRate(9600),
                IsResult(KyResult::WRONG_STATE,
                         "Cannot set hard coded baud rate if the bridge is not in Camera Link DLL mode."));
    EXPECT_THAT(lBridge.Stop(), IsOK());
}

} // namespace
