#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using namespace KyTest;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

using Words = std::vector<std::string>;

/// Runs "kyserial i2c" with aWords on the bus of the simulated camera, without questions.
ToolResult RunI2C(const Words& aWords, const std::string& aInput = {})
{
    Words lWords = {"i2c"};
    lWords.insert(lWords.end(), aWords.begin(), aWords.end());
    lWords.insert(lWords.end(), {"-y", "--port", "bulk2", "--retries", "1000"});
    return RunTool(lWords, aInput);
}

void ExpectOutput(const std::string& aOutput, const Words& aWords)
{
    const ToolResult lResult = RunI2C(aWords);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ(aOutput, lResult.mOutput);
    EXPECT_EQ("", lResult.mError);
}

TEST(I2CProcessTest, DetectShowsTheSensorAndTheEeprom)
{
    const std::string lRow = "-- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n";
    ExpectOutput("     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
                 "00:                         -- -- -- -- -- -- -- -- \n"
                 "10: " +
                     lRow + "20: " + lRow + "30: " + lRow +
                     "40: -- -- -- -- -- -- -- -- 48 -- -- -- -- -- -- -- \n"
                     "50: 50 -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                     "60: " +
                     lRow + "70: -- -- -- -- -- -- -- --                         \n",
                 {"detect"});
}

TEST(I2CProcessTest, AsksBeforeGoingAheadAndTakesNoForAnAnswer)
{
    const Words lCommand = {"i2c", "get", "--retries", "1000", "--port", "bulk2", "0x48"};
    const ToolResult lYes = RunTool(lCommand, "\n");
    EXPECT_EQ("0x19\n", lYes.mOutput);
    EXPECT_THAT(lYes.mError, HasSubstr("Continue? [Y/n] "));
    for (const char* const lAnswer : {"n\n", "", "what\n"})
    {
        const ToolResult lNo = RunTool(lCommand, lAnswer);
        EXPECT_EQ(0, lNo.mStatus);
        EXPECT_EQ("", lNo.mOutput);
        EXPECT_THAT(lNo.mError, HasSubstr("Aborting on user request.\n"));
    }
}

class EepromProcessTest : public testing::Test
{
protected:
    ~EepromProcessTest() override
    {
        std::remove(mState.c_str());
        std::remove(mFile.c_str());
    }

    const std::string mState = Process::TemporaryFile(".state");
    const std::string mFile = Process::TemporaryFile(".bin");
};

TEST_F(EepromProcessTest, WritesAFileVerifiesItAndReadsItBack)
{
    std::string lText;
    for (int lByte = 0; lByte < 256; ++lByte)
    {
        lText += static_cast<char>(lByte ^ 0x5A);
    }
    ASSERT_TRUE(WriteFile(mFile, lText));
    const ToolResult lWrite = RunI2C({"eeprom", "write", mFile, "--sim-state", mState});
    EXPECT_EQ(0, lWrite.mStatus);
    EXPECT_EQ("wrote and verified 256 bytes\n", lWrite.mError) << "no progress bar in a file";

    const ToolResult lRead = RunI2C({"eeprom", "read", "-", "--sim-state", mState});
    EXPECT_EQ(0, lRead.mStatus);
    EXPECT_TRUE(lText == lRead.mOutput);

    EXPECT_EQ(0, RunI2C({"eeprom", "read", mFile, "--offset", "250", "--sim-state", mState}).mStatus);
    EXPECT_EQ(lText.substr(250), ReadFile(mFile));
}

TEST_F(EepromProcessTest, TakesTheStandardInputToo)
{
    EXPECT_EQ(0,
              RunI2C({"eeprom", "write", "-", "--quiet", "--offset", "0x10", "--sim-state", mState}, "hello")
                  .mStatus);
    EXPECT_EQ("0x68 0x65\n", RunI2C({"get", "0x50", "0x10", "i", "2", "--sim-state", mState}).mOutput);
}

TEST_F(EepromProcessTest, FileThatIsTooLargeIsAUsageErrorAndWritesNothing)
{
    const ToolResult lResult = RunI2C({"eeprom", "write", "-", "--offset", "250"}, "1234567");
    EXPECT_EQ(2, lResult.mStatus);
    EXPECT_EQ("kyserial: - has more than 6 bytes, which is all that the memory takes there\n",
              lResult.mError);
}

TEST_F(EepromProcessTest, ChangeWithoutATerminalNeedsYes)
{
    const ToolResult lResult = RunTool({"i2c", "eeprom", "write", "-", "--port", "bulk2"}, "hello");
    EXPECT_EQ(2, lResult.mStatus);
    EXPECT_EQ("kyserial: this writes 5 bytes into the EEPROM at 0x50 on bulk2; give -y, since there is no "
              "terminal to "
              "ask on\n",
              lResult.mError);
}

TEST_F(EepromProcessTest, MissingFilesAndMemoriesAreFailures)
{
    EXPECT_EQ("kyserial: cannot read " + mFile + ": No such file or directory\n",
              RunI2C({"eeprom", "write", mFile}).mError);
    const ToolResult lResult = RunI2C({"eeprom", "read", "-", "--address", "0x51"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError, StartsWith("kyserial: reading from 0x51 on bulk2 failed: "));
}

} // namespace
