#include "Tests/Support/Repeater.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "TickTimer.h"

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using KySerialLib::SharedFifo;
using KySerialLib::TickTimer;

namespace
{

class SharedFifoWaitTest : public FifoFixture
{
protected:
    SharedFifoWaitTest() : FifoFixture(64) {}
    ~SharedFifoWaitTest() override { TickTimer::SetSource(nullptr); }

    static std::string MakeText(size_t aSize)
    {
        std::string lText(aSize, '\0');
        for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
        {
            lText[lIndex] = static_cast<char>(lIndex * 7 + lIndex / 251);
        }
        return lText;
    }
    // Does something on another thread after a pause, in which this one most likely begins to wait.
    template<typename Action>
    static std::jthread Later(Action aAction)
    {
        return std::jthread(
            [aAction]
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                aAction();
            });
    }

    // Until what is returned is destroyed.
    static std::unique_ptr<KyTest::Repeater> SetAgainAndAgain(KyPlatform::NamedEvent& aEvent)
    {
        return std::make_unique<KyTest::Repeater>(
            [&aEvent]
            {
                EXPECT_TRUE(aEvent.Set());
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            });
    }

    SharedFifo mOther{mName, mPrefix, 64, false};
};

TEST_F(SharedFifoWaitTest, WriterAndReaderPassEverythingThroughASmallRing)
{
    const std::string lText = MakeText(200000);
    std::thread lWriter(
        [&]
        {
            uint32_t lWritten = 0;
            EXPECT_TRUE(mOther.Write(lText.data(), static_cast<uint32_t>(lText.size()), lWritten,
                                     KyPlatform::cInfinite));
            EXPECT_EQ(lWritten, lText.size());
        });
    std::string lGot;
    while (lGot.size() < lText.size())
    {
        lGot += Read(16384, KyPlatform::cInfinite);
    }
    lWriter.join();
    EXPECT_EQ(lGot, lText);
}

TEST_F(SharedFifoWaitTest, ThreadsOfOneProcessShareAFifo)
{
    constexpr uint32_t cEach = 20000;
    std::atomic<uint32_t> lSum{0};
    std::atomic<uint32_t> lCount{0};
    std::vector<std::thread> lThreads;
    for (int lIndex = 0; lIndex < 2; ++lIndex)
    {
        lThreads.emplace_back(
            [&]
            {
                for (uint32_t lByte = 0; lByte < cEach; ++lByte)
                {
                    const auto lValue = static_cast<uint8_t>(lByte);
                    uint32_t lWritten = 0;
                    EXPECT_TRUE(mFifo.Write(&lValue, 1, lWritten, KyPlatform::cInfinite));
                }
            });
        lThreads.emplace_back(
            [&]
            {
                while (lCount < 2 * cEach)
                {
                    uint8_t lBytes[16];
                    uint32_t lRead = 0;
                    mFifo.Read(lBytes, sizeof(lBytes), lRead, 20);
                    for (uint32_t lByte = 0; lByte < lRead; ++lByte)
                    {
                        lSum += lBytes[lByte];
                    }
                    lCount += lRead;
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
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
    std::jthread lReader = Later(
        [this]
        {
            EXPECT_EQ(mWriteEvent.Wait(KyPlatform::cInfinite), KyPlatform::WaitResult::Done);
            char lByte = 0;
            uint32_t lRead = 0;
            EXPECT_TRUE(mOther.Read(&lByte, 1, lRead, 0));
        });
    EXPECT_TRUE(Write(std::string(63, 'x'), KyPlatform::cInfinite));
    lReader.join();
    EXPECT_EQ(mWritten, 63U);
}

TEST_F(SharedFifoWaitTest, ReaderThatSleepsWakesForOneByte)
{
    uint32_t lWritten = 0;
    const auto lWriter = Later([&] { EXPECT_TRUE(mOther.Write("a", 1, lWritten, 0)); });
    EXPECT_EQ(Read(10, KyPlatform::cInfinite), "a");
}

TEST_F(SharedFifoWaitTest, EventThatIsNotTrueDoesNotEndARead)
{
    // Somebody sets the event although there is nothing: no byte may come out of the empty ring.
    const auto lEnemy = SetAgainAndAgain(mWriteEvent);
    EXPECT_GE(KyTest::TimeOf([this] { EXPECT_EQ(Read(10, 60), ""); }), std::chrono::milliseconds(59));
}

TEST_F(SharedFifoWaitTest, EventThatIsNotTrueDoesNotOverwriteAFullRing)
{
    const std::string lFirst = MakeText(63);
    EXPECT_FALSE(Write(lFirst));
    const auto lEnemy = SetAgainAndAgain(mReadEvent);
    EXPECT_FALSE(Write("lost", 60));
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(Read(), lFirst);
}

TEST_F(SharedFifoWaitTest, SleeperFindsBytesWithoutAnEvent)
{
    // As a writer leaves it that dies between the index and the event.
    GetData()[0] = 'z';
    const auto lWriter = Later([this] { std::atomic_ref<uint32_t>(GetHeader().mHeadIndex) = 1; });
    EXPECT_EQ(Read(10, KyPlatform::cInfinite), "z");
}

TEST_F(SharedFifoWaitTest, SleeperFindsRoomWithoutAnEvent)
{
    EXPECT_FALSE(Write(std::string(63, 'x')));
    const auto lReader = Later([this] { std::atomic_ref<uint32_t>(GetHeader().mTailIndex) = 10; });
    EXPECT_TRUE(Write("yy", KyPlatform::cInfinite));
    EXPECT_EQ(Read(), std::string(53, 'x') + "yy");
}

TEST_F(SharedFifoWaitTest, StopEndsARead)
{
    std::atomic<bool> lStop{false};
    const auto lStopper = Later([&lStop] { lStop = true; });
    char lByte = 0;
    uint32_t lRead = 7;
    EXPECT_FALSE(mFifo.Read(&lByte, 1, lRead, KyPlatform::cInfinite, &lStop));
    EXPECT_EQ(lRead, 0U);
    EXPECT_TRUE(Write("a"));
    EXPECT_TRUE(mFifo.Read(&lByte, 1, lRead, KyPlatform::cInfinite, &lStop)); // it only ends waits
}

TEST_F(SharedFifoWaitTest, StopEndsAWriteToAFifoThatNobodyReads)
{
    std::atomic<bool> lStop{false};
    const auto lStopper = Later([&lStop] { lStop = true; });
    const std::string lText = MakeText(100);
    EXPECT_FALSE(mFifo.Write(lText.data(), 100, mWritten, KyPlatform::cInfinite, &lStop));
    EXPECT_EQ(mWritten, 63U);
    EXPECT_EQ(Read(), lText.substr(0, 63));
}

TEST_F(SharedFifoWaitTest, WaitUntilEmptyEndsWhenTheReaderHasTakenTheLastByte)
{
    EXPECT_TRUE(Write("abc"));
    std::thread lReader(
        [this]
        {
            char lByte = 0;
            uint32_t lRead = 0;
            for (int lTurn = 0; lTurn < 3; ++lTurn)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                EXPECT_TRUE(mOther.Read(&lByte, 1, lRead, 0));
            }
        });
    EXPECT_TRUE(mFifo.WaitUntilEmpty(KyPlatform::cInfinite));
    lReader.join();
}

TEST_F(SharedFifoWaitTest, NobodyWaitsLongerThanFiveSecondsForTheLock)
{
    ASSERT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done);
    uint32_t lWritten = 0;
    uint32_t lCount = 7;
    const auto lTime = KyTest::TimeOf(
        [&]
        {
            const std::jthread lWriter([this] { EXPECT_FALSE(mFifo.Write("a", 1, mWritten, 0)); });
            // All of nothing is written.
            const std::jthread lEmpty([&] { EXPECT_TRUE(mFifo.Write("", 0, lWritten, 0)); });
            const std::jthread lReader([this] { EXPECT_EQ(Read(1, 0), ""); });
            const std::jthread lLooker([&] { EXPECT_FALSE(mFifo.GetAvailable(lCount)); });
        });
    EXPECT_EQ(lCount, 0U);
    EXPECT_GE(lTime, std::chrono::milliseconds(4990));
    EXPECT_LT(lTime, std::chrono::milliseconds(15000));
    EXPECT_TRUE(mMutex.Release());
    EXPECT_TRUE(Write("a"));
    EXPECT_EQ(Read(), "a");
}

std::atomic<uint32_t> gTicks{0};

uint32_t GetTicks()
{
    return gTicks;
}

// Takes what there is when something has been written, and at the same time the clock jumps.
class ClockTest : public SharedFifoWaitTest
{
protected:
    std::jthread ReadAt(uint32_t aTicks)
    {
        return std::jthread(
            [this, aTicks]
            {
                EXPECT_EQ(mWriteEvent.Wait(KyPlatform::cInfinite), KyPlatform::WaitResult::Done);
                gTicks = aTicks;
                char lBytes[64];
                uint32_t lRead = 0;
                EXPECT_TRUE(mOther.Read(lBytes, sizeof(lBytes), lRead, 0));
            });
    }
};

TEST_F(ClockTest, WriteThatSpansTheWrapOfTheTickCountStillEnds)
{
    gTicks = 0xFFFFFFF0U;
    TickTimer::SetSource(&GetTicks);
    const std::jthread lReader = ReadAt(5);  // wrapped
    EXPECT_FALSE(Write(MakeText(126), 300)); // fills it twice; the second wait begins after the wrap
    EXPECT_EQ(mWritten, 126U);
}

TEST_F(ClockTest, TimeSpentBeforeAWaitCounts)
{
    gTicks = 1000;
    TickTimer::SetSource(&GetTicks);
    const std::jthread lReader = ReadAt(100000); // far beyond the time-out
    EXPECT_LT(KyTest::TimeOf([this] { EXPECT_FALSE(Write(MakeText(200), 50000)); }),
              std::chrono::seconds(40));
    EXPECT_EQ(mWritten, 126U);
}

TEST(TickTimerTest, CountsUpToItsTimeOut)
{
    gTicks = 100;
    TickTimer::SetSource(&GetTicks);
    TickTimer lTimer(50);
    TickTimer lEndless(0xFFFFFFFFU);
    EXPECT_EQ(lTimer.GetRemaining(), 50U);
    gTicks = 130;
    EXPECT_EQ(lTimer.GetElapsed(), 30U);
    EXPECT_EQ(lTimer.GetRemaining(), 20U);
    gTicks = 151;
    EXPECT_EQ(lTimer.GetRemaining(), 0U);
    EXPECT_EQ(lEndless.GetRemaining(), 0xFFFFFFFFU);
    TickTimer::SetSource(nullptr);
}

TEST(TickTimerTest, StartsAgainAtTheWrap)
{
    gTicks = 0xFFFFFFFEU;
    TickTimer::SetSource(&GetTicks);
    TickTimer lTimer(50);
    gTicks = 3;
    EXPECT_EQ(lTimer.GetElapsed(), 0U);
    EXPECT_EQ(lTimer.GetRemaining(), 50U);
    gTicks = 23;
    EXPECT_EQ(lTimer.GetElapsed(), 20U);
    EXPECT_EQ(lTimer.GetRemaining(), 30U);
    TickTimer::SetSource(nullptr);
}

} // namespace
