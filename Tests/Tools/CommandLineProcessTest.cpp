#include "Support/PatternMatcher.h"
#include "ToolRun.h"

#include <JxUtilsLib/Assert.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

TEST(CommandLineProcessTest, HelpListsTheCommandsAndExitStatuses)
{
    const ToolResult lResult = RunTool({"--help"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("", lResult.mError);
    for (const char* const lText : {"Usage: kyserial ", "ports", "term", "i2c", "spi", "Exit status: 0 done"})
    {
        EXPECT_THAT(lResult.mOutput, HasSubstr(lText));
    }
}

TEST(CommandLineProcessTest, EachCommandHasHelpOfItsOwn)
{
    EXPECT_THAT(RunTool({"ports", "--help"}).mOutput, HasSubstr("Usage: kyserial ports "));
    EXPECT_THAT(RunTool({"term", "--help"}).mOutput, HasSubstr("--quiet-time"));
    EXPECT_THAT(RunTool({"i2c", "get", "--help"}).mOutput, HasSubstr("Usage: kyserial i2c get "));
}

TEST(CommandLineProcessTest, TellsItsVersion)
{
    const ToolResult lResult = RunTool({"--version"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_THAT(lResult.mOutput, MatchesPattern("kyserial [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(CommandLineProcessTest, WrongPortIsAUsageErrorThatNamesThePorts)
{
    ExpectUsageError({"term", "--port", "uart7"},
                     "kyserial: --port: \"uart7\" is no port; use uart0, uart1 or bulk0 to bulk7");
    ExpectUsageError({"i2c", "detect", "--port", "uart0"},
                     "kyserial: --port: \"uart0\" is no bulk port; use bulk0 to bulk7");
}

TEST(CommandLineProcessTest, WrongCommandIsAUsageErrorThatNamesTheCommands)
{
    ExpectUsageError(
        {"terminal"},
        "kyserial: \"terminal\" does not belong here; use devices, features, ports, term, bridge, clser, i2c "
        "or spi");
    ExpectUsageError(
        {}, "kyserial: no command after 'kyserial'; use devices, features, ports, term, bridge, clser, i2c "
            "or spi");
    ExpectUsageError({"spi"}, "kyserial: no command after 'kyserial spi'; use transfer or flash");
}

TEST(CommandLineProcessTest, StateThatCannotBeWrittenAtTheEndIsAFailure)
{
    const std::string lFile = Process::TemporaryFile(".none") + "/state";
    const ToolResult lResult = RunTool({"ports", "--device", "sim", "--sim-state", lFile});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ(lResult.mError, "kyserial: --sim-state: cannot write " + lFile + "\n");
}

TEST(CommandLineProcessTest, WrongOptionIsAUsageErrorThatPointsToTheHelp)
{
    ExpectUsageError({"ports", "--colour"},
                     "kyserial: \"--colour\" does not belong here; 'kyserial ports --help' lists what does");
    ExpectUsageError({"term"}, "kyserial: --port is required; see 'kyserial term --help'");
}

TEST(CommandLineProcessTest, WrongValuesAreUsageErrorsThatSayWhatWouldHaveBeenRight)
{
    ExpectUsageError(
        {"ports", "--log-level", "loud"},
        "kyserial: --log-level: \"loud\" is no level; use debug, info, warning, error, fatal or off");
    ExpectUsageError({"term", "--port", "uart0", "--quiet-time", "soon"},
                     "kyserial: --quiet-time: \"soon\" is no time; use 0 to 3600000 milliseconds, or never");
    ExpectUsageError({"term", "--port", "uart0", "--escape", "F1"},
                     "kyserial: --escape: \"F1\" is no key; use ^] or Ctrl-] (@, A to Z, [, \\, ], ^ and _ "
                     "likewise), 0x00 to 0xff, or none");
    ExpectUsageError({"term", "--port", "uart0", "--sim-cut", "-3"},
                     "kyserial: --sim-cut: \"-3\" does not fit; use 0 to 4294967295 accesses");
}

TEST(CommandLineProcessTest, NoDeviceIsAUsageErrorThatSaysWhatToGive)
{
    const std::map<std::string, std::string> lNone = {{"KYSERIAL_DEVICE", ""},
                                                      {"XDG_CONFIG_HOME", Process::TemporaryFile("")}};
    for (const std::vector<std::string>& lArguments :
         {std::vector<std::string>{"ports"}, {"spi", "flash", "erase", "--chip", "-y", "--port", "bulk3"}})
    {
        const ToolResult lResult = RunTool(lArguments, {}, lNone);
        EXPECT_EQ(2, lResult.mStatus);
        EXPECT_EQ("", lResult.mOutput);
        EXPECT_EQ(
            "kyserial: no device is given; use --device DEVICE, the environment variable KYSERIAL_DEVICE or "
            "the configuration file (--device sim is the simulated camera; 'kyserial devices' lists "
            "others)\n",
            lResult.mError);
    }
    EXPECT_EQ(0, RunTool({"ports", "--device", "sim"}, {}, lNone).mStatus);
}

TEST(CommandLineProcessTest, ConfigurationFileHasTheDeviceAndAliases)
{
    const std::filesystem::path lFolder = Process::TemporaryFile("");
    std::filesystem::create_directories(lFolder / "kyserial");
    ASSERT_TRUE(WriteFile((lFolder / "kyserial" / "config.toml").string(),
                          "device = \"bench\"\n[devices]\nbench = \"sim\"\nbroken = \"gev://nowhere\"\n"));
    const std::map<std::string, std::string> lOwn = {{"KYSERIAL_DEVICE", ""},
                                                     {"XDG_CONFIG_HOME", lFolder.string()}};
    EXPECT_EQ(0, RunTool({"ports"}, {}, lOwn).mStatus);
    EXPECT_EQ(0, RunTool({"ports", "--device", "bench"}, {}, lOwn).mStatus);
    EXPECT_EQ(2, RunTool({"ports", "--device", "broken"}, {}, lOwn).mStatus);
    std::filesystem::remove_all(lFolder);
}

TEST(CommandLineProcessTest, HelpListsTheSimulatorsOptionsOnDemandOnly)
{
    EXPECT_THAT(RunTool({"ports", "--help"}).mOutput, testing::Not(HasSubstr("--sim-")));
    EXPECT_THAT(RunTool({"ports", "--help-sim"}).mOutput, HasSubstr("--sim-cut"));
    EXPECT_THAT(RunTool({"ports", "--device", "sim", "--help"}).mOutput, HasSubstr("--sim-cut"));
    EXPECT_THAT(RunTool({"ports", "--device", "gev://10.0.0.1", "--help"}).mOutput,
                testing::Not(HasSubstr("--sim-")));
}

TEST(CommandLineProcessTest, LogLevelShowsTheLibrarysLogAndBrokenAssertionsDoNotEndTheProgram)
{
    // An I2C bus on bulk port 2 makes the library ask the registers of bulk port 0 about it, which breaks an
    // assertion.
    const std::vector<std::string> lCommand = {"i2c",  "get",    "-y",    "--retries",
                                               "1000", "--port", "bulk2", "0x48"};
    EXPECT_EQ("", RunTool(lCommand).mError);

    std::vector<std::string> lLogging = lCommand;
    lLogging.insert(lLogging.end(), {"--log-level", "fatal"});
    const ToolResult lResult = RunTool(lLogging);
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("0x19\n", lResult.mOutput);
    EXPECT_THAT(lResult.mError, MatchesPattern("[^\n]* FATAL [^\n]*: Port 4 is invalid\r?\n"));

    lLogging.back() = "debug";
    const std::string lLog = RunTool(lLogging).mError;
    EXPECT_THAT(lLog, HasSubstr("sending 3 bytes of data"));
    if (JxUtilsLib::cAssertionsEnabled)
    {
        EXPECT_THAT(lLog, HasSubstr("Assertion \"false\" does not hold; going on."));
    }
}

TEST(CommandLineProcessTest, BrokenOutputIsAFailureInOneLine)
{
    Process lTool;
    ASSERT_TRUE(lTool.Start("kyserial", {"ports"}, {Process::Input::File, {}, true, false}));
    EXPECT_EQ(1, lTool.Wait());
    EXPECT_EQ("kyserial: cannot write to the standard output\n", lTool.Error());
}

} // namespace
