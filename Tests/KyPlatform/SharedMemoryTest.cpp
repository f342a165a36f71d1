#include "KyPlatform/SharedMemory.h"
#include "Tests/KyPlatform/NamedObjectTest.h"

#include <algorithm>
#include <cstring>

using KyPlatform::SharedMemory;

namespace
{

INSTANTIATE_TYPED_TEST_SUITE_P(SharedMemory, NamedObjectTest, SharedMemory);

class SharedMemoryTest : public testing::Test
{
protected:
    static uint8_t* GetBytes(const SharedMemory& aMemory) { return static_cast<uint8_t*>(aMemory.GetBase()); }

    const std::string mName = "Local\\" + UniqueName("KyMemory");
    bool mNew = false;
};

TEST_F(SharedMemoryTest, IsZeroWhenNew)
{
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create(mName, 11008, mNew));
    EXPECT_TRUE(mNew);
    EXPECT_EQ(lMemory.GetSize(), 11008U);
    const uint8_t* const lBytes = GetBytes(lMemory);
    EXPECT_EQ(std::count(lBytes, lBytes + 11008, 0), 11008);
}

TEST_F(SharedMemoryTest, HoldersSeeTheSameBytes)
{
    SharedMemory lFirst;
    SharedMemory lSecond;
    ASSERT_TRUE(lFirst.Create(mName, 1040, mNew));
    ASSERT_TRUE(lSecond.Open(mName));
    GetBytes(lFirst)[0] = 1;
    GetBytes(lFirst)[1039] = 2;
    EXPECT_EQ(GetBytes(lSecond)[0], 1);
    EXPECT_EQ(GetBytes(lSecond)[1039], 2);
}

TEST_F(SharedMemoryTest, ExistingOneIsTakenAsItIs)
{
    SharedMemory lFirst;
    SharedMemory lSecond;
    ASSERT_TRUE(lFirst.Create(mName, 5000, mNew));
    GetBytes(lFirst)[4999] = 7;
    ASSERT_TRUE(lSecond.Create(mName, 100, mNew));
    EXPECT_FALSE(mNew);
    EXPECT_GE(lSecond.GetSize(), 5000U);
    EXPECT_EQ(GetBytes(lSecond)[4999], 7);
}

TEST_F(SharedMemoryTest, ReportsTheSizeItWasMadeWith)
{
    SharedMemory lFirst;
    SharedMemory lSecond;
    ASSERT_TRUE(lFirst.Create(mName, 5000, mNew));
    ASSERT_TRUE(lSecond.Open(mName));
    for (const SharedMemory* const lMemory : {&lFirst, &lSecond})
    {
        EXPECT_TRUE(lMemory->HasSizeOf(5000));
        EXPECT_FALSE(lMemory->HasSizeOf(0));
        EXPECT_FALSE(lMemory->HasSizeOf(4096));
        EXPECT_FALSE(lMemory->HasSizeOf(8193));
        EXPECT_FALSE(lMemory->HasSizeOf(0x100000000ULL + 15));
    }
}

TEST_F(SharedMemoryTest, ContentsGoWithTheLastHolder)
{
    {
        SharedMemory lMemory;
        ASSERT_TRUE(lMemory.Create(mName, 100, mNew));
        GetBytes(lMemory)[5] = 9;
    }
    SharedMemory lMemory;
    ASSERT_TRUE(lMemory.Create(mName, 100, mNew));
    EXPECT_TRUE(mNew);
    EXPECT_EQ(GetBytes(lMemory)[5], 0);
}

TEST_F(SharedMemoryTest, SizeThatCannotBeIsRefused)
{
    SharedMemory lMemory;
    for (const uint64_t lSize : {uint64_t{0}, ~uint64_t{0}, uint64_t{1} << 62})
    {
        mNew = true;
        EXPECT_FALSE(lMemory.Create(mName, lSize, mNew));
        EXPECT_FALSE(mNew);
        EXPECT_FALSE(lMemory.IsValid());
        EXPECT_EQ(lMemory.GetBase(), nullptr);
        EXPECT_EQ(lMemory.GetSize(), 0U);
        EXPECT_FALSE(lMemory.HasSizeOf(0));
    }
}

} // namespace
