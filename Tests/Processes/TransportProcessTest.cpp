#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"

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
        EXPECT_TRUE(lExiting.Feed("\n"));
        EXPECT_EQ(lExiting.Wait(), 0);
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

} // namespace
