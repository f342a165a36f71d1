#include "kyserial/Text/Hex.h"

#include <gtest/gtest.h>

#include <vector>

using namespace KySerialTool;

namespace
{

std::vector<uint8_t> TextBytes(const std::string& aText)
{
    return {aText.begin(), aText.end()};
}

TEST(HexDumpTest, ShowsOffsetNumbersAndCharacters)
{
    HexDump lDump;
    const auto lBytes = TextBytes("ABCDEFGHIJKLMNOP");
    EXPECT_EQ("00000000  41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50  |ABCDEFGHIJKLMNOP|\n",
              lDump.Add(lBytes.data(), lBytes.size()));
}

TEST(HexDumpTest, KeepsAPartOfALineUntilItIsFullOrFlushed)
{
    HexDump lDump;
    const auto lBytes = TextBytes("0123456789");
    EXPECT_EQ("", lDump.Add(lBytes.data(), lBytes.size()));
    EXPECT_EQ("00000000  30 31 32 33 34 35 36 37 38 39 30 31 32 33 34 35  |0123456789012345|\n",
              lDump.Add(lBytes.data(), lBytes.size()));
    EXPECT_EQ("00000010  36 37 38 39                                      |6789|\n", lDump.Flush());
    EXPECT_EQ("", lDump.Flush());
}

TEST(HexDumpTest, GoesOnAfterAFlushWithTheRightOffset)
{
    HexDump lDump;
    const auto lBytes = TextBytes("\r\n");
    lDump.Add(lBytes.data(), lBytes.size());
    lDump.Flush();
    lDump.Add(lBytes.data(), lBytes.size());
    EXPECT_EQ("00000002  0d 0a                                            |..|\n", lDump.Flush());
}

TEST(HexDumpTest, PrintableBytesAreThoseOfAscii)
{
    const uint8_t lBytes[] = {0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF};
    EXPECT_EQ(". ~...", PrintableBytes(lBytes, sizeof(lBytes)));
    EXPECT_EQ("1f 20 7e 7f 80 ff", HexBytes(lBytes, sizeof(lBytes)));
    EXPECT_EQ("", HexBytes(lBytes, 0));
}

} // namespace
