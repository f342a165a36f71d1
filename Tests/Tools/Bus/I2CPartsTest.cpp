#include "kyserial/Bus/I2CText.h"
#include "kyserial/Text/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using namespace KySerialTool;
using testing::HasSubstr;

namespace
{

using Bytes = std::vector<uint8_t>;

/// The text of the UsageError that aCall throws.
std::string UsageErrorOf(const std::function<void()>& aCall)
{
    try
    {
        aCall();
        return "nothing was thrown";
    }
    catch (const UsageError& lError)
    {
        return lError.what();
    }
}

TEST(I2CSyntaxTest, AddressesOfSlavesAreTaken)
{
    EXPECT_EQ(0x08, ParseI2CAddress("0x08", false));
    EXPECT_EQ(0x77, ParseI2CAddress("0x77", false));
    EXPECT_EQ(80, ParseI2CAddress("80", false));
}

TEST(I2CSyntaxTest, ReservedAddressesNeedAll)
{
    for (const char* const lText : {"0x00", "0x07", "0x78", "0x7f"})
    {
        EXPECT_EQ('"' + std::string(lText) +
                      "\" is no I2C address; use 0x08 to 0x77, or -a for the reserved ones",
                  UsageErrorOf([&] { ParseI2CAddress(lText, false); }));
        EXPECT_NO_THROW(ParseI2CAddress(lText, true));
    }
}

TEST(I2CSyntaxTest, OtherTextsAreNoAddressesAtAll)
{
    for (const char* const lText : {"0x80", "256", "x", "", "-1"})
    {
        EXPECT_EQ('"' + std::string(lText) + "\" is no I2C address; use 0x08 to 0x77",
                  UsageErrorOf([&] { ParseI2CAddress(lText, true); }));
    }
}

TEST(I2CSyntaxTest, RangesHaveTwoEndsInOrder)
{
    EXPECT_EQ((std::pair<uint8_t, uint8_t>(0, 0xFF)), ParseI2CRange("0-0xff"));
    EXPECT_EQ((std::pair<uint8_t, uint8_t>(7, 7)), ParseI2CRange("7-7"));
    for (const char* const lText : {"", "5", "8-7", "0-256", "-", "0x00-", "a-b"})
    {
        EXPECT_THAT(UsageErrorOf([&] { ParseI2CRange(lText); }), HasSubstr("use FIRST-LAST")) << lText;
    }
}

TEST(I2CSyntaxTest, MessagesHaveDirectionLengthAddressAndBytes)
{
    const std::vector<I2CMessage> lMessages =
        ParseI2CMessages({"w2@0x50", "0x10", "255", "r16", "r1@0x48"}, false);
    ASSERT_EQ(3U, lMessages.size());
    EXPECT_FALSE(lMessages[0].mRead);
    EXPECT_EQ(0x50, lMessages[0].mAddress);
    EXPECT_EQ((Bytes{0x10, 0xFF}), lMessages[0].mBytes);
    EXPECT_TRUE(lMessages[1].mRead);
    EXPECT_EQ(16U, lMessages[1].mCount);
    EXPECT_EQ(0x50, lMessages[1].mAddress) << "that of the message before";
    EXPECT_EQ(0x48, lMessages[2].mAddress);
}

TEST(I2CSyntaxTest, TheLastByteCanFillAWrite)
{
    EXPECT_EQ((Bytes{1, 7, 7, 7}), ParseI2CMessages({"w4@0x50", "1", "7="}, false)[0].mBytes);
    EXPECT_EQ((Bytes{0xFE, 0xFF, 0x00}), ParseI2CMessages({"w3@0x50", "0xfe+"}, false)[0].mBytes);
    EXPECT_EQ((Bytes{1, 0, 0xFF}), ParseI2CMessages({"w3@0x50", "1-"}, false)[0].mBytes);
    EXPECT_EQ((Bytes{0x00, 0x28, 0x40}), ParseI2CMessages({"w3@0x50", "0p"}, false)[0].mBytes);
    EXPECT_TRUE(ParseI2CMessages({"w0@0x50"}, false)[0].mBytes.empty());
}

TEST(I2CSyntaxTest, WrongMessagesSayWhatWouldHaveBeenRight)
{
    using Words = std::vector<std::string>;
    const auto lErrorOf = [](const Words& aWords)
    { return UsageErrorOf([&] { ParseI2CMessages(aWords, false); }); };
    EXPECT_THAT(lErrorOf({"x2@0x50"}), HasSubstr("use rLENGTH@ADDRESS or wLENGTH@ADDRESS BYTE..."));
    EXPECT_THAT(lErrorOf({"r"}), HasSubstr("is no message"));
    EXPECT_THAT(lErrorOf({""}), HasSubstr("is no message"));
    EXPECT_THAT(lErrorOf({"@0x50"}), HasSubstr("is no message"));
    EXPECT_THAT(lErrorOf({"r70000@0x50"}), HasSubstr("is no message"));
    EXPECT_EQ("\"r1\" has no address; use r1@0x50 for example", lErrorOf({"r1"}));
    EXPECT_THAT(lErrorOf({"r1@0x03"}), HasSubstr("is no I2C address"));
    EXPECT_THAT(lErrorOf({"w2@0x50", "1"}), HasSubstr("a write of 2 bytes has only 1"));
    EXPECT_EQ("\"0x100\" is no byte; use 0x00 to 0xff", lErrorOf({"w1@0x50", "0x100"}));
}

TEST(I2CTablesTest, DetectTableHasTheLayoutOfI2CDetect)
{
    I2CAnswers lAnswers;
    for (size_t lAddress = 0x08; lAddress <= 0x77; ++lAddress)
    {
        lAnswers.at(lAddress) = lAddress == 0x48;
    }
    const std::string lRow = "-- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n";
    EXPECT_EQ("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
              "00:                         -- -- -- -- -- -- -- -- \n"
              "10: " +
                  lRow + "20: " + lRow + "30: " + lRow +
                  "40: -- -- -- -- -- -- -- -- 48 -- -- -- -- -- -- -- \n"
                  "50: " +
                  lRow + "60: " + lRow + "70: -- -- -- -- -- -- -- --                         \n",
              DetectTable(lAnswers));
}

TEST(I2CTablesTest, DumpOfBytesHasTheLayoutOfI2CDump)
{
    DumpValues lValues;
    lValues.at(0x1E) = 0x41;
    lValues.at(0x1F) = 0xFF;
    lValues.at(0x20) = 0x01;
    EXPECT_EQ("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n"
              "10:                                           41 ff                  A.\n"
              "20: 01 XX                                              ?X              \n",
              DumpBytesTable(lValues, {0x1E, 0x21}));
}

TEST(I2CTablesTest, DumpOfWordsHasTheLayoutOfI2CDump)
{
    DumpValues lValues;
    lValues.at(1) = 0x1234;
    EXPECT_EQ("     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n"
              "00: XXXX 1234                               \n",
              DumpWordsTable(lValues, {0, 1}));
}

} // namespace
