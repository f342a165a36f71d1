#include "kyserial/Bus/FlashMemory.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/Output.h"

#include <gtest/gtest.h>

using namespace KySerialTool;

namespace
{

using Bytes = std::vector<uint8_t>;

TEST(HexInputTest, TakesWordsOfWholeBytes)
{
    EXPECT_EQ((Bytes{0x9F}), ParseHexBytes({"9f"}));
    EXPECT_EQ((Bytes{0x03, 0x00, 0x10}), ParseHexBytes({"03 00 10"}));
    EXPECT_EQ((Bytes{0x03, 0x00, 0x10}), ParseHexBytes({"0x0300", "10"}));
    EXPECT_EQ(Bytes(), ParseHexBytes({}));
}

TEST(HexInputTest, RefusesEverythingElse)
{
    for (const char* const lText : {"9", "9g", "0x", "123", "-1", "+1", "zz"})
    {
        EXPECT_FALSE(ParseHexBytes({lText}).has_value()) << lText;
    }
}

TEST(ProgressTest, BarFollowsTheTransfer)
{
    EXPECT_EQ("writing    [                    ]   0%", Progress::Text("writing", 0, 200));
    EXPECT_EQ("writing    [##########          ]  50%", Progress::Text("writing", 100, 200));
    EXPECT_EQ("writing    [####################] 100%", Progress::Text("writing", 200, 200));
}

TEST(ProgressTest, BarStaysWithinItsEnds)
{
    EXPECT_EQ("writing    [####################] 100%", Progress::Text("writing", 300, 200));
    EXPECT_EQ("writing    [####################] 100%", Progress::Text("writing", 0, 0));
}

TEST(FlashMemoryTest, CapacityIsAPowerOfTwo)
{
    EXPECT_EQ(65536U, FlashMemory::SizeOf({0xEF, 0x30, 0x10}));
    EXPECT_EQ(16777216U, FlashMemory::SizeOf({0xEF, 0x40, 0x18}));
    EXPECT_EQ(1048576U, FlashMemory::SizeOf({0xBF, 0x25, 0x8E}))
        << "from the table: the last byte is no power of two";
    EXPECT_EQ(0U, FlashMemory::SizeOf({0xEF, 0x40, 0xFF})) << "no number of address bits";
    EXPECT_EQ(0U, FlashMemory::SizeOf({0xEF, 0x40, 0x00}));
}

} // namespace
