#include "GigE/FakeSpace.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Evaluator/DeviceDescription.h"
#include "Adapters/GigE/GenApi/EventAddress.h"

#include <gmock/gmock.h>

using KyGigE::DeviceDescription;
using KyTest::Description;
using KyTest::IntReg;

namespace
{

std::unique_ptr<DeviceDescription> Parsed(const std::string& aXml)
{
    std::unique_ptr<DeviceDescription> lDescription;
    EXPECT_THAT(DeviceDescription::Parse(aXml, lDescription), KyTest::IsOK());
    return lDescription;
}

KyResult ParseFailure(const std::string& aXml)
{
    std::unique_ptr<DeviceDescription> lDescription;
    KyResult lResult = DeviceDescription::Parse(aXml, lDescription);
    EXPECT_EQ(lDescription, nullptr);
    return lResult;
}

TEST(DeviceDescriptionTest, EventAddressesNameEventAndOffset)
{
    const uint64_t lAddress = KyGigE::EventAddress(0x9101) + 0x12;
    EXPECT_TRUE(KyGigE::IsEventAddress(lAddress));
    EXPECT_EQ(KyGigE::EventOf(lAddress), 0x9101);
    EXPECT_EQ(KyGigE::EventOffset(lAddress), 0x12U);
    EXPECT_FALSE(KyGigE::IsEventAddress(0xFFFFFFFFU));
}

TEST(DeviceDescriptionTest, TheSchemaDecidesAboutRegisters)
{
    EXPECT_TRUE(Parsed(Description("", "0"))->HasRegistersOnly());
    EXPECT_FALSE(Parsed(Description("", "1"))->HasRegistersOnly());
}

TEST(DeviceDescriptionTest, RefusesWhatIsNoDescription)
{
    EXPECT_THAT(
        ParseFailure(""),
        KyTest::IsResult(KyResult::FAILURE, "The device's description cannot be read: it ends too early."));
    EXPECT_THAT(ParseFailure("<html/>"),
                KyTest::IsResult(KyResult::FAILURE, "The device's XML describes no registers."));
}

TEST(DeviceDescriptionTest, UnknownNodesAreTolerated)
{
    const auto lDescription = Parsed(
        Description("<Node Name=\"N\"/><ConfRom Name=\"C\"><Unit>1</Unit></ConfRom><SmartFeature Name=\"S\"/>"
                    "<AdvFeatureLock Name=\"L\"/><Strange Name=\"X\"><pValue>A</pValue></Strange>" +
                    IntReg("A", "0x10")));
    EXPECT_NE(lDescription->GetNodes().FindNode("A"), KyGigE::cNoNode);
}

TEST(DeviceDescriptionTest, OfTwoNodesWithOneNameTheFirstCounts)
{
    const auto lDescription = Parsed(Description("<Integer Name=\"A\"><Value>1</Value></Integer>"
                                                 "<Float Name=\"A\"><Value>2</Value></Float>"));
    const KyGigE::NodeTable& lNodes = lDescription->GetNodes();
    EXPECT_EQ(lNodes.Get(lNodes.FindNode("A")).mKind, KyGigE::ElementKind::Integer);
    EXPECT_EQ(lDescription->GetGraph().GetFeatures().size(), 1U);
}

// A device that chooses its names so that looking one up means looking at all of them.
TEST(DeviceDescriptionTest, NamesThatLeadToOnePlaceAreRefused)
{
    constexpr uint32_t cPlaces = 4096; // of the table for so many nodes
    std::string lNodes;
    size_t lFound = 0;
    for (uint32_t lNumber = 0; lFound <= KyGigE::NameIndex::cLongestSearch; ++lNumber)
    {
        const std::string lName = "N" + std::to_string(lNumber);
        if (KyGigE::NameIndex::HashOf(lName) % cPlaces == 0)
        {
            lNodes += "<Integer Name=\"" + lName + "\"/>";
            ++lFound;
        }
    }
    EXPECT_THAT(ParseFailure(Description(lNodes)),
                KyTest::IsResult(KyResult::FAILURE, "The device's description cannot be used: the names of "
                                                    "its nodes are too much alike."));
}

} // namespace
