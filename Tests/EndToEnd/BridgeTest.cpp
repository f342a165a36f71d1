// Bridges to Camera Link clients; the client library is in the same process.

#include "CameraTest.h"
#include "Support/UniqueName.h"

#include <KySerial/KySerialBridge.h>

#include <clserzmo/clser.h>

using KyTest::Camera;

namespace
{

/// A Camera Link application that has the server of a name.
class Client
{
public:
    explicit Client(const std::string& aName)
    {
        CLUINT32 lCount = 0;
        EXPECT_EQ(clGetNumSerialPorts(&lCount), CL_ERR_NO_ERR);
        for (CLUINT32 lIndex = 0; lIndex < lCount; ++lIndex)
        {
            CLINT8 lName[256] = "";
            CLUINT32 lSize = sizeof lName;
            if (clGetSerialPortIdentifier(lIndex, lName, &lSize) == CL_ERR_NO_ERR && aName == lName)
            {
                EXPECT_EQ(clSerialInit(lIndex, &mPort), CL_ERR_NO_ERR);
            }
        }
        EXPECT_NE(mPort, nullptr);
    }
    ~Client() { clSerialClose(mPort); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    hSerRef GetPort() const { return mPort; }

    /// Sends a text and gives what comes back, aSize bytes.
    std::string Ask(std::string aText, size_t aSize)
    {
        auto lSize = static_cast<CLUINT32>(aText.size());
        EXPECT_EQ(clSerialWrite(mPort, aText.data(), &lSize, KyTest::cPatience), CL_ERR_NO_ERR);
        std::string lAnswer(aSize, '\0');
        lSize = static_cast<CLUINT32>(aSize);
        EXPECT_EQ(clSerialRead(mPort, lAnswer.data(), &lSize, KyTest::cPatience), CL_ERR_NO_ERR);
        return lAnswer;
    }

private:
    hSerRef mPort = nullptr;
};

} // namespace

class BridgeTest : public testing::TestWithParam<KyDeviceSerial>
{
protected:
    void Start() { ASSERT_TRUE(mBridge.Start(mName.c_str(), &mCamera.Adapter(), GetParam()).IsOK()); }

    const std::string mName = UniqueName("EndToEnd");
    Camera mCamera;
    KySerialBridge mBridge;
};

TEST_P(BridgeTest, AClientTalksToWhatHangsOnThePortAtItsOwnRate)
{
    mCamera.PlugLens(GetParam());
    Start();
    Client lClient(mName);
    EXPECT_EQ(clSetBaudRate(lClient.GetPort(), CL_BAUDRATE_38400), CL_ERR_NO_ERR);
    EXPECT_EQ(lClient.Ask("ID?\r\n", 15), "ID KYLENS 1.0\r\n");
    EXPECT_EQ(mBridge.GetBaudRate(), 38400U);
    EXPECT_TRUE(mBridge.Stop().IsOK());
}

TEST_P(BridgeTest, EveryByteComesBackInOrder)
{
    mCamera.PlugLoopback(GetParam());
    Start();
    Client lClient(mName);
    std::string lText;
    for (unsigned lByte = 0; lByte < 3000; ++lByte)
    {
        lText += static_cast<char>(lByte * 7 + lByte / 256);
    }
    EXPECT_TRUE(lClient.Ask(lText, lText.size()) == lText); // not as equality: the texts are long
    EXPECT_TRUE(mBridge.Stop().IsOK());
}

TEST_P(BridgeTest, GoesOnWhenTheDeviceWasAway)
{
    mCamera.PlugLens(GetParam());
    Start();
    Client lClient(mName);
    EXPECT_EQ(lClient.Ask("ID?\r\n", 15), "ID KYLENS 1.0\r\n");
    mCamera.Link().Cut();
    EXPECT_TRUE(mBridge.Recover().IsOK()); // nothing to recover yet, and nothing spoilt
    mCamera.Link().Mend();
    EXPECT_TRUE(mBridge.Recover().IsOK());
    EXPECT_EQ(lClient.Ask("ID?\r\n", 15), "ID KYLENS 1.0\r\n");
    EXPECT_TRUE(mBridge.Stop().IsOK());
}

INSTANTIATE_TEST_SUITE_P(EachEngine, BridgeTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialBulk0, KyDeviceSerialBulk1));
