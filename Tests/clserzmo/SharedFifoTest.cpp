#include "Tests/Support/AssertRecorder.h"
#include "Tests/Support/TimeOf.h"
#include "Tests/clserzmo/FifoFixture.h"

#include <algorithm>
#include <deque>
#include <random>
#include <thread>
#include <vector>

using KyPlatform::WaitResult;
using KySerialLib::SharedFifo;
using KyTest::TimeOf;
using std::chrono::milliseconds;

namespace
{

using SharedFifoTest = FifoFixture;

TEST_F(SharedFifoTest, SectionLiesWhereOtherProcessesLookForIt)
{
    EXPECT_TRUE(mMemory.HasSizeOf(1024 + 16));
    std::vector<uint8_t> lExpected(1024 + 16, 0);
    lExpected[1] = 4; // 1024, the lowest byte first
    EXPECT_EQ(std::memcmp(mMemory.GetBase(), lExpected.data(), lExpected.size()), 0);
    GetHeader().mReserved = 0xA5A5A5A5U; // stays as it is
    std::memset(&lExpected[12], 0xA5, 4);
    lExpected[4] = 2; // tail: two were read
    lExpected[8] = 5; // head: five were written
    std::memcpy(&lExpected[16], "abcde", 5);
    EXPECT_TRUE(Write("abcde"));
    EXPECT_EQ(mWritten, 5U);
    EXPECT_EQ(Read(2), "ab");
    EXPECT_EQ(std::memcmp(mMemory.GetBase(), lExpected.data(), lExpected.size()), 0);
    EXPECT_EQ(Read(), "cde");
    EXPECT_EQ(Read(), "");
}

TEST_F(SharedFifoTest, HoldsOneByteLessThanItsCapacity)
{
    EXPECT_GE(TimeOf([this] { EXPECT_FALSE(Write(std::string(1023, 'x'), 60)); }), milliseconds(59));
    EXPECT_EQ(mWritten, 1023U);
    EXPECT_EQ(GetAvailable(), 1023U);
    EXPECT_EQ(Read(), std::string(1023, 'x'));
    EXPECT_FALSE(Write(std::string(5000, 'x'))); // stores what fits
    EXPECT_EQ(mWritten, 1023U);
}

TEST_F(SharedFifoTest, WriteOneBelowFullDoesNotWait)
{
    EXPECT_TRUE(Write(std::string(1022, 'x'), KyPlatform::cInfinite));
}

TEST_F(SharedFifoTest, WriteThatBeginsOnAFullFifoLosesNothing)
{
    const std::string lFirst(1023, 'x');
    EXPECT_FALSE(Write(lFirst));
    EXPECT_FALSE(Write("lost", 20));
    EXPECT_EQ(mWritten, 0U);
    EXPECT_EQ(GetAvailable(), 1023U);
    EXPECT_EQ(Read(), lFirst);
}

TEST_F(SharedFifoTest, WriteOfNothingSucceedsEvenWhenFull)
{
    EXPECT_TRUE(Write(""));
    EXPECT_TRUE(mFifo.Write(nullptr, 0, mWritten, 0));
    EXPECT_FALSE(IsSet(mWriteEvent));
    EXPECT_FALSE(Write(std::string(1023, 'x')));
    EXPECT_TRUE(Write("", KyPlatform::cInfinite));
    EXPECT_EQ(mWritten, 0U);
}

TEST_F(SharedFifoTest, NullDataOrBufferIsRefused)
{
    mWritten = 7;
    EXPECT_FALSE(mFifo.Write(nullptr, 1, mWritten, 0));
    EXPECT_EQ(mWritten, 0U);
    EXPECT_TRUE(Write("a"));
    uint32_t lRead = 7;
    EXPECT_FALSE(mFifo.Read(nullptr, 1, lRead, 0));
    EXPECT_EQ(lRead, 0U);
}

TEST_F(SharedFifoTest, ReadOfAnEmptyFifoWaitsItsTime)
{
    uint32_t lRead = 7;
    char lByte = 0;
    EXPECT_FALSE(mFifo.Read(&lByte, 1, lRead, 0));
    EXPECT_EQ(lRead, 0U);
    for (const uint32_t lTime : {20U, 120U}) // the second is longer than a sleeper goes without a look
    {
        EXPECT_GE(TimeOf([&] { EXPECT_EQ(Read(1, lTime), ""); }), milliseconds(lTime - 1));
    }
}

TEST_F(SharedFifoTest, ReadTakesWhatIsThereAndSetsTheReadEvent)
{
    EXPECT_TRUE(Write("0123456789"));
    EXPECT_FALSE(IsSet(mReadEvent));
    EXPECT_EQ(Read(16384, KyPlatform::cInfinite), "0123456789");
    EXPECT_TRUE(IsSet(mReadEvent));
}

TEST_F(SharedFifoTest, ReadOfSizeZeroTakesOneByte)
{
    EXPECT_TRUE(Write("ab"));
    char lByte = 0;
    uint32_t lRead = 0;
    EXPECT_TRUE(mFifo.Read(&lByte, 0, lRead, 0));
    EXPECT_EQ(lRead, 1U);
    EXPECT_EQ(lByte, 'a');
    EXPECT_EQ(Read(), "b");
}

TEST_F(SharedFifoTest, WriteSetsTheWrittenEventAndOnlyAReaderOfNothingResetsIt)
{
    EXPECT_FALSE(IsSet(mWriteEvent));
    EXPECT_TRUE(Write("ab"));
    EXPECT_TRUE(IsSet(mWriteEvent));
    EXPECT_EQ(Read(), "ab");
    EXPECT_TRUE(IsSet(mWriteEvent));
    EXPECT_EQ(Read(1, 0), ""); // without a wait nothing is reset
    EXPECT_TRUE(IsSet(mWriteEvent));
    EXPECT_EQ(Read(1, 1), "");
    EXPECT_FALSE(IsSet(mWriteEvent));
}

TEST_F(SharedFifoTest, OnlyAWriterThatFillsItResetsTheReadEvent)
{
    EXPECT_TRUE(Write("ab"));
    EXPECT_EQ(Read(), "ab");
    EXPECT_TRUE(Write(std::string(1022, 'x')));
    EXPECT_TRUE(IsSet(mReadEvent));
    EXPECT_FALSE(Write("y"));
    EXPECT_EQ(mWritten, 1U);
    EXPECT_FALSE(IsSet(mReadEvent));
    EXPECT_TRUE(IsSet(mWriteEvent));
}

TEST_F(SharedFifoTest, ContentSurvivesEveryWrap)
{
    std::deque<char> lModel;
    std::mt19937 lRandom(1);
    for (int lTurn = 0; lTurn < 5000; ++lTurn)
    {
        std::string lText(std::uniform_int_distribution<size_t>(0, 1022 - lModel.size())(lRandom), '\0');
        std::generate(lText.begin(), lText.end(), [&lRandom] { return static_cast<char>(lRandom()); });
        ASSERT_TRUE(Write(lText));
        lModel.insert(lModel.end(), lText.begin(), lText.end());
        ASSERT_EQ(GetAvailable(), lModel.size());
        const auto lWanted = std::uniform_int_distribution<uint32_t>(1, 1200)(lRandom);
        const std::string lGot = Read(lWanted);
        ASSERT_EQ(lGot.size(), std::min<size_t>(lWanted, lModel.size()));
        ASSERT_TRUE(std::equal(lGot.begin(), lGot.end(), lModel.begin()));
        lModel.erase(lModel.begin(), lModel.begin() + static_cast<std::ptrdiff_t>(lGot.size()));
    }
}

TEST_F(SharedFifoTest, SecondOpenerTakesTheSectionAsItIs)
{
    SharedFifo lSecond(mName, mPrefix, 10, true);
    SharedFifo lThird(mName, mPrefix, 0, false);
    const std::string lText(500, 'x');
    uint32_t lWritten = 0;
    EXPECT_TRUE(lSecond.Write(lText.data(), 500, lWritten, 0));
    EXPECT_TRUE(lThird.Write(lText.data(), 500, lWritten, 0));
    EXPECT_EQ(Read().size(), 1000U);
    EXPECT_EQ(GetHeader().mSize, 1024U);
}

TEST_F(SharedFifoTest, ClearOfAValidFifoDoesNothing)
{
    EXPECT_TRUE(Write("abc"));
    EXPECT_FALSE(mFifo.Clear());
    EXPECT_EQ(Read(), "abc");
}

TEST_F(SharedFifoTest, WaitUntilEmptySeesAnEmptyFifo)
{
    EXPECT_TRUE(mFifo.WaitUntilEmpty(0));
    EXPECT_TRUE(mFifo.WaitUntilEmpty(KyPlatform::cInfinite));
    EXPECT_TRUE(Write("abc"));
    EXPECT_EQ(Read(), "abc");
    EXPECT_TRUE(mFifo.WaitUntilEmpty(0));
}

TEST_F(SharedFifoTest, WaitUntilEmptyGivesUpAfterItsTime)
{
    EXPECT_TRUE(Write("abc"));
    EXPECT_EQ(Read(1), "a"); // the read event is set now, which must not count as empty
    EXPECT_GE(TimeOf([this] { EXPECT_FALSE(mFifo.WaitUntilEmpty(60)); }), milliseconds(59));
    EXPECT_FALSE(mFifo.WaitUntilEmpty(0));
}

TEST_F(SharedFifoTest, SmallestRingsWork)
{
    SharedFifo lTwo(mName + "Two", mPrefix, 2, true);
    uint32_t lCount = 0;
    EXPECT_FALSE(lTwo.Write("ab", 2, lCount, 0));
    EXPECT_EQ(lCount, 1U);
    SharedFifo lOne(mName + "One", mPrefix, 1, true); // never has room
    EXPECT_FALSE(lOne.Write("a", 1, lCount, 20));
    EXPECT_EQ(lCount, 0U);
    char lByte = 0;
    EXPECT_FALSE(lOne.Read(&lByte, 1, lCount, 20));
    SharedFifo lNone(mName + "None", mPrefix, 0, true);
    EXPECT_FALSE(lNone.Write("a", 1, lCount, 0));
    EXPECT_FALSE(lNone.Read(&lByte, 1, lCount, 0));
    EXPECT_FALSE(lNone.GetAvailable(lCount));
}

/// What all operations of an invalid FIFO have in common.
void ExpectRefusal(SharedFifo& aFifo)
{
    EXPECT_FALSE(aFifo.IsValid());
    uint32_t lCounts[] = {7, 7, 7};
    char lByte = 'a';
    EXPECT_FALSE(aFifo.Write(&lByte, 1, lCounts[0], KyPlatform::cInfinite));
    EXPECT_FALSE(aFifo.Read(&lByte, 1, lCounts[1], KyPlatform::cInfinite));
    EXPECT_FALSE(aFifo.GetAvailable(lCounts[2]));
    EXPECT_EQ(lCounts[0] + lCounts[1] + lCounts[2], 0U);
    EXPECT_FALSE(aFifo.Clear());
    EXPECT_FALSE(aFifo.WaitUntilEmpty(KyPlatform::cInfinite));
}

TEST(SharedFifoOpenTest, NothingIsMadeWithoutTheCreateFlag)
{
    KyTest::AssertRecorder lAsserts;
    const std::string lName = UniqueName("KyFifo");
    SharedFifo lFifo(lName, "Local\\", 1024, false);
    ExpectRefusal(lFifo);
    const std::vector<std::string> lExpected = {
        "( ( mMutex != 0 ) && ( mMutex != ((HANDLE)(LONG_PTR)-1) ) )",
        "( ( mDataWrittenEvent != 0 ) && ( mDataWrittenEvent != ((HANDLE)(LONG_PTR)-1) ) )",
        "( ( mDataReadEvent != 0 ) && ( mDataReadEvent != ((HANDLE)(LONG_PTR)-1) ) )"};
    EXPECT_EQ(lAsserts.Take(), JxUtilsLib::cAssertionsEnabled ? lExpected : std::vector<std::string>());
    KyPlatform::NamedMutex lMutex;
    EXPECT_FALSE(lMutex.Open("Local\\" + lName + "Mutex"));
}

TEST(SharedFifoOpenTest, MissingSectionLeavesItInvalid)
{
    const std::string lName = "Local\\" + UniqueName("KyFifo");
    KyPlatform::NamedMutex lMutex;
    KyPlatform::NamedEvent lWritten;
    KyPlatform::NamedEvent lRead;
    ASSERT_TRUE(lMutex.Create(lName + "Mutex"));
    ASSERT_TRUE(lWritten.Create(lName + "WriteEvent"));
    ASSERT_TRUE(lRead.Create(lName + "ReadEvent"));
    SharedFifo lFifo(lName.substr(6), "Local\\", 1024, false);
    ExpectRefusal(lFifo);
    EXPECT_EQ(lMutex.Wait(0), KyPlatform::WaitResult::Done); // nobody has kept it
    EXPECT_TRUE(lMutex.Release());
}

TEST(SharedFifoOpenTest, ClearEmptiesAnInvalidFifoThatHasItsSection)
{
    KyTest::AssertRecorder lAsserts;
    const std::string lName = "Local\\" + UniqueName("KyFifo");
    KyPlatform::NamedMutex lMutex;
    KyPlatform::SharedMemory lMemory;
    bool lNew = false;
    ASSERT_TRUE(lMutex.Create(lName + "Mutex"));
    ASSERT_TRUE(lMemory.Create(lName + "Memory", 32, lNew));
    auto* const lHeader = static_cast<KySerialLib::SharedFifoHeader*>(lMemory.GetBase());
    *lHeader = {16, 3, 5, 9};
    SharedFifo lFifo(lName.substr(6), "Local\\", 16, false); // without events
    EXPECT_FALSE(lFifo.IsValid());
    EXPECT_TRUE(lFifo.Clear());
    EXPECT_EQ(lHeader->mTailIndex, 0U);
    EXPECT_EQ(lHeader->mHeadIndex, 0U);
    EXPECT_EQ(lHeader->mSize, 16U);
    EXPECT_EQ(lHeader->mReserved, 9U);
}

TEST_F(SharedFifoTest, NextOwnerOfADeadThreadsLockSetsTheEventsThatAreTrueAndNoOther)
{
    // A mapping for each: the sanitizer does not see that the FIFO's own frees the lock of another.
    std::deque<KyPlatform::NamedMutex> lDead;
    const auto lDie = [&]
    {
        KyPlatform::NamedMutex& lMutex = lDead.emplace_back();
        ASSERT_TRUE(lMutex.Open(mPrefix + mName + "Mutex"));
        std::thread([&] { EXPECT_EQ(lMutex.Wait(5000), WaitResult::Done); }).join();
    };
    lDie();
    EXPECT_EQ(GetAvailable(), 0U);
    EXPECT_FALSE(IsSet(mWriteEvent)); // empty
    EXPECT_TRUE(IsSet(mReadEvent));

    EXPECT_TRUE(Write("abc"));
    EXPECT_TRUE(mWriteEvent.Reset());
    lDie();
    EXPECT_EQ(GetAvailable(), 3U);
    EXPECT_TRUE(IsSet(mWriteEvent));

    EXPECT_FALSE(Write(std::string(1020, 'x')));
    EXPECT_TRUE(mReadEvent.Reset());
    lDie();
    EXPECT_EQ(GetAvailable(), 1023U);
    EXPECT_FALSE(IsSet(mReadEvent)); // full
}

TEST(SharedFifoOpenTest, EverythingIsGoneWithTheLastHolder)
{
    const std::string lName = UniqueName("KyFifo");
    uint32_t lCount = 0;
    {
        SharedFifo lFifo(lName, "Local\\", 64, true);
        EXPECT_TRUE(lFifo.Write("abc", 3, lCount, 0));
    }
    SharedFifo lFifo(lName, "Local\\", 128, true);
    EXPECT_TRUE(lFifo.GetAvailable(lCount));
    EXPECT_EQ(lCount, 0U);
    KyPlatform::SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Open("Local\\" + lName + "Memory"));
    EXPECT_TRUE(lMemory.HasSizeOf(128 + 16));
}

} // namespace
