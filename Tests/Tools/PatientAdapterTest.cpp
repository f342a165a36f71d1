#include "kyserial/Bridge/PatientAdapter.h"
#include "kyserial/Device/PortSettings.h"

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/LoopbackPeer.h"

#include <KySerial/KyDeviceSerialPort.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>

using namespace KySerialTool;
using testing::ElementsAre;
using testing::Pair;

namespace
{

class AwayDeviceTest : public testing::TestWithParam<KyDeviceSerial>
{
protected:
    AwayDeviceTest()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        mCamera = std::make_shared<KySimulator::CameraModel>(lConfiguration);
        mCamera->Plug(static_cast<KySimulator::Port>(GetParam()),
                      std::make_shared<KySimulator::LoopbackPeer>());
        mDevice = std::make_unique<KySimulator::SimulatedDeviceAdapter>(mCamera);
        mAdapter = std::make_unique<PatientAdapter>(*mDevice, GetParam());
    }
    ~AwayDeviceTest() override
    {
        mDevice->GetFaults().Reconnect();
        if (mPort.IsOpened())
        {
            EXPECT_TRUE(mPort.Close().IsOK());
        }
    }
    KyResult Write(const std::string& aText, uint32_t& aSent)
    {
        return mPort.Write(reinterpret_cast<const uint8_t*>(aText.data()),
                           static_cast<uint32_t>(aText.size()), aSent);
    }
    std::string Read(size_t aCount)
    {
        std::string lText;
        std::array<uint8_t, 100> lBuffer{};
        uint32_t lRead = 0;
        while (lText.size() < aCount && mPort.Read(lBuffer.data(), 100, lRead, 60000).IsOK())
        {
            lText.append(lBuffer.begin(), lBuffer.begin() + lRead);
        }
        return lText;
    }

    std::shared_ptr<KySimulator::CameraModel> mCamera;
    std::unique_ptr<KySimulator::SimulatedDeviceAdapter> mDevice;
    std::unique_ptr<PatientAdapter> mAdapter;
    KyDeviceSerialPort mPort;
    uint32_t mSent = 0;
};

TEST_P(AwayDeviceTest, ShowsUnlessItIsToBePatient)
{
    ASSERT_TRUE(mPort.Open(mAdapter.get(), GetParam()).IsOK());
    mDevice->GetFaults().Disconnect();
    EXPECT_FALSE(mAdapter->IsConnected());
    EXPECT_FALSE(Write("lost", mSent).IsOK());
    EXPECT_EQ(mAdapter->GetLost(), 0U);
}

TEST_P(AwayDeviceTest, TakesAndCountsEveryByteAtOnce)
{
    ASSERT_TRUE(mPort.Open(mAdapter.get(), GetParam()).IsOK());
    mAdapter->SetPatient(true);
    ASSERT_TRUE(Write("there", mSent).IsOK());
    EXPECT_EQ(Read(5), "there");
    mDevice->GetFaults().Disconnect();
    EXPECT_TRUE(mAdapter->IsConnected());
    EXPECT_FALSE(mAdapter->IsTargetConnected());
    const auto lStart = std::chrono::steady_clock::now();
    ASSERT_TRUE(Write(std::string(1000, 'x'), mSent).IsOK());
    EXPECT_EQ(mSent, 1000U);
    EXPECT_EQ(mAdapter->GetLost(), 1000U);
    // Without an answer made up, each byte of a UART would take a second.
    EXPECT_LT(std::chrono::steady_clock::now() - lStart, std::chrono::seconds(60));
}

TEST_P(AwayDeviceTest, DropsUntilTheDeviceHasItsSettingsBack)
{
    ASSERT_TRUE(mPort.Open(mAdapter.get(), GetParam()).IsOK());
    mAdapter->SetPatient(true);
    ASSERT_TRUE(Write("a", mSent).IsOK());
    EXPECT_EQ(Read(1), "a");
    mDevice->GetFaults().Disconnect();
    ASSERT_TRUE(Write("bc", mSent).IsOK());
    EXPECT_TRUE(mAdapter->IsAway());
    mDevice->GetFaults().Reconnect();
    ASSERT_TRUE(Write("def", mSent).IsOK());
    EXPECT_EQ(mAdapter->GetLost(), 5U);
    mAdapter->SetAway(false);
    ASSERT_TRUE(Write("g", mSent).IsOK());
    EXPECT_EQ(Read(1), "g");
    EXPECT_EQ(mAdapter->GetLost(), 5U);
}

TEST_P(AwayDeviceTest, RefusalsOfADeviceThatIsThereStayRefusals)
{
    ASSERT_TRUE(mPort.Open(mAdapter.get(), GetParam()).IsOK());
    mAdapter->SetPatient(true);
    for (const auto lSlot : {KySimulator::AdapterSlot::WriteRegister, KySimulator::AdapterSlot::WriteMemory,
                             KySimulator::AdapterSlot::SetRegisterData})
    {
        KySimulator::CallFault lFault;
        lFault.mSlot = lSlot;
        mDevice->GetFaults().FailCall(lFault);
    }
    EXPECT_FALSE(Write("x", mSent).IsOK());
    mDevice->GetFaults().Clear();
    EXPECT_EQ(mAdapter->GetLost(), 0U);
    EXPECT_FALSE(mAdapter->IsAway());
}

TEST_P(AwayDeviceTest, ForgetsSinksThatAreWithdrawn)
{
    ASSERT_TRUE(mPort.Open(mAdapter.get(), GetParam()).IsOK());
    ASSERT_TRUE(mPort.Close().IsOK());
    mAdapter->ReleaseWriter(); // into an engine that is closed, the library would assert
}

INSTANTIATE_TEST_SUITE_P(Ports, AwayDeviceTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0,
                                         KyDeviceSerialBulk4));

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

TEST_F(PortSettingsTest, TellWhenTheDeviceDoesNotTakeThem)
{
    PortSettings lSettings(KyDeviceSerialUart0);
    lSettings.Read(mDevice);
    ASSERT_TRUE(mDevice.SetFeatureFromString("Uart0BaudRate", "Baud19200").IsOK());
    mDevice.GetFaults().Disconnect();
    EXPECT_FALSE(lSettings.Write(mDevice));
    mDevice.GetFaults().Reconnect();
    EXPECT_TRUE(lSettings.Write(mDevice));
}

} // namespace
