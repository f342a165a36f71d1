// Devices on several networks, each in a network namespace of its own.

#include "GigE/NetworkNamespace.h"
#include "GigE/ScriptedDevice.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/FindInterface.h"
#include "Adapters/GigE/Client/GvcpClient.h"

#include "Tests/Support/WaitFor.h"

#include <KyGigE/DeviceIp.h>
#include <KyGigE/Discovery.h>
#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>
#include <gmock/gmock.h>

#include <atomic>
#include <memory>

using KyGigE::GvcpClient;
using KyTest::IsOK;
using KyTest::NetworkNamespace;
using KyTest::ScriptedDevice;
using KyTest::WaitFor;

namespace
{

constexpr uint16_t cPort = KyGvcp::cControlPort;

/// A device in a namespace of its own.
struct Place
{
    /// Connects it with the host by a cable. \param aHost  Name of the cable's end there.
    bool Plug(NetworkNamespace& aHostSide, const std::string& aHost, const std::string& aAddress)
    {
        return aHostSide.Ip("link add " + aHost + " type veth peer name e0 netns " +
                            std::to_string(mNetwork.GetThread())) &&
               aHostSide.Ip("link set " + aHost + " up") && mNetwork.Ip("link set e0 up") &&
               mNetwork.Ip("addr add " + aAddress + " dev e0");
    }
    void Start(uint32_t aAddress, uint32_t aMac)
    {
        mNetwork.Run([&] { mDevice = std::make_unique<ScriptedDevice>("", aAddress, cPort); });
        mDevice->PutWord(KyGvcp::cMacLowRegister, aMac);
    }
    ~Place() { mDevice.reset(); }

    NetworkNamespace mNetwork;
    std::unique_ptr<ScriptedDevice> mDevice;
};

class InterfacesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!mHost.GetError().empty())
        {
            GTEST_SKIP() << mHost.GetError();
        }
    }

    KyResult Open(GvcpClient& aClient)
    {
        KyResult lResult;
        mHost.Run(
            [&]
            {
                lResult = aClient.Open([this](const KyGvcp::EventView& /*aEvent*/) { ++mEvents; },
                                       [] { return KyResult(); });
            });
        return lResult;
    }

    static KyGigE::ConnectionOptions Quick()
    {
        KyGigE::ConnectionOptions lOptions;
        lOptions.mControl = {100, 8, 5000};
        lOptions.mHeartbeatPeriod = 50;
        return lOptions;
    }

    /// Two networks of one range, and at the same address of each a device.
    void PlugTwins()
    {
        ASSERT_TRUE(mFirst.Plug(mHost, "left", "169.254.9.9/16"));
        ASSERT_TRUE(mSecond.Plug(mHost, "right", "169.254.9.9/16"));
        ASSERT_TRUE(mHost.Ip("addr add 169.254.1.1/16 dev left"));
        ASSERT_TRUE(mHost.Ip("addr add 169.254.1.2/16 dev right"));
        mFirst.Start(0xA9FE0909, 1);
        mSecond.Start(0xA9FE0909, 2);
    }

    KyTest::RecordingLogSink mLog;
    std::atomic<int> mEvents = 0;
    NetworkNamespace mHost;
    Place mFirst;
    Place mSecond;
};

TEST_F(InterfacesTest, TheInterfaceChoosesBetweenTwoDevicesOfOneAddress)
{
    PlugTwins();
    uint32_t lMac = 1;
    for (const char* const lInterface : {"left", "right"})
    {
        GvcpClient lByName({"169.254.9.9", cPort, lInterface}, Quick());
        EXPECT_THAT(Open(lByName), IsOK());
        EXPECT_EQ(lByName.GetInformation().mMac & 0xFFFFFFFFU, lMac++);
        ScriptedDevice& lDevice = *(lMac == 2 ? mFirst : mSecond).mDevice;
        const int lBefore = mEvents;
        EXPECT_TRUE(lDevice.WaitForAcknowledge(lDevice.SendEvent(0x9000, {1})));
        EXPECT_TRUE(WaitFor([&] { return mEvents == lBefore + 1; }));
    }
    GvcpClient lByAddress({"169.254.9.9", cPort, "169.254.1.2"}, Quick());
    EXPECT_THAT(Open(lByAddress), IsOK());
    EXPECT_EQ(lByAddress.GetInformation().mMac & 0xFFFFFFFFU, 2U);
}

TEST_F(InterfacesTest, WithoutAnInterfaceNoneOfTwoDevicesIsConnectedSilently)
{
    PlugTwins();
    GvcpClient lClient({"169.254.9.9", cPort, ""}, Quick());
    const KyResult lResult = Open(lClient);
    EXPECT_EQ(lResult.GetCode(), KyResult::FAILURE);
    EXPECT_STREQ(
        lResult.GetDescription().GetAscii(),
        "Several devices answer at 169.254.9.9: 02:00:00:00:00:01 on left, 02:00:00:00:00:02 on right; "
        "choose one with ?interface=NAME.");
}

TEST_F(InterfacesTest, TheOnlyDeviceIsFoundOnTheNetworkThatTheRoutesDoNotChoose)
{
    ASSERT_TRUE(mFirst.Plug(mHost, "left", "169.254.7.7/16")); // the routes prefer this one
    ASSERT_TRUE(mSecond.Plug(mHost, "right", "169.254.9.9/16"));
    ASSERT_TRUE(mHost.Ip("addr add 169.254.1.1/16 dev left"));
    ASSERT_TRUE(mHost.Ip("addr add 169.254.1.2/16 dev right"));
    mSecond.Start(0xA9FE0909, 2);
    GvcpClient lClient({"169.254.9.9", cPort, ""}, Quick());
    EXPECT_THAT(Open(lClient), IsOK());
}

TEST_F(InterfacesTest, AnAddressThatTwoInterfacesHaveIsRefused)
{
    ASSERT_TRUE(mFirst.Plug(mHost, "left", "169.254.9.9/16"));
    ASSERT_TRUE(mSecond.Plug(mHost, "right", "169.254.9.9/16"));
    ASSERT_TRUE(mHost.Ip("addr add 169.254.1.1/16 dev left"));
    ASSERT_TRUE(mHost.Ip("addr add 169.254.1.1/16 dev right"));
    KyGigE::OwnSide lOwn;
    std::string lError;
    mHost.Run([&] { lError = KyGigE::FindInterface("169.254.1.1", 0xA9FE0909, lOwn); });
    EXPECT_EQ(lError,
              "The network interfaces left and right both have the address 169.254.1.1; give a name.");
}

TEST_F(InterfacesTest, OfSeveralAddressesOfAnInterfaceTheOneInTheDevicesNetworkIsUsed)
{
    ASSERT_TRUE(mFirst.Plug(mHost, "left", "10.1.0.9/24"));
    ASSERT_TRUE(mHost.Ip("addr add 10.0.0.1/24 dev left"));
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev left"));
    KyGigE::OwnSide lOwn;
    std::string lError;
    mHost.Run([&] { lError = KyGigE::FindInterface("left", 0x0A010009, lOwn); });
    EXPECT_EQ(lError, "");
    EXPECT_EQ(lOwn.mAddress, 0x0A010001U);
}

TEST_F(InterfacesTest, DiscoveryFindsDevicesOnAnyNumberOfInterfaces)
{
    for (int lNumber = 0; lNumber < 12; ++lNumber)
    {
        const std::string lName = "none" + std::to_string(lNumber);
        ASSERT_TRUE(mHost.Ip("link add " + lName + " type veth peer name other" + std::to_string(lNumber)));
        ASSERT_TRUE(mHost.Ip("link set " + lName + " up"));
        ASSERT_TRUE(mHost.Ip("addr add 10.9." + std::to_string(lNumber) + ".1/24 dev " + lName));
    }
    PlugTwins();
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mTime = 20000;
    std::vector<KyGigE::FoundDevice> lFound;
    std::string lError;
    for (const char* const lInterface : {"left", "right"})
    {
        lOptions.mAddress = "169.254.9.9";
        lOptions.mInterface = lInterface;
        mHost.Run([&] { lError = KyGigE::DiscoverDevices(lOptions, lFound); });
        EXPECT_EQ(lError, "");
        ASSERT_EQ(lFound.size(), 1U);
        EXPECT_EQ(lFound[0].mInterface, lInterface);
    }
    for (Place* const lPlace : {&mFirst, &mSecond})
    {
        lPlace->mNetwork.Run([&] { lPlace->mDevice->HearBroadcasts(); });
    }
    lOptions = {};
    EXPECT_EQ(lOptions.mTime, 1000U);
    EXPECT_TRUE(WaitFor(
        [&]
        {
            mHost.Run([&] { lError = KyGigE::DiscoverDevices(lOptions, lFound); });
            return lFound.size() == 2;
        }));
    EXPECT_EQ(lError, "");
    ASSERT_EQ(lFound.size(), 2U); // one address, two devices
    EXPECT_EQ(lFound[0].mInterface, "left");
    EXPECT_EQ(lFound[0].mInformation.mMac & 0xFFU, 1U);
    EXPECT_EQ(lFound[1].mInterface, "right");
    EXPECT_EQ(lFound[1].mInformation.mMac & 0xFFU, 2U);
    EXPECT_EQ(lFound[1].mAddress, "169.254.9.9");
}

TEST_F(InterfacesTest, AConnectionFollowsTheHostsNewAddress)
{
    ASSERT_TRUE(mFirst.Plug(mHost, "left", "10.9.0.9/24"));
    ASSERT_TRUE(mHost.Ip("addr add 10.9.0.1/24 dev left"));
    mFirst.Start(0x0A090009, 1);
    ScriptedDevice& lDevice = *mFirst.mDevice;
    for (const char* const lInterface : {"", "left"})
    {
        GvcpClient lClient({"10.9.0.9", cPort, lInterface}, Quick());
        ASSERT_THAT(Open(lClient), IsOK());
        ASSERT_TRUE(mHost.Ip("addr flush dev left"));
        ASSERT_TRUE(mHost.Ip("addr add 10.9.0.2/24 dev left"));
        EXPECT_TRUE(WaitFor([&] { return !lClient.IsConnected(); }));
        lDevice.ReleaseControl();
        EXPECT_TRUE(WaitFor([&] { return lClient.IsConnected(); }));
        EXPECT_EQ(lClient.GetGeneration(), 2U);
        EXPECT_EQ(lDevice.GetWord(KyGvcp::cMessageAddressRegister), 0x0A090002U);
        const int lBefore = mEvents;
        EXPECT_TRUE(lDevice.WaitForAcknowledge(lDevice.SendEvent(0x9000, {1})));
        EXPECT_TRUE(WaitFor([&] { return mEvents == lBefore + 1; }));
        lClient.Close();
        ASSERT_TRUE(mHost.Ip("addr flush dev left"));
        ASSERT_TRUE(mHost.Ip("addr add 10.9.0.1/24 dev left"));
    }
}

// Such a device can be reached by broadcasts only, until it has an address of this computer's network.
TEST_F(InterfacesTest, ADeviceOfAnotherNetworkGetsAnAddressOfThisOne)
{
    ASSERT_TRUE(mFirst.Plug(mHost, "left", "10.9.0.2/24"));
    ASSERT_TRUE(mFirst.mNetwork.Ip("addr add 10.1.0.7/24 dev e0")); // where the simulated camera may go
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev left"));
    KySimulator::CameraConfiguration lConfiguration;
    lConfiguration.mMacAddress = 0x020304050607;
    const auto lModel = std::make_shared<KySimulator::CameraModel>(lConfiguration);
    std::unique_ptr<KySimulator::NetworkCamera> lCamera;
    mFirst.mNetwork.Run(
        [&]
        {
            lCamera = std::make_unique<KySimulator::NetworkCamera>(
                lModel, KySimulator::NetworkPlace{{0x0A090002, cPort}, true});
            ASSERT_TRUE(lCamera->Start()) << lCamera->GetError();
        });
    KyGigE::DiscoveryOptions lWhere;
    KyGigE::FoundDevice lFound;
    std::string lError;
    mHost.Run(
        [&] {
            lError = KyGigE::ForceIp(lWhere, 0x020304050607, {"10.1.0.7", "255.255.255.0", ""}, lFound);
        });
    EXPECT_EQ("", lError);
    EXPECT_EQ("10.1.0.7", lFound.mAddress);
    EXPECT_EQ("left", lFound.mInterface);
    GvcpClient lClient({"10.1.0.7", cPort, ""}, Quick());
    EXPECT_THAT(Open(lClient), IsOK());
    mHost.Run([&] { lClient.Close(); });
    mFirst.mNetwork.Run([&] { lCamera.reset(); });
}

} // namespace
