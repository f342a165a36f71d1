#include "Tests/Support/AssertRecorder.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"

#include <algorithm>
#include <deque>
#include <random>
#include <utility>
#include <vector>

using KyPlatform::cInfinite;
using KySerialLib::SharedFifo;
using KyTest::DeadOwner;
using KyTest::TextFifo;
using KyTest::TimeOf;
using std::chrono::milliseconds;

namespace
{

using SharedFifoTest = FifoFixture;

TEST_F(SharedFifoTest, SectionLiesWhereOtherProcessesLookForIt)
{
    EXPECT_TRUE(mRing.HasCapacity(1024));
    std::vector<uint8_t> lExpected(1024 + 16, 0);
    lExpected[1] = 4; // 1024, the lowest byte first
    EXPECT_EQ(std::memcmp(mRing.GetBytes(), lExpected.data(), lExpected.size()), 0);
    GetHeader().mReserved = 0xA5A5A5A5U; // stays as it is
    std::memset(&lExpected[12], 0xA5, 4);
    lExpected[4] = 2; // tail: two were read
    lExpected[8] = 5; // head: five were written
    std::memcpy(&lExpected[16], "abcde", 5);
    EXPECT_TRUE(mFifo.Write("abcde"));
    EXPECT_EQ(mFifo.GetWritten(), 5U);
    EXPECT_EQ(mFifo.Read(2), "ab");
    EXPECT_EQ(std::memcmp(mRing.GetBytes(), lExpected.data(), lExpected.size()), 0);
    EXPECT_EQ(mFifo.Read(), "cde");
    EXPECT_EQ(mFifo.Read(), "");
}

TEST_F(SharedFifoTest, WriteStoresWhatFitsBelowItsCapacity)
{
    constexpr struct
    {
        const char* mCase;
        uint32_t mWaiting;
        uint32_t mSize;
        uint32_t mTimeout;
        bool mDone;
        uint32_t mStored;
    } cCases[] = {{"one below full does not wait", 0, 1022, cInfinite, true, 1022},
                  {"full waits for the reader", 0, 1023, 60, false, 1023},
                  {"more than fits", 0, 5000, 0, false, 1023},
                  {"on a full one", 1023, 4, 20, false, 0},
                  {"nothing", 0, 0, 0, true, 0},
                  {"nothing, on a full one", 1023, 0, cInfinite, true, 0}};
    for (const auto& lCase : cCases)
    {
        SCOPED_TRACE(lCase.mCase);
        const std::string lWaiting(lCase.mWaiting, 'w');
        const std::string lText(lCase.mSize, 'x');
        EXPECT_EQ(mFifo.Write(lWaiting), lCase.mWaiting < 1023);
        const auto lTime = TimeOf([&] { EXPECT_EQ(mFifo.Write(lText, lCase.mTimeout), lCase.mDone); });
        EXPECT_GE(lTime, milliseconds(lCase.mDone || lCase.mTimeout == 0 ? 0 : lCase.mTimeout - 1));
        EXPECT_EQ(mFifo.GetWritten(), lCase.mStored);
        EXPECT_EQ(mFifo.CountAvailable(), lCase.mWaiting + lCase.mStored);
        EXPECT_EQ(mFifo.Read(), lWaiting + lText.substr(0, lCase.mStored));
    }
}

TEST_F(SharedFifoTest, NullDataOrBufferIsRefused)
{
    uint32_t lCount = 7;
    EXPECT_FALSE(mFifo.Write(nullptr, 1, lCount, 0));
    EXPECT_EQ(lCount, 0U);
    EXPECT_TRUE(mFifo.Write(nullptr, 0, lCount, 0));
    EXPECT_FALSE(IsSet(mWriteEvent));
    EXPECT_TRUE(mFifo.Write("a"));
    lCount = 7;
    EXPECT_FALSE(mFifo.Read(nullptr, 1, lCount, 0));
    EXPECT_EQ(lCount, 0U);
}

TEST_F(SharedFifoTest, ReadOfAnEmptyFifoWaitsItsTime)
{
    for (const uint32_t lTime : {0U, 20U, 120U}) // the last is longer than a sleeper goes without a look
    {
        EXPECT_GE(TimeOf([&] { EXPECT_EQ(mFifo.Read(1, lTime), ""); }),
                  milliseconds(lTime) - milliseconds(1));
    }
}

TEST_F(SharedFifoTest, ReadOfSizeZeroTakesOneByte)
{
    EXPECT_TRUE(mFifo.Write("ab"));
    char lByte = 0;
    uint32_t lRead = 0;
    EXPECT_TRUE(mFifo.Read(&lByte, 0, lRead, 0));
    EXPECT_EQ(lRead, 1U);
    EXPECT_EQ(lByte, 'a');
    EXPECT_EQ(mFifo.Read(), "b");
}

TEST_F(SharedFifoTest, TransfersSetTheEventsAndOnlyWaitsOfFullAndEmptyOnesResetThem)
{
    ExpectEvents(false, false);
    EXPECT_TRUE(mFifo.Write("0123456789"));
    ExpectEvents(true, false);
    EXPECT_EQ(mFifo.Read(16384, cInfinite), "0123456789");
    ExpectEvents(true, true);
    EXPECT_EQ(mFifo.Read(1, 0), ""); // without a wait nothing is reset
    ExpectEvents(true, true);
    EXPECT_EQ(mFifo.Read(1, 1), "");
    ExpectEvents(false, true);
    EXPECT_TRUE(mFifo.Write(std::string(1022, 'x')));
    ExpectEvents(true, true);
    EXPECT_FALSE(mFifo.Write("y")); // fills it
    EXPECT_EQ(mFifo.GetWritten(), 1U);
    ExpectEvents(true, false);
}

TEST_F(SharedFifoTest, ContentSurvivesEveryWrap)
{
    std::string lModel;
    std::mt19937 lRandom(1);
    for (int lTurn = 0; lTurn < 5000; ++lTurn)
    {
        std::string lText(std::uniform_int_distribution<size_t>(0, 1022 - lModel.size())(lRandom), '\0');
        std::generate(lText.begin(), lText.end(), [&lRandom] { return static_cast<char>(lRandom()); });
        ASSERT_TRUE(mFifo.Write(lText));
        lModel += lText;
        ASSERT_EQ(mFifo.CountAvailable(), lModel.size());
        const auto lWanted = std::uniform_int_distribution<uint32_t>(1, 1200)(lRandom);
        ASSERT_EQ(mFifo.Read(lWanted), lModel.substr(0, lWanted));
        lModel.erase(0, lWanted);
    }
}

TEST_F(SharedFifoTest, SecondOpenerTakesTheSectionAsItIs)
{
    TextFifo lSecond(mName, 10, true);
    TextFifo lThird(mName, 0, false);
    EXPECT_TRUE(lSecond.Write(std::string(500, 'x')));
    EXPECT_TRUE(lThird.Write(std::string(500, 'x')));
    EXPECT_EQ(mFifo.Read().size(), 1000U);
    EXPECT_EQ(GetHeader().mSize, 1024U);
}

TEST_F(SharedFifoTest, WaitUntilEmptySeesAnEmptyFifoAndGivesUpAfterItsTime)
{
    EXPECT_TRUE(mFifo.WaitUntilEmpty(0));
    EXPECT_TRUE(mFifo.WaitUntilEmpty(cInfinite));
    EXPECT_TRUE(mFifo.Write("abc"));
    EXPECT_EQ(mFifo.Read(1), "a"); // the read event is set now, which must not count as empty
    EXPECT_GE(TimeOf([this] { EXPECT_FALSE(mFifo.WaitUntilEmpty(60)); }), milliseconds(59));
    EXPECT_FALSE(mFifo.WaitUntilEmpty(0));
    EXPECT_EQ(mFifo.Read(), "bc");
    EXPECT_TRUE(mFifo.WaitUntilEmpty(0));
}

TEST_F(SharedFifoTest, SmallestRingsWork)
{
    for (const auto& [lCapacity, lStored] : {std::pair(2U, 1U), std::pair(1U, 0U), std::pair(0U, 0U)})
    {
        SCOPED_TRACE(lCapacity);
        TextFifo lFifo(mName + "Small", lCapacity);
        EXPECT_FALSE(lFifo.Write("ab", 20));
        EXPECT_EQ(lFifo.GetWritten(), lStored);
        KyPlatform::NamedEvent lWriteEvent;
        ASSERT_TRUE(lWriteEvent.Open("Local\\" + mName + "SmallWriteEvent"));
        EXPECT_EQ(IsSet(lWriteEvent), lStored != 0);
        EXPECT_EQ(lFifo.Read(1, 20), std::string("ab", lStored));
        uint32_t lCount = 7;
        EXPECT_EQ(lFifo.GetAvailable(lCount), lCapacity != 0);
        EXPECT_EQ(lCount, 0U);
    }
}

TEST_F(SharedFifoTest, NextOwnerOfADeadThreadsLockSetsTheEventsThatAreTrueAndNoOther)
{
    const DeadOwner lFirst(mName + "Mutex");
    EXPECT_EQ(mFifo.CountAvailable(), 0U);
    ExpectEvents(false, true); // empty

    EXPECT_TRUE(mFifo.Write("abc"));
    EXPECT_TRUE(mWriteEvent.Reset());
    const DeadOwner lSecond(mName + "Mutex");
    EXPECT_EQ(mFifo.CountAvailable(), 3U);
    ExpectEvents(true, true);

    EXPECT_FALSE(mFifo.Write(std::string(1020, 'x')));
    EXPECT_TRUE(mReadEvent.Reset());
    const DeadOwner lThird(mName + "Mutex");
    EXPECT_EQ(mFifo.CountAvailable(), 1023U);
    ExpectEvents(true, false); // full
}

/// A name of which no FIFO is there, and what a test makes of one by hand.
class SharedFifoOpenTest : public testing::Test
{
protected:
    /// What all operations of an invalid FIFO have in common.
    static void ExpectRefusal(SharedFifo& aFifo)
    {
        EXPECT_FALSE(aFifo.IsValid());
        uint32_t lCounts[] = {7, 7, 7};
        char lByte = 'a';
        EXPECT_FALSE(aFifo.Write(&lByte, 1, lCounts[0], cInfinite));
        EXPECT_FALSE(aFifo.Read(&lByte, 1, lCounts[1], cInfinite));
        EXPECT_FALSE(aFifo.GetAvailable(lCounts[2]));
        EXPECT_EQ(lCounts[0] + lCounts[1] + lCounts[2], 0U);
        EXPECT_FALSE(aFifo.Clear());
        EXPECT_FALSE(aFifo.WaitUntilEmpty(cInfinite));
    }

    KyTest::AssertRecorder mAsserts;
    const std::string mName = UniqueName("KyFifo");
    const std::string mPath = "Local\\" + mName;
    KyPlatform::NamedMutex mMutex;
    KyPlatform::NamedEvent mWritten;
    KyPlatform::NamedEvent mRead;
    KyPlatform::SharedMemory mMemory;
};

TEST_F(SharedFifoOpenTest, NothingIsMadeWithoutTheCreateFlag)
{
    TextFifo lFifo(mName, 1024, false);
    ExpectRefusal(lFifo);
    EXPECT_EQ(
        mAsserts.Take(),
        KyTest::Broken({"( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )",
                        "( ( mDataWrittenEvent != 0 ) && ( mDataWrittenEvent != ((HANDLE)(LONG_PTR)-1) ) )",
                        "( ( mDataReadEvent != 0 ) && ( mDataReadEvent != ((HANDLE)(LONG_PTR)-1) ) )"}));
    EXPECT_FALSE(mMutex.Open(mPath + "Mutex"));
}

TEST_F(SharedFifoOpenTest, MissingSectionLeavesItInvalid)
{
    ASSERT_TRUE(mMutex.Create(mPath + "Mutex"));
    ASSERT_TRUE(mWritten.Create(mPath + "WriteEvent"));
    ASSERT_TRUE(mRead.Create(mPath + "ReadEvent"));
    TextFifo lFifo(mName, 1024, false);
    ExpectRefusal(lFifo);
    EXPECT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done); // nobody has kept it
    EXPECT_TRUE(mMutex.Release());
    EXPECT_EQ(mAsserts.Take(), std::vector<std::string>());
}

TEST_F(SharedFifoOpenTest, ClearEmptiesAnInvalidFifoThatHasItsSection)
{
    bool lNew = false;
    ASSERT_TRUE(mMutex.Create(mPath + "Mutex"));
    ASSERT_TRUE(mMemory.Create(mPath + "Memory", 32, lNew));
    auto* const lHeader = static_cast<KySerialLib::SharedFifoHeader*>(mMemory.GetBase());
    *lHeader = {16, 3, 5, 9};
    TextFifo lFifo(mName, 16, false); // without events
    EXPECT_FALSE(lFifo.IsValid());
    EXPECT_TRUE(lFifo.Clear());
    EXPECT_EQ(lHeader->mTailIndex, 0U);
    EXPECT_EQ(lHeader->mHeadIndex, 0U);
    EXPECT_EQ(lHeader->mSize, 16U);
    EXPECT_EQ(lHeader->mReserved, 9U);
}

TEST_F(SharedFifoOpenTest, EverythingIsGoneWithTheLastHolder)
{
    EXPECT_TRUE(TextFifo(mName, 64).Write("abc"));
    TextFifo lFifo(mName, 128);
    EXPECT_EQ(lFifo.CountAvailable(), 0U);
    EXPECT_TRUE(KyTest::RingView(mName).HasCapacity(128));
}

} // namespace
