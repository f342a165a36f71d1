#include "GigE/Camera/DescriptionRules.h"

#include <Simulator/Network/DeviceXml.h>
#include <Simulator/Network/FeatureRegisters.h>
#include <Simulator/Time/ManualScheduler.h>

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

using KyTest::FindViolations;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

// The camera's description by the rules of GenApi. The schema itself is not ours to bring along.

namespace
{

std::string Describe(const KySimulator::CameraConfiguration& aConfiguration)
{
    KySimulator::CameraModel lCamera(aConfiguration, std::make_shared<KySimulator::ManualScheduler>());
    const KySimulator::FeatureRegisters lFeatures(lCamera);
    return MakeDeviceXml(lFeatures, lCamera.GetConfiguration());
}

TEST(DescriptionRulesTest, TheDescriptionOfEveryCameraFollowsThem)
{
    KySimulator::CameraConfiguration lConfiguration;
    EXPECT_THAT(FindViolations(Describe(lConfiguration)), IsEmpty());
    lConfiguration.mBulkSelector = false;
    EXPECT_THAT(FindViolations(Describe(lConfiguration)), IsEmpty());
    lConfiguration.mUartCount = 0;
    lConfiguration.mModel = "4 \"ports\" <& more>";
    lConfiguration.mBulk[6].mFeatures = false;
    EXPECT_THAT(FindViolations(Describe(lConfiguration)), IsEmpty());
}

struct Spoil
{
    std::string mFrom;
    std::string mTo;
    std::string mViolation;
};

TEST(DescriptionRulesTest, EachOfThemIsLookedAt)
{
    const std::vector<Spoil> lSpoils = {
        {"<Length>32</Length>", "", "StringReg Device"},
        {"<AccessMode>RO</AccessMode>", "<AccessMode>R</AccessMode>", "AccessMode R"},
        {"<Sign>Unsigned</Sign>\n\t\t<Endianess>BigEndian</Endianess>",
         "<Endianess>BigEndian</Endianess><Sign>Unsigned</Sign>", ": elements"},
        {"<pPort>Device</pPort>", "<pPort>DeviceUserID</pPort>", "does not fit"},
        {"<pFeature>DeviceControl</pFeature>", "<pFeature>Nothing</pFeature>", "leads nowhere"},
        {"<pFeature>DeviceControl</pFeature>", "<pFeature>Device</pFeature>", "does not fit"},
        {"Name=\"DeviceUserID\"", "Name=\"DeviceModelName\"", "another node has the name"},
        {"Name=\"DeviceUserID\"", "Name=\"4\"", "StringReg 4: name"},
        {"<EnumEntry Name=\"Bulk1\"", "<EnumEntry Name=\"Bulk0\"", "another node has the name"},
        {"<Value>1</Value>", "<Value>0</Value>", "two entries have the same value"},
        {"<Value>1</Value>", "<Value>one</Value>", "Value one"},
        {"<Bit>31</Bit>", "<Bit>64</Bit>", "Bit 64"},
        {"<Bit>31</Bit>", "", "elements"},
        {"<Formula>", "<Formulas/><Formula>", "elements"},
        {"<EventID>9101</EventID>", "<EventID>event</EventID>", "EventID event"},
        {"Name=\"Root\"", "Name=\"Rood\"", "no category Root"},
        {"ProductGuid=\"6D", "ProductGuid=\"", "ProductGuid"},
        {"xmlns=\"http://www.genicam.org/GenApi/Version_1_1",
         "xmlns=\"http://www.genicam.org/GenApi/Version_1_0", "XML namespace"},
        {"<Category Name=\"Root\"", "<Float Name=\"x\"/><Category Name=\"Root\"", "unknown kind"}};
    const std::string lGood = Describe({});
    for (const Spoil& lSpoil : lSpoils)
    {
        std::string lXml = lGood;
        const size_t lPlace = lXml.find(lSpoil.mFrom);
        ASSERT_NE(lPlace, std::string::npos) << lSpoil.mFrom;
        lXml.replace(lPlace, lSpoil.mFrom.size(), lSpoil.mTo);
        EXPECT_THAT(FindViolations(lXml), Contains(HasSubstr(lSpoil.mViolation))) << lSpoil.mTo;
    }
}

} // namespace
