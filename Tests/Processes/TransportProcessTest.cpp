#include "Tests/Processes/ChildProcess.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "Tests/clserzmo/RegistryFixture.h"

#include <algorithm>
#include <array>
#include <random>
#include <thread>

using KySerialLib::SharedFifo;

namespace
{

class TransportProcessTest : public FifoFixture
{
protected:
    /// The lock is to be had at once and bytes pass: whatever has happened to the peer.
    void ExpectAlive()
    {
        EXPECT_LT(KyTest::TimeOf([this] { GetAvailable(); }),
                  std::chrono::seconds(4)); // less than for a lock
        Read();
        EXPECT_TRUE(Write("alive"));
        EXPECT_EQ(Read(), "alive");
    }
};

TEST_F(TransportProcessTest, TwoProcessesExchangeBytesBothWays)
{
    SharedFifo lDown(mName + "Down", mPrefix, 1024, true);
    SharedFifo lUp(mName + "Up", mPrefix, 1024, true);
    ChildProcess lPeer({"echo", mName}, "ready");
    std::string lSent(300000, '\0');
    std::mt19937 lRandom(5);
    std::generate(lSent.begin(), lSent.end(), [&lRandom] { return static_cast<char>(1 + lRandom() % 255); });
    std::thread lWriter(
        [&]
        {
            for (size_t lDone = 0; lDone < lSent.size();)
            {
                const auto lSize =
                    static_cast<uint32_t>(std::min<size_t>(1 + lDone % 3000, lSent.size() - lDone));
                uint32_t lWritten = 0;
                EXPECT_TRUE(lDown.Write(lSent.data() + lDone, lSize, lWritten, KyPlatform::cInfinite));
                lDone += lSize;
            }
        });
    std::string lGot;
    std::array<char, 16384> lBuffer{};
    uint32_t lRead = 0;
    while (lGot.size() < lSent.size() && lUp.Read(lBuffer.data(), 16384, lRead, 60000))
    {
        lGot.append(lBuffer.data(), lRead);
    }
    lWriter.join();
    EXPECT_EQ(lGot, lSent);
    uint32_t lWritten = 0;
    EXPECT_TRUE(lDown.Write("", 1, lWritten, 60000));
    EXPECT_EQ(lPeer.Wait(), 0);
}

TEST_F(TransportProcessTest, PeerThatExitsOrIsKilledWithTheLockPassesItOn)
{
    for (int lTurn = 0; lTurn < 20; ++lTurn)
    {
        ChildProcess lExiting({"hold", mName}, "held");
        lExiting.ExpectEnd("exit");
        ExpectAlive();
        ChildProcess lKilled({"hold", mName}, "held");
        lKilled.Kill();
        ExpectAlive();
    }
}

TEST_F(TransportProcessTest, WaiterForTheLockGetsItWhenItsOwnerIsKilled)
{
    ChildProcess lPeer({"hold", mName}, "held");
    std::thread lWaiter([this] { ExpectAlive(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    lPeer.Kill();
    lWaiter.join();
}

TEST_F(TransportProcessTest, ReaderThatSleepsFindsBytesWhoseWriterDiedBeforeTheEvent)
{
    for (const bool lExit : {false, true})
    {
        std::string lGot;
        std::thread lReader([&] { lGot = Read(10, KyPlatform::cInfinite); });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ChildProcess lPeer({"hold", mName, "2", "1"}, "held"); // one byte more, and no event
        if (lExit)
        {
            lPeer.ExpectEnd("exit");
        }
        lPeer.Kill();
        lReader.join();
        EXPECT_EQ(lGot.size(), 1U);
        EXPECT_TRUE(IsSet(mReadEvent));
    }
}

TEST_F(TransportProcessTest, WriterThatSleepsFindsRoomWhoseReaderDiedBeforeTheEvent)
{
    EXPECT_FALSE(Write(std::string(1023, 'x')));
    std::thread lWriter([&] { EXPECT_TRUE(Write("yz", KyPlatform::cInfinite)); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ChildProcess lPeer({"hold", mName, "1", "10"}, "held"); // ten bytes less, and no event
    lPeer.Kill();
    lWriter.join();
    EXPECT_EQ(Read(), std::string(1013, 'x') + "yz");
}

TEST_F(TransportProcessTest, DeadOwnersEventsAreMadeTrueAndOnlyIfTheyAre)
{
    // Where the dead left it empty nothing may say that something was written.
    EXPECT_EQ(Read(1, 1), ""); // resets the written event
    ChildProcess lPeer({"hold", mName}, "held");
    lPeer.Kill();
    EXPECT_EQ(GetAvailable(), 0U);
    EXPECT_FALSE(IsSet(mWriteEvent));
    EXPECT_TRUE(IsSet(mReadEvent));
    // Where it is full nothing may say that there is room.
    EXPECT_FALSE(Write(std::string(1022, 'x') + "y"));
    EXPECT_FALSE(IsSet(mReadEvent));
    ChildProcess lSecond({"hold", mName}, "held");
    lSecond.Kill();
    EXPECT_EQ(GetAvailable(), 1023U);
    EXPECT_FALSE(IsSet(mReadEvent));
    EXPECT_TRUE(IsSet(mWriteEvent));
}

TEST_F(TransportProcessTest, StoppedOwnerCostsFiveSecondsAndNothingElse)
{
    ChildProcess lPeer({"hold", mName}, "held");
    Clock::duration lTook = std::chrono::hours(1);
    for (int lTry = 0; lTry < 3 && lTook > std::chrono::milliseconds(5200);
         ++lTry) // a busy machine is not late each time
    {
        lTook = KyTest::TimeOf([this] { EXPECT_FALSE(Write("a")); });
        EXPECT_GE(lTook, std::chrono::milliseconds(4990));
    }
    EXPECT_LE(lTook, std::chrono::milliseconds(5200));
    EXPECT_TRUE(lPeer.Feed("release\n"));
    ASSERT_TRUE(lPeer.WaitForOutput("released"));
    ExpectAlive();
}

TEST_F(TransportProcessTest, SectionOutlivesItsMakerWhileSomebodyHoldsIt)
{
    const std::string lName = mName + "Down";
    ChildProcess lPeer({"echo", mName}, "ready");
    {
        SharedFifo lFifo(lName, mPrefix, 10, false);
        ASSERT_TRUE(lFifo.IsValid());
        lPeer.Kill();
        SharedFifo lSecond(lName, mPrefix, 10, false);
        EXPECT_TRUE(lSecond.IsValid());
    }
    KyPlatform::SharedMemory lMemory;
    EXPECT_FALSE(lMemory.Open(mPrefix + lName + "Memory")); // gone with the last
    EXPECT_FALSE(lMemory.Open(mPrefix + mName + "UpMemory"));
}

using RegistryProcessTest = RegistryFixture;

TEST_F(RegistryProcessTest, SecondServerOfANameIsRefusedWhileTheFirstLives)
{
    ChildProcess lFirst({"serve", mSession.GetToken(), "A"}, "serving");
    EXPECT_EQ(GetEntry("A").mServerActive, 1U);
    ChildProcess lSecond({"serve", mSession.GetToken(), "A"}, "refused");
    lSecond.ExpectEnd("end");
    lFirst.ExpectEnd("end");
    ChildProcess lThird({"serve", mSession.GetToken(), "A"}, "serving");
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
}

TEST_F(RegistryProcessTest, KilledServerIsSweptAndReplaced)
{
    for (int lTurn = 0; lTurn < 5; ++lTurn)
    {
        ChildProcess lServer({"serve", mSession.GetToken(), "A"}, "serving");
        EXPECT_EQ(mRegistry->GetEntries()[0].mServerActive, 1U);
        lServer.Kill();
        EXPECT_EQ(mRegistry->GetEntries()[0].mServerActive, 0U);
    }
    EXPECT_EQ(GetEntry("A").mServerId, 1U);
}

TEST_F(RegistryProcessTest, OneClientProcessAtATime)
{
    ASSERT_TRUE(mRegistry->AcquireServer("A", mServer, mClient));
    ChildProcess lFirst({"use", mSession.GetToken(), "A"}, "using");
    ChildProcess lSecond({"use", mSession.GetToken(), "A"}, "refused");
    lFirst.ExpectEnd("end");
    ChildProcess lThird({"use", mSession.GetToken(), "A"}, "using");
}

} // namespace
