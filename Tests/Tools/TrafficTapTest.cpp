#include "kyserial/Bridge/TrafficTap.h"

#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/LoopbackPeer.h"
#include "Support/Process.h"

#include <KySerial/KyDeviceSerialPort.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

using namespace KySerialTool;

namespace
{

/// A device that lets a test report events in its name.
class TalkativeAdapter : public ForwardingAdapter
{
public:
    using ForwardingAdapter::ForwardingAdapter;

    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSink = aSink;
        return {KyResult::OK};
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSink = mSink == aSink ? nullptr : mSink;
        return {KyResult::OK};
    }

    IKyDeviceEventSink* mSink = nullptr;
};

class TrafficTapTest : public testing::Test
{
protected:
    ~TrafficTapTest() override { std::remove(mFile.c_str()); }

    void MakeCamera(int aUarts, KySimulator::Transport aTransport = KySimulator::Transport::GigEVision)
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        lConfiguration.mUartCount = static_cast<std::uint32_t>(aUarts);
        lConfiguration.mTransport = aTransport;
        mCamera = std::make_shared<KySimulator::CameraModel>(lConfiguration);
        mAdapter = std::make_unique<KySimulator::SimulatedDeviceAdapter>(mCamera);
        ASSERT_TRUE(mLog.Open(mFile));
    }
    /// Sends bytes to a port that sends them back.
    void Echo(KyDeviceSerial aPort, const std::string& aBytes)
    {
        mCamera->Plug(static_cast<KySimulator::Port>(aPort), std::make_shared<KySimulator::LoopbackPeer>());
        TrafficTap lTap(*mAdapter, aPort, mLog);
        KyDeviceSerialPort lPort;
        EXPECT_TRUE(lPort.Open(&lTap, aPort).IsOK());
        uint32_t lSent = 0;
        EXPECT_TRUE(lPort
                        .Write(reinterpret_cast<const uint8_t*>(aBytes.data()),
                               static_cast<uint32_t>(aBytes.size()), lSent)
                        .IsOK());
        std::array<uint8_t, 1000> lBuffer{};
        size_t lReceived = 0;
        while (lReceived < aBytes.size())
        {
            uint32_t lRead = 0;
            if (!lPort.Read(lBuffer.data(), 1000, lRead, 60000).IsOK())
            {
                break;
            }
            lReceived += lRead;
        }
        EXPECT_EQ(lReceived, aBytes.size());
        EXPECT_TRUE(lPort.Close().IsOK());
    }
    /// All bytes of one direction, as the log shows them.
    std::string Logged(char aDirection)
    {
        mLog.Flush();
        std::istringstream lLines(KyTest::ReadFile(mFile));
        std::string lText;
        for (std::string lLine; std::getline(lLines, lLine);)
        {
            constexpr size_t cDirection = 28;
            constexpr size_t cCharacters = 30 + 47 + 2;
            if (lLine.size() > cCharacters && lLine[cDirection] == aDirection)
            {
                lText += lLine.substr(cCharacters);
            }
        }
        return lText;
    }

    const std::string mFile = KyTest::Process::TemporaryFile(".log");
    TrafficLog mLog;
    std::shared_ptr<KySimulator::CameraModel> mCamera;
    std::unique_ptr<KySimulator::SimulatedDeviceAdapter> mAdapter;
};

TEST_F(TrafficTapTest, LogsUartsDrivenByRegisters)
{
    MakeCamera(2);
    Echo(KyDeviceSerialUart0, "first");
    Echo(KyDeviceSerialUart1, "second");
    EXPECT_EQ(Logged('>'), "firstsecond");
    EXPECT_EQ(Logged('<'), "firstsecond");
}

TEST_F(TrafficTapTest, LogsTheBulkPortDrivenByRegisters)
{
    MakeCamera(2);
    Echo(KyDeviceSerialBulk0, "window");
    EXPECT_EQ(Logged('>'), "window");
    EXPECT_EQ(Logged('<'), "window");
}

TEST_F(TrafficTapTest, LogsBulkPortsDrivenByFeatures)
{
    MakeCamera(0);
    const std::string lLong(1300, 'x'); // more than one message
    Echo(KyDeviceSerialBulk0, lLong);
    Echo(KyDeviceSerialBulk5, "five");
    EXPECT_EQ(Logged('>'), lLong + "five");
    EXPECT_EQ(Logged('<'), lLong + "five");
}

TEST_F(TrafficTapTest, KnowsTheByteOrderOfOtherTransports)
{
    MakeCamera(0, KySimulator::Transport::Alternate);
    Echo(KyDeviceSerialBulk3, "little");
    EXPECT_EQ(Logged('>'), "little");
    EXPECT_EQ(Logged('<'), "little");
}

TEST_F(TrafficTapTest, LeavesOtherPortsOut)
{
    MakeCamera(2);
    const TrafficTap lTap(*mAdapter, KyDeviceSerialUart1, mLog);
    mCamera->Plug(KySimulator::Port::Uart0, std::make_shared<KySimulator::LoopbackPeer>());
    KyDeviceSerialPort lPort;
    ASSERT_TRUE(lPort.Open(mAdapter.get(), KyDeviceSerialUart0).IsOK());
    uint32_t lSent = 0;
    ASSERT_TRUE(lPort.Write(reinterpret_cast<const uint8_t*>("abc"), 3, lSent).IsOK());
    std::array<uint8_t, 3> lBuffer{};
    ASSERT_TRUE(lPort.Read(lBuffer.data(), 3, lSent, 60000).IsOK());
    EXPECT_TRUE(lPort.Close().IsOK());
    EXPECT_EQ(Logged('>') + Logged('<'), "");
}

TEST_F(TrafficTapTest, WhatTheDeviceRefusesIsNotLogged)
{
    MakeCamera(2);
    TrafficTap lTap(*mAdapter, KyDeviceSerialUart0, mLog);
    mAdapter->GetFaults().Disconnect();
    EXPECT_FALSE(lTap.WriteRegister(0xB84C, 'x').IsOK());
    EXPECT_EQ(Logged('>'), "");
}

// Events are the device's: any length, any contents.
TEST_F(TrafficTapTest, EventsWithoutSenseAreLeftOut)
{
    MakeCamera(2);
    TalkativeAdapter lDevice(*mAdapter);
    const std::array<uint8_t, 9> lEvent = {0x0A, 0x07, 0, 0, 'a', 0, 0, 0, 'b'};
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0})
    {
        const TrafficTap lTap(lDevice, lPort, mLog);
        ASSERT_NE(lDevice.mSink, nullptr);
        lDevice.mSink->NotifyEvent(0x9000, 0, 0, 0, nullptr, 0);
        lDevice.mSink->NotifyEvent(0x9000, 0, 0, 0, nullptr, 100);
        lDevice.mSink->NotifyEvent(0x9000, 0, 0, 0, lEvent.data(), 3);
        lDevice.mSink->NotifyEvent(0x9000, 0, 0, 0, lEvent.data(), 4);
        lDevice.mSink->NotifyEvent(0x8FFF, 0, 0, 0, lEvent.data(), 9);
        lDevice.mSink->NotifyEvent(0x9002, 0, 0, 0, lEvent.data(), 9);
        lDevice.mSink->NotifyFeatureInvalidated(nullptr);
    }
    EXPECT_EQ(lDevice.mSink, nullptr);
    EXPECT_EQ(Logged('<'), "");
    const TrafficTap lTap(lDevice, KyDeviceSerialUart0, mLog);
    lDevice.mSink->NotifyEvent(0x9000, 0, 0, 0, lEvent.data(), 9); // a word and a bit
    EXPECT_EQ(Logged('<'), "a");
}

// The size in a message's header is what the library wrote; the tap believes the message's length.
TEST_F(TrafficTapTest, MessagesThatLieAboutTheirSizeAreLoggedAsFarAsTheyGo)
{
    MakeCamera(0);
    class AcceptingAdapter : public ForwardingAdapter
    {
    public:
        using ForwardingAdapter::ForwardingAdapter;
        KyResult SetRegisterData(const KyString&, const uint8_t*, int64_t) override { return {KyResult::OK}; }
    };
    AcceptingAdapter lDevice(*mAdapter);
    TrafficTap lTap(lDevice, KyDeviceSerialBulk1, mLog);
    const std::array<uint8_t, 12> lMessage = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 'a', 'b', 'c', 'd'};
    EXPECT_TRUE(lTap.SetRegisterData("Bulk1DownstreamData", lMessage.data(), 12).IsOK());
    EXPECT_TRUE(lTap.SetRegisterData("Bulk1DownstreamData", lMessage.data(), 8).IsOK());
    EXPECT_TRUE(lTap.SetRegisterData("Bulk2DownstreamData", lMessage.data(), 12).IsOK());
    EXPECT_EQ(Logged('>'), "abcd");
}

} // namespace
