#include "GigE/FakeSpace.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/GenApi/DeviceDescription.h"
#include "Adapters/GigE/GenApi/EventAddress.h"

#include <gmock/gmock.h>

using KyGigE::DeviceDescription;
using KyTest::Description;
using KyTest::IntReg;
using testing::HasSubstr;
using testing::Not;

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

TEST(DeviceDescriptionTest, MovesEventRegistersIntoTheEventSpace)
{
    const auto lDescription =
        Parsed(Description(IntReg("Length", "0x10", "RO", "", "Event") + "<Group Comment=\"g\">" +
                           IntReg("Inner", "0x14", "RO", "", "Event") + "</Group>" + IntReg("Plain", "0x18") +
                           "<Port Name=\"Event\"><EventID>9101</EventID></Port>"));
    const std::string& lXml = lDescription->GetXml();
    EXPECT_THAT(lXml, Not(HasSubstr("EventID")));
    const std::string lMoved = "<Address>0x4556910100000000</Address><pPort>Event</pPort>";
    const size_t lFirst = lXml.find(lMoved);
    ASSERT_NE(lFirst, std::string::npos);
    EXPECT_NE(lXml.find(lMoved, lFirst + 1), std::string::npos);
    EXPECT_THAT(lXml, HasSubstr("<Address>0x18</Address><Length>4</Length>"));
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
    EXPECT_THAT(ParseFailure(""), KyTest::IsResult(KyResult::FAILURE, "The device's description is no XML."));
    EXPECT_THAT(ParseFailure("<RegisterDescription>"),
                KyTest::IsResult(KyResult::FAILURE, "The device's description is no XML."));
    EXPECT_THAT(ParseFailure("<html/>"),
                KyTest::IsResult(KyResult::FAILURE, "The device's XML describes no registers."));
}

TEST(DeviceDescriptionTest, RefusesEntitiesThatGrow)
{
    EXPECT_THAT(
        ParseFailure("<!DOCTYPE a [<!ENTITY b \"bbbb\"><!ENTITY c \"&b;&b;\">]><RegisterDescription>&c;"
                     "</RegisterDescription>"),
        KyTest::IsResult(KyResult::FAILURE, "The device's description is no XML."));
}

TEST(DeviceDescriptionTest, RefusesValuesThatNeedThemselves)
{
    const KyResult lResult = ParseFailure(Description("<Integer Name=\"A\"><pValue>A</pValue></Integer>"));
    EXPECT_STREQ(lResult.GetDescription().GetAscii(),
                 "The device's description cannot be used: The value of A depends on itself, or on too many "
                 "others.");
}

} // namespace
