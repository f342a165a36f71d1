#include "kyserial/Bridge/BridgedPort.h"
#include "Support/Process.h"
#include "Support/WaitFor.h"
#include "Tools/CutDevice.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>

namespace
{

using namespace KySerialTool;
using KyTest::WaitFor;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

class BridgedPortTest : public testing::Test
{
protected:
    BridgedPortTest()
    {
        ApplyLogOptions(CommonOptions()); // as the program runs: without the library's log
        mSelection.mPort = KyDeviceSerialUart0;
        EXPECT_EQ("", ParseHost("tcp://127.0.0.1:0", mSelection.mHost));
        mDevice.GetCamera().Plug(KySimulator::Port::Uart0, nullptr); // nothing answers
    }
    ~BridgedPortTest() override
    {
        mPort.reset();
        static_cast<void>(std::remove(mFile.c_str())); // ignored: not every test makes it
    }

    BridgedPort& Start() { return mPort.emplace(mSelection, mDevice, mNetwork, mLog, &mRecent); }
    /// Whether the bridge to a host of this kind and name fails with a text that fits.
    void FailsTo(HostKind aKind, const std::string& aName, const testing::Matcher<std::string>& aText)
    {
        mSelection.mHost = {};
        mSelection.mHost.mKind = aKind;
        mSelection.mHost.mName = aName;
        EXPECT_THAT([&] { Start(); }, ThrowsMessage<OperationError>(aText));
    }
    /// Bytes come in from the device's line.
    void Inject(const std::string& aBytes)
    {
        mDevice.GetCamera().InjectBytes(KySimulator::Port::Uart0,
                                        reinterpret_cast<const uint8_t*>(aBytes.data()), aBytes.size());
    }
    std::string Wire()
    {
        const std::vector<uint8_t> lWire = mDevice.GetCamera().GetWire(KySimulator::Port::Uart0);
        return {lWire.begin(), lWire.end()};
    }

    BridgeSelection mSelection;
    KyTest::CutDevice mDevice;
    Network mNetwork;
    const std::string mFile = KyTest::Process::TemporaryFile(".log");
    TrafficLog mLog;
    RecentTraffic mRecent;
    std::optional<BridgedPort> mPort; // last: it uses the others
};

TEST_F(BridgedPortTest, BytesToTheDeviceAreCountedAndNoted)
{
    mSelection.mLogFile = mFile;
    ASSERT_EQ("", mLog.Open(mFile));
    const int64_t lBegin =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    BridgedPort& lPort = Start();
    EXPECT_EQ(0, lPort.GetLastTraffic());
    EXPECT_TRUE(lPort.Insert("hello"));
    ASSERT_TRUE(WaitFor([&] { return lPort.GetCounts().mToDevice == 5; }));
    EXPECT_EQ("hello", Wire());
    lPort.End();

    const BridgeLedger lLedger = lPort.GetCounts().mLedgerToDevice;
    EXPECT_EQ(5U, lLedger.mTaken);
    EXPECT_EQ(5U, lLedger.mDelivered);
    EXPECT_EQ(0U, lLedger.GetLost());
    EXPECT_GE(lPort.GetLastTraffic(), lBegin) << "seconds since 1970";
    EXPECT_LE(lPort.GetLastTraffic(), lBegin + 3600);
    mLog.Flush();
    EXPECT_THAT(KyTest::ReadFile(mFile), HasSubstr("hello"));
    uint64_t lNext = 0;
    static_cast<void>(mRecent.GetAfter(0, lNext)); // only the count is looked at
    EXPECT_EQ(5U, lNext);
}

// The bridge has delivered them to the host side, where nobody was.
TEST_F(BridgedPortTest, BytesThatNoClientReadsAreLostAsUnread)
{
    BridgedPort& lPort = Start();
    Inject("abc");
    ASSERT_TRUE(WaitFor([&] { return lPort.GetCounts().mUnread == 3; }));
    lPort.End();
    const BridgeCounts lCounts = lPort.GetCounts();
    EXPECT_EQ(3U, lCounts.mFromDevice);
    EXPECT_EQ(3U, lCounts.mLedgerFromDevice.mTaken);
    EXPECT_EQ(0U, lCounts.mLedgerFromDevice.mDelivered);
    EXPECT_EQ(3U, lCounts.mLedgerFromDevice.GetLost());
    EXPECT_EQ(0U, lCounts.mLedgerFromDevice.GetOnTheWay());
}

TEST_F(BridgedPortTest, ADeviceThatComesBackIsTwoChangesAndOneReconnection)
{
    mSelection.mReconnect = true;
    BridgedPort& lPort = Start();
    mDevice.Cut();
    ASSERT_TRUE(WaitFor([&] { return !lPort.GetCounts().mConnected; }));
    EXPECT_EQ(0U, lPort.GetCounts().mReconnections);
    EXPECT_TRUE(lPort.Insert("lost"));
    ASSERT_TRUE(WaitFor([&] { return lPort.GetCounts().mLedgerToDevice.mAway == 4; }));
    mDevice.ComeBack();
    ASSERT_TRUE(WaitFor([&] { return lPort.GetCounts().mConnected; }));
    EXPECT_EQ(1U, lPort.GetCounts().mReconnections);

    std::vector<BridgedPort::DeviceChange> lChanges = lPort.TakeChanges();
    ASSERT_EQ(2U, lChanges.size());
    EXPECT_FALSE(lChanges[0].mIsBack);
    EXPECT_TRUE(lChanges[1].mIsBack);
    EXPECT_EQ(4U, lChanges[1].mLost);
    EXPECT_TRUE(lPort.TakeChanges().empty());
}

TEST_F(BridgedPortTest, TheCountsStayAfterTheEndAndASecondEndIsHarmless)
{
    mSelection.mLine.mBaudRate = 57600;
    BridgedPort& lPort = Start();
    EXPECT_TRUE(lPort.Insert("x"));
    ASSERT_TRUE(WaitFor([&] { return lPort.GetCounts().mToDevice == 1; }));
    lPort.End();
    lPort.End();
    EXPECT_EQ(1U, lPort.GetCounts().mToDevice);
    EXPECT_EQ(57600U, lPort.GetCounts().mBaudRate) << "the rate of the bridge, not the one before it";
    EXPECT_FALSE(lPort.Insert("y")) << "nothing takes it any more";
}

TEST_F(BridgedPortTest, AGivenLineIsSetAndSaid)
{
    mSelection.mLine.mBaudRate = 57600;
    mSelection.mLine.mParity = KyParityEven;
    mSelection.mLine.mStopBits = 2;
    BridgedPort& lPort = Start();
    ASSERT_TRUE(WaitFor([&] { return !lPort.GetLine().empty(); }));
    EXPECT_EQ("57600 8E2", lPort.GetLine());
}

TEST_F(BridgedPortTest, AHostSideOverTcpIsSaidWithThePortThatItGot)
{
    EXPECT_THAT(Start().GetHost(), StartsWith("tcp://127.0.0.1:"));
    EXPECT_THAT(mPort->GetHost(), testing::Not(EndsWith(":0")));
    EXPECT_TRUE(mPort->GetTcpCounts().has_value());
    ASSERT_EQ("", ParseHost("rfc2217://127.0.0.1:0", mSelection.mHost));
    EXPECT_THAT(Start().GetHost(), StartsWith("rfc2217://127.0.0.1:"));
}

TEST_F(BridgedPortTest, ATerminalThatIsNoneIsRefusedByItsPath)
{
    FailsTo(HostKind::Tty, mFile + ".missing", "--tty: there is no " + mFile + ".missing");
    const std::string lFolder = std::filesystem::temp_directory_path().string();
    FailsTo(HostKind::Tty, lFolder, "--tty: " + lFolder + " is a directory");
}

// The library says the same for each port that it cannot open; the reason is this program's own try.
TEST_F(BridgedPortTest, AHostPortThatCannotBeOpenedIsRefusedWithTheSystemsReason)
{
    FailsTo(HostKind::Com, "COM99",
            testing::AllOf(StartsWith("cannot bridge uart0 to COM99: "),
                           HasSubstr("Unable to open requested COM port. ("), EndsWith(")")));
}

TEST_F(BridgedPortTest, ADeviceThatRefusesThePortIsAFailureOfTheWholeBridge)
{
    mDevice.Cut();
    EXPECT_THAT([&] { Start(); }, ThrowsMessage<OperationError>(StartsWith("cannot bridge uart0 to tcp://")));
}

} // namespace
