#include "Adapters/GigE/Evaluator/Unzip.h"
#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <KySerial/DeviceProtocol.h>
#include <Simulator/Network/DeviceXml.h>
#include <Simulator/Network/RegisterMap.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace
{

using namespace KyDeviceProtocol;
using namespace KySimulator;
using KyGvcp::Bytes;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using Buffer = std::vector<uint8_t>;

/// What the first address of a map's description says.
std::string UrlOf(RegisterMap& aMap)
{
    Buffer lData;
    EXPECT_TRUE(aMap.ReadMemory(KyGvcp::cFirstUrlRegister, 64, lData).IsOk());
    return reinterpret_cast<const char*>(lData.data());
}

class RegisterMapTest : public testing::Test
{
protected:
    void Make()
    {
        mCamera = std::make_unique<CameraModel>(mConfiguration, std::make_shared<ManualScheduler>());
        mFeatures = std::make_unique<FeatureRegisters>(*mCamera);
        mMap = std::make_unique<RegisterMap>(*mCamera);
        mMap->SetPlace(0x7F000001, 0xFF000000);
    }

    void SetUp() override
    {
        mConfiguration.mUnlimitedLineRate = true;
        Make();
    }

    uint32_t AddressOf(const std::string& aName)
    {
        for (const FeatureRegister& lRegister : mFeatures->GetList())
        {
            if (lRegister.mName == aName)
            {
                return lRegister.mAddress;
            }
        }
        ADD_FAILURE() << aName;
        return 0;
    }
    uint32_t Read(uint32_t aAddress)
    {
        uint32_t lValue = 0;
        EXPECT_TRUE(mMap->ReadRegister(aAddress, lValue).IsOk()) << std::hex << aAddress;
        return lValue;
    }
    Status Write(const std::string& aName, uint32_t aValue)
    {
        return mMap->WriteRegister(AddressOf(aName), aValue).mStatus;
    }
    std::string Get(const std::string& aName)
    {
        std::string lText;
        EXPECT_TRUE(mCamera->GetText(aName, lText).IsOk());
        return lText;
    }

    CameraConfiguration mConfiguration;
    std::unique_ptr<CameraModel> mCamera;
    std::unique_ptr<FeatureRegisters> mFeatures;
    std::unique_ptr<RegisterMap> mMap;
};

TEST_F(RegisterMapTest, HasAnAddressOfItsOwnForEverySettingAndMessage)
{
    std::set<uint32_t> lAddresses;
    for (const FeatureRegister& lRegister : mFeatures->GetList())
    {
        const bool lAddressed = lRegister.mFeature.mKind == FeatureKind::Enumeration ||
                                lRegister.mFeature.mId == FeatureId::Downstream;
        EXPECT_EQ(lAddressed, lRegister.mAddress != 0) << lRegister.mName;
        EXPECT_TRUE(!lAddressed || lAddresses.insert(lRegister.mAddress).second) << lRegister.mName;
    }
    EXPECT_GT(lAddresses.size(), 20U);
}

TEST_F(RegisterMapTest, WritesAndReadsSettingsByPosition)
{
    EXPECT_EQ(Status::Ok, Write("BulkSelector", 5));
    EXPECT_EQ("Bulk5", Get("BulkSelector"));
    EXPECT_EQ(Status::Ok, Write("BulkBaudRate", 3));
    EXPECT_EQ("Baud28800", Get("BulkBaudRate"));
    EXPECT_EQ(3U, Read(AddressOf("BulkBaudRate")));
    EXPECT_EQ(Status::Ok, Write("BulkSelector", 0));
    EXPECT_EQ(0U, Read(AddressOf("BulkBaudRate")));
    EXPECT_EQ(Status::InvalidParameter, Write("BulkParity", 3));
}

TEST_F(RegisterMapTest, AMaskHasTheModesOfTheSelectedPort)
{
    mConfiguration.mBulk[1].mUsrt = false;
    mConfiguration.mBulk[1].mSpi = false;
    Make();
    const uint32_t lMask = FeatureRegisters::GetModeMaskAddress();
    EXPECT_EQ(0xFU, Read(lMask));
    EXPECT_EQ(Status::Ok, Write("BulkSelector", 1));
    EXPECT_EQ(0x5U, Read(lMask));
    EXPECT_EQ(Status::Ok, Write("BulkMode", 2));
    EXPECT_EQ("I2C", Get("BulkMode"));
    EXPECT_EQ(2U, Read(AddressOf("BulkMode")));
    EXPECT_EQ(Status::InvalidParameter, Write("BulkMode", 1));
    EXPECT_EQ(Status::WriteProtect, mMap->WriteRegister(lMask, 0).mStatus);
}

TEST_F(RegisterMapTest, RefusesToReadAModeThatHasNoEntry)
{
    mConfiguration.mBulk[0].mMode = Protocol::Spi;
    mConfiguration.mBulk[0].mSpi = false;
    Make();
    uint32_t lValue = 1;
    EXPECT_EQ(Status::AccessDenied, mMap->ReadRegister(AddressOf("BulkMode"), lValue).mStatus);
    EXPECT_EQ(0U, lValue);
}

TEST_F(RegisterMapTest, TakesMessagesInOnePiece)
{
    const uint32_t lAddress = AddressOf("Bulk4DownstreamData");
    EXPECT_TRUE(mMap->IsBlock(lAddress));
    const Buffer lMessage = {0, 0, 0, 0, 0, 0, 0, 3, 'a', 'b', 'c', 0};
    EXPECT_TRUE(mMap->WriteBlock(lAddress, lMessage).IsOk());
    EXPECT_THAT(mCamera->GetWire(Port::Bulk4), ElementsAre('a', 'b', 'c'));
    EXPECT_EQ(Status::InvalidParameter, mMap->WriteBlock(lAddress, Bytes(lMessage).first(5)).mStatus);
    EXPECT_EQ(Status::InvalidParameter, mMap->WriteBlock(lAddress, {}).mStatus);
    uint32_t lValue = 0;
    EXPECT_EQ(Status::AccessDenied, mMap->ReadRegister(lAddress, lValue).mStatus);
    EXPECT_FALSE(mMap->IsBlock(lAddress + 4));
    EXPECT_EQ(Status::InvalidAddress, mMap->WriteBlock(lAddress + 4, lMessage).mStatus);
}

TEST_F(RegisterMapTest, KeepsTheUsersName)
{
    const Buffer lName = {'l', 'e', 'f', 't', 0, 'x'};
    EXPECT_TRUE(mMap->WriteBlock(KyGvcp::cUserNameRegister, lName).IsOk());
    EXPECT_EQ("left", Get("DeviceUserID"));
    Buffer lData;
    EXPECT_TRUE(mMap->ReadMemory(KyGvcp::cUserNameRegister, 16, lData).IsOk());
    EXPECT_EQ("left", std::string(reinterpret_cast<const char*>(lData.data())));
    EXPECT_EQ(0x6C656674U, Read(KyGvcp::cUserNameRegister));
    EXPECT_FALSE(mMap->WriteBlock(KyGvcp::cUserNameRegister, Buffer(17, 'x')).IsOk());
    EXPECT_EQ("left", Get("DeviceUserID"));
}

TEST_F(RegisterMapTest, ReadsSerialRegistersAsMemory)
{
    EXPECT_TRUE(mMap->WriteRegister(cInterruptEnable, 0x1234).IsOk());
    Buffer lData;
    EXPECT_TRUE(mMap->ReadMemory(cInterruptEnable, 4, lData).IsOk());
    EXPECT_THAT(lData, ElementsAre(0, 0, 0x12, 0x34));
    EXPECT_EQ(Status::InvalidAddress, mMap->ReadMemory(cInterruptEnable, 8, lData).mStatus);
    EXPECT_TRUE(lData.empty());
}

TEST_F(RegisterMapTest, GivesTheDescriptionUnderItsUrl)
{
    Buffer lData;
    ASSERT_TRUE(mMap->ReadMemory(KyGvcp::cFirstUrlRegister, 512, lData).IsOk());
    const std::string lUrl = reinterpret_cast<const char*>(lData.data());
    std::smatch lParts;
    ASSERT_TRUE(std::regex_match(lUrl, lParts, std::regex("Local:[a-z-]+[.]xml;([0-9A-F]+);([0-9A-F]+)")))
        << lUrl;
    const auto lAddress = static_cast<uint32_t>(std::stoul(lParts[1], nullptr, 16));
    const size_t lSize = std::stoul(lParts[2], nullptr, 16);
    std::string lText;
    while (lText.size() < lSize)
    {
        const size_t lCount = std::min<size_t>(KyGvcp::cMaxBlock, (lSize - lText.size() + 3) / 4 * 4);
        ASSERT_TRUE(mMap->ReadMemory(lAddress + static_cast<uint32_t>(lText.size()), lCount, lData).IsOk());
        lText.append(lData.begin(), lData.end());
    }
    lText.resize(lSize);
    EXPECT_EQ(MakeDeviceXml(*mFeatures, mCamera->GetConfiguration()), lText);
    EXPECT_EQ(Status::InvalidAddress,
              mMap->ReadMemory(lAddress + static_cast<uint32_t>((lSize + 3) / 4 * 4) - 4, 8, lData).mStatus);
}

TEST_F(RegisterMapTest, ReadsNothingOutsideItsAddresses)
{
    Buffer lData;
    for (const uint32_t lAddress : {0x0B20U, 0x9FFCU, 0xA000U, 0x7FFFFFFCU, 0x80000000U, 0xFFFFFFFCU})
    {
        EXPECT_EQ(Status::InvalidAddress, mMap->ReadMemory(lAddress, 8, lData).mStatus)
            << std::hex << lAddress;
    }
}

/// The names of the nodes that an application may list: those in categories.
std::set<std::string> Listed(const std::string& aXml)
{
    const std::regex lFeature("<pFeature>([A-Za-z0-9]+)</pFeature>");
    std::set<std::string> lNames;
    for (std::sregex_iterator lNext(aXml.begin(), aXml.end(), lFeature), lEnd; lNext != lEnd; ++lNext)
    {
        lNames.insert((*lNext)[1]);
    }
    return lNames;
}

TEST_F(RegisterMapTest, DescribesExactlyTheCamerasFeatures)
{
    mConfiguration.mBulkSelector = false;
    mConfiguration.mUartCount = 1;
    mConfiguration.mBulk[6].mFeatures = false;
    Make();
    const std::string lXml = MakeDeviceXml(*mFeatures, mCamera->GetConfiguration());
    std::set<std::string> lExpected = {"DeviceControl", "TransportLayerControl", "SerialPorts",
                                       "EventControl"};
    for (const auto& [lName, lFeature] : MakeFeatureTable(mCamera->GetConfiguration()))
    {
        lExpected.insert(lName);
        EXPECT_THAT(lXml, HasSubstr(" Name=\"" + lName + "\" "));
    }
    lExpected.insert(cTransportFeatures.begin(), cTransportFeatures.end());
    EXPECT_EQ(lExpected, Listed(lXml));
    EXPECT_EQ(0U, lExpected.count("Uart1BaudRate"));
    EXPECT_EQ(1U, lExpected.count("Bulk5Parity"));
    EXPECT_THAT(lXml, Not(HasSubstr("Bulk6DownstreamData")));
}

TEST_F(RegisterMapTest, EveryReferenceOfTheDescriptionLeadsToANode)
{
    const std::string lXml = MakeDeviceXml(*mFeatures, mCamera->GetConfiguration());
    std::set<std::string> lNodes;
    const std::regex lNode("\n\t<[A-Za-z]+ Name=\"([A-Za-z0-9]+)\" NameSpace");
    for (std::sregex_iterator lNext(lXml.begin(), lXml.end(), lNode), lEnd; lNext != lEnd; ++lNext)
    {
        EXPECT_TRUE(lNodes.insert((*lNext)[1]).second) << (*lNext)[1];
    }
    const std::regex lReference("<p[A-Z][A-Za-z]*(?: Name=\"[A-Z]+\")?>([A-Za-z0-9]+)<");
    size_t lReferences = 0;
    for (std::sregex_iterator lNext(lXml.begin(), lXml.end(), lReference), lEnd; lNext != lEnd; ++lNext)
    {
        EXPECT_EQ(1U, lNodes.count((*lNext)[1])) << (*lNext)[0];
        ++lReferences;
    }
    EXPECT_GT(lReferences, 100U);
}

TEST_F(RegisterMapTest, AZippedDescriptionIsTheSameOnePacked)
{
    NetworkForms lForms;
    lForms.mZippedDescription = true;
    RegisterMap lMap(*mCamera, lForms);
    lMap.SetPlace(0x7F000001, 0xFF000000);
    Buffer lData;
    ASSERT_TRUE(lMap.ReadMemory(KyGvcp::cFirstUrlRegister, 64, lData).IsOk());
    const std::string lUrl = reinterpret_cast<const char*>(lData.data());
    std::smatch lParts;
    ASSERT_TRUE(
        std::regex_match(lUrl, lParts, std::regex("Local:kyserial-camera[.]zip;([0-9A-F]+);([0-9A-F]+)")))
        << lUrl;
    const size_t lSize = std::stoul(lParts[2], nullptr, 16);
    std::string lFile;
    while (lFile.size() < lSize)
    {
        const size_t lCount = std::min<size_t>(KyGvcp::cMaxBlock, (lSize - lFile.size() + 3) / 4 * 4);
        const auto lAddress = RegisterMap::cDescription + static_cast<uint32_t>(lFile.size());
        ASSERT_TRUE(lMap.ReadMemory(lAddress, lCount, lData).IsOk());
        lFile.append(lData.begin(), lData.end());
    }
    lFile.resize(lSize);
    const std::string lXml = MakeDeviceXml(*mFeatures, mCamera->GetConfiguration());
    EXPECT_LT(lSize, lXml.size() / 4);
    std::string lText;
    EXPECT_EQ("", KyGigE::Unzip(lFile, lXml.size(), lText));
    EXPECT_EQ(lXml, lText);
}

TEST_F(RegisterMapTest, BothAddressesOfTheDescriptionLeadToItUnlessTheFirstOneIsSwitchedOff)
{
    for (const bool lOnlySecond : {false, true})
    {
        NetworkForms lForms;
        lForms.mOnlySecondUrl = lOnlySecond;
        RegisterMap lMap(*mCamera, lForms);
        lMap.SetPlace(0x7F000001, 0xFF000000);
        Buffer lData;
        ASSERT_TRUE(lMap.ReadMemory(KyGvcp::cFirstUrlRegister, 64, lData).IsOk());
        EXPECT_STREQ(reinterpret_cast<const char*>(lData.data()),
                     lOnlySecond ? "File:kyserial-camera.xml" : UrlOf(*mMap).c_str());
        ASSERT_TRUE(lMap.ReadMemory(KyGvcp::cSecondUrlRegister, 64, lData).IsOk());
        EXPECT_EQ(reinterpret_cast<const char*>(lData.data()), UrlOf(*mMap));
    }
}

TEST_F(RegisterMapTest, TheDescriptionOfAnyCameraNameIsWellFormed)
{
    mConfiguration.mModel = "4 \"ports\" <& more>";
    Make();
    const std::string lXml = MakeDeviceXml(*mFeatures, mCamera->GetConfiguration());
    EXPECT_THAT(lXml, HasSubstr("ModelName=\"C4__ports_____more_\""));
    KyGigE::XmlDocument lDocument;
    EXPECT_EQ("", lDocument.Parse(lXml));
    EXPECT_EQ("Korvo 4 \"ports\" <& more>", lDocument.GetAttribute(lDocument.Get(0), "ToolTip"));
}

} // namespace
