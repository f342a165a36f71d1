#include "EndToEnd/CameraTest.h"

using KyTest::Camera;

namespace
{

std::string Pattern(size_t aSize)
{
    std::string lText;
    uint32_t lState = 12345;
    while (lText.size() < aSize)
    {
        lState = lState * 1664525U + 1013904223U;
        lText += static_cast<char>(lState >> 24U);
    }
    return lText;
}

void ExpectEcho(Camera& aCamera, KyDeviceSerial aPort, size_t aSize)
{
    aCamera.PlugLoopback(aPort);
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&aCamera.Adapter(), aPort).IsOK());
    const std::string lText = Pattern(aSize);
    KyTest::Send(lPort, lText);
    EXPECT_EQ(KyTest::Receive(lPort, aSize), lText);
    EXPECT_TRUE(lPort.Close().IsOK());
}

TEST(TransferTest, UartCarriesEveryByte)
{
    Camera lCamera;
    ExpectEcho(lCamera, KyDeviceSerialUart1, 1000);
}

TEST(TransferTest, RegisterBulkPortCarriesMoreThanItsFifo)
{
    Camera lCamera;
    ExpectEcho(lCamera, KyDeviceSerialBulk0, 10000);
    EXPECT_EQ(lCamera.Model().GetCounters(KySimulator::Port::Bulk0).mTransmitOverflow, 0U);
}

TEST(TransferTest, FeaturePortCarriesMoreThanAMessage)
{
    Camera lCamera;
    ExpectEcho(lCamera, KyDeviceSerialBulk5, 10000);
}

TEST(TransferTest, ReceiveBufferKeepsTheNewestBytes)
{
    Camera lCamera;
    lCamera.PlugLoopback(KyDeviceSerialBulk1);
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialBulk1).IsOK());
    ASSERT_TRUE(lPort.SetRxBufferSize(5).IsOK());
    KyTest::Send(lPort, "0123456789");
    lCamera.Link().WaitForEvents();
    EXPECT_EQ(KyTest::Receive(lPort, 4), "6789");
    EXPECT_TRUE(lPort.Close().IsOK());
}

} // namespace
