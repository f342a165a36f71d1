#include "CommandLine/Explain.h"
#include "CommandLine/HelpPage.h"
#include "CommandLine/PlainText.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

using namespace KyCommandLine;
using testing::HasSubstr;

namespace
{

TEST(PlainTextTest, ControlCharactersAreWrittenOut)
{
    EXPECT_EQ("a\\nb\\rc\\td\\x1b[2J\\x7f", Escaped("a\nb\rc\td\x1B[2J\x7F"));
    EXPECT_EQ("\\xc2\\x9b2J", Escaped("\xC2\x9B"
                                      "2J"))
        << "a control character in UTF-8";
    EXPECT_EQ("gr\xC3\xBC\xC3\x9F \xC2\xB5m", Escaped("gr\xC3\xBC\xC3\x9F \xC2\xB5m"));
    EXPECT_EQ("a\\x00b", Escaped(std::string("a\0b", 3)));
}

TEST(PlainTextTest, TheNearestWordIsTheOneThatWasMeant)
{
    const std::vector<std::string> lWords = {"ports", "term", "transfer", "--baud", "--timestamps"};
    EXPECT_EQ("ports", Nearest("prots", lWords));
    EXPECT_EQ("ports", Nearest("port", lWords));
    EXPECT_EQ("term", Nearest("trem", lWords));
    EXPECT_EQ("--timestamps", Nearest("--time", lWords)) << "a beginning";
    EXPECT_EQ("--baud", Nearest("--buad", lWords));
    EXPECT_EQ(std::nullopt, Nearest("devices", lWords));
    EXPECT_EQ(std::nullopt, Nearest(std::string(100000, 'x'), lWords));
}

TEST(PlainTextTest, LinesBreakBetweenWords)
{
    EXPECT_EQ("one two\n  three\n  four", Wrapped("one two three\nfour", 10, 2));
    EXPECT_EQ("a\n  kept as it is, however long", Wrapped("a\n  kept as it is, however long", 8));
    EXPECT_EQ("unbreakable\nword", Wrapped("unbreakable word", 5));
}

/// A program with one command.
class ExplainTest : public testing::Test
{
protected:
    ExplainTest()
    {
        mProgram.formatter(std::make_shared<HelpPage>());
        mRead = mProgram.add_subcommand("read", "Read something");
        mRead->add_option("--count", mCount, "Number of bytes")->type_name("N");
        mRead->add_option("NAME", mName, "What to read")->required();
        CLI::Option* const lQuick = mRead->add_flag("--quick", mFlag, "In a hurry");
        mRead->add_flag("--slow", mFlag, "With care")->excludes(lQuick);
        mRead->add_flag("--secret", mFlag, "Not shown")->group("");
        mRead->footer("A note.\n\nExample:\n  program read x");
    }
    std::string Complaint(const std::string& aLine)
    {
        try
        {
            mProgram.parse(aLine);
        }
        catch (const CLI::ParseError& lError)
        {
            return Explain(mProgram, lError);
        }
        return "";
    }

    CLI::App mProgram{"A program", "program"};
    CLI::App* mRead = nullptr;
    int mCount = 0;
    bool mFlag = false;
    std::string mName;
};

TEST_F(ExplainTest, EachComplaintIsInOurWords)
{
    EXPECT_EQ("", Complaint("read x"));
    EXPECT_EQ("\"raed\" does not belong here; did you mean read?", Complaint("raed"));
    EXPECT_EQ("\"write\" does not belong here; use read", Complaint("write"));
    EXPECT_EQ("\"--cuont\" does not belong here; did you mean --count?", Complaint("read x --cuont 3"));
    EXPECT_EQ("\"--other\" does not belong here; 'program read --help' lists what does",
              Complaint("read x --other"));
    EXPECT_EQ("\"y\" does not belong here; 'program read --help' lists what does", Complaint("read x y"));
    EXPECT_EQ("NAME is required; see 'program read --help'", Complaint("read"));
    EXPECT_EQ("--count: the value is missing; use --count N; see 'program read --help'",
              Complaint("read x --count"));
    EXPECT_EQ("--count: \"three\" does not fit; see 'program read --help'",
              Complaint("read x --count three"));
    EXPECT_EQ("--quick and --slow exclude each other; see 'program read --help'",
              Complaint("read x --quick --slow"));
}

TEST_F(ExplainTest, HelpPageHasSyntaxOptionsNotesAndExamples)
{
    EXPECT_EQ("Usage: program read [OPTIONS] NAME\n"
              "Read something\n"
              "\n"
              "  NAME                 What to read\n"
              "\n"
              "Options:\n"
              "  --count N            Number of bytes\n"
              "  --quick              In a hurry\n"
              "  --slow               With care\n"
              "  -h, --help           Print this help message and exit\n"
              "\n"
              "A note.\n"
              "\n"
              "Example:\n"
              "  program read x\n",
              mRead->help());
    EXPECT_THAT(mProgram.help(), HasSubstr("Usage: program [OPTIONS] COMMAND\nA program\n\nCommands:\n"
                                           "  read                 Read something\n"));
}

TEST_F(ExplainTest, DescriptionHasWhatTheHelpHas)
{
    const auto lDescription = nlohmann::json::parse(Description(mProgram));
    EXPECT_EQ("program", lDescription["name"]);
    const auto& lRead = lDescription["commands"][0];
    EXPECT_EQ("program read", lRead["name"]);
    EXPECT_EQ("[OPTIONS] NAME", lRead["syntax"]);
    EXPECT_EQ("NAME", lRead["arguments"][0]["value"]);
    EXPECT_EQ(4U, lRead["options"].size()) << "the hidden one is left out";
    EXPECT_EQ("--count", lRead["options"][1]["names"][0]);
    EXPECT_EQ("N", lRead["options"][1]["value"]);
    EXPECT_EQ("", lRead["options"][2]["value"]);
}

} // namespace
