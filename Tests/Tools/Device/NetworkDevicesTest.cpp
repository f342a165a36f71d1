#include "kyserial/Device/NetworkDevices.h"
#include "kyserial/Text/Failure.h"

#include <Simulator/Camera/CameraModel.h>
#include <Simulator/Network/NetworkCamera.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace
{

using namespace KySerialTool;
using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

TEST(NetworkNamesTest, TheSchemeMakesATextOneOfTheNetwork)
{
    EXPECT_TRUE(IsNetworkDevice("gev://10.0.0.1"));
    EXPECT_TRUE(IsNetworkDevice("gev:nonsense")) << "meant for here, and refused here";
    EXPECT_FALSE(IsNetworkDevice("sim"));
    EXPECT_FALSE(IsNetworkDevice("a camera's name gev:"));
    EXPECT_EQ("", CheckNetworkDevice("gev://10.0.0.1:3956"));
    EXPECT_NE("", CheckNetworkDevice("gev:nonsense"));
    EXPECT_NE("", CheckNetworkDevice("sim"));
}

TEST(NetworkNamesTest, ADeviceHasSeveralNames)
{
    NetworkFinding lFinding;
    lFinding.mAddress = "10.0.0.2";
    lFinding.mMac = "02:00:00:00:00:AB";
    lFinding.mSerialNumber = "S17";
    lFinding.mUserName = "left";
    lFinding.mModel = "Eye 3000";
    for (const char* const lName : {"10.0.0.2", "02:00:00:00:00:ab", "s17", "LEFT", "eye 3000"})
    {
        EXPECT_TRUE(IsNameOf(lName, lFinding)) << lName;
    }
    for (const char* const lName : {"", "10.0.0.20", "02:00:00:00:00:AC", "S1", "lef", "Eye"})
    {
        EXPECT_FALSE(IsNameOf(lName, lFinding)) << lName;
    }
}

struct IpCase
{
    const char* mText;
    const char* mAddress;
    const char* mMask;
    const char* mGateway;
};

TEST(IpChangeTest, ATextIsTakenApart)
{
    const IpCase lCases[] = {{"00:11:22:33:44:55=10.0.0.1/24", "10.0.0.1", "255.255.255.0", ""},
                             {"00-11-22-33-44-55=10.0.0.1/255.255.0.0", "10.0.0.1", "255.255.0.0", ""},
                             {"001122334455=10.0.0.1/0/10.0.0.254", "10.0.0.1", "0.0.0.0", "10.0.0.254"},
                             {"001122334455=10.0.0.1/32/", "10.0.0.1", "255.255.255.255", ""},
                             {"001122334455=10.0.0.1/1", "10.0.0.1", "128.0.0.0", ""},
                             // What is no number of ones stays, and the device's side refuses it.
                             {"001122334455=10.0.0.1/33", "10.0.0.1", "33", ""},
                             {"001122334455=10.0.0.1/-1", "10.0.0.1", "-1", ""},
                             {"001122334455=10.0.0.1/024", "10.0.0.1", "024", ""},
                             {"001122334455=/", "", "", ""}};
    for (const IpCase& lCase : lCases)
    {
        IpChange lChange;
        EXPECT_EQ("", ParseIpChange(lCase.mText, lChange)) << lCase.mText;
        EXPECT_EQ(0x001122334455U, lChange.mMac) << lCase.mText;
        EXPECT_EQ(lCase.mAddress, lChange.mAddress) << lCase.mText;
        EXPECT_EQ(lCase.mMask, lChange.mMask) << lCase.mText;
        EXPECT_EQ(lCase.mGateway, lChange.mGateway) << lCase.mText;
    }
}

TEST(IpChangeTest, ATextThatDoesNotFitChangesNothing)
{
    const std::pair<const char*, const char*> lCases[] = {
        {"", "\"\" does not fit; use MAC=ADDRESS/MASK[/GATEWAY]"},
        {"10.0.0.1/24", "\"10.0.0.1/24\" does not fit; use MAC=ADDRESS/MASK[/GATEWAY]"},
        {"001122334455/24=10.0.0.1",
         "\"001122334455/24=10.0.0.1\" does not fit; use MAC=ADDRESS/MASK[/GATEWAY]"},
        {"=10.0.0.1/24", "\"\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"0011223344=10.0.0.1/24", "\"0011223344\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"00112233445566=10.0.0.1/24",
         "\"00112233445566\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"00112233445g=10.0.0.1/24", "\"00112233445g\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"00:11:22:33:44-55=10.0.0.1/24",
         "\"00:11:22:33:44-55\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"00:11:22:33:44:5=10.0.0.1/24",
         "\"00:11:22:33:44:5\" is no MAC address; use one like 00:11:22:33:44:55"},
        {"0x1122334455=10.0.0.1/24", "\"0x1122334455\" is no MAC address; use one like 00:11:22:33:44:55"}};
    for (const auto& [lText, lReason] : lCases)
    {
        IpChange lChange{1, "a", "b", "c"};
        EXPECT_EQ(lReason, ParseIpChange(lText, lChange));
        EXPECT_EQ(1U, lChange.mMac) << lText;
        EXPECT_EQ("abc", lChange.mAddress + lChange.mMask + lChange.mGateway) << lText;
    }
}

/// A camera on the network of this computer.
class NetworkDevicesTest : public testing::Test
{
protected:
    NetworkDevicesTest() { EXPECT_TRUE(mCamera.Start()) << mCamera.GetError(); }

    static KySimulator::CameraConfiguration Configuration()
    {
        KySimulator::CameraConfiguration lConfiguration;
        lConfiguration.mModel = "Eye 3000";
        lConfiguration.mUserID = "left";
        lConfiguration.mMacAddress = 0x0A1B2C3D4E5F;
        return lConfiguration;
    }
    std::string Name() { return "gev://127.0.0.1:" + std::to_string(mCamera.GetEndpoint().mPort); }
    std::unique_ptr<Device> Open(DeviceAccess aAccess)
    {
        return OpenNetworkDevice(Name(), mConsole, aAccess);
    }
    static KyResult SetMode(Device& aDevice, const char* aMode)
    {
        return aDevice.GetAdapter().SetFeatureFromString("BulkMode", aMode);
    }
    NetworkSearch Search()
    {
        NetworkSearch lSearch;
        lSearch.mAddress = "127.0.0.1";
        lSearch.mPort = mCamera.GetEndpoint().mPort;
        lSearch.mTime = 20000; // ends with the answer of the one address
        return lSearch;
    }

    KySimulator::NetworkCamera mCamera{std::make_shared<KySimulator::CameraModel>(Configuration()),
                                       {{0x7F000001, 0}, false}};
    KyToolPlatform::Console mConsole;
};

TEST_F(NetworkDevicesTest, ADeviceThatAnswersIsAFinding)
{
    const std::vector<NetworkFinding> lFindings = FindNetworkDevices(Search());
    ASSERT_EQ(1U, lFindings.size());
    EXPECT_EQ(Name(), lFindings[0].mDevice);
    EXPECT_EQ("0A:1B:2C:3D:4E:5F", lFindings[0].mMac);
    EXPECT_EQ("Eye 3000", lFindings[0].mModel);
    EXPECT_EQ("left", lFindings[0].mUserName);
    EXPECT_TRUE(IsNameOf("0a1b2c3d4e5f", lFindings[0]));
}

TEST_F(NetworkDevicesTest, ASearchThatCannotBeMadeIsAFailure)
{
    NetworkSearch lSearch;
    lSearch.mInterface = "none7";
    EXPECT_THAT([&] { FindNetworkDevices(lSearch); },
                ThrowsMessage<OperationError>("no network interface none7"));
}

TEST_F(NetworkDevicesTest, OneApplicationControlsADeviceAndOthersMayRead)
{
    EXPECT_EQ("", FindNetworkController(Name())) << "nobody does";
    {
        const std::unique_ptr<Device> lFirst = Open(DeviceAccess::Control);
        EXPECT_TRUE(SetMode(*lFirst, "SPI").IsOK());
        EXPECT_THAT(FindNetworkController(Name()), HasSubstr("127.0.0.1:"));
        EXPECT_THAT([&] { Open(DeviceAccess::Control); },
                    ThrowsMessage<OperationError>(AllOf(HasSubstr("cannot connect " + Name() + ": "),
                                                        HasSubstr("Another application (127.0.0.1:"))));
        for (const DeviceAccess lAccess : {DeviceAccess::Read, DeviceAccess::ControlIfFree})
        {
            const std::unique_ptr<Device> lReader = Open(lAccess);
            KyString lMode;
            EXPECT_TRUE(lReader->GetAdapter().GetFeatureAsString("BulkMode", lMode).IsOK());
            EXPECT_STREQ("SPI", lMode.GetAscii());
            EXPECT_FALSE(SetMode(*lReader, "UART").IsOK());
        }
    }
    EXPECT_EQ("", FindNetworkController(Name())) << "the end of a device gives it back";
    const std::unique_ptr<Device> lFree = Open(DeviceAccess::ControlIfFree);
    EXPECT_TRUE(SetMode(*lFree, "UART").IsOK());
}

TEST_F(NetworkDevicesTest, ADeviceListsItsFeaturesAsItDescribesThem)
{
    const std::unique_ptr<Device> lDevice = Open(DeviceAccess::Read);
    EXPECT_EQ("", lDevice->GetDescriptionProblem());
    EXPECT_EQ(1U, lDevice->GetGeneration());
    bool lFound = false;
    for (const FeatureFinding& lFinding : lDevice->ReadFeatures())
    {
        lFound = lFound ||
                 (lFinding.mFeature.mName == "BulkMode" && lFinding.mFeature.mKind == "Enumeration" &&
                  lFinding.mAccess == "RW" && lFinding.mValue == "UART" && lFinding.mEntries.size() == 4);
    }
    EXPECT_TRUE(lFound);
}

TEST_F(NetworkDevicesTest, ATextThatIsNoAddressIsAFailure)
{
    EXPECT_THAT([&] { OpenNetworkDevice("gev:nonsense", mConsole, DeviceAccess::Read); },
                ThrowsMessage<OperationError>(HasSubstr("nonsense")));
    EXPECT_EQ("", FindNetworkController("gev:nonsense"));
}

// The user has pressed Ctrl-C while a device that does not answer is being connected.
TEST_F(NetworkDevicesTest, AnInterruptionGivesADeviceUp)
{
    mCamera.Freeze(true);
    mConsole.Interrupt();
    EXPECT_THAT([&] { Open(DeviceAccess::Control); },
                ThrowsMessage<OperationError>(HasSubstr("cannot connect " + Name() + ": ")));
    EXPECT_EQ(0U, mCamera.GetStatistics().mControl.mCommands);
}

} // namespace
