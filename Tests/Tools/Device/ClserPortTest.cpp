#include "kyserial/Device/ClserPort.h"
#include "Support/UniqueName.h"
#include "Support/WaitFor.h"
#include "kyserial/Text/Failure.h"

#include <KySerial/KySerialBridge.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Camera/SimulatedDeviceAdapter.h>
#include <Simulator/Peers/LoopbackPeer.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>

namespace
{

using namespace KySerialTool;
using testing::HasSubstr;
using testing::ThrowsMessage;

KySimulator::CameraConfiguration FastCamera()
{
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mUnlimitedLineRate = true;
    return lConfiguration;
}

/// A Camera Link server within the test, whose device sends back what it gets.
class ClserPortTest : public testing::Test
{
protected:
    ClserPortTest()
    {
        mAdapter.GetCamera().Plug(KySimulator::Port::Uart1, std::make_shared<KySimulator::LoopbackPeer>());
    }

    void StartServer()
    {
        mServer.emplace();
        EXPECT_TRUE(mServer->Start(mName.c_str(), &mAdapter, KyDeviceSerialUart1).IsOK());
    }
    bool IsListed() const
    {
        const std::vector<std::string> lNames = ListClserPorts();
        return std::find(lNames.begin(), lNames.end(), mName) != lNames.end();
    }
    static KyResult Send(ClserPort& aPort, const std::string& aText, uint32_t& aSent)
    {
        return aPort.Send(reinterpret_cast<const uint8_t*>(aText.data()), static_cast<uint32_t>(aText.size()),
                          aSent);
    }
    /// The next bytes, as many as aText has.
    static std::string Receive(ClserPort& aPort, size_t aCount)
    {
        std::string lText;
        KyTest::WaitFor(
            [&]
            {
                const std::vector<uint8_t> lBytes = aPort.Receive(100);
                lText.append(lBytes.begin(), lBytes.end());
                return lText.size() >= aCount;
            });
        return lText;
    }

    const std::string mName = UniqueName("Lens");
    KySimulator::SimulatedDeviceAdapter mAdapter{std::make_shared<KySimulator::CameraModel>(FastCamera())};
    std::optional<KySerialBridge> mServer;
};

TEST_F(ClserPortTest, AServerIsListedWhileItRuns)
{
    EXPECT_FALSE(IsListed());
    EXPECT_THAT([&] { ClserPort{mName}; },
                ThrowsMessage<OperationError>("there is no Camera Link server \"" + mName +
                                              "\"; 'kyserial clser list' shows those that there are"));
    StartServer();
    EXPECT_TRUE(IsListed());
    mServer.reset();
    EXPECT_FALSE(IsListed());
}

TEST_F(ClserPortTest, BytesGoBothWays)
{
    StartServer();
    ClserPort lPort(mName);
    EXPECT_TRUE(lPort.Receive(0).empty());
    uint32_t lSent = 0;
    EXPECT_TRUE(Send(lPort, "question", lSent).IsOK());
    EXPECT_EQ(8U, lSent);
    EXPECT_EQ("question", Receive(lPort, 8));
    EXPECT_TRUE(lPort.GetState().IsOK());
}

TEST_F(ClserPortTest, AServerHasOneClient)
{
    StartServer();
    {
        const ClserPort lFirst(mName);
        EXPECT_THAT([&] { ClserPort{mName}; },
                    ThrowsMessage<OperationError>("cannot attach to \"" + mName +
                                                  "\": CL_ERR_PORT_IN_USE (-10003): The port is in use."));
    }
    EXPECT_NO_THROW(ClserPort{mName}) << "the first one has left its place";
}

TEST_F(ClserPortTest, OnlyARateOfCameraLinkCanBeSet)
{
    StartServer();
    ClserPort lPort(mName);
    LineSelection lLine;
    lLine.mBaudRate = 57600;
    EXPECT_NO_THROW(lPort.SetLine(lLine));
    uint32_t lSent = 0;
    EXPECT_TRUE(Send(lPort, "x", lSent).IsOK()); // the server looks for a new rate when it has bytes to send
    EXPECT_TRUE(KyTest::WaitFor([&] { return mServer->GetBaudRate() == 57600; }));
    lLine.mBaudRate = 14400;
    EXPECT_THAT([&] { lPort.SetLine(lLine); },
                ThrowsMessage<OperationError>("Camera Link does not have 14400 bit/s"));
    for (LineSelection lOther : {LineSelection{9600, KyParityNone, {}, {}}, LineSelection{9600, {}, 8, {}},
                                 LineSelection{9600, {}, {}, 1}})
    {
        EXPECT_THAT([&] { lPort.SetLine(lOther); }, ThrowsMessage<OperationError>("Camera Link is 8N1"));
    }
    EXPECT_EQ(57600U, mServer->GetBaudRate());
}

// With --reconnect the user would else wait for ever: the server will not change what it offers.
TEST_F(ClserPortTest, ARateThatTheServerDoesNotOfferIsNotWaitedFor)
{
    StartServer();
    EXPECT_TRUE(mServer->SetHardCodedBaudRate(57600).IsOK());
    ClserPort lPort(mName);
    EXPECT_NO_THROW(lPort.SetRate(57600));
    try
    {
        lPort.SetRate(38400);
        FAIL() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_THAT(lError.what(), HasSubstr("--baud 38400: CL_ERR_BAUD_RATE_NOT_SUPPORTED (-10008): "));
        EXPECT_THAT(lError.what(), HasSubstr(" The server offers 57600."));
        EXPECT_EQ(KyResult::BAD_PARAMETER, lError.GetCode());
    }
}

TEST_F(ClserPortTest, AServerThatHasEndedLooksBusy)
{
    StartServer();
    ClserPort lPort(mName);
    mServer.reset();
    uint32_t lSent = 99;
    const KyResult lResult = Send(lPort, "more", lSent);
    EXPECT_TRUE(lPort.IsBusy(lResult)) << ResultText(lResult);
    EXPECT_EQ(0U, lSent);
    EXPECT_TRUE(lPort.Receive(1).empty());
    EXPECT_TRUE(lPort.GetState().IsOK()) << "the library waits for the next server of the name";
    EXPECT_FALSE(lPort.IsBusy(KyResult(KyResult::FAILURE)));
}

TEST_F(ClserPortTest, TheEndOfTheServerIsNoticedOnDemand)
{
    StartServer();
    ClserPort lPort(mName, true);
    EXPECT_TRUE(lPort.Receive(1).empty());
    EXPECT_TRUE(lPort.GetState().IsOK());
    mServer.reset();
    EXPECT_TRUE(KyTest::WaitFor(
        [&]
        {
            lPort.Receive(10);
            return !lPort.GetState().IsOK();
        }));
    EXPECT_EQ("NO_CONNECTION: It has ended.", ResultText(lPort.GetState()));
}

} // namespace
