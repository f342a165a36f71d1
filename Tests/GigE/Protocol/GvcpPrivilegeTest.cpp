#include "GigE/Protocol/ServerFixture.h"

namespace
{

using namespace KyGvcp;
using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;

class GvcpPrivilegeTest : public ServerFixture
{
protected:
    void OpenChannel()
    {
        Write(cMessageAddressRegister, 0x7F000001);
        Write(cMessagePortRegister, 6000);
        ASSERT_EQ((Endpoint{0x7F000001, 6000}), mChannel.mPeer);
    }
};

TEST_F(GvcpPrivilegeTest, NobodyWritesWithoutControl)
{
    EXPECT_EQ(cAccessDenied, Write(cInterruptEnable, 1).mStatus);
    EXPECT_EQ(cAccessDenied, WriteMemory(0x80000000, {1}).mStatus);
    EXPECT_EQ(cAccessDenied, WriteMemory(cInterruptEnable, {0, 0, 0, 1}).mStatus);
    EXPECT_EQ(cAccessDenied, WriteMemory(cUserNameRegister, {'x'}).mStatus);
    EXPECT_EQ(0U, Read(cInterruptEnable).Word());
}

TEST_F(GvcpPrivilegeTest, OnlyTheControllerWrites)
{
    TakeControl();
    EXPECT_EQ(cSuccess, Write(cInterruptEnable, 1).mStatus);
    EXPECT_EQ(cAccessDenied, Write(cInterruptEnable, 2, cOther).mStatus);
    EXPECT_EQ(cAccessDenied, Write(cControlPrivilegeRegister, cControlAccess, cOther).mStatus);
    EXPECT_EQ(cAccessDenied, Write(cControlPrivilegeRegister, 0, cOther).mStatus);
    EXPECT_EQ(1U, Read(cInterruptEnable, cOther).Word());
}

TEST_F(GvcpPrivilegeTest, NamesTheControllingApplication)
{
    TakeControl();
    EXPECT_EQ(cControlAccess, Read(cControlPrivilegeRegister, cOther).Word());
    EXPECT_EQ(5001U, Read(cPrimaryPortRegister).Word());
    EXPECT_EQ(0x7F000001U, Read(cPrimaryAddressRegister).Word());
}

TEST_F(GvcpPrivilegeTest, ExclusiveAccessKeepsOthersFromReading)
{
    Write(cControlPrivilegeRegister, cExclusiveAccess);
    EXPECT_EQ(cAccessDenied, Read(cInterruptEnable, cOther).mStatus);
    EXPECT_EQ(cAccessDenied, Ask(MakeReadMemory(NextID(), 0, 4), cOther).mStatus);
    EXPECT_EQ(cSuccess, Read(cControlPrivilegeRegister, cOther).mStatus);
    EXPECT_EQ(cSuccess, Ask(MakeReadMemory(NextID(), cControlPrivilegeRegister, 4), cOther).mStatus);
    EXPECT_EQ(cAccessDenied, Ask(MakeReadMemory(NextID(), cControlPrivilegeRegister, 8), cOther).mStatus)
        << "the registers after it are not to be read";
    EXPECT_EQ(cSuccess, Read(cInterruptEnable).mStatus);
}

TEST_F(GvcpPrivilegeTest, AReleasedCameraCanBeTakenByAnother)
{
    TakeControl();
    OpenChannel();
    EXPECT_EQ(cSuccess, Write(cControlPrivilegeRegister, 0).mStatus);
    EXPECT_EQ(Endpoint(), mChannel.mPeer);
    TakeControl(cOther);
    EXPECT_EQ(cAccessDenied, Write(cInterruptEnable, 1).mStatus);
}

TEST_F(GvcpPrivilegeTest, SilenceEndsControlAndClosesTheMessageChannel)
{
    TakeControl();
    OpenChannel();
    EXPECT_EQ(mNow + 3s, mServer->NextDue());
    Advance(2999ms);
    EXPECT_EQ(cOne, mServer->GetController());
    Advance(1ms);
    EXPECT_EQ(Endpoint(), mServer->GetController());
    EXPECT_EQ(Endpoint(), mChannel.mPeer);
    EXPECT_EQ(0U, Read(cControlPrivilegeRegister).Word());
    EXPECT_EQ(0U, Read(cMessagePortRegister).Word());
    EXPECT_EQ(0U, Read(cPrimaryPortRegister).Word());
    EXPECT_EQ(1U, mServer->GetCounters().mExpired);
    EXPECT_EQ(cNever, mServer->NextDue());
}

TEST_F(GvcpPrivilegeTest, EveryCommandOfTheControllerIsAHeartbeat)
{
    TakeControl();
    Advance(2s);
    Read(cInterruptEnable);
    Advance(2s);
    Ask(MakeDiscovery(NextID(), false));
    Advance(2s);
    EXPECT_EQ(cOne, mServer->GetController());
    Read(cInterruptEnable, cOther); // that of another application is no heartbeat
    Advance(1s);
    EXPECT_EQ(Endpoint(), mServer->GetController());
}

TEST_F(GvcpPrivilegeTest, ARepeatedCommandIsAHeartbeatToo)
{
    TakeControl();
    const Packet lCommand = MakeReadRegister(NextID(), 0);
    Ask(lCommand);
    Advance(2s);
    Ask(lCommand);
    Advance(2s);
    EXPECT_EQ(cOne, mServer->GetController());
}

TEST_F(GvcpPrivilegeTest, TheHeartbeatTimeCanBeSetDownToALimit)
{
    TakeControl();
    Write(cHeartbeatRegister, 1);
    EXPECT_EQ(500U, Read(cHeartbeatRegister).Word());
    Advance(499ms);
    EXPECT_EQ(cOne, mServer->GetController());
    Advance(1ms);
    EXPECT_EQ(Endpoint(), mServer->GetController());
}

TEST_F(GvcpPrivilegeTest, ControlCanBeTakenAwayFromTheDevicesSide)
{
    TakeControl();
    OpenChannel();
    mServer->ReleaseControl();
    EXPECT_EQ(0U, Read(cControlPrivilegeRegister).Word());
    EXPECT_EQ(Endpoint(), mChannel.mPeer);
}

TEST_F(GvcpPrivilegeTest, TheChannelOpensWithAddressAndPort)
{
    TakeControl();
    Write(cMessagePortRegister, 6000);
    EXPECT_EQ(Endpoint(), mChannel.mPeer);
    Write(cMessageAddressRegister, 0x7F000001);
    Write(cMessageTimeoutRegister, 50);
    Write(cMessageRetriesRegister, 1);
    EXPECT_EQ((Endpoint{0x7F000001, 6000}), mChannel.mPeer);
    EXPECT_EQ(50U, mChannel.mTimeout);
    EXPECT_EQ(1U, mChannel.mRetries);
    Write(cMessagePortRegister, 0);
    EXPECT_EQ(Endpoint(), mChannel.mPeer);
}

} // namespace
