#include "kyserial/Options/Options.h"

#include "Support/CapturedRun.h"

#include <CLI/CLI.hpp>
#include <JxUtilsLib/Logger.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace KySerialTool;

/// A line of words, and what a command answers: empty, or the refusal.
struct LineOfWords
{
    const char* mLine;
    const char* mRefusal;
};

class OptionsTest : public testing::Test
{
protected:
    /// Why the command refuses a line; empty when it takes it.
    std::string RefusalOf(const std::string& aLine)
    {
        try
        {
            mCommand.clear();
            mCommand.parse(aLine);
            return "";
        }
        catch (const CLI::Error& lError)
        {
            return lError.what();
        }
    }

    void ExpectRefusals(const std::vector<LineOfWords>& aLines)
    {
        for (const LineOfWords& lLine : aLines)
        {
            EXPECT_EQ(lLine.mRefusal, RefusalOf(lLine.mLine)) << lLine.mLine;
        }
    }

    CLI::App mCommand{"A command", "command"};
};

TEST_F(OptionsTest, NumbersAreTakenUpToTheirMaximum)
{
    uint32_t lValue = 7;
    AddNumberOption(mCommand, "-t,--time", 1000, "milliseconds", "A time", lValue);
    ExpectRefusals({{"--time 1000", ""},
                    {"--time 0x10", ""},
                    {"--time 1001", "--time: \"1001\" does not fit; use 0 to 1000 milliseconds"},
                    {"-t soon", "--time: \"soon\" does not fit; use 0 to 1000 milliseconds"},
                    {"--time=-1", "--time: \"-1\" does not fit; use 0 to 1000 milliseconds"}});
    EXPECT_EQ(16U, lValue) << "a refused number changes nothing";
}

TEST_F(OptionsTest, SizesMayHaveAUnit)
{
    uint32_t lValue = 0;
    AddSizeOption(mCommand, "--size", 65536, "A size", lValue);
    ExpectRefusals(
        {{"--size 4KiB", ""},
         {"--size 65KiB", "--size: \"65KiB\" does not fit; use 0 to 65536 bytes, 4KiB for example"},
         {"--size 4kb", "--size: \"4kb\" does not fit; use 0 to 65536 bytes, 4KiB for example"}});
    EXPECT_EQ(4096U, lValue);
}

TEST_F(OptionsTest, AChoiceOfNumbersHasNoOthers)
{
    std::optional<uint32_t> lValue;
    AddNumberChoice(mCommand, "--rate", {10, 20, 50}, "A rate", lValue);
    ExpectRefusals({{"", ""},
                    {"--rate 30", "--rate: \"30\" does not fit; use 10, 20 or 50"},
                    {"--rate fast", "--rate: \"fast\" does not fit; use 10, 20 or 50"}});
    EXPECT_FALSE(lValue.has_value());
    EXPECT_EQ("", RefusalOf("--rate 50"));
    EXPECT_EQ(50U, lValue);
}

TEST_F(OptionsTest, ALineKeepsWhatIsNotGiven)
{
    LineSelection lLine;
    AddLineOptions(mCommand, lLine);
    EXPECT_EQ("", RefusalOf("--parity odd --stop 2"));
    EXPECT_EQ(KyParityOdd, lLine.mParity);
    EXPECT_EQ(2U, lLine.mStopBits);
    EXPECT_FALSE(lLine.mBaudRate.has_value());
    EXPECT_FALSE(lLine.mBits.has_value());
}

TEST_F(OptionsTest, WrongWordsGetTheWordThatWasMeantOrAllWords)
{
    LineSelection lLine;
    AddLineOptions(mCommand, lLine);
    ExpectRefusals({{"--parity evne", "--parity: \"evne\" does not fit; did you mean even?"},
                    {"--parity mark", "--parity: \"mark\" does not fit; use none, even or odd"},
                    {"--bits 9", "--bits: \"9\" does not fit; use 7 or 8"}});
}

TEST_F(OptionsTest, ACommandForBusesTakesBulkPortsOnly)
{
    KyDeviceSerial lAny = KyDeviceSerialInvalid;
    KyDeviceSerial lBulk = KyDeviceSerialInvalid;
    CLI::App lBus("A bus", "bus");
    AddPortOption(mCommand, PortKind::Any, lAny);
    AddPortOption(lBus, PortKind::Bulk, lBulk);
    ExpectRefusals({{"-p uart1", ""},
                    {"-p com1", "--port: \"com1\" is no port; use uart0, uart1 or bulk0 to bulk7"},
                    {"", "--port is required"}});
    EXPECT_EQ(KyDeviceSerialUart1, lAny);
    try
    {
        lBus.parse("--port uart0");
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CLI::Error& lError)
    {
        EXPECT_STREQ("--port: \"uart0\" is no bulk port; use bulk0 to bulk7", lError.what());
    }
    lBus.parse("--port bulk7");
    EXPECT_EQ(KyDeviceSerialBulk7, lBulk);
}

TEST_F(OptionsTest, TheLogIsSilentUnlessALevelIsGiven)
{
    CommonOptions lOptions;
    AddLogOption(mCommand, lOptions);
    EXPECT_GT(lOptions.mLogLevel, JxUtilsLib::PriorityFatal);
    EXPECT_EQ("", RefusalOf("--log-level warning"));
    EXPECT_EQ(JxUtilsLib::PriorityWarning, lOptions.mLogLevel);
    EXPECT_EQ("--log-level: \"loud\" does not fit; use debug, info, warning, error, fatal or off",
              RefusalOf("--log-level loud"));
}

TEST(ReadLineTest, ALineEndsWithItsLineFeedOrWithTheInput)
{
    struct Case
    {
        const char* mInput;
        std::vector<std::string> mLines;
    };
    for (const Case& lCase : {Case{"", {}}, Case{"yes", {"yes"}}, Case{"a\n\nb\r\n", {"a", "", "b\r"}}})
    {
        const KyTest::StandardInput lInput(lCase.mInput);
        KyToolPlatform::Console lConsole;
        std::vector<std::string> lLines;
        for (std::string lLine; ReadLine(lConsole, lLine);)
        {
            lLines.push_back(lLine);
        }
        EXPECT_EQ(lCase.mLines, lLines) << lCase.mInput;
    }
}

} // namespace
