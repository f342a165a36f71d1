#include "kyserial-camera/CameraConsole.h"

#include "GigE/CameraClient.h"
#include "Support/WaitFor.h"

#include <gmock/gmock.h>

namespace
{

using namespace KySerialCamera;
using namespace KySimulator;
using testing::HasSubstr;
using testing::StartsWith;

class CameraConsoleTest : public testing::Test
{
protected:
    std::string Execute(const std::string& aLine) { return ExecuteLine(mCamera, aLine).mText; }
    NetworkFaults::Fate FateOf(DatagramKind aKind)
    {
        NetworkFaults::Fate lFate;
        mCamera.ChangeFaults([&](NetworkFaults& aFaults) { lFate = aFaults.NextFate(aKind); });
        return lFate;
    }

    std::shared_ptr<CameraModel> mModel = std::make_shared<CameraModel>();
    NetworkCamera mCamera{mModel, {{0x7F000001, 0}, false}};
};

TEST_F(CameraConsoleTest, SetsTheFaultOfEachKindOfDatagram)
{
    EXPECT_EQ("ok", Execute("drop command 1"));
    EXPECT_EQ("ok", Execute("double ack 1"));
    EXPECT_EQ("ok", Execute("  delay   event 1 25 "));
    EXPECT_EQ("ok", Execute("drop event-ack 2"));
    EXPECT_EQ(0U, FateOf(DatagramKind::Command).mCopies);
    EXPECT_EQ(2U, FateOf(DatagramKind::Acknowledge).mCopies);
    EXPECT_EQ(std::chrono::milliseconds(25), FateOf(DatagramKind::Event).mDelay);
    EXPECT_EQ(1U, FateOf(DatagramKind::EventAcknowledge).mCopies);
    EXPECT_EQ(0U, FateOf(DatagramKind::EventAcknowledge).mCopies);
    EXPECT_EQ("ok", Execute("clear"));
    EXPECT_EQ(1U, FateOf(DatagramKind::Command).mCopies);
}

TEST_F(CameraConsoleTest, RestartsAndIsBack)
{
    ASSERT_TRUE(mCamera.Start());
    CameraClient lClient(mCamera.GetEndpoint());
    lClient.Take();
    EXPECT_FALSE(mCamera.GetController() == KyGvcp::Endpoint());
    EXPECT_EQ("ok", Execute("restart 1"));
    EXPECT_TRUE(mCamera.GetController() == KyGvcp::Endpoint());
    EXPECT_TRUE(KyTest::WaitFor([&] { return Execute("plug") == "ok"; }));
    EXPECT_EQ(0U, lClient.Read(KyGvcp::cControlPrivilegeRegister));
}

TEST_F(CameraConsoleTest, BringsDuplicatesLateAndDoesNotAnnounceWhatIsSilent)
{
    ASSERT_TRUE(mCamera.Start());
    EXPECT_EQ("ok", Execute("late command 1 5"));
    CameraClient lClient(mCamera.GetEndpoint());
    EXPECT_EQ(0x00020000U, lClient.Read(0));
    EXPECT_TRUE(KyTest::WaitFor([&] { return Execute("stats").find(" repeated=1 ") != std::string::npos; }));
    EXPECT_THAT(Execute("stats"), HasSubstr(" datagrams-late=1"));
    EXPECT_EQ("ok", Execute("clear"));
    EXPECT_EQ("ok", Execute("silent 1 400"));
    CameraClient lOther(mCamera.GetEndpoint()); // the first one has an answer that came late
    EXPECT_EQ(600U, lOther.Read(KyGvcp::cPendingTimeoutRegister));
}

TEST_F(CameraConsoleTest, SetsBusyAndSlow)
{
    EXPECT_EQ("ok", Execute("busy 1"));
    EXPECT_EQ("ok", Execute("slow 1 300"));
    bool lBusy = false;
    Time lSlow{0};
    mCamera.ChangeFaults(
        [&](NetworkFaults& aFaults)
        {
            lBusy = aFaults.TakeBusy();
            lSlow = aFaults.TakeSlow();
        });
    EXPECT_TRUE(lBusy);
    EXPECT_EQ(std::chrono::milliseconds(300), lSlow);
}

TEST_F(CameraConsoleTest, TakesAnOptionAsACommand)
{
    EXPECT_TRUE(ExecuteOption(mCamera, "drop", "ack:1").mGood);
    EXPECT_EQ(0U, FateOf(DatagramKind::Acknowledge).mCopies);
    EXPECT_FALSE(ExecuteOption(mCamera, "drop", "ack").mGood);
    EXPECT_FALSE(ExecuteOption(mCamera, "drop", "all:1").mGood);
}

TEST_F(CameraConsoleTest, RefusesWhatMakesNoSense)
{
    EXPECT_EQ("error: \"dorp\" is no command; 'help' lists them", Execute("dorp ack 1"));
    EXPECT_EQ("error: use drop WHAT N", Execute("drop ack"));
    EXPECT_EQ("error: use freeze", Execute("freeze now"));
    for (const char* const lLine : {"drop ack -1", "drop ack 1x", "drop ack 1000001",
                                    "drop ack 99999999999999", "drop acks 1", "slow 1 x", "busy all"})
    {
        EXPECT_THAT(Execute(lLine), StartsWith("error: use ")) << lLine;
    }
    EXPECT_EQ("", Execute("   "));
}

TEST_F(CameraConsoleTest, LetsBytesArriveAtAPort)
{
    EXPECT_EQ("ok", Execute("inject uart1 00fF"));
    EXPECT_EQ("ok", Execute("inject bulk7 01"));
    for (const char* const lLine : {"inject uart2 00", "inject bulk8 00", "inject uart1 0", "inject uart1 0g",
                                    "inject uart1 -1", "inject usb1 00", "inject bulk10 00"})
    {
        EXPECT_THAT(Execute(lLine), StartsWith("error: use ")) << lLine;
    }
}

TEST_F(CameraConsoleTest, QuitsAndHelps)
{
    EXPECT_TRUE(ExecuteLine(mCamera, "quit").mQuit);
    EXPECT_FALSE(ExecuteLine(mCamera, "help").mQuit);
    EXPECT_THAT(Execute("help"), HasSubstr("delay WHAT N MS"));
}

TEST_F(CameraConsoleTest, FreezesUnplugsAndCounts)
{
    ASSERT_TRUE(mCamera.Start());
    CameraClient lClient(mCamera.GetEndpoint());
    lClient.Take();
    EXPECT_EQ("ok", Execute("release"));
    EXPECT_EQ("ok", Execute("freeze"));
    lClient.Send(KyGvcp::MakeReadRegister(lClient.NextID(), 0));
    while (Execute("stats").find(" datagrams-unheard=1") == std::string::npos)
    {
        std::this_thread::yield(); // it is on its way
    }
    EXPECT_FALSE(lClient.Receive(std::chrono::milliseconds(0)).has_value());
    EXPECT_EQ("ok", Execute("thaw"));
    EXPECT_EQ("ok", Execute("unplug"));
    lClient.Send(KyGvcp::MakeReadRegister(lClient.NextID(), 0));
    EXPECT_FALSE(lClient.Receive().has_value());
    EXPECT_EQ("ok", Execute("plug"));
    EXPECT_EQ("ok", Execute("unplug 100"));
    EXPECT_EQ(0U, lClient.Read(KyGvcp::cControlPrivilegeRegister));
    const std::string lText = Execute("stats");
    EXPECT_THAT(lText, StartsWith("statistics: commands=4 refused=0 repeated=0 "));
    EXPECT_THAT(lText, HasSubstr(" datagrams-unheard=1"));
}

} // namespace
