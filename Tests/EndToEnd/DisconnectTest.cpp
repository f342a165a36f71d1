#include "EndToEnd/CameraTest.h"

using KyTest::Camera;

namespace
{

class DisconnectTest : public testing::TestWithParam<KyDeviceSerial>
{
};

TEST_P(DisconnectTest, OpenFindsNoConnection)
{
    Camera lCamera;
    lCamera.Link().Cut();
    EXPECT_FALSE(KyDeviceSerialPort::IsSupported(&lCamera.Adapter(), GetParam()));
    KyDeviceSerialPort lPort;
    // Bulk port 0 asks both engines first, and neither supports it then.
    EXPECT_EQ(lPort.Open(&lCamera.Adapter(), GetParam()).GetCode(),
              GetParam() == KyDeviceSerialBulk0 ? KyResult::UNSUPPORTED : KyResult::NO_CONNECTION);
    EXPECT_FALSE(lPort.IsOpened());
}

INSTANTIATE_TEST_SUITE_P(EachEngine, DisconnectTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0,
                                         KyDeviceSerialBulk3));

TEST(LifetimeTest, PortDestroyedWhileDisconnectedLeavesNoDanglingSink)
{
    Camera lCamera;
    lCamera.PlugLoopback(KyDeviceSerialBulk4);
    {
        KyDeviceSerialPort lPort;
        ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialBulk4).IsOK());
        lCamera.Link().Cut();
    }
    lCamera.Link().Mend();
    const uint8_t lByte = 'x';
    lCamera.Model().InjectBytes(KySimulator::Port::Bulk4, &lByte, 1); // reaches the sink that is still there
    lCamera.Link().WaitForEvents();
    KyDeviceSerialPort lNext;
    EXPECT_STREQ(lNext.Open(&lCamera.Adapter(), KyDeviceSerialBulk4).GetDescription().GetAscii(),
                 "The specified port is already in use.");
}

TEST(LifetimeTest, OpeningAgainWithoutClosingLeavesClaimAndSinkOfTheFirstPort)
{
    Camera lCamera;
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialUart0).IsOK());
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialUart1).IsOK());
    const uint8_t lBytes[] = {'a', 'b'};
    lCamera.Model().InjectBytes(KySimulator::Port::Uart0, lBytes, sizeof(lBytes)); // to the dropped engine
    lCamera.Model().InjectBytes(KySimulator::Port::Uart1, lBytes, 1);
    EXPECT_EQ(KyTest::Receive(lPort, 1), "a");
    lCamera.Link().WaitForEvents();
    uint32_t lReady = 9;
    EXPECT_TRUE(lPort.GetRxBytesReady(lReady).IsOK());
    EXPECT_EQ(lReady, 0U);
    KyDeviceSerialPort lOther;
    EXPECT_STREQ(lOther.Open(&lCamera.Adapter(), KyDeviceSerialUart0).GetDescription().GetAscii(),
                 "The specified port is already in use.");
    EXPECT_TRUE(lPort.Close().IsOK());
}

} // namespace
