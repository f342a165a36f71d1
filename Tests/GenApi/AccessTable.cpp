// What can be done with a feature: its own access mode, the one imposed on it, that of what its value comes
// from, and the conditions of each.

#include "GenApi/MapFixture.h"

namespace
{

using KyTest::IntReg;
using KyTest::NodeXml;
using testing::ElementsAre;

struct AccessCase
{
    const char* mInside;         ///< Of the feature, beside its value.
    const char* mRegisterAccess; ///< Of the register that it comes from.
    const char* mRegisterMore;
    const char* mResult; ///< "RW", "RO", "WO", "--": cannot be used, "!": the same, by an error.
};

// Yes and No are constants.
constexpr AccessCase cAccessCases[] = {
    {"", "RW", "", "RW"},
    {"", "RO", "", "RO"},
    {"", "WO", "", "WO"},
    {"<ImposedAccessMode>RO</ImposedAccessMode>", "RW", "", "RO"},
    {"<ImposedAccessMode>WO</ImposedAccessMode>", "RW", "", "WO"},
    {"<ImposedAccessMode>RW</ImposedAccessMode>", "RW", "", "RW"},
    {"<ImposedAccessMode>RW</ImposedAccessMode>", "RO", "", "RO"},
    {"<ImposedAccessMode>RW</ImposedAccessMode>", "WO", "", "WO"},
    {"<ImposedAccessMode>RO</ImposedAccessMode>", "RO", "", "RO"},
    {"<ImposedAccessMode>WO</ImposedAccessMode>", "WO", "", "WO"},
    {"<ImposedAccessMode>RO</ImposedAccessMode>", "WO", "", "--"},
    {"<ImposedAccessMode>WO</ImposedAccessMode>", "RO", "", "--"},
    {"", "RW", "<ImposedAccessMode>RO</ImposedAccessMode>", "RO"},
    {"<ImposedAccessMode>WO</ImposedAccessMode>", "RW", "<ImposedAccessMode>RO</ImposedAccessMode>", "--"},
    {"<pIsImplemented>Yes</pIsImplemented>", "RW", "", "RW"},
    {"<pIsImplemented>No</pIsImplemented>", "RW", "", "--"},
    {"<pIsAvailable>Yes</pIsAvailable>", "RW", "", "RW"},
    {"<pIsAvailable>No</pIsAvailable>", "RW", "", "--"},
    {"<pIsLocked>No</pIsLocked>", "RW", "", "RW"},
    {"<pIsLocked>Yes</pIsLocked>", "RW", "", "RO"},
    {"<pIsLocked>Yes</pIsLocked>", "RO", "", "RO"},
    {"<pIsLocked>Yes</pIsLocked>", "WO", "", "--"},
    {"", "RW", "<pIsImplemented>No</pIsImplemented>", "--"},
    {"", "RW", "<pIsAvailable>No</pIsAvailable>", "--"},
    {"", "RW", "<pIsAvailable>Yes</pIsAvailable>", "RW"},
    {"", "RW", "<pIsLocked>Yes</pIsLocked>", "RO"},
    {"<pIsLocked>No</pIsLocked>", "RW", "<pIsLocked>Yes</pIsLocked>", "RO"},
    {"<pIsAvailable>Yes</pIsAvailable><pIsLocked>Yes</pIsLocked>", "RW", "", "RO"},
    {"<pIsImplemented>No</pIsImplemented><pIsAvailable>Nothing</pIsAvailable>", "RW", "", "--"},
    {"<pIsImplemented>Nothing</pIsImplemented>", "RW", "", "!"},
    {"<pIsAvailable>Nothing</pIsAvailable>", "RW", "", "!"},
    {"<pIsAvailable>Broken</pIsAvailable>", "RW", "", "!"},
    {"<pIsAvailable>True</pIsAvailable>", "RW", "", "RW"}, // a boolean
    {"<pIsAvailable>False</pIsAvailable>", "RW", "", "--"},
    {"<pIsAvailable>Seven</pIsAvailable>", "RW", "", "RW"},
    {"<pIsAvailable>Half</pIsAvailable>", "RW", "", "RW"}, // not zero
    {"<pIsAvailable>Choice</pIsAvailable>", "RW", "", "RW"},
};

class AccessTable : public KyTest::MapFixture
{
protected:
    std::string Access(const std::string& aName)
    {
        std::string lText;
        const uint32_t lRead = mMap->GetText(aName, lText).GetCode();
        const uint32_t lWrite = Set(aName, "1").GetCode();
        const bool lReadable = mMap->IsReadable(aName);
        const bool lWritable = mMap->IsWritable(aName);
        EXPECT_TRUE(lRead == KyResult::FAILURE || (lRead == KyResult::OK) == lReadable);
        EXPECT_EQ(lWrite == KyResult::OK, lWritable);
        EXPECT_TRUE(mMap->IsAvailable(aName) || (!lReadable && !lWritable));
        if (lRead == KyResult::FAILURE)
        {
            return "!";
        }
        return lReadable ? (lWritable ? "RW" : "RO") : lWritable ? "WO" : "--";
    }

    const std::string mConstants =
        "<Integer Name=\"Yes\"><Value>1</Value></Integer><Integer Name=\"No\"><Value>0</Value></Integer>"
        "<Integer Name=\"Seven\"><Value>-7</Value></Integer><Float Name=\"Half\"><Value>0.5</Value></Float>"
        "<Boolean Name=\"True\"><Value>true</Value></Boolean><Boolean "
        "Name=\"False\"><Value>false</Value></Boolean>"
        "<Enumeration Name=\"Choice\"><EnumEntry Name=\"One\"><Value>1</Value></EnumEntry><Value>1</Value>"
        "</Enumeration>"
        "<IntSwissKnife Name=\"Broken\"><Formula>1/0</Formula></IntSwissKnife>";
};

TEST_F(AccessTable, ModesAndConditionsCombine)
{
    for (const AccessCase& lCase : cAccessCases)
    {
        MakeNodes(mConstants +
                  NodeXml("Integer", "Feature", std::string(lCase.mInside) + "<pValue>Reg</pValue>") +
                  IntReg("Reg", "0x10", lCase.mRegisterAccess, lCase.mRegisterMore));
        EXPECT_EQ(Access("Feature"), lCase.mResult)
            << lCase.mInside << ' ' << lCase.mRegisterAccess << ' ' << lCase.mRegisterMore;
    }
}

TEST_F(AccessTable, EachKindHasItsOwn)
{
    MakeNodes(
        mConstants + IntReg("Reg", "0x10") + IntReg("Fixed", "0x14", "RO") +
        NodeXml("IntReg", "Silent", "<Address>0</Address><Length>4</Length><pPort>Device</pPort>") +
        NodeXml("IntSwissKnife", "Knife", "<Formula>1</Formula>") +
        NodeXml("Integer", "Constant", "<Value>1</Value>") +
        NodeXml("Integer", "OfKnife", "<pValue>Knife</pValue>") +
        NodeXml("IntConverter", "Both",
                "<FormulaTo>FROM</FormulaTo><FormulaFrom>TO</FormulaFrom><pValue>Reg</pValue>") +
        NodeXml("IntConverter", "OfFixed",
                "<FormulaTo>FROM</FormulaTo><FormulaFrom>TO</FormulaFrom><pValue>Fixed</pValue>") +
        NodeXml("IntConverter", "OnlyFrom", "<FormulaFrom>TO</FormulaFrom><pValue>Reg</pValue>") +
        NodeXml("IntReg", "OfEvent",
                "<Address>0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Event</pPort>") +
        NodeXml("Port", "Event", "<EventID>9101</EventID>") +
        NodeXml("IntReg", "OfChunk", "<Address>0</Address><Length>4</Length><pPort>Chunk</pPort>") +
        NodeXml("Port", "Chunk", "<ChunkID>1</ChunkID>") +
        NodeXml("IntReg", "OfLocked",
                "<Address>0</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Closed</pPort>") +
        NodeXml("Port", "Closed", "<pIsAvailable>No</pIsAvailable>"));
    EXPECT_EQ(Access("Silent"), "RO"); // a register that does not say
    EXPECT_EQ(Access("Constant"), "RW");
    EXPECT_EQ(Access("Knife"), "RO");
    EXPECT_EQ(Access("OfKnife"), "RO");
    EXPECT_EQ(Access("Both"), "RW");
    EXPECT_EQ(Access("OfFixed"), "RO");
    EXPECT_EQ(Access("OnlyFrom"), "RO");
    EXPECT_EQ(Access("OfEvent"), "RO"); // whatever its mode
    EXPECT_EQ(Access("OfChunk"), "--");
    EXPECT_EQ(Access("OfLocked"), "--");
}

TEST_F(AccessTable, LongChainsPassConditionsOn)
{
    std::string lNodes = mConstants;
    for (int lIndex = 0; lIndex < 20; ++lIndex)
    {
        lNodes += NodeXml("Integer", "N" + std::to_string(lIndex),
                          "<pValue>N" + std::to_string(lIndex + 1) + "</pValue>");
    }
    MakeNodes(lNodes + NodeXml("Integer", "N20", "<pIsLocked>Yes</pIsLocked><Value>1</Value>"));
    EXPECT_EQ(Access("N0"), "RO");
    MakeNodes(lNodes + NodeXml("Integer", "N20", "<pIsAvailable>No</pIsAvailable><Value>1</Value>"));
    EXPECT_EQ(Access("N0"), "--");
}

TEST_F(AccessTable, CirclesAreErrorsOfTheirFeaturesOnly)
{
    MakeNodes(
        NodeXml("Integer", "A", "<pValue>B</pValue>") + NodeXml("Integer", "B", "<pValue>A</pValue>") +
        NodeXml("Integer", "Own", "<pIsAvailable>Own</pIsAvailable><Value>1</Value>") +
        NodeXml("Integer", "Self", "<pValue>Self</pValue>") +
        NodeXml("Integer", "Max", "<Value>1</Value><pMax>Max2</pMax>") +
        NodeXml("Integer", "Max2", "<Value>5</Value><pMax>Max</pMax>") +
        NodeXml("IntSwissKnife", "Knife", "<pVariable Name=\"K\">Knife</pVariable><Formula>K+1</Formula>") +
        NodeXml("IntSwissKnife", "Expressions",
                "<Expression Name=\"X\">Y</Expression><Expression Name=\"Y\">X</Expression>"
                "<Formula>X</Formula>") +
        NodeXml("Integer", "Fine", "<Value>1</Value>"));
    EXPECT_EQ(Access("A"), "!");
    EXPECT_EQ(Access("Self"), "!");
    EXPECT_EQ(Access("Knife"), "!");
    EXPECT_EQ(Access("Expressions"), "!");
    EXPECT_EQ(ProblemOf("Knife"),
              "The feature Knife cannot be evaluated: it depends on itself, or on too many others.");
    EXPECT_EQ(Access("Own"), "RW"); // its own value decides about it
    EXPECT_EQ(Access("Max"), "RW"); // limits that limit each other
    EXPECT_EQ(Access("Fine"), "RW");
}

TEST_F(AccessTable, EntriesHaveConditions)
{
    MakeNodes(mConstants + IntReg("Reg", "0x10") +
              "<Enumeration Name=\"Mode\"><EnumEntry Name=\"A\"><Value>0</Value></EnumEntry>"
              "<EnumEntry Name=\"B\"><pIsAvailable>No</pIsAvailable><Value>1</Value></EnumEntry>"
              "<EnumEntry Name=\"C\"><pIsImplemented>No</pIsImplemented><Value>2</Value></EnumEntry>"
              "<EnumEntry Name=\"D\"><Value>3</Value></EnumEntry><pValue>Reg</pValue></Enumeration>");
    std::vector<std::string> lEntries;
    EXPECT_THAT(mMap->GetEntries("Mode", lEntries), KyTest::IsOK());
    EXPECT_THAT(lEntries, ElementsAre("A", "D"));
    EXPECT_EQ(Set("Mode", "B").GetCode(), 0x8002U);
    EXPECT_THAT(Set("Mode", "D"), KyTest::IsOK());
    mSpace.PutWord(0x10, 1); // the device has it nevertheless
    ++mSpace.mForeignWrites;
    EXPECT_EQ(TextOf("Mode"), "B");
}

} // namespace
