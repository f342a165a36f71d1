// "kyserial i2c set" and "transfer" on the bus of the simulated camera.

#include "Tools/CommandRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>

using namespace KyTest;
using testing::StartsWith;

namespace
{

class I2CWriteTest : public testing::Test
{
protected:
    ~I2CWriteTest() override
    {
        static_cast<void>(std::remove(mState.c_str())); // ignored: a test may not have made it
    }

    /// Runs an I2C command without questions on a camera that keeps its memories within a test.
    CapturedResult Run(std::vector<std::string> aWords) const
    {
        aWords.insert(aWords.begin(), "i2c");
        aWords.insert(aWords.end(), {"-y", "--port", "bulk2", "--retries", "1000", "--sim-state", mState});
        return RunOnCamera(aWords);
    }
    void ExpectRun(const std::string& aOutput, const std::vector<std::string>& aWords) const
    {
        const CapturedResult lResult = Run(aWords);
        EXPECT_EQ(0, lResult.mStatus);
        EXPECT_EQ(aOutput, lResult.mOutput);
        EXPECT_EQ("", lResult.mError);
    }
    static void ExpectWriteRefused(std::vector<std::string> aWords, const std::string& aReason)
    {
        aWords.insert(aWords.begin(), "i2c");
        aWords.insert(aWords.end(), {"-y", "--port", "bulk2"});
        ExpectRefused(aWords, aReason);
    }

    const std::string mState = Process::TemporaryFile(".state");
};

TEST_F(I2CWriteTest, SetWritesTheBytesOfItsMode)
{
    ExpectRun("", {"set", "0x50", "0x10", "0xab"});
    ExpectRun("0xab 0xff\n", {"get", "0x50", "0x10", "i", "2"});
    ExpectRun("", {"set", "0x50", "0x11", "0x1234", "w"}); // low byte first
    ExpectRun("0xab 0x34 0x12 0xff\n", {"get", "0x50", "0x10", "i", "4"});
    ExpectRun("", {"set", "0x50", "0x20", "1", "2", "3", "i"});
    ExpectRun("0x01 0x02 0x03 0xff\n", {"get", "0x50", "0x20", "i", "4"});
    ExpectRun("", {"set", "0x50", "0x28", "1", "2", "3", "s"}); // after their number
    ExpectRun("0x03 0x01 0x02 0x03 0xff\n", {"get", "0x50", "0x28", "i", "5"});
    ExpectRun("", {"set", "0x50", "0x30", "c"}); // the register alone, which writes nothing
    ExpectRun("", {"set", "0x50", "0x30"});
    ExpectRun("0xff\n", {"get", "0x50", "0x30"});
}

TEST_F(I2CWriteTest, SetReadsASingleValueBack)
{
    ExpectRun("Value 0x03 written, readback matched\n", {"set", "0x48", "1", "0x03", "-r"});
    ExpectRun("Value 0x8012 written, readback matched\n", {"set", "0x48", "3", "0x8012", "w", "-r"});
    ExpectRun("Value 0x07 written, readback matched\n", {"set", "0x48", "2", "7", "i", "-r"});
    ExpectRun("", {"set", "0x50", "0", "1", "2", "i", "-r"});
}

// The register holds the number of values then, and the value comes after it.
TEST_F(I2CWriteTest, SetReadsNoBlockWithItsLengthBack)
{
    ExpectRun("", {"set", "0x50", "0", "7", "s", "-r"});
    ExpectRun("0x01 0x07\n", {"get", "0x50", "0", "i", "2"});
}

TEST_F(I2CWriteTest, ARegisterThatReadsOtherwiseIsAFailure)
{
    const CapturedResult lResult =
        Run({"set", "0x48", "0", "0x55", "-r"}); // the temperature cannot be written
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_EQ("kyserial: value mismatch: wrote 0x55, read back 0x19\n", lResult.mError);
}

TEST_F(I2CWriteTest, AMaskKeepsTheOtherBits)
{
    // The register holds 0x4b: its lower half stays.
    ExpectRun("Value 0x3b written, readback matched\n",
              {"set", "0x48", "2", "0x35", "b", "-r", "-m", "0xf0"});
    // It holds 0x0050, and the mask covers the upper byte.
    ExpectRun("Value 0x8050 written, readback matched\n",
              {"set", "0x48", "3", "0x80ff", "w", "-r", "-m", "0xff00"});
}

TEST_F(I2CWriteTest, SetRefusesWhatMakesNoSense)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> lCases = {
        {{"0x48", "1", "2", "3"}, "mode b takes one value; use mode i or s for several, or c for none"},
        {{"0x48", "1", "w"}, "mode w takes one value; use mode i or s for several, or c for none"},
        {{"0x48", "1", "2", "c"}, "mode c writes the register alone; leave the value out, or use mode b"},
        {{"0x48", "1", "i"}, "a block has 1 to 32 values"},
        {{"0x48", "1", "s"}, "a block has 1 to 32 values"},
        {{"0x48", "1", "0x100"}, "\"0x100\" is no value; use 0x00 to 0xff"},
        {{"0x48", "1", "0x10000", "w"}, "\"0x10000\" is no value; use 0x00 to 0xffff"},
        {{"0x48", "1", "1", "q"}, "\"q\" is no value; use 0x00 to 0xff"},
        {{"0x48", "0x100", "1"}, "\"0x100\" is no register; use 0x00 to 0xff"},
        {{"0x48", "1", "1", "-m", "0x100"}, "\"0x100\" is no mask; use 0x00 to 0xff"},
        {{"0x48", "1", "1", "i", "-m", "1"}, "--mask: only a byte or a word has a mask; use mode b or w"},
        {{"0x80", "1", "1"}, "\"0x80\" is no I2C address; use 0x08 to 0x77"}};
    for (const auto& [lWords, lReason] : lCases)
    {
        std::vector<std::string> lCommand = {"set"};
        lCommand.insert(lCommand.end(), lWords.begin(), lWords.end());
        ExpectWriteRefused(lCommand, lReason);
    }
    std::vector<std::string> lLong(33, "1");
    lLong.insert(lLong.begin(), {"set", "0x48", "1"});
    lLong.emplace_back("i");
    ExpectWriteRefused(lLong, "a block has 1 to 32 values");
}

TEST_F(I2CWriteTest, ASlaveThatDoesNotAnswerIsAFailure)
{
    for (const std::vector<std::string>& lCommand :
         {std::vector<std::string>{"set", "0x49", "1", "2"}, {"transfer", "w1@0x49", "0", "r1@0x48"}})
    {
        const CapturedResult lResult = Run(lCommand);
        EXPECT_EQ(1, lResult.mStatus);
        EXPECT_EQ("", lResult.mOutput) << "nothing of a transfer that fails";
        EXPECT_THAT(lResult.mError, StartsWith("kyserial: writing to 0x49 on bulk2 failed: "));
    }
}

TEST_F(I2CWriteTest, TransferPrintsALineForEachRead)
{
    ExpectRun("0x4b 0x00\n0x4b\n", {"transfer", "w1@0x48", "2", "r2", "r1"});
    ExpectRun("", {"transfer", "w3@0x50", "0", "0x5a="});
    ExpectRun("0x5a 0x5a\n", {"transfer", "w1@0x50", "0", "r2"});
    const CapturedResult lVerbose = Run({"transfer", "-v", "w1@0x48", "2", "r1"});
    EXPECT_EQ("0x4b\n", lVerbose.mOutput);
    EXPECT_EQ("msg 0: addr 0x48, write, len 1, buf 0x02\n"
              "msg 1: addr 0x48, read, len 1, buf 0x4b\n",
              lVerbose.mError);
}

TEST_F(I2CWriteTest, TransferGivesWhatWasReadAsJson)
{
    const CapturedResult lResult = Run({"transfer", "w1@0x50", "0x00", "r3", "--json"});
    EXPECT_EQ(
        nlohmann::json::parse(R"({"port": "bulk2", "read": [{"address": 80, "bytes": [255, 255, 255]}]})"),
        nlohmann::json::parse(lResult.mOutput, nullptr, false));
}

TEST_F(I2CWriteTest, TransferTakesFortyTwoMessages)
{
    std::vector<std::string> lWords(42, "r1@0x48");
    lWords.insert(lWords.begin(), "transfer");
    EXPECT_EQ(0, Run(lWords).mStatus);
    lWords.emplace_back("r1@0x48");
    ExpectWriteRefused(lWords, "a transfer has at most 42 messages; use several");
}

} // namespace
