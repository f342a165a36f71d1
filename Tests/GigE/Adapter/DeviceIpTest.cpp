// Addresses that applications give to devices: the adapter's functions on a simulated camera.

#include <KyGigE/DeviceIp.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>

#include "GigE/CameraClient.h"

#include <gmock/gmock.h>

namespace
{

using KyGigE::ForceIp;
using KyGigE::StoreIp;
using testing::HasSubstr;

constexpr uint64_t cMac = 0x020304050607;
constexpr uint32_t cNewAddress = 0x7F000009;
const KyGigE::IpSettings cNew{"127.0.0.9", "255.0.0.0", ""};

class DeviceIpTest : public testing::Test
{
protected:
    DeviceIpTest()
    {
        EXPECT_TRUE(mCamera.Start()) << mCamera.GetError();
        mWhere.mAddress = "127.0.0.1";
        mWhere.mPort = mCamera.GetEndpoint().mPort;
        mWhere.mTime = 20000;
    }

    /// Where the camera answers.
    KyGvcp::Endpoint Place()
    {
        KyGvcp::Endpoint lPlace = mCamera.GetEndpoint();
        lPlace.mAddress = HasOneLoopbackAddress() ? 0x7F000001 : lPlace.mAddress;
        return lPlace;
    }

    static std::shared_ptr<KySimulator::CameraModel> Model()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mMacAddress = cMac;
        return std::make_shared<KySimulator::CameraModel>(lConfiguration);
    }

    KySimulator::NetworkCamera mCamera{Model(), {{0x7F000001, 0}, false}};
    KyGigE::DiscoveryOptions mWhere;
    KyGigE::FoundDevice mFound;
};

TEST_F(DeviceIpTest, ADeviceMovesAndIsFoundThere)
{
    EXPECT_EQ("", ForceIp(mWhere, cMac, cNew, mFound));
    EXPECT_EQ(cMac, mFound.mInformation.mMac);
    EXPECT_EQ(cNewAddress, mFound.mInformation.mAddress);
    EXPECT_EQ(0xFF000000U, mFound.mInformation.mMask);
    EXPECT_EQ(cNewAddress, mCamera.GetEndpoint().mAddress);
    CameraClient lClient(Place());
    EXPECT_EQ(cNewAddress, lClient.Read(KyGvcp::cAddressRegister));
    mCamera.Restart({}); // the address lasts until the device is switched off
    EXPECT_EQ(0x7F000001U, mCamera.GetEndpoint().mAddress);
}

TEST_F(DeviceIpTest, AnotherMacAddressIsNotFound)
{
    mWhere.mTime = 50;
    EXPECT_EQ("no device with the MAC address 00:00:00:00:00:01 answers", ForceIp(mWhere, 1, cNew, mFound));
    EXPECT_EQ("no device with the MAC address 00:00:00:00:00:01 answers", StoreIp(mWhere, 1, cNew));
    EXPECT_EQ(0x7F000001U, mCamera.GetEndpoint().mAddress);
}

TEST_F(DeviceIpTest, ADeviceThatIsControlledKeepsItsAddress)
{
    CameraClient lClient(Place());
    lClient.Take();
    lClient.Write(KyGvcp::cHeartbeatRegister, 600000);
    EXPECT_EQ("the device 02:03:04:05:06:07 refused: access denied (another application controls it)",
              ForceIp(mWhere, cMac, cNew, mFound));
    EXPECT_EQ("another application controls the device 02:03:04:05:06:07", StoreIp(mWhere, cMac, cNew));
    EXPECT_EQ(0x7F000001U, mCamera.GetEndpoint().mAddress);
    EXPECT_EQ(0U, mFound.mInformation.mMac);
}

TEST_F(DeviceIpTest, AStoredAddressIsTakenAtTheNextStart)
{
    EXPECT_EQ("", StoreIp(mWhere, cMac, {"127.0.0.9", "255.0.0.0", "127.0.0.254"}));
    EXPECT_EQ(0x7F000001U, mCamera.GetEndpoint().mAddress);
    EXPECT_EQ(KyGvcp::Endpoint(), mCamera.GetController()); // given back
    mCamera.Restart({});
    EXPECT_TRUE(mCamera.Plug());
    EXPECT_EQ(cNewAddress, mCamera.GetEndpoint().mAddress);
    CameraClient lClient(Place());
    EXPECT_EQ(cNewAddress, lClient.Read(KyGvcp::cAddressRegister));
    EXPECT_EQ(0x7F0000FEU, lClient.Read(KyGvcp::cGatewayRegister));
}

TEST_F(DeviceIpTest, SettingsThatNoDeviceCanHaveAreRefusedBeforeAnythingIsSent)
{
    const uint64_t lBefore = mCamera.GetStatistics().mControl.mCommands;
    const auto lRefused = [&](const KyGigE::IpSettings& aSettings, const char* aReason)
    {
        EXPECT_THAT(ForceIp(mWhere, cMac, aSettings, mFound), HasSubstr(aReason)) << aSettings.mAddress;
        EXPECT_THAT(StoreIp(mWhere, cMac, aSettings), HasSubstr(aReason)) << aSettings.mAddress;
    };
    for (const char* const lMask : {"", "255.0.255.0", "0.0.0.0", "255.255.255.255", "x"})
    {
        lRefused({"10.0.0.7", lMask, ""}, "is no network mask");
    }
    for (const char* const lAddress :
         {"", "10.0.0.0", "10.0.0.255", "224.0.0.1", "255.255.255.255", "0.0.0.7", "camera"})
    {
        lRefused({lAddress, "255.255.255.0", ""}, "is no address that a device can have");
    }
    for (const char* const lGateway : {"10.0.1.1", "10.0.0.255", "router"})
    {
        lRefused({"10.0.0.7", "255.255.255.0", lGateway}, "is no gateway in the network of 10.0.0.7");
    }
    EXPECT_EQ(lBefore, mCamera.GetStatistics().mControl.mCommands);
    mWhere.mAddress = "no where";
    EXPECT_EQ("\"no where\" is no IPv4 address and no name of a host", ForceIp(mWhere, cMac, cNew, mFound));
}

} // namespace
