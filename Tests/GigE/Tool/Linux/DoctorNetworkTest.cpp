// "kyserial doctor" on networks of a test's own, in network namespaces.

#include "GigE/NetworkNamespace.h"
#include "GigE/ScriptedDevice.h"
#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <memory>

using KyTest::NetworkNamespace;
using KyTest::ScriptedDevice;
using testing::HasSubstr;

namespace
{

constexpr uint16_t cUsualPort = KyGvcp::cControlPort;

/// A host and a device, each in a namespace of its own, with a cable between them.
class DoctorNetworkTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (!mHost.GetError().empty())
        {
            GTEST_SKIP() << mHost.GetError();
        }
        ASSERT_TRUE(
            mHost.Ip("link add h0 type veth peer name e0 netns " + std::to_string(mDevicePlace.GetThread())));
        ASSERT_TRUE(mHost.Ip("link set h0 up") && mDevicePlace.Ip("link set e0 up"));
        ASSERT_TRUE(mDevicePlace.Ip("addr add 10.1.0.2/24 dev e0"));
        mDevicePlace.Run([&] { mDevice = std::make_unique<ScriptedDevice>("", 0x0A010002, cUsualPort); });
    }

    /// \return Result and reason of a check, "ok: 1500 bytes" for example; what the tool printed when there is no such
    ///         check.
    std::string Examine(const std::string& aCheck,
                        const std::vector<std::string>& aDevice = {"gev://10.1.0.2"})
    {
        std::vector<std::string> lArguments = {"doctor", "--json"};
        lArguments.insert(lArguments.end(), aDevice.begin(), aDevice.end());
        KyTest::ToolResult lTool;
        // No device but the one that is given.
        const std::map<std::string, std::string> lNone = {{"KYSERIAL_DEVICE", ""},
                                                          {"XDG_CONFIG_HOME", "/none"}};
        mHost.Run([&] { lTool = KyTest::RunTool(lArguments, {}, lNone); });
        const nlohmann::json lJson = nlohmann::json::parse(lTool.mOutput);
        for (const nlohmann::json& lCheck : lJson["checks"])
        {
            if (lCheck["check"] == aCheck)
            {
                return std::string(lCheck["result"]) + ": " + std::string(lCheck["reason"]);
            }
        }
        return lTool.mOutput + lTool.mError;
    }

    NetworkNamespace mHost;
    NetworkNamespace mDevicePlace;
    std::unique_ptr<ScriptedDevice> mDevice; // after the namespace that it is in
};

TEST_F(DoctorNetworkTest, ANeighbourThatHearsBroadcastsPasses)
{
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev h0"));
    mDevicePlace.Run([&] { mDevice->HearBroadcasts(); });
    EXPECT_EQ("ok: 10.1.0.2 from 10.1.0.1/24 (h0), the same network", Examine("route"));
    EXPECT_EQ("ok: the device's answer to a broadcast comes in", Examine("firewall"));
    EXPECT_EQ("ok: 1500 bytes, the control protocol needs 576", Examine("mtu"));
    // The only device that answers is found by itself, and by its serial number.
    EXPECT_EQ("ok: Korvo Scripted S1 02:00:12:34:56:78", Examine("discovery", {}));
    EXPECT_EQ("ok: Korvo Scripted S1 02:00:12:34:56:78", Examine("discovery", {"S1"}));
    EXPECT_THAT(Examine("discovery", {"S2"}), HasSubstr("failed: no device answers to \"S2\""));
}

TEST_F(DoctorNetworkTest, ADeviceThatHearsNoBroadcastPointsToAFirewall)
{
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev h0"));
    EXPECT_EQ("warning: the device answers when it is asked alone, but not to a broadcast",
              Examine("firewall"));
}

TEST_F(DoctorNetworkTest, PacketsThatAreTooSmallFail)
{
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev h0") && mHost.Ip("link set h0 mtu 500"));
    EXPECT_EQ("failed: 500 bytes, the control protocol needs 576", Examine("mtu"));
}

TEST_F(DoctorNetworkTest, ADeviceOfAnotherNetworkIsOutOfReachOrARoutersAffair)
{
    ASSERT_TRUE(mHost.Ip("addr add 10.2.0.1/24 dev h0"));
    EXPECT_EQ("failed: this computer has no way to 10.1.0.2", Examine("route"));
    ASSERT_TRUE(mHost.Ip("route add 10.1.0.2/32 dev h0") && mDevicePlace.Ip("route add 10.2.0.1/32 dev e0"));
    EXPECT_EQ("warning: 10.1.0.2 from 10.2.0.1/24 (h0), by a router", Examine("route"));
    EXPECT_EQ("warning: not checked: a router passes no broadcasts", Examine("firewall"));
}

TEST_F(DoctorNetworkTest, TwoInterfacesOfOneNetworkAreAWarning)
{
    ASSERT_TRUE(mHost.Ip("addr add 10.1.0.1/24 dev h0"));
    ASSERT_TRUE(
        mHost.Ip("link add h1 type veth peer name e1 netns " + std::to_string(mDevicePlace.GetThread())));
    ASSERT_TRUE(mHost.Ip("link set h1 up") && mHost.Ip("addr add 10.1.0.9/24 dev h1"));
    EXPECT_EQ("warning: two interfaces have the same network: 10.1.0.1/24 (h0), 10.1.0.9/24 (h1)",
              Examine("interface"));
    EXPECT_EQ("ok: 10.1.0.9/24 (h1), as the device's name wants it",
              Examine("interface", {"gev://10.1.0.2?interface=h1"}));
}

TEST_F(DoctorNetworkTest, WithoutAnAddressTheInterfaceFails)
{
    EXPECT_EQ("failed: no interface is up and has an IPv4 address", Examine("interface"));
    EXPECT_EQ("failed: no interface is up and has an IPv4 address", Examine("interface", {}));
}

} // namespace
