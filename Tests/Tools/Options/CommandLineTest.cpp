#include "Tools/CommandRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>
#include <vector>

namespace
{

using KyTest::CapturedResult;
using KyTest::RunCommand;
using KyTest::RunOnCamera;
using testing::HasSubstr;
using testing::StartsWith;

/// Words after the program's name, and what becomes of them.
struct CommandCase
{
    std::vector<std::string> mWords;
    int mStatus;
    const char* mError;
};

TEST(CommandLineTest, EachEndHasItsStatusAndItsReason)
{
    const std::vector<CommandCase> lCases = {
        {{"--version"}, 0, ""},
        {{"ports", "--help"}, 0, ""},
        {{}, 2, "kyserial: no command after 'kyserial'; use devices, doctor, "},
        {{"spi", "flash"}, 2, "kyserial: no command after 'kyserial spi flash'; use "},
        {{"ports", "--bogus"}, 2, "kyserial: \"--bogus\" does not belong here; "},
        {{"ports", "--device", ""}, 2, "kyserial: --device: the name is empty; "},
        {{"features", "get", "Nothing", "--device", "sim"}, 1, "kyserial: cannot read Nothing: 0x8001: "},
        {{"ports", "--device", "sim", "--sim-cut", "1"},
         1,
         "kyserial: the connection to the device was lost"}};
    for (const CommandCase& lCase : lCases)
    {
        const CapturedResult lResult = RunCommand(lCase.mWords);
        EXPECT_EQ(lCase.mStatus, lResult.mStatus) << lCase.mError;
        EXPECT_THAT(lResult.mError, StartsWith(lCase.mError));
        EXPECT_EQ(lCase.mStatus == 0, lResult.mError.empty());
        EXPECT_EQ(lCase.mStatus == 0, !lResult.mOutput.empty()) << lCase.mError;
    }
}

// The camera writes its state at its end, so the file shows whether there was a camera.
TEST(CommandLineTest, AWrongWordTouchesNoDevice)
{
    const std::string lState = KyTest::Process::TemporaryFile(".state");
    const std::vector<std::string> lGood = {"features", "get", "BulkMode", "--sim-state", lState};
    std::vector<std::string> lWrong = lGood;
    lWrong.emplace_back("--bogus");
    EXPECT_EQ(2, RunOnCamera(lWrong).mStatus);
    EXPECT_FALSE(std::filesystem::exists(lState));
    EXPECT_EQ(0, RunOnCamera(lGood).mStatus);
    EXPECT_TRUE(std::filesystem::remove(lState));
}

TEST(CommandLineTest, AStateThatIsLostIsAFailureOfACommandThatHasWorked)
{
    const CapturedResult lResult =
        RunOnCamera({"features", "get", "BulkMode", "--sim-state", "missing-folder/camera.state"});
    EXPECT_EQ("UART\n", lResult.mOutput);
    EXPECT_EQ(1, lResult.mStatus);
    EXPECT_THAT(lResult.mError, HasSubstr("cannot write missing-folder/camera.state"));
}

// Manual pages and completion are made of it.
TEST(CommandLineTest, TheDescriptionHasEveryCommand)
{
    const CapturedResult lResult = RunCommand({"--describe"});
    EXPECT_EQ(0, lResult.mStatus);
    const nlohmann::json lDescription = nlohmann::json::parse(lResult.mOutput);
    std::vector<std::string> lNames;
    for (const auto& lCommand : lDescription["commands"])
    {
        lNames.push_back(lCommand["name"]);
    }
    EXPECT_THAT(lNames, testing::IsSupersetOf({"kyserial bridge", "kyserial clser", "kyserial devices",
                                               "kyserial doctor", "kyserial features", "kyserial i2c",
                                               "kyserial ports", "kyserial serve", "kyserial spi",
                                               "kyserial status", "kyserial term"}));
}

} // namespace
