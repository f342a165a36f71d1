#include "kyserial/Bus/FlashChips.h"

#include <gtest/gtest.h>

namespace
{

using KySerialTool::FindFlashChip;
using KySerialTool::FlashChip;
using KySerialTool::FlashMemory;

TEST(FlashChipsTest, AnIdentityNamesTheChip)
{
    const FlashChip* const lChip = FindFlashChip({0xEF, 0x40, 0x18});
    ASSERT_NE(nullptr, lChip);
    EXPECT_STREQ("W25Q128", lChip->mName);
    EXPECT_EQ(size_t{16} << 20U, lChip->mSize);
}

// Two to the power of the third byte would be one byte.
TEST(FlashChipsTest, TheTablesSizeGoesBeforeTheOneThatTheIdentitySays)
{
    const FlashMemory::Identity lIdentity = {0x1F, 0x47, 0x00};
    const FlashChip* const lChip = FindFlashChip(lIdentity);
    ASSERT_NE(nullptr, lChip);
    EXPECT_EQ(size_t{4} << 20U, lChip->mSize);
    EXPECT_EQ(lChip->mSize, FlashMemory::SizeOf(lIdentity));
}

TEST(FlashChipsTest, NoChipHasPartOfAnIdentity)
{
    EXPECT_EQ(nullptr, FindFlashChip({0xEF, 0x40, 0x00}));
    EXPECT_EQ(nullptr, FindFlashChip({0xEE, 0x40, 0x18}));
    EXPECT_EQ(nullptr, FindFlashChip({0xFF, 0xFF, 0xFF})); // of a bus that nobody drives
}

} // namespace
