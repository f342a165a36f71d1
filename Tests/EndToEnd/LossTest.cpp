#include "EndToEnd/CameraTest.h"
#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/I2CBusPeer.h"

#include <KySerial/KyDeviceI2CBus.h>

#include <cstdlib>

using KySimulator::DatagramKind;
using KyTest::CameraLink;

// A network that loses, doubles and delays datagrams of both channels, in both directions.

namespace
{

/// The large amounts take two minutes; the small ones show the same.
bool IsFull()
{
    return std::getenv("KYSERIAL_FULL_LOSS_TEST") != nullptr; // NOLINT(concurrency-mt-unsafe): one thread
}

KyGigE::ConnectionOptions Hasty()
{
    KyGigE::ConnectionOptions lOptions = CameraLink::Patient();
    lOptions.mControl.mTimeout = 5;
    lOptions.mControl.mAttempts = 5000;
    lOptions.mEventTimeout = 5;
    lOptions.mEventRetries = 5000;
    return lOptions;
}

class LossTest : public testing::Test
{
protected:
    LossTest() : mModel(std::make_shared<KySimulator::CameraModel>(Fast())), mLink(mModel, Hasty())
    {
        mLink.GetCamera().ChangeFaults(
            [](KySimulator::NetworkFaults& aFaults)
            {
                aFaults.Drop(DatagramKind::Acknowledge, 5);
                aFaults.Drop(DatagramKind::Event, 3);
                aFaults.Double(DatagramKind::Command, 7);
                aFaults.Double(DatagramKind::Event, 4);
                aFaults.Delay(DatagramKind::Event, 10, std::chrono::milliseconds(2));
                aFaults.Delay(DatagramKind::Acknowledge, 11, std::chrono::milliseconds(2));
            });
    }

    static KySimulator::CameraConfiguration Fast()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        return lConfiguration;
    }

    /// Sends aSize bytes in pieces through a port with a loop-back plug and expects the same back.
    void ExpectEcho(KyDeviceSerial aPort, size_t aSize)
    {
        constexpr size_t cPiece = 8192; // below the receive buffer
        mModel->Plug(static_cast<KySimulator::Port>(aPort), std::make_shared<KySimulator::LoopbackPeer>());
        KyDeviceSerialPort lPort;
        ASSERT_TRUE(lPort.Open(&mLink.GetAdapter(), aPort).IsOK());
        uint32_t lState = 1;
        for (size_t lDone = 0; lDone < aSize;)
        {
            std::string lText;
            while (lText.size() < std::min(cPiece, aSize - lDone))
            {
                lState = lState * 1664525U + 1013904223U;
                lText += static_cast<char>(lState >> 24U);
            }
            KyTest::Send(lPort, lText);
            ASSERT_EQ(KyTest::Receive(lPort, lText.size()), lText) << "after byte " << lDone;
            lDone += lText.size();
        }
        mLink.WaitForEvents();
        uint32_t lLeft = 0;
        EXPECT_TRUE(lPort.GetRxBytesReady(lLeft).IsOK());
        EXPECT_EQ(lLeft, 0U) << "bytes came twice";
        EXPECT_TRUE(lPort.Close().IsOK());
        EXPECT_GT(mLink.GetCamera().GetStatistics().mFaults.mDropped, 0U);
        EXPECT_GT(mLink.GetAdapter().GetFigures().mRepeatedCommands, 0U);
        EXPECT_GT(mLink.GetAdapter().GetFigures().mRepeatedEvents, 0U);
    }

    const std::shared_ptr<KySimulator::CameraModel> mModel;
    CameraLink mLink;
};

TEST_F(LossTest, ARegisterBulkPortCarriesEveryByteOnceAndInOrder)
{
    ExpectEcho(KyDeviceSerialBulk0, IsFull() ? size_t{1} << 20U : 16384);
}

TEST_F(LossTest, AFeatureBulkPortCarriesEveryByteOnceAndInOrder)
{
    ExpectEcho(KyDeviceSerialBulk1, IsFull() ? size_t{1} << 20U : 16384);
}

TEST_F(LossTest, AUartCarriesEveryByteOnceAndInOrder)
{
    ExpectEcho(KyDeviceSerialUart0, IsFull() ? 10000 : 100);
}

// The bus waits 50 ms for an answer: an event that is lost has to be there again by then.
TEST(I2CLossTest, SlavesAnswerThoughEventsAreLost)
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mUnlimitedLineRate = true;
    lConfiguration.mBulk[0].mMode = KySimulator::Protocol::I2C;
    lConfiguration.mUartCount = 0; // the bus is driven through features
    const auto lModel = std::make_shared<KySimulator::CameraModel>(lConfiguration);
    const auto lWires = std::make_shared<KySimulator::I2CBusPeer>();
    lWires->SetDevice(0x50, std::make_shared<KySimulator::Eeprom24C02>(KySimulator::Time(0)));
    lModel->PlugI2C(KySimulator::Port::Bulk0, lWires);
    KyGigE::ConnectionOptions lOptions; // events as usual, acknowledges in a hurry
    lOptions.mControl = Hasty().mControl;
    CameraLink lLink(lModel, lOptions);
    KyDeviceI2CBus lBus;
    ASSERT_TRUE(lBus.Open(&lLink.GetAdapter(), KyDeviceSerialBulk0).IsOK());
    lLink.GetCamera().ChangeFaults(
        [](KySimulator::NetworkFaults& aFaults)
        {
            aFaults.Drop(DatagramKind::Acknowledge, 5);
            aFaults.Drop(DatagramKind::Event, 3);
        });
    constexpr int cReads = 60;
    int lAnswers = 0;
    for (int lRead = 0; lRead < cReads; ++lRead)
    {
        uint8_t lByte = 0;
        uint32_t lCount = 0;
        lAnswers += lBus.BurstRead(0x50, &lByte, 1, lCount, true).IsOK() ? 1 : 0;
        lCount = 0;
        EXPECT_FALSE(lBus.BurstRead(0x51, &lByte, 1, lCount, true).IsOK()); // no slave has this address
    }
    // A busy machine may have missed the 50 ms a few times; without the repetition in time a third is
    // missing.
    EXPECT_GE(lAnswers, cReads * 5 / 6);
    EXPECT_GT(lLink.GetCamera().GetStatistics().mFaults.mDropped, static_cast<uint64_t>(cReads) / 3);
    EXPECT_TRUE(lBus.Close().IsOK());
}

TEST(TwoCamerasTest, BytesDoNotMeet)
{
    KyTest::Camera lFirst;
    KyTest::Camera lSecond;
    lFirst.PlugLoopback(KyDeviceSerialUart0);
    lSecond.PlugLens(KyDeviceSerialUart0);
    KyDeviceSerialPort lOne;
    KyDeviceSerialPort lTwo;
    ASSERT_TRUE(lOne.Open(&lFirst.Adapter(), KyDeviceSerialUart0).IsOK());
    ASSERT_TRUE(lTwo.Open(&lSecond.Adapter(), KyDeviceSerialUart0).IsOK());
    KyTest::Send(lOne, "ID?\r\n");
    KyTest::Send(lTwo, "ID?\r\n");
    EXPECT_EQ(KyTest::Receive(lOne, 5), "ID?\r\n");
    EXPECT_EQ(KyTest::ReceiveLine(lTwo), "ID KYLENS 1.0");
    EXPECT_TRUE(lOne.Close().IsOK());
    EXPECT_TRUE(lTwo.Close().IsOK());
}

TEST(TwoApplicationsTest, TheSecondIsRefusedWithTheReason)
{
    KyTest::Camera lCamera;
    const uint16_t lPort = lCamera.Link().GetCamera().GetEndpoint().mPort;
    std::unique_ptr<KyGigE::GigEDeviceAdapter> lSecond;
    const KyResult lResult = KyGigE::GigEDeviceAdapter::Connect({"127.0.0.1", lPort, ""}, lSecond);
    EXPECT_EQ(lResult.GetCode(), 0x8006U);
    EXPECT_NE(
        std::string(lResult.GetDescription().GetAscii()).find(" controls the device at gev://127.0.0.1:"),
        std::string::npos);
    EXPECT_EQ(lSecond, nullptr);
    EXPECT_TRUE(lCamera.Adapter().IsConnected());
}

} // namespace
