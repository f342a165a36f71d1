#include "EndToEnd/CameraTest.h"

#include "JxUtilsLib/Assert.h"

using KySimulator::SimulatedDeviceAdapter;
using KyTest::Camera;

namespace
{

class DisconnectTest : public testing::TestWithParam<KyDeviceSerial>
{
};

TEST_P(DisconnectTest, PortStaysClaimedUntilTheDeviceIsBack)
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

TEST_P(DisconnectTest, OpenFindsNoConnection)
{
    Camera lCamera;
    lCamera.Adapter().GetFaults().Disconnect();
    EXPECT_FALSE(KyDeviceSerialPort::IsSupported(&lCamera.Adapter(), GetParam()));
    KyDeviceSerialPort lPort;
    // Bulk port 0 asks both engines first, and neither supports it then.
    EXPECT_EQ(lPort.Open(&lCamera.Adapter(), GetParam()).GetCode(),
              GetParam() == KyDeviceSerialBulk0 ? KyResult::UNSUPPORTED : KyResult::NO_CONNECTION);
    EXPECT_FALSE(lPort.IsOpened());
}

// A device that goes between two questions breaks an assertion of the feature engine, which then goes on.
void GoOn(const char* /*aText*/, const char* /*aFile*/, int /*aLine*/) {}

TEST_P(DisconnectTest, DisconnectAtAnyCallOfOpenAndCloseCanBeClosedOnceTheDeviceIsBack)
{
    JxUtilsLib::SetAssertHandler(&GoOn);
    bool lHit = true;
    uint64_t lCall = 0;
    while (lHit)
    {
        ASSERT_LT(++lCall, 200U);
        Camera lCamera;
        KySimulator::Faults& lFaults = lCamera.Adapter().GetFaults();
        lFaults.DisconnectAtCall(lCall);
        KyDeviceSerialPort lPort;
        static_cast<void>(lPort.Open(&lCamera.Adapter(), GetParam())); // fails or not: the cut may come later
        static_cast<void>(lPort.Close());
        lHit = lFaults.IsDisconnected();
        lFaults.Reconnect();
        if (lPort.IsOpened())
        {
            EXPECT_TRUE(lPort.Close().IsOK()) << "call " << lCall;
        }
        EXPECT_FALSE(lPort.IsOpened());
        // Two answers may remain: the capability register of a device that did not answer once is not read
        // again, and a device that could not be identified while its port was released keeps the claim.
        SimulatedDeviceAdapter lOther(lCamera.Share());
        const KyResult lResult = lPort.Open(&lOther, GetParam());
        EXPECT_TRUE(lResult.IsOK() || lResult.GetCode() == KyResult::UNSUPPORTED ||
                    lResult.GetDescription() == "The specified port is already in use.")
            << "call " << lCall << ": " << lResult.GetDescription().GetAscii();
        EXPECT_EQ(lPort.IsOpened(), lResult.IsOK());
        if (lResult.IsOK())
        {
            EXPECT_TRUE(lPort.Close().IsOK());
        }
    }
    EXPECT_GT(lCall, 10U);
    JxUtilsLib::SetAssertHandler(nullptr);
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
        lCamera.Adapter().GetFaults().Disconnect();
    }
    lCamera.Adapter().GetFaults().Reconnect();
    const uint8_t lByte = 'x';
    lCamera.Model().InjectBytes(KySimulator::Port::Bulk4, &lByte, 1); // reaches the sink that is still there
    lCamera.Adapter().WaitForEvents();
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
    lCamera.Adapter().WaitForEvents();
    uint32_t lReady = 9;
    EXPECT_TRUE(lPort.GetRxBytesReady(lReady).IsOK());
    EXPECT_EQ(lReady, 0U);
    KyDeviceSerialPort lOther;
    EXPECT_STREQ(lOther.Open(&lCamera.Adapter(), KyDeviceSerialUart0).GetDescription().GetAscii(),
                 "The specified port is already in use.");
    EXPECT_TRUE(lPort.Close().IsOK());
}

} // namespace
