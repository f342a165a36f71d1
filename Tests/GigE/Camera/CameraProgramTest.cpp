#include "kyserial-camera/CameraProgram.h"

#include "Support/CapturedRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace
{

using KyTest::CapturedResult;
using testing::EndsWith;
using testing::StartsWith;

/// Runs kyserial-camera within the test, at a free port unless aWords say otherwise.
CapturedResult RunCamera(std::vector<std::string> aWords, const std::string& aInput = {})
{
    aWords.insert(aWords.begin(), {"kyserial-camera", "--no-broadcast"});
    std::vector<const char*> lArguments;
    lArguments.reserve(aWords.size());
    for (const std::string& lWord : aWords)
    {
        lArguments.push_back(lWord.c_str());
    }
    return KyTest::CapturedRun(
        [&](KyToolPlatform::Console& aConsole) {
            return KySerialCamera::RunProgram(static_cast<int>(lArguments.size()), lArguments.data(),
                                              aConsole);
        },
        aInput);
}

/// What the console answers to its input, one line for each; the input has to end the program.
std::vector<std::string> AnswersTo(const std::string& aInput)
{
    const CapturedResult lResult = RunCamera({"--port", "0"}, aInput);
    EXPECT_EQ(0, lResult.mStatus) << lResult.mError;
    EXPECT_EQ("", lResult.mError);
    std::vector<std::string> lLines;
    std::string lLine;
    for (const char lCharacter : lResult.mOutput)
    {
        if (lCharacter == '\n')
        {
            lLines.push_back(std::exchange(lLine, {}));
        }
        else
        {
            lLine += lCharacter;
        }
    }
    EXPECT_GE(lLines.size(), 2U);
    if (lLines.size() >= 2)
    {
        EXPECT_THAT(lLines.front(), StartsWith("kyserial-camera: ready at 127.0.0.1:"));
        EXPECT_THAT(lLines.back(), StartsWith("statistics: commands=0 "));
        lLines.erase(lLines.begin());
        lLines.pop_back();
    }
    return lLines;
}

TEST(CameraProgramTest, TakesALineAtATimeUntilItIsToEnd)
{
    EXPECT_EQ((std::vector<std::string>{"ok", "ok"}), AnswersTo("drop ack 2\nquit\nhelp\n"));
    EXPECT_EQ((std::vector<std::string>{"ok", "ok"}), AnswersTo("drop ack 2\r\n\r\n  \nquit\r\n"))
        << "empty lines have no answer";
}

TEST(CameraProgramTest, TheLastLineNeedsNoEnd)
{
    EXPECT_EQ((std::vector<std::string>{"ok", "ok"}), AnswersTo("clear\nquit"));
}

TEST(CameraProgramTest, AnEndlessLineIsCutAndRefused)
{
    const std::vector<std::string> lAnswers = AnswersTo(std::string(30000, 'x') + "\nquit\n");
    ASSERT_EQ(2U, lAnswers.size());
    EXPECT_EQ("error: \"" + std::string(10000, 'x') + "\" is no command; 'help' lists them", lAnswers[0]);
}

TEST(CameraProgramTest, ShowsWhatItIsAskedFor)
{
    for (const auto& [lOption, lText] : {std::pair("--version", "kyserial-camera "),
                                         {"--help", "Usage: kyserial-camera [OPTIONS]\n"},
                                         {"--describe", ""}})
    {
        const CapturedResult lResult = RunCamera({lOption});
        EXPECT_EQ(0, lResult.mStatus) << lOption;
        EXPECT_THAT(lResult.mOutput, StartsWith(lText));
        EXPECT_THAT(lResult.mOutput, EndsWith("\n"));
        EXPECT_EQ("", lResult.mError);
    }
}

TEST(CameraProgramTest, RefusesACommandLineThatMakesNoSense)
{
    const std::pair<std::vector<std::string>, std::string> lCases[] = {
        {{"--address", "localhost"},
         "--address: \"localhost\" is no address; use four numbers like 127.0.0.1"},
        {{"--address", "0.0.0.0"}, "--address: \"0.0.0.0\" is no address; use four numbers like 127.0.0.1"},
        {{"--mac", "12"}, "--mac: \"12\" does not fit; use 12 hexadecimal digits"},
        {{"--mac", "0A0B0C0D0E0G"}, "--mac: \"0A0B0C0D0E0G\" does not fit; use 12 hexadecimal digits"},
        {{"--mac", "0A0B0C0D0E0F0"}, "--mac: \"0A0B0C0D0E0F0\" does not fit; use 12 hexadecimal digits"},
        {{"--serial", "12345678901234567"},
         "--serial: \"12345678901234567\" is too long; use 16 characters at most"},
        {{"--user-id", "12345678901234567"},
         "--user-id: \"12345678901234567\" is too long; use 16 characters at most"},
        {{"--events-per-packet", "0"}, "--events-per-packet: \"0\" does not fit; use 1 to 33"},
        {{"--events-per-packet", "34"}, "--events-per-packet: \"34\" does not fit; use 1 to 33"},
        {{"--events-per-packet", "3x"}, "--events-per-packet: \"3x\" does not fit; use 1 to 33"},
        {{"--drop", "ack"}, "--drop: \"ack\" does not fit; use drop WHAT N"},
        {{"--delay", "acks:1:5"},
         "--delay: \"acks:1:5\" does not fit; use command, ack, event or event-ack, and numbers up to "
         "1000000"},
        {{"--busy", "x"}, "--busy: \"x\" does not fit; use numbers up to 1000000"},
        {{"--fsat"}, "\"--fsat\" does not belong here; did you mean --fast?"},
        {{"--port", "x\x1By"}, "--port: \"x\\x1by\" does not fit; see 'kyserial-camera --help'"},
        {{"--address"},
         "--address: the value is missing; use --address ADDRESS; see "
         "'kyserial-camera --help'"}};
    for (const auto& [lWords, lReason] : lCases)
    {
        const CapturedResult lResult = RunCamera(lWords, "quit\n"); // one that starts all the same ends
        EXPECT_EQ(2, lResult.mStatus) << lReason;
        EXPECT_EQ("kyserial-camera: " + lReason + '\n', lResult.mError);
        EXPECT_EQ("", lResult.mOutput);
    }
}

TEST(CameraProgramTest, AStateThatCannotBeUsedIsAFailure)
{
    const std::string lState = KyTest::Process::TemporaryFile(".state");
    ASSERT_TRUE(KyTest::WriteFile(lState, "short"));
    const std::pair<std::string, std::string> lCases[] = {
        {lState, "--state: " + lState + " was not written by this program"},
        {std::filesystem::temp_directory_path().string(),
         "--state: " + std::filesystem::temp_directory_path().string() + " is a directory"}};
    for (const auto& [lPath, lReason] : lCases)
    {
        const CapturedResult lResult = RunCamera({"--port", "0", "--state", lPath}, "quit\n");
        EXPECT_EQ(1, lResult.mStatus) << lReason;
        EXPECT_EQ("kyserial-camera: " + lReason + '\n', lResult.mError);
    }
    static_cast<void>(std::remove(lState.c_str())); // ignored: it lies in the temporary folder
}

} // namespace
