#include "EndToEnd/CameraTest.h"

using KySimulator::SimulatedDeviceAdapter;
using KyTest::Camera;

// Only with the adapter in the same process: single events that go wrong, several applications at one camera, the
// alternate transport. KySerialTortureTest spoils each call.

namespace
{

TEST(FaultTest, AlternateTransportAnswersThroughFeatures)
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mTransport = KySimulator::Transport::Alternate;
    Camera lCamera(lConfiguration);
    lCamera.PlugLens(KyDeviceSerialBulk2);
    EXPECT_FALSE(KyDeviceSerialPort::IsSupported(&lCamera.Adapter(), KyDeviceSerialUart0));
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialBulk2).IsOK());
    KyTest::Send(lPort, "ID?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "ID KYLENS 1.0");
    EXPECT_TRUE(lPort.Close().IsOK());
}

class FaultPortTest : public testing::TestWithParam<KyDeviceSerial>
{
};

TEST_P(FaultPortTest, PortStaysClaimedUntilTheDeviceIsBack)
{
    Camera lCamera;
    SimulatedDeviceAdapter lOther(lCamera.Share());
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), GetParam()).IsOK());
    lCamera.Adapter().GetFaults().Disconnect();

    const uint8_t lByte = 'x';
    uint32_t lWritten = 7;
    EXPECT_EQ(lPort.Write(&lByte, 1, lWritten).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_EQ(lWritten, 0U);
    const KyResult lClosed = lPort.Close();
    EXPECT_EQ(lClosed.GetCode(), KyResult::NO_CONNECTION);
    EXPECT_STREQ(lClosed.GetDescription().GetAscii(), "The device is not currently connected.");
    EXPECT_TRUE(lPort.IsOpened());

    KyDeviceSerialPort lSecond;
    EXPECT_STREQ(lSecond.Open(&lOther, GetParam()).GetDescription().GetAscii(),
                 "The specified port is already in use.");

    lCamera.Adapter().GetFaults().Reconnect();
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_TRUE(lSecond.Open(&lOther, GetParam()).IsOK());
    EXPECT_TRUE(lSecond.Close().IsOK());
}

INSTANTIATE_TEST_SUITE_P(EachEngine, FaultPortTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0,
                                         KyDeviceSerialBulk3));

TEST(FaultTest, DamagedInterruptsLoseNoByteThatWasReported)
{
    // A doubled interrupt of a UART is confirmed twice and sent once.
    Camera lCamera;
    lCamera.Adapter().GetFaults().DoubleEvent(2);
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialUart0).IsOK());
    KyTest::Send(lPort, "abcdef");
    lCamera.Adapter().WaitForEvents();
    const std::vector<uint8_t> lWire = lCamera.Model().GetWire(KySimulator::Port::Uart0);
    EXPECT_EQ(std::string(lWire.begin(), lWire.end()), "abcdef");
    EXPECT_TRUE(lPort.Close().IsOK());
}

TEST(FaultTest, LostTransmitInterruptFailsTheByteThatWasSent)
{
    Camera lCamera;
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialUart0).IsOK());
    lCamera.Adapter().GetFaults().LoseEvent(3);
    const uint8_t lBytes[] = {'a', 'b', 'c', 'd'};
    uint32_t lWritten = 0;
    const KyResult lResult = lPort.Write(lBytes, sizeof(lBytes), lWritten);
    EXPECT_EQ(lResult.GetCode(), KyResult::FAILURE);
    EXPECT_STREQ(lResult.GetDescription().GetAscii(),
                 "Failed while waiting for the event from the device after writing byte 2.");
    EXPECT_EQ(lWritten, 3U);
    EXPECT_TRUE(lPort.Close().IsOK());
}

} // namespace
