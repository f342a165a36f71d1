#include "EndToEnd/CameraTest.h"

#include "JxUtilsLib/Assert.h"

using KySimulator::SimulatedDeviceAdapter;
using KyTest::Camera;

// What only the adapter in the same process can do: single calls and events that go wrong, several
// applications at one camera, the other transport.

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

// A device that goes between two questions breaks an assertion of the feature engine, which then goes on.
void GoOn(const char* /*aText*/, const char* /*aFile*/, int /*aLine*/) {}

TEST_P(FaultPortTest, DisconnectAtAnyCallOfOpenAndCloseCanBeClosedOnceTheDeviceIsBack)
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
