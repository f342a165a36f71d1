#include "ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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

TEST(I2CProcessTest, DetectTakesARangeAndGivesJson)
{
    const ToolResult lResult = RunI2C({"detect", "0x40", "0x4f", "--json"});
    EXPECT_EQ(0, lResult.mStatus);
    const nlohmann::json lExpected = {{"port", "bulk2"}, {"addresses", {0x48}}};
    EXPECT_EQ(lExpected, nlohmann::json::parse(lResult.mOutput));
    EXPECT_THAT(RunI2C({"detect", "-q", "--fast"}).mOutput, HasSubstr("50: 50 -- "));
}

TEST(I2CProcessTest, DetectWorksThroughTheRegistersOfBulk0Too)
{
    const ToolResult lResult =
        RunTool({"i2c", "detect", "-y", "--port", "bulk0", "--retries", "1000", "0x48", "0x50", "--json"});
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    EXPECT_EQ("{\"port\":\"bulk0\",\"addresses\":[72,80]}\n", lResult.mOutput);
}

TEST(I2CProcessTest, GetReadsRegisters)
{
    ExpectOutput("0x19\n", {"get", "0x48"});
    ExpectOutput("0x4b\n", {"get", "0x48", "2"});
    ExpectOutput("0x4b\n", {"get", "0x48", "2", "c"});
    ExpectOutput("0x0050\n", {"get", "0x48", "0x03", "w"});
    ExpectOutput("0x50 0x00\n", {"get", "0x48", "3", "i", "2"});
}

TEST(I2CProcessTest, GetRefusesWhatMakesNoSense)
{
    const std::string lPort = "bulk2";
    ExpectUsageError({"i2c", "get", "-y", "-p", lPort, "0x03"},
                     "kyserial: \"0x03\" is no I2C address; use 0x08 to 0x77, or -a for the reserved ones");
    ExpectUsageError({"i2c", "get", "-y", "-p", lPort, "0x80"},
                     "kyserial: \"0x80\" is no I2C address; use 0x08 to 0x77");
    ExpectUsageError({"i2c", "get", "-y", "-p", lPort, "0x48", "256"},
                     "kyserial: \"256\" is no register; use 0x00 to 0xff");
    ExpectUsageError(
        {"i2c", "get", "-y", "-p", lPort, "0x48", "0", "q"},
        "kyserial: \"q\" is no mode; use b (byte), w (word), c (write byte, read byte) or i (block)");
}

TEST(I2CProcessTest, SlaveThatDoesNotAnswerIsAFailure)
{
    const ToolResult lResult = RunI2C({"get", "0x49"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError, StartsWith("kyserial: reading from 0x49 on bulk2 failed: "));
}

TEST(I2CProcessTest, SetWritesAndReadsBack)
{
    ExpectOutput("", {"set", "0x48", "1", "0x03"});
    ExpectOutput("Value 0x03 written, readback matched\n", {"set", "0x48", "1", "0x03", "-r"});
    ExpectOutput("Value 0x8012 written, readback matched\n", {"set", "0x48", "3", "0x8012", "w", "-r"});
    ExpectOutput("", {"set", "0x48", "1", "c"});
    ExpectOutput("", {"set", "0x50", "0", "1", "2", "3", "i"});
}

TEST(I2CProcessTest, SetWithAMaskKeepsTheOtherBits)
{
    // The register holds 0x4b: its lower half stays.
    ExpectOutput("Value 0x3b written, readback matched\n",
                 {"set", "0x48", "2", "0x35", "b", "-r", "-m", "0xf0"});
}

TEST(I2CProcessTest, SetTellsWhenTheRegisterReadsOtherwise)
{
    const ToolResult lResult =
        RunI2C({"set", "0x48", "0", "0x55", "-r"}); // the temperature cannot be written
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("kyserial: value mismatch: wrote 0x55, read back 0x19\n", lResult.mError);
}

TEST(I2CProcessTest, SetRefusesWrongNumbersOfValues)
{
    ExpectUsageError({"i2c", "set", "-y", "-p", "bulk2", "0x48", "1", "2", "3"},
                     "kyserial: mode b takes one value; use mode i or s for several, or c for none");
    ExpectUsageError({"i2c", "set", "-y", "-p", "bulk2", "0x48", "1", "0x100"},
                     "kyserial: \"0x100\" is no value; use 0x00 to 0xff");
}

TEST(I2CProcessTest, DumpShowsRegistersInAllModes)
{
    const std::string lHead = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    const std::string lEmpty = "00: ff ff ff ff                                        ....            \n";
    for (const char* const lMode : {"b", "c", "i"})
    {
        ExpectOutput(lHead + lEmpty, {"dump", "0x50", lMode, "-r", "0-3"});
    }
    ExpectOutput("     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n"
                 "00: ffff ffff                               \n",
                 {"dump", "0x50", "w", "-r", "0-1"});
}

TEST(I2CProcessTest, DumpMarksWhatDoesNotAnswer)
{
    const ToolResult lResult = RunI2C({"dump", "0x51", "-r", "0-1"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_THAT(lResult.mOutput, HasSubstr("00: XX XX "));
}

TEST(I2CProcessTest, TransferSendsMessagesAndPrintsWhatItReads)
{
    ExpectOutput("0x4b 0x00\n0x4b\n", {"transfer", "w1@0x48", "2", "r2", "r1"});
    const ToolResult lResult = RunI2C({"transfer", "-v", "w1@0x48", "2", "r1"});
    EXPECT_EQ("msg 0: addr 0x48, write, len 1, buf 0x02\n"
              "msg 1: addr 0x48, read, len 1, buf 0x4b\n",
              lResult.mError);
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

TEST(I2CProcessTest, JsonIsOneObjectInOneLine)
{
    const auto lJson = [](std::vector<std::string> aArguments)
    {
        aArguments.insert(aArguments.end(), {"-y", "--port", "bulk2", "--retries", "1000", "--json"});
        aArguments.insert(aArguments.begin(), "i2c");
        const KyTest::ToolResult lResult = KyTest::RunTool(aArguments);
        EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
        EXPECT_EQ(lResult.mOutput.size() - 1, lResult.mOutput.find('\n'));
        return nlohmann::json::parse(lResult.mOutput);
    };
    EXPECT_EQ(nlohmann::json::parse(R"({"port": "bulk2", "address": 72, "bytes": [25]})"),
              lJson({"get", "0x48"}));
    EXPECT_EQ(
        nlohmann::json::parse(R"({"port": "bulk2", "address": 80, "register": 2, "bytes": [255, 255]})"),
        lJson({"get", "0x50", "0x02", "w"}));
    EXPECT_EQ(nlohmann::json::parse(
                  R"({"port": "bulk2", "address": 80, "first": 4, "bits": 8, "values": [255, 255]})"),
              lJson({"dump", "0x50", "--range", "0x04-0x05"}));
    EXPECT_EQ(
        nlohmann::json::parse(R"({"port": "bulk2", "read": [{"address": 80, "bytes": [255, 255, 255]}]})"),
        lJson({"transfer", "w1@0x50", "0x00", "r3"}));
}

} // namespace
