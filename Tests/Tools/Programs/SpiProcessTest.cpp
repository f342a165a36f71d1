#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

using Words = std::vector<std::string>;

class SpiProcessTest : public testing::Test
{
protected:
    ~SpiProcessTest() override
    {
        std::remove(mState.c_str());
        std::remove(mFile.c_str());
    }

    /// Runs "kyserial spi" with aWords on the bus of the simulated camera, whose memory lasts from run to
    /// run.
    ToolResult Run(const Words& aWords, const std::string& aInput = {}) const
    {
        Words lWords = {"spi"};
        lWords.insert(lWords.end(), aWords.begin(), aWords.end());
        lWords.insert(lWords.end(), {"--port", "bulk3", "--sim-state", mState});
        return RunTool(lWords, aInput);
    }
    /// The same for a command that changes the memory.
    ToolResult Change(Words aWords, const std::string& aInput = {}) const
    {
        aWords.emplace_back("-y");
        return Run(aWords, aInput);
    }

    const std::string mState = Process::TemporaryFile(".state");
    const std::string mFile = Process::TemporaryFile(".bin");
};

TEST_F(SpiProcessTest, TransferPrintsWhatItReads)
{
    const ToolResult lResult = Run({"transfer", "9f", "--read", "3"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("ef 30 10\n", lResult.mOutput);
    EXPECT_EQ("", Run({"transfer", "06"}).mOutput);
    EXPECT_EQ("ff ef 30 10\n", Run({"transfer", "9f 00 00 00", "--simultaneous"}).mOutput);
    EXPECT_EQ("{\"port\":\"bulk3\",\"written\":1,\"read\":[239,48,16]}\n",
              Run({"transfer", "9f", "--read", "3", "--json"}).mOutput);
}

TEST_F(SpiProcessTest, TransferRefusesWhatMakesNoSense)
{
    const Words lCommand = {"spi", "transfer", "--port", "bulk3"};
    Words lBadHex = lCommand;
    lBadHex.emplace_back("9");
    ExpectUsageError(
        lBadHex, "kyserial: the bytes are no hexadecimal numbers of two digits each; use 9f or \"03 00 10 "
                 "00\" for example");
    ExpectUsageError(lCommand, "kyserial: nothing to do; give bytes to write, or --read N");
    Words lUnequal = lCommand;
    lUnequal.insert(lUnequal.end(), {"9f", "--read", "3", "--simultaneous"});
    ExpectUsageError(
        lUnequal,
        "kyserial: --simultaneous: as many bytes are read as written; leave --read out, or use --read 1");
}

TEST_F(SpiProcessTest, FlashIdPrintsTheIdentity)
{
    EXPECT_EQ("manufacturer 0xef, type 0x30, capacity 0x10 (65536 bytes, W25X05)\n",
              Run({"flash", "id"}).mOutput);
    EXPECT_EQ("{\"port\":\"bulk3\",\"manufacturer\":239,\"type\":48,\"capacity\":16,\"size\":65536,\"chip\":"
              "\"W25X05\"}\n",
              Run({"flash", "id", "--json"}).mOutput);
}

TEST_F(SpiProcessTest, FlashIsWrittenVerifiedReadAndErased)
{
    std::string lText;
    for (int lByte = 0; lByte < 5000; ++lByte)
    {
        lText += static_cast<char>(lByte * 31);
    }
    ASSERT_TRUE(WriteFile(mFile, lText));
    const ToolResult lWrite = Change({"flash", "write", mFile, "--offset", "0x1000"});
    EXPECT_EQ(0, lWrite.mStatus);
    EXPECT_EQ("wrote and verified 5000 bytes\n", lWrite.mError);
    EXPECT_TRUE(lText == Run({"flash", "read", "-", "--offset", "0x1000", "--size", "5000"}).mOutput);

    EXPECT_EQ("erased 4096 bytes\n", Change({"flash", "erase", "--offset", "4096", "--size", "4096"}).mError);
    EXPECT_EQ("\xFF\xFF" + lText.substr(4096, 1),
              Run({"flash", "read", "-", "--offset", "8190", "--size", "3"}).mOutput);

    EXPECT_EQ("erased the memory\n", Change({"flash", "erase", "--chip"}).mError);
    EXPECT_EQ(0, Run({"flash", "read", mFile}).mStatus);
    EXPECT_TRUE(std::string(65536, '\xFF') == ReadFile(mFile));
}

TEST_F(SpiProcessTest, WritingOverOldContentsNeedsErasingWhichKeepsTheNeighbours)
{
    EXPECT_EQ(0,
              Change({"flash", "write", "-", "--offset", "10"}, std::string("\x00\x00", 2) + "keep").mStatus);
    const ToolResult lRefused = Change({"flash", "write", "-", "--offset", "10"}, "hi");
    EXPECT_EQ(1, lRefused.mStatus);
    EXPECT_EQ("kyserial: verification failed at 0x000a: wrote 0x68, read 0x00; was it erased? See --erase\n",
              lRefused.mError);

    EXPECT_EQ(0, Change({"flash", "write", "-", "--offset", "10", "--erase", "-q"}, "hi").mStatus);
    EXPECT_EQ("hikeep", Run({"flash", "read", "-", "--offset", "10", "--size", "6"}).mOutput);
}

TEST_F(SpiProcessTest, ChangesWithoutATerminalNeedYes)
{
    EXPECT_EQ(0, Change({"flash", "write", "-"}, "keep").mStatus);
    const ToolResult lWrite = Run({"flash", "write", "-"}, "lose");
    EXPECT_EQ(2, lWrite.mStatus);
    EXPECT_EQ("kyserial: this writes 4 bytes into the flash memory on bulk3; give -y, since there is no "
              "terminal to ask "
              "on\n",
              lWrite.mError);
    EXPECT_EQ("kyserial: this erases all of the flash memory on bulk3; give -y, since there is no terminal "
              "to ask on\n",
              Run({"flash", "erase", "--chip"}).mError);
    EXPECT_EQ("keep", Run({"flash", "read", "-", "--size", "4"}).mOutput);
}

TEST_F(SpiProcessTest, EraseOfTheWholeChipTakesNoPart)
{
    EXPECT_EQ(0, Change({"flash", "write", "-"}, "keep").mStatus);
    for (const char* const lOption : {"--offset", "--size"})
    {
        const ToolResult lResult = Change({"flash", "erase", "--chip", lOption, "4096"});
        EXPECT_EQ(2, lResult.mStatus) << lOption;
        EXPECT_EQ(std::string("kyserial: ") + lOption +
                      " and --chip exclude each other; see 'kyserial spi flash erase --help'\n",
                  lResult.mError);
    }
    EXPECT_EQ("keep", Run({"flash", "read", "-", "--size", "4"}).mOutput);
}

TEST_F(SpiProcessTest, EraseAsksForWhatItErases)
{
    const auto lQuestion = [this](Words aPart)
    {
        aPart.insert(aPart.begin(), {"flash", "erase"});
        const std::string lText = Run(aPart).mError;
        return lText.substr(0, lText.find(';'));
    };
    EXPECT_EQ("kyserial: this erases all of the flash memory on bulk3", lQuestion({}));
    EXPECT_EQ("kyserial: this erases the flash memory on bulk3 from offset 4096 to its end",
              lQuestion({"--offset", "4KiB"}));
    EXPECT_EQ("kyserial: this erases 8192 bytes of the flash memory on bulk3, from offset 0 on",
              lQuestion({"--size", "8KiB"}));
    EXPECT_EQ("kyserial: this erases 8192 bytes of the flash memory on bulk3, from offset 4096 on",
              lQuestion({"--offset", "4096", "--size", "8192"}));
}

TEST_F(SpiProcessTest, EqualSectorsAreLeftAloneAndOldContentsAreSaved)
{
    const std::string lOld(8192, 'a');
    std::string lNew = lOld;
    lNew[5000] = 'b';
    const ToolResult lFirst = Change({"flash", "write", "-", "--offset", "4KiB"}, lOld);
    EXPECT_EQ(0, lFirst.mStatus) << lFirst.mError;
    const ToolResult lResult =
        Change({"flash", "write", "-", "--offset", "4KiB", "--erase", "--backup", mFile}, lNew);
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    EXPECT_EQ("saved 8192 bytes from offset 4096 on in " + mFile +
                  "\nwrote and verified 8192 bytes; sectors that were equal already: 1\n",
              lResult.mError);
    EXPECT_TRUE(lOld == ReadFile(mFile));
    EXPECT_TRUE(lNew == Run({"flash", "read", "-", "--offset", "4KiB", "--size", "8KiB"}).mOutput);
}

TEST_F(SpiProcessTest, TerminalIsAskedBeforeAChange)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    for (const auto& [lAnswer, lStatus] : {std::pair("\n", 1), std::pair("no\n", 1), std::pair("y\n", 0)})
    {
        Process lTool;
        Process::Files lFiles;
        lFiles.mInput = Process::Input::Terminal;
        lFiles.mErrorTerminal = true;
        ASSERT_TRUE(lTool.Start("kyserial", {"spi", "flash", "erase", "--chip", "--port", "bulk3"}, lFiles));
        EXPECT_TRUE(lTool.WaitForTerminal("this erases all of the flash memory on bulk3. Continue? [y/N] "));
        EXPECT_TRUE(lTool.Feed(lAnswer));
        EXPECT_EQ(lStatus, lTool.Wait()) << lAnswer;
    }
}

TEST_F(SpiProcessTest, InterruptionSaysHowFarTheMemoryIsWritten)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    ASSERT_TRUE(WriteFile(mFile, std::string(65536, 'x')));
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Terminal;
    lFiles.mErrorTerminal = true;
    ASSERT_TRUE(lTool.Start("kyserial",
                            {"spi", "flash", "write", mFile, "-y", "--port", "bulk3", "--sim-state", mState},
                            lFiles));
    ASSERT_TRUE(lTool.WaitForTerminal("writing    [#"));
    ASSERT_TRUE(lTool.Terminate());
    EXPECT_EQ(1, lTool.Wait());
    ASSERT_TRUE(lTool.WaitForTerminal("kyserial: interrupted; 0x000000 to 0x"));
    const std::string lText = lTool.TerminalText();
    const std::string lEnd = lText.substr(lText.find("0x000000 to ") + 12, 8);
    EXPECT_THAT(lText, HasSubstr(lEnd + " is written, the next step may have begun"));
    const size_t lWritten = std::stoul(lEnd, nullptr, 16) + 1;
    EXPECT_EQ(std::string(lWritten, 'x'),
              Run({"flash", "read", "-", "--size", std::to_string(lWritten)}).mOutput);
}

TEST_F(SpiProcessTest, PartsOutsideTheMemoryAreUsageErrors)
{
    ExpectUsageError({"spi", "flash", "read", "-", "--port", "bulk3", "--offset", "65530", "--size", "7"},
                     "kyserial: --offset, --size: the memory has 65536 bytes; use a part within them");
    ExpectUsageError({"spi", "flash", "erase", "--port", "bulk3", "--offset", "100"},
                     "kyserial: --offset, --size: sectors are erased as a whole; use multiples of 4096");
}

TEST_F(SpiProcessTest, PortWithoutAFlashIsAFailure)
{
    const ToolResult lResult = RunTool({"spi", "flash", "id", "--port", "bulk5"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ("kyserial: no flash memory answers\n", lResult.mError);
}

TEST_F(SpiProcessTest, ProgressBarIsThereOnATerminal)
{
    if (!Process::HasTerminals())
    {
        GTEST_SKIP() << "no terminal to give to a program on this system";
    }
    Process lTool;
    Process::Files lFiles;
    lFiles.mInput = Process::Input::Terminal;
    lFiles.mErrorTerminal = true;
    ASSERT_TRUE(lTool.Start("kyserial", {"spi", "flash", "read", mFile, "--port", "bulk3"}, lFiles));
    EXPECT_TRUE(lTool.WaitForTerminal("reading    [####################] 100%"));
    EXPECT_EQ(0, lTool.Wait());
}

} // namespace
