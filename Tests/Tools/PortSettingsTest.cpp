#include "kyserial/Device/PortSettings.h"

#include "Simulator/Camera/SimulatedDeviceAdapter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

using namespace KySerialTool;
using testing::ElementsAre;
using testing::Pair;

namespace
{

class PortSettingsTest : public testing::Test
{
protected:
    std::shared_ptr<KySimulator::CameraModel> mCamera = std::make_shared<KySimulator::CameraModel>();
    KySimulator::SimulatedDeviceAdapter mDevice{mCamera};
};

TEST_F(PortSettingsTest, AreThoseOfTheUart)
{
    ASSERT_TRUE(mDevice.SetFeatureFromString("Uart1BaudRate", "Baud115200").IsOK());
    PortSettings lSettings(KyDeviceSerialUart1);
    lSettings.Read(mDevice);
    EXPECT_THAT(lSettings.GetValues(),
                ElementsAre(Pair("Uart1Parity", "None"), Pair("Uart1NumOfStopBits", "One"),
                            Pair("Uart1BaudRate", "Baud115200")));
}

TEST_F(PortSettingsTest, AreWrittenToADeviceThatHasLostThem)
{
    ASSERT_TRUE(mDevice.SetFeatureFromString("BulkSelector", "Bulk3").IsOK());
    ASSERT_TRUE(mDevice.SetFeatureFromString("BulkBaudRate", "Baud57600").IsOK());
    PortSettings lSettings(KyDeviceSerialBulk3);
    lSettings.Read(mDevice);
    ASSERT_TRUE(mDevice.SetFeatureFromString("BulkBaudRate", "Baud9600").IsOK());
    ASSERT_TRUE(mDevice.SetFeatureFromString("BulkMode", "I2C").IsOK());
    ASSERT_TRUE(mDevice.SetFeatureFromString("BulkSelector", "Bulk0").IsOK());
    EXPECT_TRUE(lSettings.Write(mDevice));
    KyString lValue;
    EXPECT_TRUE(mDevice.GetFeatureAsString("BulkSelector", lValue).IsOK());
    EXPECT_STREQ(lValue.GetAscii(), "Bulk3");
    EXPECT_TRUE(mDevice.GetFeatureAsString("BulkBaudRate", lValue).IsOK());
    EXPECT_STREQ(lValue.GetAscii(), "Baud57600");
    EXPECT_TRUE(mDevice.GetFeatureAsString("BulkMode", lValue).IsOK());
    EXPECT_STREQ(lValue.GetAscii(), "UART");
}

TEST_F(PortSettingsTest, TellWhenTheDeviceDoesNotTakeThem)
{
    PortSettings lSettings(KyDeviceSerialUart0);
    lSettings.Read(mDevice);
    ASSERT_TRUE(mDevice.SetFeatureFromString("Uart0BaudRate", "Baud19200").IsOK());
    mDevice.GetFaults().Disconnect();
    EXPECT_FALSE(lSettings.Write(mDevice));
    mDevice.GetFaults().Reconnect();
    EXPECT_TRUE(lSettings.Write(mDevice));
}

} // namespace
