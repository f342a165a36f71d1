// Descriptions that need exponential time, endless memory or an endless stack. Each is answered in a moment.

#include "GenApi/MapFixture.h"
#include "Support/ProcessorTime.h"

namespace
{

using KyTest::Element;
using KyTest::IntReg;
using KyTest::NodeXml;

class BudgetTest : public KyTest::MapFixture
{
protected:
    /// Asks a feature for everything.
    void AskQuickly(const std::string& aName)
    {
        std::string lText;
        std::vector<std::string> lEntries;
        KyGigE::RegisterPlace lPlace;
        KyGigE::Range lRange;
        Count("IsAvailable", [&] { static_cast<void>(mMap->IsAvailable(aName)); });
        Count("IsWritable", [&] { static_cast<void>(mMap->IsWritable(aName)); });
        Count("GetText", [&] { static_cast<void>(mMap->GetText(aName, lText)); });
        Count("GetEntries", [&] { static_cast<void>(mMap->GetEntries(aName, lEntries)); });
        Count("GetRange", [&] { static_cast<void>(mMap->GetRange(aName, lRange)); });
        Count("GetRegister",
              [&] { static_cast<void>(mMap->GetRegister(aName, KyGigE::RegisterUse::Look, lPlace)); });
        Count("SetText", [&] { static_cast<void>(mMap->SetText(aName, "1")); });
        Measure("AffectedBy", [&] { static_cast<void>(mDescription->GetGraph().AffectedBy(aName)); });
        Measure("PollingTimeOf", [&] { static_cast<void>(mDescription->GetGraph().PollingTimeOf(aName)); });
    }

    /// A use ends with the step that its budget does not hold any more.
    template<class Do>
    void Count(const char* aWhat, const Do& aDo)
    {
        constexpr int64_t cLargestStep = 30'000; // elements of one node in these tests
        Measure(aWhat, aDo);
        EXPECT_LE(mMap->GetVisits(), KyGigE::Evaluator::cMostVisits + cLargestStep) << aWhat;
    }

    /// Each use ends within 100 ms. This is processor time: a busy machine adds nothing to it. The system may still charge
    /// an interrupt to one try, so the least of three counts.
    template<class Do>
    static void Measure(const char* aWhat, const Do& aDo)
    {
        uint64_t lLeast = UINT64_MAX;
        for (int lTry = 0; lTry < 3 && lLeast >= cMostTime; ++lTry)
        {
            const uint64_t lBegin = KyTest::GetProcessorTime();
            aDo();
            lLeast = std::min(lLeast, KyTest::GetProcessorTime() - lBegin);
        }
        EXPECT_LT(lLeast, cMostTime) << aWhat;
    }

    static constexpr uint64_t cMostTime = 100 * KyTest::cCheckingCosts; // ms
};

std::string N(int aIndex)
{
    return "N" + std::to_string(aIndex);
}

TEST_F(BudgetTest, ExponentialChainsAreLinear)
{
    std::string lNodes;
    for (int lIndex = 0; lIndex < 60; ++lIndex)
    {
        lNodes += NodeXml("IntSwissKnife", N(lIndex),
                          "<pVariable Name=\"A\">" + N(lIndex + 1) + "</pVariable><pVariable Name=\"B\">" +
                              N(lIndex + 1) + "</pVariable><Formula>A+B</Formula>");
    }
    MakeNodes(lNodes + NodeXml("Integer", "N60", "<Value>1</Value>"));
    EXPECT_EQ(TextOf("N0"), "1152921504606846976");
    EXPECT_LE(mMap->GetVisits(), 60 * 30); // as often as there are nodes, not 2^60 times
    AskQuickly("N0");
}

TEST_F(BudgetTest, ExponentialConditionsRangesAndExpressionsEnd)
{
    std::string lNodes;
    std::string lExpressions;
    for (int lIndex = 0; lIndex < 60; ++lIndex)
    {
        const std::string lNext = N(lIndex + 1);
        std::string lElements;
        for (const char* lElement :
             {"pIsImplemented", "pIsAvailable", "pValue", "pValueCopy", "pMin", "pMax"})
        {
            lElements += Element(lElement, lNext);
        }
        lNodes += NodeXml("Integer", N(lIndex), lElements);
        lExpressions += "<Expression Name=\"E" + std::to_string(lIndex) + "\">E" +
                        std::to_string(lIndex + 1) + "+E" + std::to_string(lIndex + 1) + "</Expression>";
    }
    MakeNodes(lNodes + NodeXml("Integer", "N60", "<Value>1</Value>") +
              NodeXml("IntSwissKnife", "Knife",
                      lExpressions + "<Expression Name=\"E60\">1</Expression><Formula>E0</Formula>") +
              NodeXml("IntConverter", "Conv",
                      lExpressions + "<Expression Name=\"E60\">TO</Expression><FormulaFrom>E0</FormulaFrom>"
                                     "<FormulaTo>E0</FormulaTo><pValue>N60</pValue>"));
    AskQuickly("N0");
    AskQuickly("Conv");
    EXPECT_EQ(TextOf("Knife"), "1152921504606846976");
    EXPECT_EQ(TextOf("Conv"), "error");
    EXPECT_EQ(ProblemOf("Conv"), "The feature Conv cannot be evaluated: this takes too long.");
    EXPECT_GT(mMap->GetVisits(), KyGigE::Evaluator::cMostVisits); // the count is the budget's own
}

TEST_F(BudgetTest, LongChainsAreRefusedNotFollowed)
{
    std::string lNodes;
    for (int lIndex = 0; lIndex < 20'000; ++lIndex)
    {
        lNodes += NodeXml("Integer", N(lIndex), "<pValue>" + N(lIndex + 1) + "</pValue>");
    }
    MakeNodes(lNodes + NodeXml("Integer", "N20000", "<Value>1</Value>"));
    EXPECT_EQ(TextOf("N0"), "error");
    EXPECT_EQ(TextOf("N19900"), "1");
    AskQuickly("N0");
    AskQuickly("N20000");
}

TEST_F(BudgetTest, ChainedAddressesAndCountlessReadsEnd)
{
    std::string lNodes;
    std::string lSum;
    std::string lVariables;
    for (int lIndex = 0; lIndex < 190; ++lIndex)
    {
        lNodes +=
            NodeXml("IntReg", N(lIndex),
                    "<pAddress>" + N(lIndex + 1) + "</pAddress><pAddress>" + N(lIndex + 1) +
                        "</pAddress><Length>4</Length><pPort>Device</pPort><Cachable>NoCache</Cachable>");
    }
    for (int lIndex = 0; lIndex < 2000; ++lIndex)
    {
        const std::string lName = "R" + std::to_string(lIndex);
        lNodes += NodeXml("IntReg", lName,
                          "<Address>" + std::to_string(4 * lIndex) +
                              "</Address><Length>4</Length><pPort>Device</pPort>");
        lVariables += NodeXml("pVariable", lName, lName);
        lSum += (lSum.empty() ? "" : "+") + lName;
    }
    MakeNodes(lNodes + NodeXml("Integer", "N190", "<Value>1</Value>") +
              NodeXml("IntSwissKnife", "Sum", lVariables + "<Formula>" + lSum + "</Formula>"));
    EXPECT_EQ(TextOf("N0"), "0");
    AskQuickly("N0");
    TakeAccesses();
    EXPECT_EQ(TextOf("Sum"), "error");
    EXPECT_LE(TakeAccesses().size(), 1000U);
}

TEST_F(BudgetTest, EveryNodeInvalidatesEveryOther)
{
    std::string lNodes;
    std::string lAll;
    for (int lIndex = 0; lIndex < 300; ++lIndex)
    {
        lAll += "<pInvalidator>" + N(lIndex) + "</pInvalidator><pSelected>" + N(lIndex) + "</pSelected>";
    }
    for (int lIndex = 0; lIndex < 300; ++lIndex)
    {
        lNodes += NodeXml("Integer", N(lIndex), lAll + "<Value>1</Value><PollingTime>5</PollingTime>");
    }
    MakeNodes(lNodes);
    AskQuickly("N0");
}

TEST_F(BudgetTest, OneNodeWithCountlessElementsIsNotSearchedForEver)
{
    std::string lInside;
    std::string lFormula = "0";
    for (int lIndex = 0; lIndex < 5000; ++lIndex)
    {
        lInside += "<pVariable Name=\"A" + std::to_string(lIndex) + "\">One</pVariable>";
        lFormula += "+A" + std::to_string(lIndex);
    }
    MakeNodes(NodeXml("IntSwissKnife", "Knife", lInside + "<Formula>" + lFormula + "</Formula>") +
              NodeXml("Integer", "One", "<Value>1</Value>"));
    AskQuickly("Knife");
    EXPECT_EQ(TextOf("Knife"), "error");
}

TEST_F(BudgetTest, EntriesOfAStructureDoNotMultiply)
{
    std::string lShared;
    std::string lEntries;
    for (int lIndex = 0; lIndex < 20'000; ++lIndex)
    {
        lShared += "<pInvalidator>E0</pInvalidator>";
        lEntries += "<StructEntry Name=\"E" + std::to_string(lIndex) + "\"><Bit>0</Bit></StructEntry>";
    }
    std::unique_ptr<KyGigE::DeviceDescription> lDescription;
    Measure(
        "Parse",
        [&]
        {
            EXPECT_THAT(
                KyGigE::DeviceDescription::Parse(
                    KyTest::Description("<StructReg>" + lShared + lEntries + "</StructReg>"), lDescription),
                KyTest::IsResult(KyResult::FAILURE,
                                 "The device's description cannot be used: it has too many nodes."));
        });
}

TEST_F(BudgetTest, LengthsThatTheDeviceMakesUpTakeNoMemory)
{
    MakeNodes(
        "<StringReg Name=\"Text\"><Address>0x40</Address><pLength>Len</pLength><AccessMode>RW</AccessMode>"
        "<pPort>Device</pPort></StringReg>"
        "<Register Name=\"Bytes\"><Address>0x40</Address><pLength>Len</pLength><AccessMode>RW</AccessMode>"
        "<pPort>Device</pPort></Register>"
        "<Integer Name=\"Len\"><Value>-1</Value></Integer>");
    EXPECT_EQ(ProblemOf("Text"), "The feature Text is longer than any value.");
    EXPECT_FALSE(Set("Text", "x").IsOK());
    KyGigE::RegisterPlace lPlace;
    EXPECT_THAT(mMap->GetRegister("Bytes", KyGigE::RegisterUse::Look, lPlace),
                KyTest::IsResult(KyResult::FAILURE, "The feature Bytes is longer than any value."));
    EXPECT_THAT(Set("Len", "1048577"), KyTest::IsOK());
    EXPECT_EQ(TextOf("Text"), "error");
    EXPECT_THAT(Set("Len", "16"), KyTest::IsOK());
    EXPECT_EQ(TextOf("Text"), "");
}

// A device that answers each packet just before it would be sent again.
TEST_F(BudgetTest, ASlowDeviceDoesNotKeepAUseForEver)
{
    constexpr uint64_t cSlow = 190;
    constexpr size_t cMost = KyGigE::Evaluator::cMostDeviceTime / cSlow + 1;
    std::string lNodes;
    std::string lVariables;
    std::string lSum;
    for (int lIndex = 0; lIndex < 100; ++lIndex)
    {
        lNodes += IntReg(N(lIndex), std::to_string(4 * lIndex));
        lVariables += "<pVariable Name=\"" + N(lIndex) + "\">" + N(lIndex) + "</pVariable>";
        lSum += (lSum.empty() ? "" : "+") + N(lIndex);
    }
    MakeNodes(lNodes + NodeXml("IntSwissKnife", "Sum", lVariables + "<Formula>" + lSum + "</Formula>") +
              "<StringReg Name=\"Text\"><Address>0x1000</Address><Length>1048576</Length><AccessMode>RW"
              "</AccessMode><pPort>Device</pPort></StringReg>");
    mSpace.mMeanwhile = [this] { mNow += cSlow; };
    EXPECT_EQ(ProblemOf("Sum"), "The feature N22 cannot be evaluated: the device takes too long.");
    EXPECT_EQ(TakeAccesses().size(), cMost);
    EXPECT_EQ(ProblemOf("Text"), "The feature Text cannot be evaluated: the device takes too long.");
    EXPECT_EQ(TakeAccesses().size(), cMost);
    mSpace.mMeanwhile = {};
    EXPECT_EQ(TextOf("Text"), "");
}

// A device that asks for time gets it, and what follows is still done.
TEST_F(BudgetTest, AnAccessThatTakesLongDoesNotEndTheUse)
{
    MakeNodes(IntReg("A", "0x10") + IntReg("B", "0x14") +
              NodeXml("Integer", "Both", "<pValue>A</pValue><pValueCopy>B</pValueCopy>"));
    mSpace.mMeanwhile = [this] { mNow += 9'000; };
    EXPECT_THAT(Set("Both", "5"), KyTest::IsOK());
    EXPECT_EQ(mSpace.GetWord(0x14), 5U);
}

} // namespace
