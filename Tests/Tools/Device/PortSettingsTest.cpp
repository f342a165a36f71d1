#include "kyserial/Device/PortSettings.h"
#include "kyserial/Device/PortLine.h"
#include "kyserial/Text/Failure.h"

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

TEST_F(PortSettingsTest, ReportThatTheDeviceDoesNotTakeThem)
{
    PortSettings lSettings(KyDeviceSerialUart0);
    lSettings.Read(mDevice);
    ASSERT_TRUE(mDevice.SetFeatureFromString("Uart0BaudRate", "Baud19200").IsOK());
    mDevice.GetFaults().Disconnect();
    EXPECT_FALSE(lSettings.Write(mDevice));
    mDevice.GetFaults().Reconnect();
    EXPECT_TRUE(lSettings.Write(mDevice));
}

std::string ValueOf(IKyDeviceAdapter& aDevice, const char* aFeature)
{
    KyString lValue;
    EXPECT_TRUE(aDevice.GetFeatureAsString(aFeature, lValue).IsOK());
    return lValue.GetAscii();
}

TEST_F(PortSettingsTest, ALineIsSetForALifeAndPutBack)
{
    ASSERT_TRUE(mDevice.SetFeatureFromString("Uart0BaudRate", "Baud19200").IsOK());
    {
        PortLine lLine(mDevice, KyDeviceSerialUart0);
        lLine.Set({115200, KyParityEven, 8, 2});
        EXPECT_EQ("Baud115200", ValueOf(mDevice, "Uart0BaudRate"));
        EXPECT_EQ("Even", ValueOf(mDevice, "Uart0Parity"));
        EXPECT_EQ("Two", ValueOf(mDevice, "Uart0NumOfStopBits"));
        lLine.Set({9600, {}, {}, {}});
        EXPECT_EQ("Baud9600", ValueOf(mDevice, "Uart0BaudRate"));
        EXPECT_EQ("Even", ValueOf(mDevice, "Uart0Parity"));
    }
    EXPECT_EQ("Baud19200", ValueOf(mDevice, "Uart0BaudRate"));
    EXPECT_EQ("None", ValueOf(mDevice, "Uart0Parity"));
    EXPECT_EQ("One", ValueOf(mDevice, "Uart0NumOfStopBits"));
}

TEST_F(PortSettingsTest, ALineThatCannotBeSetIsAFailure)
{
    PortLine lLine(mDevice, KyDeviceSerialUart0);
    EXPECT_THAT(
        [&] {
            lLine.Set({{}, {}, 7, {}});
        },
        testing::ThrowsMessage<OperationError>(testing::HasSubstr("the device's ports have 8 data bits")));
    EXPECT_THAT(
        [&] {
            lLine.Set({12345, {}, {}, {}});
        },
        testing::ThrowsMessage<OperationError>(
            testing::HasSubstr("uart0: cannot set BaudRate to Baud12345: ")));
}

TEST_F(PortSettingsTest, ALineIsWrittenAsUsersDo)
{
    EXPECT_EQ("9600 8N1", LineText(ToConfiguration({})));
    EXPECT_EQ("115200 7E2", LineText(ToConfiguration({115200, KyParityEven, 7, 2})));
}

} // namespace
