#include "GigE/FakeSpace.h"

#include "Adapters/GigE/Evaluator/DeviceDescription.h"

#include <gmock/gmock.h>

using KyGigE::Dependencies;
using KyGigE::DeviceDescription;
using KyGigE::ListedFeature;
using KyTest::Description;
using KyTest::IntReg;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class DependenciesTest : public testing::Test
{
protected:
    const Dependencies& GraphOf(const std::string& aNodes)
    {
        EXPECT_TRUE(DeviceDescription::Parse(Description(aNodes), mDescription).IsOK());
        return mDescription->GetGraph();
    }

    std::unique_ptr<DeviceDescription> mDescription;
};

std::string Port(const std::string& aName, const std::string& aEvent)
{
    return "<Port Name=\"" + aName + "\"><EventID>" + aEvent + "</EventID></Port>";
}

std::string Integer(const std::string& aName, const std::string& aInside)
{
    return "<Integer Name=\"" + aName + "\">" + aInside + "</Integer>";
}

TEST_F(DependenciesTest, AnEventFeedsWhateverIsMadeOfItsPort)
{
    const Dependencies& lGraph = GraphOf(
        Integer("Length", "<pValue>LengthReg</pValue>") + IntReg("LengthReg", "0x10", "RO", "", "Event1") +
        IntReg("Other", "0x10", "RO", "", "Event2") + IntReg("Plain", "0x10") + Port("Event1", "9101") +
        Port("Event2", "0x9102"));
    EXPECT_THAT(lGraph.FedBy(0x9101), ElementsAre("Length", "LengthReg"));
    EXPECT_THAT(lGraph.FedBy(0x9102), ElementsAre("Other"));
    EXPECT_THAT(lGraph.FedBy(0x9103), IsEmpty());
}

TEST_F(DependenciesTest, AnIdentifierThatIsNoneMakesNoEventPort)
{
    const Dependencies& lGraph = GraphOf(Port("Text", "beer") + Port("Large", "12345") + Port("Empty", ""));
    EXPECT_THAT(lGraph.GetEventPorts(), IsEmpty());
}

TEST_F(DependenciesTest, AWriteAffectsWhatIsMadeOfTheSameRegister)
{
    const Dependencies& lGraph = GraphOf(
        Integer("Width", "<pValue>WidthReg</pValue>") + Integer("Half", "<pValue>HalfKnife</pValue>") +
        "<IntSwissKnife Name=\"HalfKnife\"><pVariable Name=\"W\">WidthReg</pVariable><Formula>W/2</Formula>"
        "</IntSwissKnife>" +
        IntReg("WidthReg", "0x10") + IntReg("Height", "0x14"));
    EXPECT_THAT(lGraph.AffectedBy("Width"), ElementsAre("Width", "Half", "HalfKnife", "WidthReg"));
    EXPECT_THAT(lGraph.AffectedBy("Height"), ElementsAre("Height"));
    EXPECT_THAT(lGraph.AffectedBy("None"), IsEmpty());
}

TEST_F(DependenciesTest, ASelectorAffectsWhatItSelects)
{
    const Dependencies& lGraph = GraphOf(
        "<Enumeration Name=\"Selector\"><EnumEntry Name=\"A\"><Value>0</Value></EnumEntry>"
        "<pValue>SelectorReg</pValue><pSelected>Mode</pSelected><pSelected>Rate</pSelected></Enumeration>" +
        Integer("Mode", "<pValue>ModeReg</pValue>") + Integer("Rate", "<Value>1</Value>") +
        IntReg("SelectorReg", "0x10") + IntReg("ModeReg", "0x14"));
    EXPECT_THAT(lGraph.AffectedBy("Selector"),
                ElementsAre("Selector", "Mode", "Rate", "SelectorReg", "ModeReg"));
    EXPECT_THAT(lGraph.AffectedBy("Mode"), ElementsAre("Mode", "ModeReg"));
}

TEST_F(DependenciesTest, AWriteAffectsWhatItLocksLimitsOrInvalidates)
{
    const Dependencies& lGraph =
        GraphOf(IntReg("Lock", "0x10") + IntReg("Locked", "0x14", "RW", "<pIsLocked>Lock</pIsLocked>") +
                Integer("Limited", "<Value>1</Value><pMax>Lock</pMax>") +
                IntReg("Stale", "0x18", "RW", "<pInvalidator>Lock</pInvalidator>"));
    EXPECT_THAT(lGraph.AffectedBy("Lock"), ElementsAre("Lock", "Locked", "Limited", "Stale"));
}

TEST_F(DependenciesTest, EntriesOfAStructureDependOnWhereItLies)
{
    const Dependencies& lGraph =
        GraphOf("<StructReg Comment=\"Status\"><Address>0</Address><Length>4</Length><pPort>Event</pPort>"
                "<StructEntry Name=\"Flag\"><Bit>0</Bit></StructEntry></StructReg>" +
                Port("Event", "9200"));
    EXPECT_THAT(lGraph.FedBy(0x9200), ElementsAre("Flag"));
}

TEST_F(DependenciesTest, NodesOfAGroupCount)
{
    const Dependencies& lGraph = GraphOf("<Group Comment=\"g\">" + IntReg("Inner", "0x10") +
                                         Integer("Outer", "<pValue>Inner</pValue>") + "</Group>");
    EXPECT_THAT(lGraph.AffectedBy("Outer"), ElementsAre("Inner", "Outer"));
}

TEST_F(DependenciesTest, ListsWhatHangsUnderTheRoot)
{
    const Dependencies& lGraph =
        GraphOf("<Category Name=\"Root\"><pFeature>Device</pFeature><pFeature>Serial</pFeature></Category>"
                "<Category Name=\"Serial\"><pFeature>Rate</pFeature><pFeature>Root</pFeature>"
                "<pFeature>Missing</pFeature></Category>" +
                IntReg("Hidden", "0x10") +
                IntReg("Rate", "0x14", "RW", "<ToolTip>Speed</ToolTip><Visibility>Guru</Visibility>"));
    const std::vector<ListedFeature> lFeatures = lGraph.GetFeatures();
    ASSERT_EQ(lFeatures.size(), 1U); // the port is no feature
    EXPECT_EQ(lFeatures[0].mName, "Rate");
    EXPECT_EQ(lFeatures[0].mCategory, "Serial");
    EXPECT_EQ(lFeatures[0].mVisibility, "Guru");
    EXPECT_EQ(lFeatures[0].mToolTip, "Speed");
}

TEST_F(DependenciesTest, WithoutARootEverythingIsListed)
{
    const Dependencies& lGraph = GraphOf(IntReg("B", "0x10") + IntReg("A", "0x14"));
    const std::vector<ListedFeature> lFeatures = lGraph.GetFeatures();
    ASSERT_EQ(lFeatures.size(), 2U);
    EXPECT_EQ(lFeatures[0].mName, "B");
    EXPECT_EQ(lFeatures[1].mName, "A");
}

TEST_F(DependenciesTest, TextsThatFeaturesShareDoNotMultiply)
{
    const std::string lText(1'000'000, 'x');
    std::string lEntries;
    std::string lFolder;
    for (int lIndex = 0; lIndex < 100; ++lIndex)
    {
        const std::string lName = "E" + std::to_string(lIndex);
        lEntries += "<StructEntry Name=\"" + lName + "\"><Bit>0</Bit></StructEntry>";
        lFolder += "<pFeature>" + lName + "</pFeature>";
    }
    const Dependencies& lGraph =
        GraphOf("<Category Name=\"Root\"><pFeature>" + lText + "</pFeature></Category><Category Name=\"" +
                lText + "\">" + lFolder + "</Category><StructReg><ToolTip>" + lText + "</ToolTip>" +
                lEntries + "</StructReg>");
    size_t lSum = 0;
    const std::vector<ListedFeature> lFeatures = lGraph.GetFeatures();
    for (const ListedFeature& lFeature : lFeatures)
    {
        lSum += lFeature.mCategory.size() + lFeature.mToolTip.size();
    }
    EXPECT_EQ(lFeatures.size(), 100U);
    EXPECT_EQ(lFeatures[0].mCategory, lText);
    EXPECT_EQ(lFeatures[0].mToolTip, lText);
    EXPECT_LE(lSum, KyGigE::XmlDocument::cLargestText);
}

TEST_F(DependenciesTest, EventsThatFeedTooMuchAreNoEvents)
{
    const auto lMakeGraph = [this](int aEvents, int aFeatures) -> const Dependencies&
    {
        std::string lNodes;
        std::string lVariables;
        for (int lEvent = 1; lEvent <= aEvents; ++lEvent)
        {
            const std::string lName = "P" + std::to_string(lEvent);
            lNodes += Port(lName, std::to_string(lEvent)) + IntReg("R" + lName, "0x10", "RO", "", lName);
            lVariables += "<pVariable Name=\"A\">R" + lName + "</pVariable>";
        }
        lNodes += "<IntSwissKnife Name=\"Knife\">" + lVariables + "<Formula>A</Formula></IntSwissKnife>";
        for (int lFeature = 0; lFeature < aFeatures; ++lFeature)
        {
            lNodes += Integer("F" + std::to_string(lFeature), "<pValue>Knife</pValue>");
        }
        return GraphOf(lNodes);
    };
    std::map<uint16_t, std::vector<std::string>> lFed;
    EXPECT_TRUE(lMakeGraph(100, 500).CollectFed(lFed));
    EXPECT_EQ(lFed.size(), 100U);
    EXPECT_EQ(lFed[0x64].size(), 502U);                  // with the register and the knife
    EXPECT_FALSE(lMakeGraph(300, 500).CollectFed(lFed)); // 150,000 names
    EXPECT_THAT(lFed, IsEmpty());
    EXPECT_FALSE(lMakeGraph(9'000, 0).CollectFed(lFed)); // as many looks at 18,000 nodes
}

TEST_F(DependenciesTest, TheShortestPollingTimeCounts)
{
    const Dependencies& lGraph =
        GraphOf(Integer("Temperature", "<pValue>Reg</pValue><PollingTime>3000</PollingTime>") +
                IntReg("Reg", "0x10", "RO", "<PollingTime>1000</PollingTime>") + IntReg("Fixed", "0x14"));
    EXPECT_EQ(lGraph.PollingTimeOf("Temperature"), 1000U);
    EXPECT_EQ(lGraph.PollingTimeOf("Fixed"), 0U);
    EXPECT_EQ(lGraph.PollingTimeOf("None"), 0U);
}

} // namespace
