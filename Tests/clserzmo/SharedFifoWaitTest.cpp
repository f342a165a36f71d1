#include "Tests/Support/Repeater.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "TickTimer.h"

#include <memory>

using KyPlatform::cInfinite;
using KySerialLib::TickTimer;
using KyTest::MakeText;
using KyTest::TimeOf;
using std::chrono::milliseconds;

namespace
{

class SharedFifoWaitTest : public FifoFixture
{
protected:
    SharedFifoWaitTest() : FifoFixture(64) {}

    // Does something on another thread after a pause, in which this one most likely begins to wait.
    template<typename Action>
    static std::jthread Later(Action aAction)
    {
        return std::jthread(
            [aAction]
            {
                std::this_thread::sleep_for(milliseconds(20));
                aAction();
            });
    }
    // Moves an index without an event, as a peer does that dies in between: under the lock, or without one.
    std::jthread MoveLater(uint32_t& aIndex, uint32_t aBytes, bool aLocked)
    {
        return Later(
            [this, &aIndex, aBytes, aLocked]
            {
                const auto lMove = [&] { std::atomic_ref<uint32_t>(aIndex) += aBytes; };
                aLocked ? static_cast<void>(KyTest::DeadOwner(mName + "Mutex", lMove)) : lMove();
            });
    }
    // Reads what there is once something has been written, after aAction.
    template<typename Action>
    std::jthread ReadOnceWritten(uint32_t aSize, Action aAction)
    {
        return std::jthread(
            [this, aSize, aAction]
            {
                EXPECT_EQ(mWriteEvent.Wait(cInfinite), KyPlatform::WaitResult::Done);
                aAction();
                EXPECT_NE(mOther.Read(aSize), "");
            });
    }
    // Until what is returned is destroyed.
    static std::unique_ptr<KyTest::Repeater> SetAgainAndAgain(KyPlatform::NamedEvent& aEvent)
    {
        return std::make_unique<KyTest::Repeater>(
            [&aEvent]
            {
                EXPECT_TRUE(aEvent.Set());
                std::this_thread::sleep_for(milliseconds(1));
            });
    }

    KyTest::TextFifo mOther{mName, 64, false};
    std::atomic<bool> mStop{false};
};

TEST_F(SharedFifoWaitTest, WriterAndReaderPassEverythingThroughASmallRing)
{
    const std::string lText = MakeText(200000);
    const std::jthread lWriter(
        [&]
        {
            EXPECT_TRUE(mOther.Write(lText, cInfinite));
            EXPECT_EQ(mOther.GetWritten(), lText.size());
        });
    EXPECT_EQ(mFifo.ReadAll(lText.size()), lText);
}

TEST_F(SharedFifoWaitTest, ThreadsOfOneProcessShareAFifo)
{
    constexpr uint32_t cEach = 20000;
    std::atomic<uint32_t> lSum{0};
    std::atomic<uint32_t> lCount{0};
    const auto lWrite = [&]
    {
        for (uint32_t lByte = 0; lByte < cEach; ++lByte)
        {
            EXPECT_TRUE(mFifo.Write(std::string(1, static_cast<char>(lByte)), cInfinite));
        }
    };
    const auto lRead = [&]
    {
        while (lCount < 2 * cEach)
        {
            for (const char lByte : mFifo.Read(16, 20))
            {
                lSum += static_cast<uint8_t>(lByte);
                ++lCount;
            }
        }
    };
    {
        const std::jthread lThreads[] = {std::jthread(lWrite), std::jthread(lWrite), std::jthread(lRead),
                                         std::jthread(lRead)};
    }
    uint32_t lExpected = 0;
    for (uint32_t lByte = 0; lByte < cEach; ++lByte)
    {
        lExpected += 2 * (lByte & 0xFFU);
    }
    EXPECT_EQ(lCount, 2 * cEach);
    EXPECT_EQ(lSum, lExpected);
}

TEST_F(SharedFifoWaitTest, WriteThatFillsItReturnsWhenTheReaderHasTakenSomething)
{
    const auto lReader = ReadOnceWritten(1, [] { std::this_thread::sleep_for(milliseconds(20)); });
    EXPECT_TRUE(mFifo.Write(std::string(63, 'x'), cInfinite));
    EXPECT_EQ(mFifo.GetWritten(), 63U);
}

TEST_F(SharedFifoWaitTest, ReaderThatSleepsWakesForOneByte)
{
    const auto lWriter = Later([this] { EXPECT_TRUE(mOther.Write("a")); });
    EXPECT_EQ(mFifo.Read(10, cInfinite), "a");
}

TEST_F(SharedFifoWaitTest, EventThatIsNotTrueDoesNotEndARead)
{
    // Somebody sets the event although there is nothing: no byte may come out of the empty ring.
    const auto lEnemy = SetAgainAndAgain(mWriteEvent);
    EXPECT_GE(TimeOf([this] { EXPECT_EQ(mFifo.Read(10, 60), ""); }), milliseconds(59));
}

TEST_F(SharedFifoWaitTest, EventThatIsNotTrueDoesNotOverwriteAFullRing)
{
    const std::string lFirst = MakeText(63);
    EXPECT_FALSE(mFifo.Write(lFirst));
    const auto lEnemy = SetAgainAndAgain(mReadEvent);
    EXPECT_FALSE(mFifo.Write("lost", 60));
    EXPECT_EQ(mFifo.GetWritten(), 0U);
    EXPECT_EQ(mFifo.Read(), lFirst);
}

TEST_F(SharedFifoWaitTest, SleeperFindsBytesWithoutAnEvent)
{
    std::memcpy(GetData(), "zz", 2);
    for (const bool lLocked : {false, true})
    {
        SCOPED_TRACE(lLocked);
        const auto lWriter = MoveLater(GetHeader().mHeadIndex, 1, lLocked);
        EXPECT_EQ(mFifo.Read(10, cInfinite), "z");
        EXPECT_TRUE(IsSet(mReadEvent));
    }
}

TEST_F(SharedFifoWaitTest, SleeperFindsRoomWithoutAnEvent)
{
    for (const bool lLocked : {false, true})
    {
        SCOPED_TRACE(lLocked);
        GetHeader() = {64, 0, 0, 0};
        EXPECT_FALSE(mFifo.Write(std::string(63, 'x')));
        const auto lReader = MoveLater(GetHeader().mTailIndex, 10, lLocked);
        EXPECT_TRUE(mFifo.Write("yy", cInfinite));
        EXPECT_EQ(mFifo.Read(), std::string(53, 'x') + "yy");
    }
}

TEST_F(SharedFifoWaitTest, StopEndsARead)
{
    const auto lStopper = Later([this] { mStop = true; });
    EXPECT_EQ(mFifo.Read(1, cInfinite, &mStop), "");
    EXPECT_TRUE(mFifo.Write("a"));
    EXPECT_EQ(mFifo.Read(1, cInfinite, &mStop), "a"); // it only ends waits
}

TEST_F(SharedFifoWaitTest, StopEndsAWriteToAFifoThatNobodyReads)
{
    const auto lStopper = Later([this] { mStop = true; });
    const std::string lText = MakeText(100);
    EXPECT_FALSE(mFifo.Write(lText, cInfinite, &mStop));
    EXPECT_EQ(mFifo.GetWritten(), 63U);
    EXPECT_EQ(mFifo.Read(), lText.substr(0, 63));
}

TEST_F(SharedFifoWaitTest, WaitUntilEmptyEndsWhenTheReaderHasTakenTheLastByte)
{
    EXPECT_TRUE(mFifo.Write("abc"));
    const std::jthread lReader(
        [this]
        {
            for (int lTurn = 0; lTurn < 3; ++lTurn)
            {
                std::this_thread::sleep_for(milliseconds(5));
                EXPECT_NE(mOther.Read(1), "");
            }
        });
    EXPECT_TRUE(mFifo.WaitUntilEmpty(cInfinite));
}

TEST_F(SharedFifoWaitTest, NobodyWaitsLongerThanFiveSecondsForTheLock)
{
    ASSERT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done);
    Clock::duration lTook = std::chrono::hours(1);
    for (int lTry = 0; lTry < 3 && lTook > milliseconds(5200); ++lTry) // a busy machine is not late each time
    {
        lTook = TimeOf(
            [this]
            {
                const std::jthread lWriter([this] { EXPECT_FALSE(mFifo.Write("a")); });
                const std::jthread lEmpty([this] { EXPECT_TRUE(mOther.Write("")); }); // all of nothing
                const std::jthread lReader([this] { EXPECT_EQ(mFifo.Read(1), ""); });
                uint32_t lCount = 7;
                std::thread([&] { EXPECT_FALSE(mFifo.GetAvailable(lCount)); }).join();
                EXPECT_EQ(lCount, 0U);
            });
        EXPECT_GE(lTook, milliseconds(4990));
    }
    EXPECT_LE(lTook, milliseconds(5200));
    EXPECT_TRUE(mMutex.Release());
    ExpectAlive();
}

/// The milliseconds of the FIFOs and their timers are the test's.
class ClockTest : public SharedFifoWaitTest
{
protected:
    ClockTest()
    {
        TickTimer::SetSource([] { return sTicks.load(); });
    }
    ~ClockTest() override { TickTimer::SetSource(nullptr); }

    static inline std::atomic<uint32_t> sTicks{0};
};

TEST_F(ClockTest, WriteThatSpansTheWrapOfTheTickCountStillEnds)
{
    sTicks = 0xFFFFFFF0U;
    const auto lReader = ReadOnceWritten(64, [] { sTicks = 5; }); // wrapped
    EXPECT_FALSE(mFifo.Write(MakeText(126), 300)); // fills it twice; the second wait begins after the wrap
    EXPECT_EQ(mFifo.GetWritten(), 126U);
}

TEST_F(ClockTest, TimeSpentBeforeAWaitCounts)
{
    sTicks = 1000;
    const auto lReader = ReadOnceWritten(64, [] { sTicks = 100000; }); // far beyond the time-out
    EXPECT_LT(TimeOf([this] { EXPECT_FALSE(mFifo.Write(MakeText(200), 50000)); }), std::chrono::seconds(40));
    EXPECT_EQ(mFifo.GetWritten(), 126U);
}

TEST_F(ClockTest, TimerCountsUpToItsTimeOut)
{
    sTicks = 100;
    TickTimer lTimer(50);
    TickTimer lEndless(0xFFFFFFFFU);
    EXPECT_EQ(lTimer.GetRemaining(), 50U);
    sTicks = 130;
    EXPECT_EQ(lTimer.GetElapsed(), 30U);
    EXPECT_EQ(lTimer.GetRemaining(), 20U);
    sTicks = 151;
    EXPECT_EQ(lTimer.GetRemaining(), 0U);
    EXPECT_EQ(lEndless.GetRemaining(), 0xFFFFFFFFU);
}

TEST_F(ClockTest, TimerStartsAgainAtTheWrap)
{
    sTicks = 0xFFFFFFFEU;
    TickTimer lTimer(50);
    sTicks = 3;
    EXPECT_EQ(lTimer.GetElapsed(), 0U);
    EXPECT_EQ(lTimer.GetRemaining(), 50U);
    sTicks = 23;
    EXPECT_EQ(lTimer.GetElapsed(), 20U);
    EXPECT_EQ(lTimer.GetRemaining(), 30U);
}

} // namespace
