#include "GigE/ScriptedDevice.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/GvcpClient.h"

#include "Tests/Support/WaitFor.h"

#include <JxUtilsLib/Thread.h>
#include <gmock/gmock.h>

#include <algorithm>

using KyGigE::ConnectionOptions;
using KyGigE::GvcpClient;
using KyTest::IsOK;
using KyTest::IsResult;
using KyTest::ScriptedDevice;
using testing::HasSubstr;
using Answer = ScriptedDevice::Answer;
using KyTest::WaitFor;

namespace
{

ConnectionOptions Quick()
{
    ConnectionOptions lOptions;
    lOptions.mControl = {150, 40, 5000}; // nobody is lost for want of a processor
    lOptions.mHeartbeatPeriod = 20;
    return lOptions;
}

class GvcpClientTest : public testing::Test
{
protected:
    void Open(ConnectionOptions aOptions = Quick())
    {
        mClient = std::make_unique<GvcpClient>(Address(), aOptions);
        EXPECT_THAT(TryOpen(*mClient), IsOK());
    }

    KyGigE::DeviceAddress Address() { return {"127.0.0.1", mDevice.GetPort(), ""}; }

    KyResult TryOpen(GvcpClient& aClient)
    {
        return aClient.Open([this](const KyGvcp::EventView& /*aEvent*/) { ++mEvents; },
                            [this]
                            {
                                ++mPrepared;
                                return mPreparation;
                            });
    }

    KyTest::RecordingLogSink mLog;
    ScriptedDevice mDevice{""};
    std::atomic<int> mEvents = 0;
    std::atomic<int> mPrepared = 0;
    KyResult mPreparation;
    std::unique_ptr<GvcpClient> mClient;
};

TEST_F(GvcpClientTest, TakesControlAndSetsUpTheMessageChannel)
{
    Open();
    EXPECT_TRUE(mClient->IsConnected());
    EXPECT_TRUE(mClient->HasEvents());
    EXPECT_EQ(mClient->GetInformation().mVendor, "Korvo");
    EXPECT_EQ(mClient->GetInformation().mMac, 0x020012345678U);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cControlPrivilegeRegister), KyGvcp::cControlAccess);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cHeartbeatRegister), 3000U);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessageAddressRegister), 0x7F000001U);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessagePortRegister), mClient->GetMessages().GetLocal().mPort);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessageTimeoutRegister), 15U);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessageRetriesRegister), 60U);
    EXPECT_EQ(mPrepared, 1);
}

TEST_F(GvcpClientTest, GivesTheDeviceBackAtTheEnd)
{
    Open();
    mClient.reset();
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cControlPrivilegeRegister), 0U);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessagePortRegister), 0U);
    Open();
}

TEST_F(GvcpClientTest, ADeviceWithoutAMessageChannelIsFine)
{
    mDevice.PutWord(KyGvcp::cMessageChannelCountRegister, 0);
    Open();
    EXPECT_FALSE(mClient->HasEvents());
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessagePortRegister), 0U);
}

TEST_F(GvcpClientTest, ASecondApplicationIsRefusedWithTheReason)
{
    Open();
    mDevice.PutWord(KyGvcp::cPrimaryAddressRegister, 0x7F000001);
    mDevice.PutWord(KyGvcp::cPrimaryPortRegister, 4711);
    GvcpClient lSecond(Address(), Quick());
    const std::string lWhere = "gev://127.0.0.1:" + std::to_string(mDevice.GetPort());
    EXPECT_THAT(
        TryOpen(lSecond),
        IsResult(0x8006,
                 ("Another application (127.0.0.1:4711) controls the device at " + lWhere + ".").c_str()));
    EXPECT_FALSE(lSecond.IsConnected());
    EXPECT_TRUE(mClient->IsConnected());
    uint32_t lValue = 0;
    EXPECT_THAT(mClient->ReadRegister(0, lValue), IsOK());
    mClient.reset();
    EXPECT_THAT(TryOpen(lSecond), IsOK());
}

TEST_F(GvcpClientTest, SaysWhenNobodyAnswers)
{
    mDevice.SwitchOff();
    GvcpClient lClient(Address(), Quick());
    const std::string lWhere = "gev://127.0.0.1:" + std::to_string(mDevice.GetPort());
    EXPECT_THAT(TryOpen(lClient),
                IsResult(KyResult::NO_CONNECTION, ("No device answers at " + lWhere + ".").c_str()));
    uint32_t lValue = 0;
    EXPECT_EQ(lClient.ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
}

TEST_F(GvcpClientTest, RefusesInterfacesThatAreNotThere)
{
    KyGigE::DeviceAddress lAddress = Address();
    lAddress.mInterface = "none7";
    GvcpClient lClient(lAddress, Quick());
    EXPECT_THAT(TryOpen(lClient),
                IsResult(KyResult::FAILURE, "This computer has no network interface none7."));
    lAddress.mInterface = "127.0.0.3";
    GvcpClient lOther(lAddress, Quick());
    EXPECT_THAT(TryOpen(lOther), IsOK());
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessageAddressRegister), 0x7F000003U);
}

TEST_F(GvcpClientTest, AFailedPreparationFailsTheConnection)
{
    mPreparation = KyResult(KyResult::FAILURE, "no features");
    GvcpClient lClient(Address(), Quick());
    EXPECT_THAT(TryOpen(lClient), IsResult(KyResult::FAILURE, "no features"));
    EXPECT_FALSE(lClient.IsConnected());
}

TEST_F(GvcpClientTest, SendsSignsOfLife)
{
    Open();
    mDevice.TakeCommands();
    EXPECT_TRUE(mDevice.WaitForCommand(KyGvcp::cWriteRegister));
    EXPECT_EQ(mDevice.TakeCommands()[0].Word(0), KyGvcp::cHeartbeatRegister);
}

TEST_F(GvcpClientTest, NoticesADeviceThatIsSwitchedOffAndConnectsAgain)
{
    Open();
    mDevice.SwitchOff();
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    uint32_t lValue = 0;
    EXPECT_THAT(mClient->ReadRegister(0, lValue),
                IsResult(KyResult::NO_CONNECTION, "The device is not currently connected."));
    mDevice.SwitchOn();
    EXPECT_TRUE(WaitFor([&] { return mClient->IsConnected(); }));
    EXPECT_THAT(mClient->ReadRegister(0, lValue), IsOK());
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cMessagePortRegister), mClient->GetMessages().GetLocal().mPort);
    EXPECT_EQ(mDevice.GetWord(KyGvcp::cControlPrivilegeRegister), KyGvcp::cControlAccess);
    EXPECT_EQ(mPrepared, 2);
    EXPECT_EQ(mClient->GetLosses(), 1U);
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {})));
}

TEST_F(GvcpClientTest, NoticesAFrozenDeviceByItself)
{
    ConnectionOptions lOptions = Quick();
    lOptions.mControl.mAttempts = 4;
    Open(lOptions);
    mDevice.SetFrozen(true);
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    mDevice.SetFrozen(false);
    EXPECT_TRUE(WaitFor([&] { return mClient->IsConnected(); }));
}

TEST_F(GvcpClientTest, AFrozenDeviceIsLostWithinTwoSeconds)
{
    ConnectionOptions lOptions; // as applications have them
    lOptions.mReconnect = false;
    uint64_t lBest = UINT64_MAX;
    for (int lTry = 0; lTry < 4 && lBest >= 2000; ++lTry) // the machine may be busy
    {
        mDevice.SetFrozen(false);
        mDevice.SwitchOff();
        mDevice.SwitchOn();
        Open(lOptions);
        const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
        mDevice.SetFrozen(true);
        EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
        lBest = std::min(lBest, JxUtilsLib::Thread::GetTickCount() - lStart);
    }
    EXPECT_LT(lBest, 2000U);
}

TEST_F(GvcpClientTest, ADeviceThatKeepsItsOwnTimesForEventsIsFine)
{
    mDevice.SetScript(
        [](const ScriptedDevice::Command& aCommand)
        {
            const bool lTime = aCommand.mCode == KyGvcp::cWriteRegister &&
                               (aCommand.Word(0) == KyGvcp::cMessageTimeoutRegister ||
                                aCommand.Word(0) == KyGvcp::cMessageRetriesRegister);
            return lTime ? Answer{Answer::Refuse, KyGvcp::cWriteProtect} : Answer();
        });
    Open();
    EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(0x9000, {})));
}

TEST_F(GvcpClientTest, NoticesThatAnotherApplicationHasGotTheControl)
{
    ConnectionOptions lOptions = Quick();
    lOptions.mReconnect = false;
    Open(lOptions);
    mDevice.GiveControlAway();
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    EXPECT_EQ(mClient->Reconnect().GetCode(), KyGvcp::cAccessDenied);
}

TEST_F(GvcpClientTest, ConnectsAgainOnDemandOnlyWhenToldSo)
{
    ConnectionOptions lOptions = Quick();
    lOptions.mReconnect = false;
    Open(lOptions);
    mDevice.SwitchOff();
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    EXPECT_EQ(mClient->Reconnect().GetCode(), KyResult::NO_CONNECTION);
    mDevice.SwitchOn();
    JxUtilsLib::Thread::Sleep(100); // several periods
    EXPECT_FALSE(mClient->IsConnected());
    EXPECT_THAT(mClient->Reconnect(), IsOK());
    EXPECT_TRUE(mClient->IsConnected());
    EXPECT_THAT(mClient->Reconnect(), IsOK()); // nothing to do
}

TEST_F(GvcpClientTest, AnotherDeviceAtTheSameAddressIsNotTakenForTheOldOne)
{
    ConnectionOptions lOptions = Quick();
    lOptions.mReconnect = false;
    Open(lOptions);
    mDevice.SwitchOff();
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    mDevice.PutWord(KyGvcp::cMacLowRegister, 1);
    mDevice.SwitchOn();
    EXPECT_THAT(mClient->Reconnect().GetDescription().GetAscii(), HasSubstr("Another device answers at"));
    EXPECT_FALSE(mClient->IsConnected());
}

TEST_F(GvcpClientTest, ADeviceWithAFixedHeartbeatIsAskedForItsControl)
{
    mDevice.SetScript(
        [](const ScriptedDevice::Command& aCommand)
        {
            const bool lHeartbeat =
                aCommand.mCode == KyGvcp::cWriteRegister && aCommand.Word(0) == KyGvcp::cHeartbeatRegister;
            return lHeartbeat ? Answer{Answer::Refuse, KyGvcp::cWriteProtect} : Answer();
        });
    Open();
    mDevice.TakeCommands();
    EXPECT_TRUE(mDevice.WaitForCommand(KyGvcp::cReadRegister));
    EXPECT_TRUE(mClient->IsConnected());
    mDevice.PutWord(KyGvcp::cControlPrivilegeRegister, 0);
    EXPECT_TRUE(WaitFor([&] { return mClient->GetLosses() > 0; }));
}

TEST_F(GvcpClientTest, LogsLossAndReturn)
{
    Open();
    mDevice.SwitchOff();
    EXPECT_TRUE(WaitFor([&] { return !mClient->IsConnected(); }));
    mDevice.SwitchOn();
    EXPECT_TRUE(WaitFor([&] { return mClient->IsConnected(); }));
    mClient.reset();
    const auto lLines = mLog.Take();
    ASSERT_EQ(lLines.size(), 2U);
    EXPECT_THAT(lLines[0].mMessage, HasSubstr("is lost: it does not answer."));
    EXPECT_THAT(lLines[1].mMessage, HasSubstr("is connected again."));
}

} // namespace
