#include "Tests/Support/Repeater.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"
#include "TickTimer.h"

#include <algorithm>

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

    KyTest::TextFifo mOther{mName, 64, false};
    std::atomic<bool> mStop{false};
};

TEST_F(SharedFifoWaitTest, ThreadsOfOneProcessShareAFifo)
{
    const std::string lText = MakeText(20000);
    std::string lGot[2];
    std::atomic<size_t> lCount{0};
    const auto lWrite = [&] { EXPECT_TRUE(mFifo.Write(lText, cInfinite)); };
    const auto lRead = [&](std::string& aGot)
    {
        while (lCount < 2 * lText.size())
        {
            const std::string lPart = mFifo.Read(16, 20);
            aGot += lPart;
            lCount += lPart.size();
        }
    };
    {
        const std::jthread lThreads[] = {std::jthread(lWrite), std::jthread(lWrite),
                                         std::jthread(lRead, std::ref(lGot[0])),
                                         std::jthread(lRead, std::ref(lGot[1]))};
    }
    std::string lAll = lGot[0] + lGot[1];
    std::string lExpected = lText + lText;
    std::sort(lAll.begin(), lAll.end()); // in any order
    std::sort(lExpected.begin(), lExpected.end());
    EXPECT_EQ(lAll, lExpected);
}

TEST_F(SharedFifoWaitTest, WriteThatFillsItReturnsWhenTheReaderHasTakenSomething)
{
    const auto lReader = ReadOnceWritten(1, [] { std::this_thread::sleep_for(milliseconds(20)); });
    EXPECT_TRUE(mFifo.Write(std::string(63, 'x'), cInfinite));
    EXPECT_EQ(mFifo.GetWritten(), 63U);
}

TEST_F(SharedFifoWaitTest, EventsThatAreNotTrueEndNoWait)
{
    const std::string lFirst = MakeText(63);
    EXPECT_FALSE(mFifo.Write(lFirst));
    const KyTest::Repeater lEnemy(
        [this]
        {
            EXPECT_TRUE(mReadEvent.Set() && mWriteEvent.Set());
            std::this_thread::sleep_for(milliseconds(1));
        });
    EXPECT_FALSE(mFifo.Write("lost", 60)); // no byte may go into the full ring
    EXPECT_EQ(mFifo.GetWritten(), 0U);
    EXPECT_EQ(mFifo.Read(), lFirst);
    EXPECT_GE(TimeOf([this] { EXPECT_EQ(mFifo.Read(10, 60), ""); }),
              milliseconds(59)); // nor out of the empty
}

TEST_F(SharedFifoWaitTest, SleeperFindsBytesOrRoomWithoutAnEvent)
{
    for (const bool lLocked : {false, true})
    {
        SCOPED_TRACE(lLocked);
        GetHeader() = {64, 0, 0, 0};
        *GetData() = 'z';
        const auto lWriter = MoveLater(GetHeader().mHeadIndex, 1, lLocked);
        EXPECT_EQ(mFifo.Read(10, cInfinite), "z");
        EXPECT_TRUE(IsSet(mReadEvent));
        EXPECT_FALSE(mFifo.Write(std::string(63, 'x')));
        const auto lReader = MoveLater(GetHeader().mTailIndex, 10, lLocked);
        EXPECT_TRUE(mFifo.Write("yy", cInfinite));
        EXPECT_EQ(mFifo.Read(), std::string(53, 'x') + "yy");
    }
}

TEST_F(SharedFifoWaitTest, StopEndsWaitsOnly)
{
    const std::string lText = MakeText(100);
    const auto lReadStopper = Later([this] { mStop = true; });
    EXPECT_EQ(mFifo.Read(1, cInfinite, &mStop), "");
    mStop = false;
    const auto lWriteStopper = Later([this] { mStop = true; });
    EXPECT_FALSE(mFifo.Write(lText, cInfinite, &mStop)); // nobody reads
    EXPECT_EQ(mFifo.GetWritten(), 63U);
    EXPECT_EQ(mFifo.Read(64, cInfinite, &mStop), lText.substr(0, 63)); // needs no wait
}

TEST_F(SharedFifoWaitTest, WaitUntilEmptyEndsWhenTheReaderHasTakenTheLastByte)
{
    EXPECT_TRUE(mFifo.Write("abc"));
    const auto lReader = Later(
        [this]
        {
            EXPECT_EQ(mOther.Read(2), "ab");
            EXPECT_EQ(mOther.Read(), "c");
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

TEST_F(ClockTest, WriteEndsAtTheWrapOfTheTickCountAndCountsTheTimeBeforeAWait)
{
    constexpr struct
    {
        uint32_t mBegin;
        uint32_t mSecondWait; // when it begins
        size_t mSize;
        uint32_t mTimeout;
    } cCases[] = {{0xFFFFFFF0U, 5, 126, 300}, {1000, 100000, 200, 50000}};
    for (const auto& lCase : cCases)
    {
        sTicks = lCase.mBegin;
        EXPECT_TRUE(mWriteEvent.Reset());
        const auto lReader = ReadOnceWritten(64, [&] { sTicks = lCase.mSecondWait; });
        const std::string lText = MakeText(lCase.mSize);
        EXPECT_LT(TimeOf([&] { EXPECT_FALSE(mFifo.Write(lText, lCase.mTimeout)); }),
                  std::chrono::seconds(40));
        EXPECT_EQ(mFifo.GetWritten(), 126U); // fills it twice
        EXPECT_EQ(mFifo.Read(), lText.substr(63, 63));
    }
}

TEST_F(ClockTest, TimerCountsUpToItsTimeOutAndStartsAgainAtTheWrap)
{
    sTicks = 100;
    TickTimer lTimer(50);
    TickTimer lEndless(cInfinite);
    constexpr struct
    {
        uint32_t mTicks;
        uint32_t mElapsed;
        uint32_t mRemaining;
    } cLooks[] = {{100, 0, 50}, {130, 30, 20}, {151, 51, 0}, {3, 0, 50}, {23, 20, 30}};
    for (const auto& lLook : cLooks)
    {
        sTicks = lLook.mTicks;
        EXPECT_EQ(lTimer.GetElapsed(), lLook.mElapsed) << lLook.mTicks;
        EXPECT_EQ(lTimer.GetRemaining(), lLook.mRemaining) << lLook.mTicks;
        EXPECT_EQ(lEndless.GetRemaining(), cInfinite) << lLook.mTicks;
    }
}

} // namespace
