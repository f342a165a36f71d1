// The bridge to a host port: every call into the system refused once, while it opens the port and in its
// whole life.

#include "Support/ForEachNth.h"
#include "Support/ThreadCount.h"
#include "Tests/Host/BridgeCOMFixture.h"
#include "Tests/Host/RelaysBothWays.h"
#include "Tests/KyPlatform/FailingSystem.h"

#include <set>

using namespace KyTest;
using KySerialLib::BridgeCOM;

namespace
{

class BridgeCOMFaultTest : public BridgeCOMLifeTest
{
protected:
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

    RecordingLogSink mLog{PriorityFatal};
    int mStarts = 0;
    int mFailed = 0;
};

TEST_F(BridgeCOMFaultTest, OpensThePortAfterEachRefusalOfTheSystem)
{
    std::set<std::string> lTexts;
    ForEachNth(
        [&](int aNth, int& aCount)
        {
            BridgeCOM lBridge;
            ASSERT_THAT(lBridge.OpenDevicePort(&mDevice, KyDeviceSerialBulk1), IsOK());
            {
                const FailingSystem lSystem(aNth);
                const KyResult lOpened =
                    lBridge.OpenCOMPort(mLink->GetName().c_str(), KySerialPortConfiguration());
                EXPECT_TRUE(lOpened.IsOK() || lOpened.GetCode() == KyResult::FAILURE);
                lTexts.insert(lOpened.GetDescription().GetAscii());
                aCount = FailingSystem::GetCalls();
            }
            EXPECT_THAT(lBridge.OpenCOMPort(mLink->GetName().c_str(), KySerialPortConfiguration()), IsOK());
        });
    EXPECT_THAT(lTexts, testing::IsSupersetOf({std::string("Unable to open requested COM port."),
                                               std::string("Unable to set COM port timeouts."),
                                               std::string("Unable to read current COM port configuration."),
                                               std::string("Unable to set COM port configuraton.")}));
}

TEST_F(BridgeCOMFaultTest, GoesOnAfterEachRefusalOfTheSystem)
{
    {
        KySerialBridge lFirst; // the thread sanitizer adds a thread of its own to the first
        ASSERT_THAT(Start(lFirst), IsOK());
    }
    const size_t lThreads = CountThreadsAtFirst();
    ForEachNth(
        [&](int aNth, int& aCount)
        {
            const FailingSystem lSystem(aNth);
            KySerialBridge lBridge;
            if (Start(lBridge).IsOK())
            {
                ++mStarts;
                Use(lBridge);
                FailingSystem::Heal(); // a refused set of the stop event would leave the reader asleep
                EXPECT_TRUE(RelaysBothWays(*mLink, mDevice, lBridge));
                EXPECT_THAT(lBridge.Stop(), IsOK());
            }
            else
            {
                ++mFailed;
            }
            aCount = FailingSystem::GetCalls();
            EXPECT_TRUE(HasNoMoreThreadsThan(lThreads));
            EXPECT_TRUE(mDevice.GetSinks().empty());
        });
    EXPECT_GT(mStarts, 10);
    EXPECT_GT(mFailed, 5);
}

TEST_F(BridgeCOMFaultTest, RefusesTheOtherKindsOperation)
{
    KySerialBridge lBridge;
    ASSERT_THAT(Start(lBridge), IsOK());
    EXPECT_THAT(lBridge.SetHardCodedBaudRate(9600),
                IsResult(KyResult::WRONG_STATE,
                         "Cannot set hard coded baud rate if the bridge is not in Camera Link DLL mode."));
    EXPECT_THAT(lBridge.Stop(), IsOK());
}

} // namespace
