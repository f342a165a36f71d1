#include "kyserial/Device/DevicePort.h"

#include "Tools/CutDevice.h"
#include "kyserial/Options/Options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

using namespace KySerialTool;
using KySimulator::Port;

constexpr uint32_t cLongTime = 10000; // milliseconds, for bytes that are sure to come

class DevicePortTest : public testing::Test
{
protected:
    static KySimulator::CameraConfiguration Fast()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mBulk[3].mMode = KySimulator::Protocol::I2C;
        return lConfiguration;
    }
    DevicePortTest() : mDevice(Fast()) { ApplyLogOptions(CommonOptions()); }

    std::string ValueOf(const char* aFeature)
    {
        KyString lValue;
        EXPECT_TRUE(mDevice.GetAdapter().GetFeatureAsString(aFeature, lValue).IsOK()) << aFeature;
        return lValue.GetAscii();
    }

    KyTest::CutDevice mDevice;
};

TEST_F(DevicePortTest, BytesGoBothWays)
{
    DevicePort lPort(mDevice, KyDeviceSerialUart0);
    const std::vector<uint8_t> lBytes = {'a', 0, 0xFF};
    uint32_t lSent = 0;
    EXPECT_TRUE(lPort.Send(lBytes.data(), 3, lSent).IsOK());
    EXPECT_EQ(3U, lSent);
    EXPECT_EQ(lBytes, mDevice.GetCamera().GetWire(Port::Uart0));

    EXPECT_TRUE(lPort.Receive(0).empty());
    mDevice.GetCamera().InjectBytes(Port::Uart0, lBytes.data(), 1);
    EXPECT_EQ(std::vector<uint8_t>{'a'}, lPort.Receive(cLongTime));
    EXPECT_TRUE(lPort.GetState().IsOK());
}

TEST_F(DevicePortTest, TheLineAndTheModeAreThoseOfBeforeAfterwards)
{
    EXPECT_TRUE(mDevice.GetAdapter().SetFeatureFromString("BulkSelector", "Bulk3").IsOK());
    {
        LineSelection lLine;
        lLine.mBaudRate = 115200;
        DevicePort lPort(mDevice, KyDeviceSerialBulk3, lLine);
        EXPECT_EQ("UART", ValueOf("BulkMode"));
        EXPECT_EQ("Baud115200", ValueOf("BulkBaudRate"));
        lLine.mBaudRate = 57600;
        lPort.SetLine(lLine);
        EXPECT_EQ("Baud57600", ValueOf("BulkBaudRate"));
    }
    EXPECT_EQ("I2C", ValueOf("BulkMode"));
    EXPECT_EQ("Baud9600", ValueOf("BulkBaudRate"));
}

TEST_F(DevicePortTest, APortThatIsOpenCannotBeOpenedTwice)
{
    DevicePort lPort(mDevice, KyDeviceSerialUart1);
    try
    {
        const DevicePort lSecond(mDevice, KyDeviceSerialUart1);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_EQ(0U, std::string(lError.what()).find("cannot open uart1: ")) << lError.what();
    }
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_NO_THROW(DevicePort(mDevice, KyDeviceSerialUart1));
}

TEST_F(DevicePortTest, ADeviceThatWasAwayIsAnotherConnection)
{
    DevicePort lPort(mDevice, KyDeviceSerialUart0);
    mDevice.Cut();
    EXPECT_EQ(KyResult::NO_CONNECTION, lPort.GetState().GetCode());
    mDevice.ComeBack();
    EXPECT_EQ(KyResult::NO_CONNECTION, lPort.GetState().GetCode()) << "it has lost its settings";
}

TEST_F(DevicePortTest, OnlyABusyDeviceIsBusy)
{
    const DevicePort lPort(mDevice, KyDeviceSerialUart0);
    for (const uint32_t lCode :
         std::vector<uint32_t>{KyResult::OK, KyResult::TIMED_OUT, KyResult::NO_CONNECTION, 0x8006})
    {
        EXPECT_FALSE(lPort.IsBusy(KyResult(lCode))) << lCode;
    }
    EXPECT_TRUE(lPort.IsBusy(KyResult(0x8007)));
}

TEST_F(DevicePortTest, BytesThatDoNotFitTheReceiveBufferEndTheSession)
{
    DevicePort lPort(mDevice, KyDeviceSerialBulk0);
    const std::vector<uint8_t> lFlood((1U << 20U) + 4096);
    mDevice.GetCamera().InjectBytes(Port::Bulk0, lFlood.data(), lFlood.size());
    static_cast<KySimulator::SimulatedDeviceAdapter&>(mDevice.GetAdapter()).WaitForEvents();
    EXPECT_FALSE(lPort.Receive(0).empty());
    EXPECT_EQ(KyResult::FAILURE, lPort.GetState().GetCode());
}

} // namespace
