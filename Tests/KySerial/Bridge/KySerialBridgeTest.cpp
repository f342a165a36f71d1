#include "KySerial/KySerialBridge.h"

#include "KySerial/Bridge/BridgeFixture.h"
#include "Tests/Support/PrivateSession.h"

using namespace KyTest;

namespace
{

constexpr char cStart[] = "KySerialBridge::Start";

class KySerialBridgeTest : public EngineTest
{
protected:
    KyResult StartServer(const char* aName = "Server", KyDeviceSerial aPort = KyDeviceSerialUart0)
    {
        return mBridge.Start(aName, &mDevice, aPort);
    }
    KyResult StartCom(const char* aName = "COM99", KyDeviceSerial aPort = KyDeviceSerialUart0)
    {
        return mBridge.Start(aName, KySerialPortConfiguration(), &mDevice, aPort);
    }
    // A failure whose line says the same.
    void ExpectRefusal(const KyResult& aResult, KyResult::Code aCode, const char* aMessage,
                       const char* aFunction = cStart)
    {
        ExpectFailure(aResult, aCode, aFunction, aMessage, "KySerialBridge");
    }
    void ExpectStopped()
    {
        EXPECT_EQ(mBridge.GetDevicePort(), KyDeviceSerialInvalid);
        EXPECT_TRUE(mDevice.GetSinks().empty());
    }

    PrivateSession mSession;
    KySerialBridge mBridge;
};

TEST_F(KySerialBridgeTest, AStoppedOneGivesNeutralValues)
{
    EXPECT_EQ(mBridge.GetSupportedBaudRateCount(), 0U);
    EXPECT_EQ(mBridge.GetSupportedBaudRate(0), 0U);
    EXPECT_EQ(mBridge.GetBaudRate(), 0U);
    EXPECT_EQ(mBridge.GetHardCodedBaudRate(), 0U);
    EXPECT_STREQ(mBridge.GetName().GetAscii(), "");
    EXPECT_STREQ(mBridge.GetSerialPort().GetAscii(), "");
    EXPECT_EQ(mBridge.GetDevicePort(), KyDeviceSerialInvalid);
    EXPECT_EQ(mBridge.GetSerialPortConfiguration().mBaudRate, 0U);
    EXPECT_EQ(static_cast<int>(mBridge.GetSerialPortConfiguration().mParity), -1);
    EXPECT_EQ(mBridge.GetBytesSentToDevice(), 0U);
    EXPECT_EQ(mBridge.GetBytesReceivedFromDevice(), 0U);
    mBridge.ResetStatistics();
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(KySerialBridgeTest, OperationsNeedARunningBridge)
{
    const char* const lMessage = "Bridge not started.";
    ExpectRefusal(mBridge.Stop(), KyResult::NO_CONNECTION, lMessage, "KySerialBridge::Stop");
    ExpectRefusal(mBridge.Recover(), KyResult::NO_CONNECTION, lMessage, "KySerialBridge::Recover");
    ExpectRefusal(mBridge.SetSerialPortConfiguration(KySerialPortConfiguration()), KyResult::NO_CONNECTION,
                  lMessage, "KySerialBridge::SetSerialPortConfiguration");
    ExpectRefusal(mBridge.SetHardCodedBaudRate(9600), KyResult::NO_CONNECTION, lMessage,
                  "KySerialBridge::SetHardCodedBaudRate");
}

TEST_F(KySerialBridgeTest, ChecksOfAStartAreMadeInThisOrder)
{
    using Start = std::function<KyResult(IKyDeviceAdapter*, int)>;
    const auto lToHost = [this](IKyDeviceAdapter* aDevice, int aPort)
    { return mBridge.Start("", KySerialPortConfiguration(), aDevice, static_cast<KyDeviceSerial>(aPort)); };
    const auto lToClients = [this](IKyDeviceAdapter* aDevice, int aPort)
    { return mBridge.Start("Server", aDevice, static_cast<KyDeviceSerial>(aPort)); };
    ExpectRefusal(mBridge.Start("", nullptr, static_cast<KyDeviceSerial>(10)), KyResult::BAD_PARAMETER,
                  "Bridge name cannot have zero-length.");
    for (const Start& lStart : {Start(lToHost), Start(lToClients)})
    {
        mDevice.SetAnswer(Slot::IsConnected, false);
        ExpectRefusal(lStart(nullptr, 10), KyResult::BAD_PARAMETER, "aDevice pointer cannot be NULL.");
        ExpectRefusal(lStart(&mDevice, 10), KyResult::NO_CONNECTION, "Device is not connected.");
        mDevice.SetAnswer(Slot::IsConnected, true);
        for (const int lPort : {-2, 10})
        {
            ExpectRefusal(lStart(&mDevice, lPort), KyResult::BAD_PARAMETER, "Invalid device port requested.");
        }
    }
    ExpectRefusal(lToHost(&mDevice, -1), KyResult::BAD_PARAMETER, "Invalid device port requested.");
    ExpectStopped();
}

TEST_F(KySerialBridgeTest, InvalidPortIsTheDevicesToRefuseInAStartToClients)
{
    EXPECT_THAT(StartServer("Server", KyDeviceSerialInvalid),
                IsResult(KyResult::UNSUPPORTED, "Requested device port not supported."));
    ExpectStopped();
}

TEST_F(KySerialBridgeTest, AFailedStartLeavesItStoppedAndTheDeviceRestored)
{
    AddSettings(mDevice, "Uart0");
    EXPECT_THAT(StartCom("COM5X"), IsResult(KyResult::BAD_PARAMETER,
                                            "Serial port string not formatted as expected. Example: COM5."));
    ExpectStopped();
    EXPECT_THAT(StartCom("COM99"), IsResult(KyResult::FAILURE, "Unable to open requested COM port."));
    ExpectStopped();
    EXPECT_EQ(mDevice.GetText("Uart0BaudRate"), "SavedBaudRate");
    EXPECT_TRUE(IsFree(KyDeviceSerialUart0));
}

TEST_F(KySerialBridgeTest, ARunningServerAnswers)
{
    AddSettings(mDevice, "Uart0");
    EXPECT_THAT(StartServer(), IsOK());
    EXPECT_STREQ(mBridge.GetName().GetAscii(), "Server");
    EXPECT_STREQ(mBridge.GetSerialPort().GetAscii(), "");
    EXPECT_EQ(mBridge.GetDevicePort(), KyDeviceSerialUart0);
    EXPECT_EQ(mBridge.GetHardCodedBaudRate(), 9600U);
    EXPECT_EQ(mBridge.GetBaudRate(), 9600U);
    EXPECT_EQ(mBridge.GetSupportedBaudRateCount(), 2U);
    EXPECT_EQ(mBridge.GetSupportedBaudRate(0), 9600U);
    EXPECT_EQ(mBridge.GetSerialPortConfiguration().mBaudRate, 0U);
    EXPECT_THAT(mBridge.SetHardCodedBaudRate(115200), IsOK());
    EXPECT_EQ(mBridge.GetHardCodedBaudRate(), 115200U);
    EXPECT_THAT(mBridge.Recover(), IsOK());
    Forget();
    ExpectRefusal(mBridge.SetSerialPortConfiguration(KySerialPortConfiguration()), KyResult::WRONG_STATE,
                  "Bridge not started as serial COM port bridge.",
                  "KySerialBridge::SetSerialPortConfiguration");
    EXPECT_THAT(mBridge.Stop(), IsOK());
    ExpectStopped();
}

TEST_F(KySerialBridgeTest, ASecondStartIsRefusedAndTheFirstGoesOn)
{
    EXPECT_THAT(StartServer(), IsOK());
    Forget();
    ExpectRefusal(StartServer("Other"), KyResult::WRONG_STATE, "Bridge already started.");
    ExpectRefusal(StartCom(), KyResult::WRONG_STATE, "Bridge already started.");
    EXPECT_STREQ(mBridge.GetName().GetAscii(), "Server");
    EXPECT_THAT(mBridge.Stop(), IsOK());
}

TEST_F(KySerialBridgeTest, DestroyingARunningOneStopsIt)
{
    {
        KySerialBridge lBridge;
        EXPECT_THAT(lBridge.Start("Server", &mDevice, KyDeviceSerialUart0), IsOK());
        EXPECT_FALSE(mDevice.GetSinks().empty());
    }
    ExpectStopped();
    EXPECT_THAT(StartServer(), IsOK());
}

} // namespace
