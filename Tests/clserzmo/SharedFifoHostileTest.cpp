#include "Tests/Support/Repeater.h"
#include "Tests/clserzmo/FifoFixture.h"

#include <algorithm>
#include <array>
#include <optional>
#include <random>
#include <vector>

using KySerialLib::SharedFifoHeader;
using KyTest::TextFifo;

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
        std::generate_n(GetData(), cCapacity,
                        [lByte = 0]() mutable { return static_cast<uint8_t>(31 * lByte++); });
    }

    std::vector<uint8_t> GetSection() const { return {mRing.GetBytes(), mRing.GetBytes() + cCapacity + 16}; }

    /// Runs aOperation(whether the header makes sense, bytes waiting then) for every combination of words; it need
    /// not restore anything. Under a header that makes no sense it has to fail and change nothing.
    template<typename tOperation>
    void ForEveryHeader(tOperation aOperation)
    {
        const std::vector<uint8_t> lFresh = GetSection();
        for (size_t lCode = 0; lCode < cWords.size() * cWords.size() * cWords.size() * cWords.size(); ++lCode)
        {
            const SharedFifoHeader lHeader = {cWords[lCode % 8], cWords[lCode / 8 % 8],
                                              cWords[lCode / 64 % 8], cWords[lCode / 512]};
            const bool lIsSound = lHeader.mSize == cCapacity && lHeader.mTailIndex < cCapacity &&
                                  lHeader.mHeadIndex < cCapacity;
            const uint32_t lUsed = (lHeader.mHeadIndex + cCapacity - lHeader.mTailIndex) % cCapacity;
            std::memcpy(mRing.GetBytes(), lFresh.data(), lFresh.size());
            GetHeader() = lHeader;
            const std::vector<uint8_t> lBefore = GetSection();
            const bool lDone = aOperation(lIsSound, lIsSound ? lUsed : 0);
            ASSERT_TRUE(lIsSound || (!lDone && lBefore == GetSection()))
                << std::hex << lHeader.mSize << ' ' << lHeader.mTailIndex << ' ' << lHeader.mHeadIndex;
        }
        std::memcpy(mRing.GetBytes(), lFresh.data(), lFresh.size());
        std::thread([this] { ExpectAlive(); }).join(); // no operation has kept the lock in this thread
    }
};

TEST_F(SharedFifoHostileTest, WriteRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](bool aIsSound, uint32_t aUsed)
        {
            const bool lDone = mFifo.Write("ab");
            EXPECT_EQ(lDone, aIsSound && aUsed < cCapacity - 3);
            EXPECT_LE(mFifo.GetWritten(), aIsSound ? cCapacity - 1 - aUsed : 0U);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, ReadRefusesEveryBadHeader)
{
    ForEveryHeader(
        [this](bool, uint32_t aUsed)
        {
            const uint32_t lTail = GetHeader().mTailIndex;
            std::vector<uint8_t> lBuffer(16384, 0xEE);
            uint32_t lRead = 7;
            const bool lDone = mFifo.Read(lBuffer.data(), 16384, lRead, 0);
            EXPECT_EQ(lRead, aUsed);
            for (uint32_t lIndex = 0; lIndex < aUsed; ++lIndex)
            {
                EXPECT_EQ(lBuffer[lIndex], static_cast<uint8_t>((lTail + lIndex) % cCapacity * 31));
            }
            EXPECT_EQ(std::count(lBuffer.begin() + aUsed, lBuffer.end(), 0xEE), 16384 - aUsed);
            return lDone;
        });
}

TEST_F(SharedFifoHostileTest, OperationsThatMoveNoBytesRefuseEveryBadHeader)
{
    ForEveryHeader(
        [this](bool aIsSound, uint32_t aUsed)
        {
            const std::vector<uint8_t> lBefore = GetSection();
            EXPECT_EQ(mFifo.Write(""), aIsSound);
            uint32_t lCount = 7;
            EXPECT_EQ(mFifo.GetAvailable(lCount), aIsSound);
            EXPECT_EQ(lCount, aUsed);
            EXPECT_EQ(mFifo.WaitUntilEmpty(0), aIsSound && aUsed == 0);
            EXPECT_FALSE(mFifo.Clear());
            EXPECT_EQ(lBefore, GetSection());
            return false;
        });
}

TEST_F(SharedFifoHostileTest, OpenerSurvivesEveryBadHeader)
{
    ForEveryHeader(
        [this](bool aIsSound, uint32_t)
        {
            const uint64_t lSize = GetHeader().mSize;
            TextFifo lFifo(mName, cCapacity);
            EXPECT_TRUE(lFifo.IsValid());
            uint32_t lCount = 0;
            const bool lDone = lFifo.GetAvailable(lCount);
            // Where the system rounds sizes up an opener cannot recognise all wrong ones.
            EXPECT_TRUE(lDone == aIsSound || mRing.HasCapacity(lSize));
            return lDone && aIsSound;
        });
}

TEST_F(SharedFifoHostileTest, SleepersEndWhenTheHeaderGoesBad)
{
    const std::jthread lEnemy(
        [this]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            std::atomic_ref<uint32_t>(GetHeader().mSize) = 0;
        });
    EXPECT_EQ(mFifo.Read(10, KyPlatform::cInfinite), "");
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
            TextFifo lFifo(lName);
            uint32_t lWord = 0;
            std::memcpy(&lWord, lMemory.GetBase(), std::min<size_t>(sizeof(lWord), lSize));
            if (lMemory.HasSizeOf(uint64_t{lWord} + 16) && lWord != 0)
            {
                continue; // where sizes are rounded up to pages it looks right, and is inside the page
            }
            uint32_t lCount = 7;
            EXPECT_FALSE(lFifo.GetAvailable(lCount)) << lSize << ' ' << lClaim;
            EXPECT_EQ(lCount, 0U);
            EXPECT_FALSE(lFifo.Write("a"));
            EXPECT_EQ(lFifo.Read(1), "");
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
    ExpectAlive();
}

} // namespace
