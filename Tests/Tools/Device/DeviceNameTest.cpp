#include "Support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kyserial/Device/DeviceName.h>
#include <kyserial/Text/Failure.h>

using namespace KySerialTool;
using testing::HasSubstr;

namespace
{

/// A configuration file with this content.
class Configuration
{
public:
    explicit Configuration(const std::string& aContent) { EXPECT_TRUE(KyTest::WriteFile(mFile, aContent)); }
    ~Configuration() { std::remove(mFile.c_str()); }
    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

    const std::string mFile = KyTest::Process::TemporaryFile(".toml");
};

/// The complaint about a file with this content, without the file's name.
std::string Complaint(const std::string& aContent)
{
    const Configuration lConfiguration(aContent);
    try
    {
        static_cast<void>(ReadConfiguration(lConfiguration.mFile));
    }
    catch (const UsageError& lError)
    {
        const std::string lText = lError.what();
        EXPECT_EQ(0U, lText.find(lConfiguration.mFile)) << lText;
        return lText.substr(lConfiguration.mFile.size());
    }
    return "no complaint";
}

const std::vector<NetworkFinding>& Findings()
{
    static const std::vector<NetworkFinding> cFindings = {
        {"gev://10.0.0.5", "10.0.0.5", 3956, "02:00:00:00:00:05", "Maker", "Eye 3000", "1", "SN5", "left",
         "eth0"},
        {"gev://10.0.0.6", "10.0.0.6", 3956, "02:00:00:00:00:06", "Maker", "Eye 3000", "1", "SN6", "right",
         "eth0"},
        {"gev://10.0.0.6", "10.0.0.6", 3956, "02:00:00:00:00:06", "Maker", "Eye 3000", "1", "SN6", "right",
         "eth1"}};
    return cFindings;
}

TEST(DeviceNameTest, ConfigurationHasADeviceAndAliases)
{
    const Configuration lConfiguration(
        "device = \"bench\"\n[devices]\nbench = \"gev://10.0.0.5\"\n\"my lens\" = \"SN6\"\n");
    const DeviceConfiguration lRead = ReadConfiguration(lConfiguration.mFile);
    EXPECT_EQ("bench", lRead.mDevice);
    EXPECT_EQ((std::map<std::string, std::string>{{"bench", "gev://10.0.0.5"}, {"my lens", "SN6"}}),
              lRead.mAliases);
}

TEST(DeviceNameTest, MissingConfigurationIsEmpty)
{
    const DeviceConfiguration lRead = ReadConfiguration(KyTest::Process::TemporaryFile(".toml"));
    EXPECT_EQ("", lRead.mDevice);
    EXPECT_TRUE(lRead.mAliases.empty());
}

TEST(DeviceNameTest, ComplaintNamesTheLineAndWhatWouldBeRight)
{
    EXPECT_EQ(":2: \"devise\" is no setting; use device or [devices]", Complaint("\ndevise = \"sim\"\n"));
    EXPECT_EQ(":1: \"device\" has to be a text such as \"gev://192.168.1.20\"", Complaint("device = 5\n"));
    EXPECT_EQ(":1: \"device\" has to be a text such as \"gev://192.168.1.20\"", Complaint("device = \"\"\n"));
    EXPECT_EQ(":1: \"devices\" has to be a table of names and devices", Complaint("devices = true\n"));
    EXPECT_EQ(":3: \"b\" has to be a text such as \"gev://192.168.1.20\"",
              Complaint("[devices]\na = \"sim\"\nb = 1\n"));
    EXPECT_EQ(":2: \"sim\" is a device already and cannot be an alias",
              Complaint("[devices]\nsim = \"gev://1.2.3.4\"\n"));
    EXPECT_EQ(0U, Complaint("device = \n").find(":1: "));
}

TEST(DeviceNameTest, DeviceMatchesByEachOfItsNames)
{
    for (const char* const lName :
         {"SN5", "sn5", "left", "LEFT", "02:00:00:00:00:05", "02-00-00-00-00-05", "10.0.0.5"})
    {
        EXPECT_EQ("gev://10.0.0.5", MatchDevice(lName, Findings())) << lName;
    }
}

TEST(DeviceNameTest, DeviceThatTwoInterfacesReachIsOneDevice)
{
    EXPECT_EQ("gev://10.0.0.6", MatchDevice("right", Findings()));
}

TEST(DeviceNameTest, SeveralMatchesAreRefusedAndListed)
{
    try
    {
        static_cast<void>(MatchDevice("Eye 3000", Findings()));
        FAIL() << "two devices have this model";
    }
    catch (const OperationError& lError)
    {
        EXPECT_STREQ("several devices answer to \"Eye 3000\": gev://10.0.0.5 gev://10.0.0.6", lError.what());
    }
}

TEST(DeviceNameTest, NoMatchNamesWhatIsCompared)
{
    try
    {
        static_cast<void>(MatchDevice("middle", Findings()));
        FAIL() << "no device has this name";
    }
    catch (const OperationError& lError)
    {
        EXPECT_THAT(lError.what(),
                    HasSubstr("no device answers to \"middle\" (MAC address, serial number, user name"));
    }
}

TEST(DeviceNameTest, RefusesTextsThatNoDeviceCanHave)
{
    EXPECT_EQ("", CheckDeviceName("sim"));
    EXPECT_EQ("", CheckDeviceName("a camera's name"));
    EXPECT_NE("", CheckDeviceName("gev://some where"));
    EXPECT_NE("", CheckDeviceName(""));
}

} // namespace
