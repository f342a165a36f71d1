#include "EndToEnd/CameraTest.h"

// With the adapter in the same process only: a camera on the network has one transport.

namespace
{

TEST(AlternateTransportTest, BulkPortsAnswerThroughFeatures)
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mTransport = KySimulator::Transport::Alternate;
    KyTest::Camera lCamera(lConfiguration);
    lCamera.PlugLens(KyDeviceSerialBulk2);
    EXPECT_FALSE(KyDeviceSerialPort::IsSupported(&lCamera.Adapter(), KyDeviceSerialUart0));
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialBulk2).IsOK());
    KyTest::Send(lPort, "ID?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "ID KYLENS 1.0");
    EXPECT_TRUE(lPort.Close().IsOK());
}

} // namespace
