#include "EndToEnd/CameraTest.h"

using KyTest::Camera;

namespace
{

// A dialogue with the lens controller on every port, through whichever engine serves it.
class DialoguePortTest : public testing::TestWithParam<KyDeviceSerial>
{
};

TEST_P(DialoguePortTest, LensControllerAnswers)
{
    Camera lCamera;
    lCamera.PlugLens(GetParam());
    EXPECT_TRUE(KyDeviceSerialPort::IsSupported(&lCamera.Adapter(), GetParam()));
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), GetParam()).IsOK());
    KyTest::Send(lPort, "ID?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "ID KYLENS 1.0");
    KyTest::Send(lPort, "ZOOM 120\r\nZOOM?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "OK");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "ZOOM 120");
    EXPECT_TRUE(lPort.Close().IsOK());
}

INSTANTIATE_TEST_SUITE_P(AllPorts, DialoguePortTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0,
                                         KyDeviceSerialBulk1, KyDeviceSerialBulk2, KyDeviceSerialBulk3,
                                         KyDeviceSerialBulk4, KyDeviceSerialBulk5, KyDeviceSerialBulk6,
                                         KyDeviceSerialBulk7));

TEST(DialogueTest, BulkPort0AnswersThroughFeaturesWithoutRegisters)
{
    Camera lCamera(Camera::WithoutRegisters());
    lCamera.PlugLens(KyDeviceSerialBulk0);
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(&lCamera.Adapter(), KyDeviceSerialBulk0).IsOK());
    KyTest::Send(lPort, "ID?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lPort), "ID KYLENS 1.0");
    EXPECT_GT(lCamera.Model().GetCounters(KySimulator::Port::Bulk0).mUpstreamEvents, 0U);
    EXPECT_TRUE(lPort.Close().IsOK());
}

TEST(DialogueTest, AllPortsOfOneCameraAreOpenAtOnce)
{
    Camera lCamera;
    std::vector<std::unique_ptr<KyDeviceSerialPort>> lPorts;
    for (int lNumber = KyDeviceSerialUart0; lNumber <= KyDeviceSerialBulk7; ++lNumber)
    {
        lCamera.PlugLoopback(static_cast<KyDeviceSerial>(lNumber));
        lPorts.push_back(std::make_unique<KyDeviceSerialPort>());
        ASSERT_TRUE(lPorts.back()->Open(&lCamera.Adapter(), static_cast<KyDeviceSerial>(lNumber)).IsOK());
    }
    for (size_t lIndex = 0; lIndex < lPorts.size(); ++lIndex)
    {
        KyTest::Send(*lPorts[lIndex], "port " + std::to_string(lIndex));
    }
    for (size_t lIndex = 0; lIndex < lPorts.size(); ++lIndex)
    {
        const std::string lExpected = "port " + std::to_string(lIndex);
        EXPECT_EQ(KyTest::Receive(*lPorts[lIndex], lExpected.size()), lExpected);
        uint32_t lReady = 99;
        EXPECT_TRUE(lPorts[lIndex]->GetRxBytesReady(lReady).IsOK());
        EXPECT_EQ(lReady, 0U) << "bytes of another port";
        EXPECT_TRUE(lPorts[lIndex]->Close().IsOK());
    }
}

} // namespace
