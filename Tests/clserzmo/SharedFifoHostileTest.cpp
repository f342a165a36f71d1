#include "Tests/Support/Repeater.h"
#include "Tests/clserzmo/FifoFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <random>
#include <thread>
#include <vector>

using KySerialLib::SharedFifo;
using KySerialLib::SharedFifoHeader;

namespace
{

constexpr uint32_t cCapacity = 4096 - 16; // the section ends where its page ends
constexpr std::array<uint32_t, 8> cWords = {0,           1,           cCapacity - 1, cCapacity, cCapacity + 1,
                                            0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU};

/// A section that an enemy writes to.
class SharedFifoHostileTest : public FifoFixture
{
protected:
    SharedFifoHostileTest() : FifoFixture(cCapacity)
    {
        for (uint32_t lIndex = 0; lIndex < cCapacity; ++lIndex)
        {
            GetData()[lIndex] = static_cast<uint8_t>(lIndex * 31);
        }
    }

    std::vector<uint8_t> GetSection() const
    {
        const auto* const lBase = static_cast<const uint8_t*>(mMemory.GetBase());
        return {lBase, lBase + cCapacity + 16};
    }

    static bool IsSound(const SharedFifoHeader& aHeader)
    {
        return aHeader.mSize == cCapacity && aHeader.mTailIndex < cCapacity && aHeader.mHeadIndex < cCapacity;
    }
    static uint32_t GetUsed(const SharedFifoHeader& aHeader)
    {
        return (aHeader.mHeadIndex + cCapacity - aHeader.mTailIndex) % cCapacity;
    }

    /// Runs aOperation(header) for every combination of words; it has to restore nothing.
    template<typename tOperation>
    void ForEveryHeader(tOperation aOperation)
    {
        const std::vector<uint8_t> lFresh = GetSection();
        for (size_t lCode = 0; lCode < cWords.size() * cWords.size() * cWords.size() * cWords.size(); ++lCode)
        {
            const SharedFifoHeader lHeader = {cWords[lCode % 8], cWords[lCode / 8 % 8],
                                              cWords[lCode / 64 % 8], cWords[lCode / 512]};
            std::memcpy(mMemory.GetBase(), lFresh.data(), lFresh.size());
            GetHeader() = lHeader;
            const std::vector<uint8_t> lBefore = GetSection();
            const bool lDone = aOperation(lHeader);
            const bool lSame = lBefore == GetSection();
            ASSERT_TRUE(IsSound(lHeader) || (!lDone && lSame))
                << std::hex << lHeader.mSize << ' ' << lHeader.mTailIndex << ' ' << lHeader.mHeadIndex;
            ASSERT_EQ(mMutex.Wait(0), KyPlatform::WaitResult::Done); // nobody keeps the lock
            ASSERT_TRUE(mMutex.Release());
        }
        std::memcpy(mMemory.GetBase(), lFresh.data(), lFresh.size());
        EXPECT_TRUE(Write("alive"));
        EXPECT_EQ(Read(), "alive");
    }
};

TEST_F(SharedFifoHostileTest, WriteRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            const bool lDone = Write("ab", 0);
            const bool lRoom = IsSound(aHeader) && GetUsed(aHeader) < cCapacity - 3;
            EXPECT_EQ(lDone, lRoom);
            EXPECT_LE(mWritten, IsSound(aHeader) ? cCapacity - 1 - GetUsed(aHeader) : 0U);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, WriteOfNothingRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            const bool lDone = Write("", 0);
            EXPECT_EQ(lDone, IsSound(aHeader));
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, ReadRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            std::vector<uint8_t> lBuffer(16384, 0xEE);
            uint32_t lRead = 7;
            const bool lDone = mFifo.Read(lBuffer.data(), 16384, lRead, 0);
            const uint32_t lExpected = IsSound(aHeader) ? GetUsed(aHeader) : 0;
            EXPECT_EQ(lRead, lExpected);
            for (uint32_t lIndex = 0; lIndex < lExpected; ++lIndex)
            {
                EXPECT_EQ(lBuffer[lIndex],
                          static_cast<uint8_t>((aHeader.mTailIndex + lIndex) % cCapacity * 31));
            }
            EXPECT_EQ(std::count(lBuffer.begin() + lExpected, lBuffer.end(), 0xEE), 16384 - lExpected);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, GetAvailableRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            uint32_t lCount = 7;
            const bool lDone = mFifo.GetAvailable(lCount);
            EXPECT_EQ(lDone, IsSound(aHeader));
            EXPECT_EQ(lCount, IsSound(aHeader) ? GetUsed(aHeader) : 0U);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, WaitUntilEmptyRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            const bool lDone = mFifo.WaitUntilEmpty(0);
            EXPECT_EQ(lDone, IsSound(aHeader) && aHeader.mHeadIndex == aHeader.mTailIndex);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, ClearChangesNothingUnderAnyHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader&)
        {
            const std::vector<uint8_t> lBefore = GetSection();
            const bool lDone = mFifo.Clear();
            EXPECT_EQ(lBefore, GetSection());
            EXPECT_FALSE(lDone);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, OpenerSurvivesEveryBadHeader)
{
    ForEveryHeader(
        [this](const SharedFifoHeader& aHeader)
        {
            SharedFifo lFifo(mName, mPrefix, cCapacity, true);
            EXPECT_TRUE(lFifo.IsValid());
            uint32_t lCount = 0;
            const bool lDone = lFifo.GetAvailable(lCount);
            // Where the system rounds sizes up an opener cannot recognise all wrong ones.
            EXPECT_TRUE(lDone == IsSound(aHeader) || mMemory.HasSizeOf(uint64_t{aHeader.mSize} + 16));
            return lDone && IsSound(aHeader);
        });
}

TEST_F(SharedFifoHostileTest, SleepersEndWhenTheHeaderGoesBad)
{
    std::thread lEnemy(
        [this]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            std::atomic_ref<uint32_t>(GetHeader().mSize) = 0;
        });
    EXPECT_EQ(Read(10, KyPlatform::cInfinite), "");
    lEnemy.join();
}

TEST(SharedFifoSectionTest, SectionOfTheWrongSizeIsRefused)
{
    for (const uint32_t lSize : {1U, 4U, 15U, 16U, 17U, 100U, 16384U})
    {
        for (const uint32_t lClaim : {0U, 1U, 20000U, 0xFFFFFFF0U})
        {
            const std::string lName = UniqueName("KyFifo");
            KyPlatform::SharedMemory lMemory;
            bool lNew = false;
            ASSERT_TRUE(lMemory.Create("Local\\" + lName + "Memory", lSize, lNew));
            std::memcpy(lMemory.GetBase(), &lClaim, std::min<size_t>(sizeof(lClaim), lSize));
            SharedFifo lFifo(lName, "Local\\", 1024, true);
            uint32_t lCount = 0;
            char lByte = 0;
            uint32_t lWord = 0;
            std::memcpy(&lWord, lMemory.GetBase(), std::min<size_t>(sizeof(lWord), lSize));
            if (lMemory.HasSizeOf(uint64_t{lWord} + 16) && lWord != 0)
            {
                continue; // where sizes are rounded up to pages it looks right, and is inside the page
            }
            EXPECT_FALSE(lFifo.GetAvailable(lCount)) << lSize << ' ' << lClaim;
            EXPECT_EQ(lCount, 0U);
            EXPECT_FALSE(lFifo.Write("a", 1, lCount, 0));
            EXPECT_FALSE(lFifo.Read(&lByte, 1, lCount, 0));
        }
    }
}

TEST_F(SharedFifoHostileTest, EnemyThatWritesWithoutTheLockHarmsNobody)
{
    std::mt19937 lSource(7);
    const auto lRandom = [&lSource](uint32_t aBelow) { return static_cast<uint32_t>(lSource() % aBelow); };
    const std::array<uint32_t*, 3> lWords = {&GetHeader().mSize, &GetHeader().mTailIndex,
                                             &GetHeader().mHeadIndex};
    std::optional<KyTest::Repeater> lEnemy(
        [&]
        {
            const uint32_t lWord = lRandom(3);
            uint32_t lValue = lRandom(4) == 0 ? cWords[lRandom(8)] : lRandom(cCapacity + 2);
            lValue = lWord == 0 && lRandom(2) == 0 ? cCapacity : lValue;
            std::atomic_ref<uint32_t>(*lWords[lWord]).store(lValue);
        });
    std::vector<uint8_t> lBuffer(16384 + 64, 0xEE);
    for (int lTurn = 0; lTurn < 20000; ++lTurn)
    {
        uint32_t lCount = 0;
        mFifo.Write(lBuffer.data(), 300, lCount, 0);
        ASSERT_LE(lCount, 300U);
        mFifo.Read(lBuffer.data(), 16384, lCount, 0);
        ASSERT_LT(lCount, cCapacity);
        mFifo.GetAvailable(lCount);
        ASSERT_LT(lCount, cCapacity);
    }
    lEnemy.reset();
    EXPECT_EQ(std::count(lBuffer.begin() + 16384, lBuffer.end(), 0xEE), 64);
    GetHeader() = {cCapacity, 0, 0, 0};
    EXPECT_TRUE(Write("alive"));
    EXPECT_EQ(Read(), "alive");
}

} // namespace
