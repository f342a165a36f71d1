#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

namespace
{

class TransportProcessTest : public FifoFixture
{
protected:
    void ExpectAliveAtOnce()
    {
        EXPECT_LT(KyTest::TimeOf([this] { ExpectAlive(); }), std::chrono::seconds(4)); // less than for a lock
    }
};

TEST_F(TransportProcessTest, PeerThatExitsOrIsKilledWithTheLockPassesItOn)
{
    for (int lTurn = 0; lTurn < 20; ++lTurn)
    {
        ChildProcess lExiting({"hold", mName}, "held");
        lExiting.ExpectEnd("exit");
        ExpectAliveAtOnce();
        ChildProcess lKilled({"hold", mName}, "held");
        lKilled.Kill();
        ExpectAliveAtOnce();
    }
    ChildProcess lPeer({"hold", mName}, "held");
    const std::jthread lWaiter([this] { ExpectAliveAtOnce(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // most likely it waits by now
    lPeer.Kill();
}

TEST_F(TransportProcessTest, SectionOutlivesItsMakerWhileSomebodyHoldsIt)
{
    const std::string lName = mName + "Other";
    ChildProcess lPeer({"survive", lName}, "ready");
    {
        const KyTest::TextFifo lFifo(lName, 10, false);
        ASSERT_TRUE(lFifo.IsValid());
        lPeer.Kill();
        EXPECT_TRUE(KyTest::TextFifo(lName, 10, false).IsValid());
    }
    EXPECT_FALSE(KyTest::RingView(lName).IsValid()); // gone with the last
}

class RegistryProcessTest : public RegistryFixture
{
protected:
    std::vector<std::string> As(const std::string& aRole) { return {aRole, mSession.GetToken(), "A"}; }
};

TEST_F(RegistryProcessTest, OneServerProcessAndOneClientProcessAtATime)
{
    ChildProcess lServer(As("serve"), "has the place");
    EXPECT_EQ(GetEntry("A").mServerActive, 1U);
    ChildProcess(As("serve"), "refused").ExpectEnd("end");
    ChildProcess lClient(As("use"), "has the place");
    ChildProcess(As("use"), "refused").ExpectEnd("end");
    lClient.ExpectEnd("end");
    ChildProcess(As("use"), "has the place").ExpectEnd("end");
    lServer.ExpectEnd("end");
    ChildProcess lNext(As("serve"), "has the place");
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
}

TEST_F(RegistryProcessTest, KilledServerIsSweptAndReplaced)
{
    for (int lTurn = 0; lTurn < 5; ++lTurn)
    {
        ChildProcess lServer(As("serve"), "has the place");
        EXPECT_EQ(mRegistry->GetEntries()[0].mServerActive, 1U);
        lServer.Kill();
        EXPECT_EQ(mRegistry->GetEntries()[0].mServerActive, 0U);
    }
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
}

} // namespace
