#include "Support/PatternMatcher.h"
#include "Tools/ToolRun.h"

#include <JxUtilsLib/Assert.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cctype>
#include <filesystem>
#include <sstream>

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

/// Calls aLook with each command of the program, as "--describe" has it.
template<typename Look>
void ForEachCommand(const nlohmann::json& aCommand, const Look& aLook)
{
    aLook(aCommand);
    for (const nlohmann::json& lBelow : aCommand["commands"])
    {
        ForEachCommand(lBelow, aLook);
    }
}

std::vector<std::string> SplitWords(const std::string& aText)
{
    std::istringstream lStream(aText);
    std::vector<std::string> lWords;
    for (std::string lWord; lStream >> lWord;)
    {
        lWords.push_back(lWord);
    }
    return lWords;
}

TEST(CommandLineProcessTest, EachHelpFitsOnAPageAndHasAnExample)
{
    const auto lProgram = nlohmann::json::parse(RunTool({"--describe"}).mOutput);
    size_t lCommands = 0;
    ForEachCommand(lProgram,
                   [&](const nlohmann::json& aCommand)
                   {
                       const auto lName = aCommand["name"].get<std::string>();
                       std::vector<std::string> lArguments = SplitWords(lName);
                       lArguments.erase(lArguments.begin());
                       lArguments.emplace_back("--help");
                       std::istringstream lHelp(RunTool(lArguments).mOutput);
                       size_t lLines = 0;
                       for (std::string lLine; std::getline(lHelp, lLine); ++lLines)
                       {
                           EXPECT_LE(lLine.size(), 80U) << lName << ": " << lLine;
                       }
                       EXPECT_GT(lLines, 5U) << lName;
                       EXPECT_LE(lLines, 40U) << lName;
                       EXPECT_THAT(aCommand["notes"].get<std::string>(), HasSubstr("Example")) << lName;
                       ++lCommands;
                   });
    EXPECT_GE(lCommands, 20U);
}

TEST(CommandLineProcessTest, EachNumberOfTheHelpHasItsUnit)
{
    const auto lProgram = nlohmann::json::parse(RunTool({"--describe"}).mOutput);
    size_t lNumbers = 0;
    ForEachCommand(
        lProgram,
        [&](const nlohmann::json& aCommand)
        {
            for (const nlohmann::json& lOption : aCommand["options"])
            {
                const auto lValue = lOption["value"].get<std::string>();
                auto lHelp = lOption["help"].get<std::string>();
                if (lValue != "N" && lValue != "MS" && lValue != "BYTES")
                {
                    continue;
                }
                lHelp[0] = static_cast<char>(std::tolower(lHelp[0]));
                ++lNumbers;
                EXPECT_THAT(lHelp, MatchesPattern(
                                       ".*(milliseconds|seconds|bytes?|bits per second|bits|times|port).*"))
                    << aCommand["name"] << ' ' << lOption["names"];
            }
        });
    EXPECT_GE(lNumbers, 15U);
}

TEST(CommandLineProcessTest, ADirectoryInThePlaceOfAFileIsNamed)
{
    const std::string lFolder = Process::ProgramFolder();
    for (const std::vector<std::string>& lArguments :
         {std::vector<std::string>{"ports", "--sim-state", lFolder},
          {"term", "--port", "bulk4", "--log", lFolder},
          {"i2c", "eeprom", "read", "-y", "--port", "bulk2", lFolder},
          {"spi", "flash", "write", "-y", "--port", "bulk3", lFolder}})
    {
        const ToolResult lResult = RunTool(lArguments);
        EXPECT_EQ(1, lResult.mStatus) << lArguments.front();
        EXPECT_THAT(lResult.mError, MatchesPattern("kyserial: [^\n]*is a directory\n"));
    }
}

TEST(CommandLineProcessTest, AFileMayBeginWithASlashOnBothSystems)
{
    const ToolResult lResult = RunTool({"i2c", "eeprom", "write", "-y", "--port", "bulk2", "/missing/image"});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError, MatchesPattern("kyserial: [^\n]*/missing/image[^\n]*\n"));
}

TEST(CommandLineProcessTest, MisspelledWordsAreUnderstood)
{
    ExpectUsageError({"prots"}, "kyserial: \"prots\" does not belong here; did you mean ports?");
    ExpectUsageError({"i2c", "dmup"}, "kyserial: \"dmup\" does not belong here; did you mean dump?");
    ExpectUsageError({"ports", "--devcie", "sim"},
                     "kyserial: \"--devcie\" does not belong here; did you mean --device?");
    ExpectUsageError({"term", "--port", "uart0", "--parity", "evn"},
                     "kyserial: --parity: \"evn\" does not fit; did you mean even?");
    ExpectUsageError({"term", "--port", "uart0", "--timestamps", "esteps"},
                     "kyserial: --timestamps: \"esteps\" does not fit; did you mean step?");
    ExpectUsageError({"ports", "--log-level", "wraning"},
                     "kyserial: --log-level: \"wraning\" does not fit; did you mean warning?");
}

TEST(CommandLineProcessTest, ControlCharactersOfArgumentsAreWrittenOut)
{
    ExpectUsageError(
        {"ports", "--log-level", "a\x1B[2Jb\nc"},
        "kyserial: --log-level: \"a\\x1b[2Jb\\nc\" does not fit; use debug, info, warning, error, "
        "fatal or off");
}

TEST(CommandLineProcessTest, MissingValueIsAUsageErrorInOurWords)
{
    ExpectUsageError({"term", "--port"},
                     "kyserial: --port: the value is missing; use --port PORT; see 'kyserial term --help'");
}

TEST(CommandLineProcessTest, NoDeviceOnTheNetworkIsSaid)
{
    // Nobody listens on the loop-back network's discard port.
    const ToolResult lResult =
        RunTool({"devices", "--address", "127.0.0.1", "--udp-port", "9", "--time", "10"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("", lResult.mOutput);
    EXPECT_THAT(lResult.mError, HasSubstr("no device has answered within 10 milliseconds"));
}

TEST(CommandLineProcessTest, EachCommandHasHelpOfItsOwn)
{
    EXPECT_THAT(RunTool({"ports", "--help"}).mOutput, HasSubstr("Usage: kyserial ports "));
    EXPECT_THAT(RunTool({"term", "--help"}).mOutput, HasSubstr("--quiet-time"));
    EXPECT_THAT(RunTool({"i2c", "get", "--help"}).mOutput, HasSubstr("Usage: kyserial i2c get "));
}

TEST(CommandLineProcessTest, SaysItsVersion)
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
    ExpectUsageError({"terminal"},
                     "kyserial: \"terminal\" does not belong here; use devices, doctor, features, "
                     "ports, term, bridge, serve, status, clser, i2c "
                     "or spi");
    ExpectUsageError(
        {}, "kyserial: no command after 'kyserial'; use devices, doctor, features, ports, term, bridge, "
            "serve, status, clser, i2c "
            "or spi");
    ExpectUsageError({"spi"}, "kyserial: no command after 'kyserial spi'; use transfer or flash");
}

TEST(CommandLineProcessTest, StateThatCannotBeWrittenAtTheEndIsAFailure)
{
    const std::string lFile = Process::TemporaryFile(".none") + "/state";
    const ToolResult lResult = RunTool({"ports", "--device", "sim", "--sim-state", lFile});
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_EQ(lResult.mError,
              "kyserial: --sim-state: cannot write " + lFile + ": No such file or directory\n");
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
        "kyserial: --log-level: \"loud\" does not fit; use debug, info, warning, error, fatal or off");
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
                          "device = \"bench\"\n[devices]\nbench = \"sim\"\nbroken = \"gev://no where\"\n"));
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
