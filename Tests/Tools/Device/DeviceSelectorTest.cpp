#include "kyserial/Device/DeviceSelector.h"
#include "kyserial/Device/DeviceName.h"
#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace
{

using namespace KySerialTool;
using testing::HasSubstr;
using testing::ThrowsMessage;

class DeviceSelectorTest : public testing::Test
{
protected:
    DeviceSelectorTest() { AddDeviceOptions(mCommand, mSelection); }

    void Parse(std::vector<std::string> aWords)
    {
        std::reverse(aWords.begin(), aWords.end()); // as the parser takes them
        mCommand.parse(aWords);
    }
    /// Whether the help lists the options of the simulated camera after a command line.
    bool IsSimulatorShown(const std::vector<std::string>& aWords)
    {
        CLI::App lCommand;
        DeviceSelection lSelection;
        AddDeviceOptions(lCommand, lSelection);
        std::vector<std::string> lWords(aWords.rbegin(), aWords.rend());
        try
        {
            lCommand.parse(lWords);
        }
        catch (const CLI::CallForHelp&) // of --help-sim
        {
        }
        ShowSimulatorOptions(lCommand);
        return lCommand.help().find("--sim-fast") != std::string::npos;
    }

    CLI::App mCommand;
    DeviceSelection mSelection;
    KyToolPlatform::Console mConsole;
};

TEST_F(DeviceSelectorTest, OptionsSayWhichDeviceAndHowTheSimulatedOneDiffers)
{
    Parse({"--device", "sim", "--sim-fast", "--sim-state", "file", "--sim-cut", "5", "--sim-back", "7"});
    EXPECT_EQ("sim", mSelection.mName);
    EXPECT_TRUE(mSelection.mSimulator.mFast);
    EXPECT_FALSE(mSelection.mSimulator.mFeaturesOnly);
    EXPECT_EQ("file", mSelection.mSimulator.mStateFile);
    EXPECT_EQ(5U, mSelection.mSimulator.mCutAfter);
    EXPECT_EQ(7U, mSelection.mSimulator.mBackAfter);
}

TEST_F(DeviceSelectorTest, WrongValuesAreRefusedWithWhatWouldBeRight)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> lCases = {
        {{"--device", ""}, "the name is empty; use sim"},
        {{"--device", "gev://some where"}, "is no IPv4 address and no name of a host"},
        {{"--sim-cut", "-1"}, "\"-1\" does not fit; use 0 to 4294967295 accesses"},
        {{"--sim-back", "3600001"}, "\"3600001\" does not fit; use 0 to 3600000 milliseconds"}};
    for (const auto& lCase : lCases)
    {
        EXPECT_THAT([&] { Parse(lCase.first); },
                    ThrowsMessage<CLI::ValidationError>(HasSubstr(lCase.second)));
    }
    EXPECT_EQ("", mSelection.mName);
}

TEST_F(DeviceSelectorTest, TheHelpShowsTheSimulatedCameraOnRequest)
{
    EXPECT_FALSE(IsSimulatorShown({}));
    EXPECT_FALSE(IsSimulatorShown({"--device", "gev://10.0.0.1"}));
    EXPECT_TRUE(IsSimulatorShown({"--device", "sim"}));
    EXPECT_TRUE(IsSimulatorShown({"--help-sim"}));
    CLI::App lWithoutDevice;
    ShowSimulatorOptions(lWithoutDevice); // does nothing
    EXPECT_EQ(nullptr, lWithoutDevice.get_option_no_throw("--device"));
}

TEST_F(DeviceSelectorTest, TheSimulatedCameraIsOpenedWithItsFeatures)
{
    mSelection.mName = "sim";
    mSelection.mSimulator.mFeaturesOnly = true;
    const std::unique_ptr<Device> lDevice = OpenDevice(mSelection, mConsole, DeviceAccess::Control);
    EXPECT_TRUE(lDevice->GetAdapter().IsConnected());
    bool lMode = false;
    for (const FeatureFinding& lFinding : lDevice->ReadFeatures())
    {
        const DeviceFeature& lFeature = lFinding.mFeature;
        EXPECT_NE("Uart0BaudRate", lFeature.mName);
        lMode = lMode || (lFeature.mName == "BulkMode" && lFeature.mKind == "Enumeration");
    }
    EXPECT_TRUE(lMode);
}

// A text that did not come from the command line, but from the environment or a file, was not looked at before.
TEST_F(DeviceSelectorTest, ATextWithoutADeviceIsAUsageError)
{
    mSelection.mName = "gev://cam_era";
    EXPECT_THAT([&] { OpenDevice(mSelection, mConsole, DeviceAccess::Control); },
                ThrowsMessage<UsageError>(HasSubstr("use gev://ADDRESS-OR-HOST[:PORT]")));
}

TEST_F(DeviceSelectorTest, AConnectionCountsWhileItIsTheSame)
{
    mSelection.mName = "sim";
    mSelection.mSimulator.mCutAfter = 3;
    const std::unique_ptr<Device> lDevice = OpenDevice(mSelection, mConsole, DeviceAccess::Control);
    const uint64_t lGeneration = lDevice->GetGeneration();
    EXPECT_NO_THROW(CheckConnection(*lDevice, lGeneration));
    const auto lLost = ThrowsMessage<OperationError>("the connection to the device was lost");
    EXPECT_THAT([&] { CheckConnection(*lDevice, lGeneration + 1); }, lLost) << "it was away in between";
    EXPECT_THAT([&] { CheckConnection(*lDevice, lGeneration); }, lLost) << "the third access finds it cut";
}

} // namespace
