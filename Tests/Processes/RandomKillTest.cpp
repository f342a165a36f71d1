#include "Tests/Processes/ChildProcess.h"
#include "Tests/clserzmo/FifoFixture.h"

#include <cstdlib>

namespace
{

/// Peers that are killed in the middle of traffic, at any time. The long form: KYSERIAL_KILL_ROUNDS rounds a
/// case.
class RandomKillTest : public FifoFixture, public testing::WithParamInterface<int>
{
protected:
    static int GetRounds()
    {
        const char* const lText =
            std::getenv("KYSERIAL_KILL_ROUNDS"); // NOLINT(concurrency-mt-unsafe): one thread
        return lText != nullptr ? std::atoi(lText) : KYTEST_KILL_ROUNDS;
    }

    /// How long a peer is let work.
    std::chrono::microseconds GetPause() { return std::chrono::microseconds(mRandom() % 2000); }

    /// Notes how long after aSince the survivor has gone on.
    void Note(Clock::time_point aSince)
    {
        ++mTimed;
        mLate += Clock::now() - aSince > std::chrono::milliseconds(200) ? 1 : 0;
    }

    /// Places that are hit at random cannot be tried again, and a busy machine is late now and then: but most
    /// are in time.
    void ExpectMostInTime() const
    {
        EXPECT_TRUE(mLate <= cNowAndThen || 2 * mLate <= mTimed) << mLate << " of " << mTimed << " late";
    }

    static constexpr int cNowAndThen = 2;

    std::mt19937 mRandom{static_cast<uint32_t>(GetParam())};
    int mTimed = 0;
    int mLate = 0;
};

TEST_P(RandomKillTest, DyingWriterLeavesAPrefix)
{
    uint8_t lNext = 0;
    for (int lRound = 0; lRound < GetRounds(); ++lRound)
    {
        ChildProcess lPeer({"write", mName, std::to_string(lNext)}, "ready");
        std::atomic<bool> lDead{false};
        Clock::time_point lDeath;
        const auto lPause = GetPause();
        std::thread lKiller(
            [&]
            {
                std::this_thread::sleep_for(lPause);
                lPeer.Kill();
                lDeath = Clock::now();
                lDead = true;
            });
        // Now and then it sleeps without end; always, the stop would cost 50 ms in every round.
        const uint32_t lTime = lRound % 10 == 0 ? KyPlatform::cInfinite : 1;
        std::string lBlock;
        bool lLast = false;
        bool lSlept = false; // when the peer died
        do
        {
            lLast = lDead; // what the peer left is there when it is dead
            lBlock = mFifo.Read(700, lTime, &lDead);
            lSlept = lSlept || (!lLast && lBlock.empty() && lTime == KyPlatform::cInfinite);
            for (const char lByte : lBlock)
            {
                ASSERT_EQ(static_cast<uint8_t>(lByte), lNext++) << lRound;
            }
        } while (!lLast || !lBlock.empty());
        lKiller.join();
        if (lSlept)
        {
            Note(lDeath);
        }
        ASSERT_EQ(mFifo.Read(), "");
    }
    ExpectMostInTime();
}

TEST_P(RandomKillTest, WriterGoesOnWithTheNextReader)
{
    std::atomic<bool> lStop{false};
    std::atomic<uint32_t> lBlocks{0};
    std::thread lWriter(
        [&]
        {
            std::mt19937 lRandom(3);
            while (!lStop)
            {
                EXPECT_TRUE(mFifo.Write(MakeBlock(lRandom), KyPlatform::cInfinite, &lStop) || lStop);
                ++lBlocks;
            }
        });
    for (int lRound = 0; lRound < GetRounds(); ++lRound)
    {
        ChildProcess lPeer({"read", mName}, "ready");
        const auto lStart = Clock::now();
        const uint32_t lBefore = lBlocks;
        while (lBlocks - lBefore < 3) // each reader gets the writer going again; else this hangs
        {
            std::this_thread::yield();
        }
        Note(lStart);
        std::this_thread::sleep_for(GetPause());
        lPeer.Kill();
    }
    lStop = true;
    lWriter.join();
    ExpectMostInTime();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomKillTest, testing::Range(0, 5));

} // namespace
