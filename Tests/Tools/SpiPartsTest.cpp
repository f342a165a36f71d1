#include "kyserial/Bus/FlashMemory.h"
#include "kyserial/Bus/SpiBus.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/Output.h"

#include <gtest/gtest.h>

using namespace KySerialTool;

namespace
{

using Bytes = std::vector<uint8_t>;
using Steps = std::vector<SpiStep>;

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

TEST(SplitSpiTransferTest, SmallTransfersAreOneStep)
{
    EXPECT_EQ((Steps{{1, 3}}), SplitSpiTransfer(1, 3, false, 255));
    EXPECT_EQ((Steps{{255, 255}}), SplitSpiTransfer(255, 255, false, 255));
    EXPECT_EQ((Steps{{0, 5}}), SplitSpiTransfer(0, 5, false, 255));
    EXPECT_EQ((Steps{{5, 5}}), SplitSpiTransfer(5, 0, true, 255));
}

TEST(SplitSpiTransferTest, WritesComeBeforeReads)
{
    EXPECT_EQ((Steps{{255, 0}, {5, 255}, {0, 45}}), SplitSpiTransfer(260, 300, false, 255));
    EXPECT_EQ((Steps{{10, 0}, {10, 0}}), SplitSpiTransfer(20, 0, false, 10));
}

TEST(SplitSpiTransferTest, SimultaneousStepsReadWhatTheyWrite)
{
    EXPECT_EQ((Steps{{255, 255}, {1, 1}}), SplitSpiTransfer(256, 0, true, 255));
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

TEST(VerifyTest, NamesTheFirstDifference)
{
    EXPECT_NO_THROW(Verify({1, 2, 3}, {1, 2, 3}, 0));
    try
    {
        Verify({1, 2, 3}, {1, 0xFF, 0xFF}, 0x100);
        FAIL() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_STREQ("verification failed at 0x0101: wrote 0x02, read 0xff", lError.what());
    }
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
