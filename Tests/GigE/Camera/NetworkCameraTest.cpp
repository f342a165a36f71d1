#include "GigE/CameraClient.h"

#include <KySerial/DeviceProtocol.h>
#include <Simulator/Network/NetworkCamera.h>
#include <Simulator/Peers/LoopbackPeer.h>

#include <gmock/gmock.h>

#include <algorithm>

namespace
{

using namespace KyGvcp;
using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;

constexpr uint32_t cHost = 0x7F000001;

/// The event's number and, for an interrupt, its status word.
std::pair<uint16_t, uint32_t> Described(const CameraClient::Buffer& aPacket)
{
    const auto lCommand = ParseCommand(aPacket);
    const auto lEvents = lCommand.has_value() ? ParseEvents(*lCommand) : std::vector<EventView>();
    if (lEvents.size() != 1 || lEvents[0].mData.size() < 4)
    {
        return {};
    }
    const Bytes lData = lEvents[0].mData; // the camera's words are little-endian
    return {lEvents[0].mID, lData[0] | (lData[1] << 8U) | (lData[2] << 16U)};
}

class NetworkCameraTest : public testing::Test
{
protected:
    NetworkCameraTest()
        : mModel(std::make_shared<CameraModel>(Configuration())), mCamera(mModel, {{cHost, 0}, false})
    {
        mModel->Plug(Port::Uart1, std::make_shared<LoopbackPeer>());
    }
    void SetUp() override
    {
        ASSERT_TRUE(mCamera.Start()) << mCamera.GetError();
        mClient = std::make_unique<CameraClient>(mCamera.GetEndpoint());
    }

    static CameraConfiguration Configuration()
    {
        CameraConfiguration lConfiguration;
        lConfiguration.mUnlimitedLineRate = true;
        return lConfiguration;
    }

    std::shared_ptr<CameraModel> mModel;
    NetworkCamera mCamera;
    std::unique_ptr<CameraClient> mClient;
};

TEST_F(NetworkCameraTest, SendsAByteAndItsEvents)
{
    mClient->Take();
    mClient->Write(cInterruptEnable, cUart1TransmitDone | cUart1Receive);
    mClient->Write(cUart1Data, 0x55);
    uint32_t lSeen = 0;
    for (int lEvent = 0; lEvent < 2; ++lEvent)
    {
        const auto lPacket = mClient->ReceiveEvent();
        const auto [lID, lStatus] = Described(lPacket);
        EXPECT_EQ(cInterruptEvent, lID);
        lSeen |= lStatus;
        mClient->AcknowledgeEvent(lPacket);
    }
    EXPECT_EQ(cUart1TransmitDone | cUart1Receive, lSeen);
    EXPECT_EQ(mClient->GetEventSource().mPort, mClient->Read(cMessageSourcePortRegister));
}

TEST_F(NetworkCameraTest, SendsAnEventAgainUntilItIsAcknowledged)
{
    mClient->Take();
    mClient->Write(cMessageTimeoutRegister, 20);
    mClient->Write(cInterruptEnable, cUart1TransmitDone);
    mClient->Write(cUart1Data, 1);
    const auto lFirst = mClient->ReceiveEvent();
    const auto lSecond = mClient->ReceiveEvent();
    EXPECT_EQ(lFirst, lSecond);
    mClient->AcknowledgeEvent(lSecond);
    mClient->Write(cUart1Data, 2);
    // The acknowledge may have crossed another repetition.
    auto lNext = mClient->ReceiveEvent();
    for (int lCopy = 0; lCopy < 3 && lNext == lFirst; ++lCopy)
    {
        lNext = mClient->ReceiveEvent();
    }
    EXPECT_NE(lFirst, lNext);
}

TEST_F(NetworkCameraTest, EventsComeInOrderThoughSomeGetLost)
{
    constexpr uint32_t cBytes = 30;
    mCamera.ChangeFaults(
        [](NetworkFaults& aFaults)
        {
            aFaults.Drop(DatagramKind::Event, 3);
            aFaults.Drop(DatagramKind::EventAcknowledge, 4);
        });
    mClient->Take();
    mClient->Write(cMessageTimeoutRegister, 20);
    mClient->Write(cMessageRetriesRegister, 100); // none is given up, however slow this machine is
    mClient->Write(cInterruptEnable, cUart1Receive);
    for (uint32_t lByte = 0; lByte < cBytes; ++lByte)
    {
        mClient->Write(cUart1Data, lByte);
    }
    CameraClient::Buffer lLast;
    std::vector<int> lBytes;
    while (lBytes.size() < cBytes)
    {
        const auto lPacket = mClient->ReceiveEvent();
        ASSERT_FALSE(lPacket.empty());
        mClient->AcknowledgeEvent(lPacket);
        if (lPacket != lLast)
        {
            const auto lEvents = ParseEvents(*ParseCommand(lPacket));
            for (size_t lWord = 4; lWord < lEvents[0].mData.size(); lWord += 4)
            {
                lBytes.push_back(lEvents[0].mData[lWord]);
            }
        }
        lLast = lPacket;
    }
    EXPECT_TRUE(std::is_sorted(lBytes.begin(), lBytes.end()));
    EXPECT_GT(mCamera.GetStatistics().mMessages.mRepeated, 0U);
    EXPECT_EQ(0U, mCamera.GetStatistics().mMessages.mLost);
}

TEST_F(NetworkCameraTest, AnswersARepeatedCommandWhenTheAcknowledgeGotLost)
{
    mClient->Take();
    mCamera.ChangeFaults([](NetworkFaults& aFaults) { aFaults.Drop(DatagramKind::Acknowledge, 2); });
    mClient->Write(cInterruptEnable, 0); // the first acknowledge from now on gets through
    const Packet lCommand = MakeWriteRegister(mClient->NextID(), cUart1Data, 0x11);
    mClient->Send(lCommand);
    mClient->Send(lCommand);
    const auto lAnswer = mClient->Receive();
    ASSERT_TRUE(lAnswer.has_value());
    EXPECT_EQ(cSuccess, lAnswer->mStatus);
    EXPECT_EQ(std::vector<uint8_t>{0x11}, mModel->GetWire(Port::Uart1));
    EXPECT_EQ(1U, mCamera.GetStatistics().mFaults.mDropped);
}

TEST_F(NetworkCameraTest, ADoubledCommandIsExecutedOnce)
{
    mClient->Take();
    mCamera.ChangeFaults([](NetworkFaults& aFaults) { aFaults.Double(DatagramKind::Command, 1); });
    mClient->Write(cUart1Data, 0x22);
    ASSERT_TRUE(mClient->Receive().has_value()); // the second acknowledge
    EXPECT_EQ(std::vector<uint8_t>{0x22}, mModel->GetWire(Port::Uart1));
}

TEST_F(NetworkCameraTest, ALateAcknowledgeIsOvertaken)
{
    const auto lStart = std::chrono::steady_clock::now();
    mCamera.ChangeFaults([](NetworkFaults& aFaults) { aFaults.Delay(DatagramKind::Acknowledge, 2, 150ms); });
    for (uint16_t lID = 1; lID <= 3; ++lID)
    {
        mClient->Send(MakeReadRegister(lID, 0));
    }
    std::vector<int> lOrder;
    for (int lCount = 0; lCount < 3; ++lCount)
    {
        const auto lAnswer = mClient->Receive();
        ASSERT_TRUE(lAnswer.has_value());
        lOrder.push_back(lAnswer->mRequestID);
    }
    EXPECT_THAT(lOrder, testing::UnorderedElementsAre(1, 2, 3));
    EXPECT_EQ(2, lOrder[2]);
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, 150ms);
}

TEST_F(NetworkCameraTest, AnnouncesASlowCommandAndCompletesIt)
{
    mClient->Take();
    mClient->Write(cConfigurationRegister, cPendingAckEnabled);
    mCamera.ChangeFaults([](NetworkFaults& aFaults) { aFaults.SetSlow(1, 30ms); });
    mClient->Send(MakeWriteRegister(mClient->NextID(), cInterruptEnable, 1));
    const auto lPending = mClient->Receive();
    ASSERT_TRUE(lPending.has_value());
    EXPECT_EQ(cPendingAck, lPending->mCode);
    const auto lDone = mClient->Receive();
    ASSERT_TRUE(lDone.has_value());
    EXPECT_EQ(cWriteRegisterAck, lDone->mCode);
}

TEST_F(NetworkCameraTest, AFrozenCameraIsSilentAndGoesOnLater)
{
    mCamera.Freeze(true);
    mClient->Send(MakeReadRegister(mClient->NextID(), 0));
    while (mCamera.GetStatistics().mUnheard == 0)
    {
        std::this_thread::yield(); // it is on its way
    }
    EXPECT_FALSE(mClient->Receive(0ms).has_value());
    EXPECT_EQ(SocketResult::TimedOut, mClient->GetResult());
    mCamera.Freeze(false);
    EXPECT_EQ(0x00020000U, mClient->Read(0));
}

TEST_F(NetworkCameraTest, AnUnpluggedCameraRefusesAndComesBackAtTheSamePlace)
{
    const Endpoint lPlace = mCamera.GetEndpoint();
    mCamera.Unplug();
    mClient->Send(MakeReadRegister(mClient->NextID(), 0));
    const bool lReports = UdpSocket::ReportsRefusals();
    EXPECT_FALSE(mClient->Receive(lReports ? CameraClient::cPatience : SocketTime(100ms)).has_value());
    EXPECT_EQ(lReports ? SocketResult::Refused : SocketResult::TimedOut, mClient->GetResult());
    ASSERT_TRUE(mCamera.Plug()) << mCamera.GetError();
    EXPECT_TRUE(mCamera.Plug()); // it is there
    EXPECT_EQ(lPlace, mCamera.GetEndpoint());
    EXPECT_EQ(0x00020000U, mClient->Read(0));
}

TEST_F(NetworkCameraTest, UnpluggedDuringARestartItStaysAway)
{
    const Endpoint lPlace = mCamera.GetEndpoint();
    mCamera.Restart(20ms);
    mCamera.Unplug();
    std::this_thread::sleep_for(200ms); // the restart would be over
    UdpSocket lOther;
    EXPECT_TRUE(lOther.Open(lPlace)) << lOther.GetError(); // only where nothing is
    lOther.Close();
    ASSERT_TRUE(mCamera.Plug()) << mCamera.GetError();
    EXPECT_EQ(0x00020000U, mClient->Read(0));
}

TEST_F(NetworkCameraTest, UnplugsItselfAtACommand)
{
    mCamera.UnplugAt(2);
    EXPECT_EQ(0x00020000U, mClient->Read(0));
    mClient->Send(MakeReadRegister(mClient->NextID(), 0));
    mClient->Receive(20ms);
    // The refusal, where the system reports it, answers what is sent after the ports are closed.
    while (UdpSocket::ReportsRefusals() && mClient->GetResult() != SocketResult::Refused)
    {
        mClient->Send(MakeReadRegister(mClient->NextID(), 0));
        mClient->Receive(20ms);
        ASSERT_NE(SocketResult::Done, mClient->GetResult());
    }
    EXPECT_NE(SocketResult::Done, mClient->GetResult());
    EXPECT_EQ(1U, mCamera.GetStatistics().mControl.mCommands);
}

TEST_F(NetworkCameraTest, SilenceCostsAnApplicationItsControl)
{
    mClient->Take();
    const auto lStart = std::chrono::steady_clock::now();
    mClient->Write(cHeartbeatRegister, 500);
    EXPECT_NE(Endpoint(), mCamera.GetController());
    while (!(mCamera.GetController() == Endpoint()))
    {
        ASSERT_LT(std::chrono::steady_clock::now() - lStart, CameraClient::cPatience);
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, 500ms);
    EXPECT_EQ(1U, mCamera.GetStatistics().mControl.mExpired);
}

TEST_F(NetworkCameraTest, ControlCanBeTakenAwayFromTheConsole)
{
    mClient->Take();
    mCamera.ReleaseControl();
    EXPECT_EQ(0U, mClient->Read(cControlPrivilegeRegister));
}

TEST_F(NetworkCameraTest, TheChannelOutlivesGarbage)
{
    mClient->Take();
    UdpSocket lOther;
    ASSERT_TRUE(lOther.Open({cHost, 0}));
    const auto lPort = static_cast<uint16_t>(mClient->Read(cMessageSourcePortRegister));
    EXPECT_EQ(SocketResult::Done, lOther.SendTo({cHost, lPort}, {}));
    EXPECT_EQ(SocketResult::Done, lOther.SendTo({cHost, lPort}, std::vector<uint8_t>(3000, 0xC3)));
    EXPECT_EQ(SocketResult::Done, lOther.SendTo(mCamera.GetEndpoint(), std::vector<uint8_t>(3000, 0x42)));
    mClient->Write(cInterruptEnable, cUart1TransmitDone);
    mClient->Write(cUart1Data, 1);
    EXPECT_EQ(cUart1TransmitDone, Described(mClient->ReceiveEvent()).second);
}

TEST_F(NetworkCameraTest, CannotBeWhereAnotherCameraIs)
{
    NetworkCamera lSecond(std::make_shared<CameraModel>(), {mCamera.GetEndpoint(), false});
    EXPECT_FALSE(lSecond.Start());
    EXPECT_THAT(lSecond.GetError(), testing::HasSubstr(EndpointText(mCamera.GetEndpoint())));
}

TEST_F(NetworkCameraTest, ItsRegistersHaveItsAddressAndNetwork)
{
    EXPECT_EQ(cHost, mClient->Read(cAddressRegister));
    EXPECT_EQ(0xFF000000U, mClient->Read(cSubnetMaskRegister));
}

TEST_F(NetworkCameraTest, StopsAndAnswersQuestionsAfterwards)
{
    mClient->Read(0);
    mCamera.Stop();
    mCamera.Stop();
    EXPECT_EQ(1U, mCamera.GetStatistics().mControl.mCommands);
}

} // namespace
