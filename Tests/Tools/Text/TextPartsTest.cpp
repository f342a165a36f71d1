#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/Output.h"
#include "kyserial/Text/TomlText.h"

#include <gtest/gtest.h>

using namespace KySerialTool;

namespace
{

TEST(NumberTest, TakesDecimalAndHexadecimalNumbersUpToTheMaximum)
{
    EXPECT_EQ(0U, ParseNumber("0", 10));
    EXPECT_EQ(10U, ParseNumber("10", 10));
    EXPECT_EQ(0x7FU, ParseNumber("0x7f", 0x7F));
    EXPECT_EQ(0x7FU, ParseNumber("0X7F", 0x7F));
}

TEST(NumberTest, RefusesEverythingElse)
{
    for (const char* const lText :
         {"", "11", "-1", "+1", " 1", "1 ", "0x", "0xg", "1x", "99999999999999999999"})
    {
        EXPECT_FALSE(ParseNumber(lText, 10).has_value()) << lText;
    }
}

TEST(PortNameTest, NamesGoBothWays)
{
    for (const KyDeviceSerial lPort : cPorts)
    {
        EXPECT_EQ(lPort, ParsePortName(PortName(lPort)));
    }
    EXPECT_EQ("uart0", PortName(KyDeviceSerialUart0));
    EXPECT_EQ("bulk0", PortName(KyDeviceSerialBulk0));
    EXPECT_EQ("bulk7", PortName(KyDeviceSerialBulk7));
    EXPECT_EQ("none", PortName(KyDeviceSerialInvalid));
}

TEST(PortNameTest, OtherTextsAreNoPorts)
{
    for (const char* const lText : {"", "uart", "uart2", "bulk8", "bulk", "BULK0", "uart0 ", "none", "0"})
    {
        EXPECT_FALSE(ParsePortName(lText).has_value()) << lText;
    }
}

TEST(PortNameTest, BulkIndexIsThatOfFeatureNames)
{
    EXPECT_FALSE(IsBulk(KyDeviceSerialUart1));
    EXPECT_TRUE(IsBulk(KyDeviceSerialBulk0));
    EXPECT_EQ(0, BulkIndex(KyDeviceSerialBulk0));
    EXPECT_EQ(7, BulkIndex(KyDeviceSerialBulk7));
}

TEST(TableTest, ColumnsAreAsWideAsTheirWidestCell)
{
    Table lTable({"A", "LONG", "B"});
    lTable.Add({"wide cell", "x", "y"});
    lTable.Add({"", "z"});
    EXPECT_EQ("A          LONG  B\n"
              "wide cell  x     y\n"
              "           z\n",
              lTable.Text());
}

TEST(FailureTest, NamesCodesAndDescribesThem)
{
    EXPECT_EQ("TIMED_OUT", ResultText(KyResult(KyResult::TIMED_OUT)));
    EXPECT_EQ("FAILURE: The port is in use.", ResultText(KyResult(KyResult::FAILURE, "The port is in use.")));
    EXPECT_EQ("0x8F01: Nobody is there.", ResultText(KyResult(0x8F01, "Nobody is there.")));
}

TEST(FailureTest, CheckThrowsOnlyForFailures)
{
    EXPECT_NO_THROW(Check(KyResult(KyResult::OK), "opening"));
    try
    {
        Check(KyResult(KyResult::UNSUPPORTED), "opening");
        FAIL() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_STREQ("opening: UNSUPPORTED", lError.what());
    }
}

TEST(TomlTextTest, FindsCharactersThatTheParserMustNotSee)
{
    for (const char* const lGood : {"", "a = 1", "a = \"\xC3\xBC\" # \xC3\xBC\n", "a = '\xC3\xBC'",
                                    "\xEF\xBB\xBF[a]", "a = \"\\\"\xC3\xBC\"", "a = '''\n\xC3\xBC''''' # '",
                                    "a = \"\"\"\n\xC3\xBC\\\"\"\"\xC3\xBC\"\"\"", "a = \"\"\nb = ''"})
    {
        EXPECT_EQ(std::nullopt, FindStrayCharacter(lGood)) << lGood;
    }
    EXPECT_EQ(1U, FindStrayCharacter("\xC3\xBC = 1"));
    EXPECT_EQ(2U, FindStrayCharacter("a = \"b\"\n\xC7\x97"));
    EXPECT_EQ(3U, FindStrayCharacter("a = '''\n'''\n\xC7\x97"));
    EXPECT_EQ(1U, FindStrayCharacter("a = \"\\\\\"\xC7\x97"));
}

} // namespace
