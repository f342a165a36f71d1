#include "Support/Process.h"

#include <Simulator/Camera/CameraWithDevices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

namespace
{

using namespace KySimulator;
using KyTest::Process;

constexpr size_t cStateSize = 2 * 256 + 65536; // two EEPROMs and the flash memory

class CameraWithDevicesTest : public testing::Test
{
protected:
    ~CameraWithDevicesTest() override
    {
        static_cast<void>(std::remove(mFile.c_str())); // ignored: a test may not have made it
    }

    static std::string Get(const CameraWithDevices& aCamera, const std::string& aName)
    {
        std::string lValue;
        EXPECT_TRUE(aCamera.GetCamera()->GetText(aName, lValue).IsOk()) << aName;
        return lValue;
    }
    /// The camera's state, as a file has it.
    std::string StateOf(const CameraWithDevices& aCamera)
    {
        EXPECT_TRUE(aCamera.SaveState(mFile));
        return KyTest::ReadFile(mFile);
    }

    const std::string mFile = Process::TemporaryFile(".state");
};

TEST_F(CameraWithDevicesTest, StateGoesThroughAFile)
{
    std::string lState(cStateSize, '\0');
    for (size_t lByte = 0; lByte < lState.size(); ++lByte)
    {
        lState[lByte] = static_cast<char>(lByte * 7 + lByte / 256);
    }
    ASSERT_TRUE(KyTest::WriteFile(mFile, lState));
    CameraWithDevices lCamera({});
    EXPECT_TRUE(lCamera.LoadState(mFile));
    EXPECT_TRUE(StateOf(lCamera) == lState);
}

TEST_F(CameraWithDevicesTest, AFileThatDoesNotExistLeavesTheMemoriesEmpty)
{
    CameraWithDevices lCamera({});
    EXPECT_TRUE(lCamera.LoadState(mFile));
    EXPECT_TRUE(StateOf(lCamera) == std::string(cStateSize, '\xFF'));
}

TEST_F(CameraWithDevicesTest, AFileOfAnotherSizeIsRefusedAndChangesNothing)
{
    for (const size_t lSize : {size_t(0), size_t(1), cStateSize - 1, cStateSize + 1, 2 * cStateSize})
    {
        ASSERT_TRUE(KyTest::WriteFile(mFile, std::string(lSize, 'x')));
        CameraWithDevices lCamera({});
        EXPECT_FALSE(lCamera.LoadState(mFile)) << lSize;
        EXPECT_TRUE(StateOf(lCamera) == std::string(cStateSize, '\xFF')) << lSize;
    }
}

TEST_F(CameraWithDevicesTest, AFileThatCannotBeWrittenIsAFailure)
{
    EXPECT_FALSE(CameraWithDevices({}).SaveState(mFile + "/missing/state"));
}

TEST_F(CameraWithDevicesTest, PortsStartInTheProtocolOfWhatIsOnThem)
{
    const CameraWithDevices lCamera({});
    for (const auto& [lPort, lMode] : {std::pair("Bulk0", "UART"), {"Bulk2", "I2C"}, {"Bulk3", "SPI"}})
    {
        ASSERT_TRUE(lCamera.GetCamera()->SetText("BulkSelector", lPort).IsOk());
        EXPECT_EQ(lMode, Get(lCamera, "BulkMode")) << lPort;
    }
}

TEST_F(CameraWithDevicesTest, OptionsDecideOnLineTimeAndUarts)
{
    CameraConfiguration lWanted;
    lWanted.mUserID = "left";
    lWanted.mUnlimitedLineRate = true; // follows from the options instead
    const CameraWithDevices lUsual({}, lWanted);
    EXPECT_GT(lUsual.GetCamera()->GetByteTime(Port::Uart1), Time(0));
    EXPECT_EQ("left", Get(lUsual, "DeviceUserID"));

    const CameraWithDevices lFast({true, false});
    EXPECT_EQ(Time(0), lFast.GetCamera()->GetByteTime(Port::Uart1));

    const CameraWithDevices lWithoutUarts({false, true});
    EXPECT_EQ(FeatureKind::None, lWithoutUarts.GetCamera()->GetFeatureKind("Uart0BaudRate"));
    EXPECT_EQ(FeatureKind::Enumeration, lWithoutUarts.GetCamera()->GetFeatureKind("BulkBaudRate"));
}

} // namespace
