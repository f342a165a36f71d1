// "kyserial i2c detect", "get" and "dump" on the bus of the simulated camera.

#include "Tools/CommandRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KyTest;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

/// Reads without questions; an answer that comes late on a busy machine is asked for again.
CapturedResult Read(std::vector<std::string> aWords)
{
    aWords.insert(aWords.begin(), "i2c");
    aWords.insert(aWords.end(), {"-y", "--port", "bulk2", "--retries", "1000"});
    return RunOnCamera(aWords);
}

void ExpectRead(const std::string& aOutput, const std::vector<std::string>& aWords)
{
    const CapturedResult lResult = Read(aWords);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ(aOutput, lResult.mOutput);
    EXPECT_EQ("", lResult.mError);
}

void ExpectReadRefused(std::vector<std::string> aWords, const std::string& aReason)
{
    aWords.insert(aWords.begin(), {"i2c"});
    aWords.insert(aWords.end(), {"-y", "--port", "bulk2"});
    ExpectRefused(aWords, aReason);
}

void ExpectReadJson(const std::string& aJson, std::vector<std::string> aWords)
{
    aWords.emplace_back("--json");
    const CapturedResult lResult = Read(aWords);
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    EXPECT_EQ(lResult.mOutput.size() - 1, lResult.mOutput.find('\n')) << "one line";
    EXPECT_EQ(nlohmann::json::parse(aJson), nlohmann::json::parse(lResult.mOutput, nullptr, false));
}

TEST(I2CDetectTest, AsksTheAddressesOfTheRange)
{
    ExpectReadJson(R"({"port": "bulk2", "addresses": [72]})", {"detect", "0x40", "0x4f"});
    ExpectReadJson(R"({"port": "bulk2", "addresses": [72]})", {"detect", "0x48", "0x48"});
    ExpectReadJson(R"({"port": "bulk2", "addresses": []})", {"detect", "0x49", "0x4f"});
    const std::string lTable = Read({"detect", "0x48", "0x49"}).mOutput;
    EXPECT_THAT(lTable, HasSubstr("\n40:                         48 --                   \n"));
}

TEST(I2CDetectTest, AsksReservedAddressesOnDemandOnly)
{
    EXPECT_THAT(Read({"detect", "-q", "--fast"}).mOutput, HasSubstr("\n00:                         -- -- "));
    EXPECT_THAT(Read({"detect", "-q", "--fast", "-a"}).mOutput, HasSubstr("\n00: -- -- -- -- "));
    ExpectReadRefused({"detect", "0x03"},
                      "\"0x03\" is no I2C address; use 0x08 to 0x77, or -a for the reserved ones");
}

TEST(I2CDetectTest, RefusesARangeInTheWrongOrder)
{
    ExpectReadRefused({"detect", "0x50", "0x48"},
                      "the last address is below the first; use FIRST LAST, 0x08 0x77 for example");
    ExpectReadRefused({"detect", "0x77", "0x08"},
                      "the last address is below the first; use FIRST LAST, 0x08 0x77 for example");
}

TEST(I2CDetectTest, WorksThroughTheRegistersOfBulk0Too)
{
    const CapturedResult lResult = RunOnCamera(
        {"i2c", "detect", "-y", "--port", "bulk0", "--retries", "1000", "0x48", "0x50", "--json"});
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    EXPECT_EQ("{\"port\":\"bulk0\",\"addresses\":[72,80]}\n", lResult.mOutput);
}

// A device that has gone is no bus without slaves.
TEST(I2CDetectTest, ADeviceThatHasGoneIsAFailure)
{
    const CapturedResult lResult = Read({"detect", "--sim-cut", "60"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_THAT(lResult.mError, StartsWith("kyserial: "));
}

TEST(I2CGetTest, ReadsInEachMode)
{
    ExpectRead("0x19\n", {"get", "0x48"});
    ExpectRead("0x4b\n", {"get", "0x48", "2"});
    ExpectRead("0x4b\n", {"get", "0x48", "2", "b"});
    ExpectRead("0x4b\n", {"get", "0x48", "2", "c"});
    ExpectRead("0x0050\n", {"get", "0x48", "0x03", "w"}); // 0x50 comes first
    ExpectRead("0x50 0x00\n", {"get", "0x48", "3", "i", "2"});
    EXPECT_EQ(32U * 5, Read({"get", "0x50", "0", "i"}).mOutput.size()) << "a whole block";
}

TEST(I2CGetTest, JsonHasTheBytesInTheOrderOfTheBus)
{
    ExpectReadJson(R"({"port": "bulk2", "address": 72, "bytes": [25]})", {"get", "0x48"});
    ExpectReadJson(R"({"port": "bulk2", "address": 72, "register": 3, "bytes": [80, 0]})",
                   {"get", "0x48", "3", "w"});
}

TEST(I2CGetTest, RefusesWhatMakesNoSense)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> lCases = {
        {{"0x03"}, "\"0x03\" is no I2C address; use 0x08 to 0x77, or -a for the reserved ones"},
        {{"0x80"}, "\"0x80\" is no I2C address; use 0x08 to 0x77"},
        {{"0x48", "256"}, "\"256\" is no register; use 0x00 to 0xff"},
        {{"0x48", "0", "q"},
         "\"q\" is no mode; use b (byte), w (word), c (write byte, read byte) or i (block)"},
        {{"0x48", "0", "bw"},
         "\"bw\" is no mode; use b (byte), w (word), c (write byte, read byte) or i (block)"},
        {{"0x48", "0", "w", "2"}, "only a block has a length; use mode i, or leave the length out"},
        {{"0x48", "0", "i", "33"}, "\"33\" is no length; use 0x00 to 0x20"}};
    for (const auto& [lWords, lReason] : lCases)
    {
        std::vector<std::string> lCommand = {"get"};
        lCommand.insert(lCommand.end(), lWords.begin(), lWords.end());
        ExpectReadRefused(lCommand, lReason);
    }
}

TEST(I2CGetTest, ASlaveThatDoesNotAnswerIsAFailure)
{
    for (const char* const lMode : {"b", "w", "i"})
    {
        const CapturedResult lResult = Read({"get", "0x49", "0", lMode});
        EXPECT_EQ(1, lResult.mStatus);
        EXPECT_EQ("", lResult.mOutput);
        EXPECT_THAT(lResult.mError, StartsWith("kyserial: reading from 0x49 on bulk2 failed: "));
    }
}

TEST(I2CDumpTest, ShowsTheSameRegistersInEachModeOfBytes)
{
    const std::string lHead = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    const std::string lEmpty = "00: ff ff ff ff                                        ....            \n";
    for (const char* const lMode : {"b", "c", "i"})
    {
        ExpectRead(lHead + lEmpty, {"dump", "0x50", lMode, "-r", "0-3"});
    }
    ExpectRead("     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n"
               "00: ffff ffff                               \n",
               {"dump", "0x50", "w", "-r", "0-1"});
}

TEST(I2CDumpTest, BlocksEndWithTheRange)
{
    const CapturedResult lResult = Read({"dump", "0x50", "i", "-r", "0x1e-0x42", "--json"});
    const nlohmann::json lJson = nlohmann::json::parse(lResult.mOutput, nullptr, false);
    ASSERT_TRUE(lJson.is_object()) << lResult.mError;
    EXPECT_EQ(0x1E, lJson["first"]);
    EXPECT_EQ(std::vector<int>(0x42 - 0x1E + 1, 0xFF), lJson["values"].get<std::vector<int>>());
}

TEST(I2CDumpTest, JsonHasNothingInThePlaceOfAMissingAnswer)
{
    ExpectReadJson(R"({"port": "bulk2", "address": 80, "first": 4, "bits": 8, "values": [255, 255]})",
                   {"dump", "0x50", "--range", "0x04-0x05"});
    ExpectReadJson(R"({"port": "bulk2", "address": 72, "first": 2, "bits": 16, "values": [75, 80]})",
                   {"dump", "0x48", "w", "--range", "2-3"});
    ExpectReadJson(R"({"port": "bulk2", "address": 81, "first": 0, "bits": 8, "values": [null, null]})",
                   {"dump", "0x51", "--range", "0-1"});
    EXPECT_THAT(Read({"dump", "0x51", "-r", "0-1"}).mOutput, HasSubstr("\n00: XX XX "));
}

// The slave counts for itself there, so that one missing answer would shift all that follow.
TEST(I2CDumpTest, ConsecutiveReadsFailWithTheSlave)
{
    const CapturedResult lResult = Read({"dump", "0x51", "c", "-r", "0-1"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_THAT(lResult.mError, StartsWith("kyserial: writing to 0x51 on bulk2 failed: "));
}

TEST(I2CDumpTest, RefusesWhatMakesNoSense)
{
    ExpectReadRefused({"dump", "0x50", "s"},
                      "\"s\" is no mode; use b (bytes), w (words), c (consecutive bytes) or i (blocks)");
    const CapturedResult lRange = Read({"dump", "0x50", "-r", "5-4"});
    EXPECT_EQ(2, lRange.mStatus);
    EXPECT_THAT(lRange.mError, HasSubstr("use FIRST-LAST"));
}

} // namespace
