// What features of each kind are made of, and what setting them does.

#include "GenApi/MapFixture.h"

namespace
{

using KyGigE::Range;
using KyTest::IntReg;
using KyTest::IsOK;
using KyTest::NodeXml;
using testing::ElementsAre;

class ValueTable : public KyTest::MapFixture
{
protected:
    /// "min max inc", "-" for none.
    std::string RangeOf(const std::string& aName)
    {
        Range lRange;
        if (!mMap->GetRange(aName, lRange).IsOK())
        {
            return "error";
        }
        std::string lText;
        for (const auto& lOne : {lRange.mMin, lRange.mMax, lRange.mInc})
        {
            lText += lText.empty() ? "" : " ";
            lText += !lOne             ? "-"
                     : lOne->IsFloat() ? KyGigE::FloatText(lOne->AsFloat())
                                       : std::to_string(*lOne->Truncated());
        }
        return lText;
    }
};

constexpr const char* cIndexed = "<pIndex>Sel</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed>"
                                 "<ValueIndexed Index=\"0x2\">20</ValueIndexed>";

TEST_F(ValueTable, ValuesComeFromWhereTheDescriptionSays)
{
    const std::string lCommon =
        "<Integer Name=\"Sel\"><Value>2</Value></Integer><Integer Name=\"Seven\"><Value>7</Value></Integer>"
        "<Float Name=\"Half\"><Value>2.5</Value></Float><Boolean Name=\"Yes\"><Value>true</Value></Boolean>"
        "<Float Name=\"Huge\"><Value>1e30</Value></Float><String Name=\"Text\"><Value>words</Value></String>"
        "<Enumeration Name=\"Choice\"><EnumEntry Name=\"P\"><Value>3</Value></EnumEntry>"
        "<EnumEntry Name=\"Q\"><Value>4</Value></EnumEntry><Value>4</Value></Enumeration>" +
        IntReg("Reg", "0x10");
    const struct
    {
        const char* mKind;
        const char* mInside;
        const char* mText;
    } lCases[] = {
        {"Integer", "<Value>5</Value>", "5"},
        {"Integer", "<Value>0xFFFFFFFFFFFFFFFF</Value>", "-1"},
        {"Integer", "<Value>2.6</Value>", "3"},
        {"Integer", "<Value>words</Value>", "error"},
        {"Integer", "<Value></Value>", "error"},
        {"Integer", "", "error"},
        {"Integer", "<pValue>Seven</pValue>", "7"},
        {"Integer", "<pValue>Half</pValue>", "3"},
        {"Integer", "<pValue>Yes</pValue>", "1"},
        {"Integer", "<pValue>Choice</pValue>", "4"},
        {"Integer", "<pValue>Huge</pValue>", "error"},
        {"Integer", "<pValue>Text</pValue>", "error"},
        {"Integer", "<pValue>Nothing</pValue>", "error"},
        {"Integer", "<pValue>Device</pValue>", "error"},
        {"Integer", cIndexed, "20"},
        {"Integer",
         "<pIndex>Sel</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed><ValueDefault>9</ValueDefault>",
         "9"},
        {"Integer",
         "<pIndex>Sel</pIndex><ValueDefault>9</ValueDefault><ValueIndexed Index=\"2\">20</ValueIndexed>",
         "20"},
        {"Integer", "<pIndex>Sel</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed>", "error"},
        {"Integer", "<pIndex>Sel</pIndex><pValueIndexed Index=\"2\">Seven</pValueIndexed>", "7"},
        {"Integer", "<pIndex>Sel</pIndex><pValueDefault>Seven</pValueDefault>", "7"},
        {"Float", "<Value>0.1</Value>", "0.1"},
        {"Float", "<Value>3</Value>", "3"},
        {"Float", "<pValue>Seven</pValue>", "7"},
        {"Float", "<pValue>Half</pValue>", "2.5"},
        {"Float", cIndexed, "20"},
        {"Float", "<Value>1,5</Value>", "error"},
        {"Boolean", "<Value>true</Value>", "true"},
        {"Boolean", "<Value>0</Value>", "false"},
        {"Boolean", "<Value>maybe</Value>", "error"},
        {"Boolean", "<pValue>Seven</pValue>", "false"},
        {"Boolean", "<pValue>Seven</pValue><OnValue>7</OnValue>", "true"},
        {"Boolean", "<pValue>Yes</pValue>", "true"},
        {"Boolean", "<pValue>Yes</pValue><OnValue>0</OnValue><OffValue>1</OffValue>", "false"},
        {"String", "<Value>two words</Value>", "two words"},
        {"String", "<Value></Value>", ""},
        {"String", "<pValue>Text</pValue>", "words"},
        {"String", "<pValue>Seven</pValue>", "error"},
        {"Enumeration", "<EnumEntry Name=\"A\"><Value>7</Value></EnumEntry><pValue>Seven</pValue>", "A"},
        {"Enumeration", "<EnumEntry Name=\"A\"><Value>6</Value></EnumEntry><pValue>Seven</pValue>", "error"},
        {"Enumeration",
         "<EnumEntry Name=\"E_A\"><Value>7</Value><Symbolic>A</Symbolic></EnumEntry><pValue>Seven</pValue>",
         "A"},
        {"Enumeration", "<EnumEntry Name=\"A\"></EnumEntry><pValue>Seven</pValue>", "error"},
        {"Enumeration", "<pValue>Seven</pValue>", "error"},
        {"Converter", "<FormulaTo>FROM*10</FormulaTo><FormulaFrom>TO/10</FormulaFrom><pValue>Seven</pValue>",
         "0.7"},
        {"IntConverter", "<FormulaTo>FROM*2</FormulaTo><FormulaFrom>TO/2</FormulaFrom><pValue>Seven</pValue>",
         "3"},
        {"IntConverter", "<FormulaFrom>FROM</FormulaFrom><pValue>Seven</pValue>", "error"},
        {"IntConverter", "<FormulaFrom>TO</FormulaFrom>", "error"},
        {"SwissKnife", "<pVariable Name=\"X\">Half</pVariable><Formula>X*2</Formula>", "5"},
        {"SwissKnife", "", "error"},
        {"SwissKnife", "<pVariable Name=\"X\">Infinite</pVariable><Formula>X</Formula>", "error"},
        {"SwissKnife", "<pVariable Name=\"X\">Infinite</pVariable><Formula>X=X</Formula>", "error"},
        {"Float", "<pValue>Infinite</pValue>", "inf"},
        {"Integer", "<pValue>Infinite</pValue>", "error"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Nothing</pVariable><Formula>X</Formula>", "error"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Nothing</pVariable><Formula>1</Formula>", "1"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Choice</pVariable><Formula>X</Formula>", "4"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Yes</pVariable><Formula>X+1</Formula>", "2"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Text</pVariable><Formula>X</Formula>", "error"},
        {"IntSwissKnife", "<Constant Name=\"C\">0x10</Constant><Formula>C</Formula>", "16"},
        {"SwissKnife", "<Constant Name=\"C\">0.25</Constant><Formula>C*2</Formula>", "0.5"},
        {"IntSwissKnife", "<Constant Name=\"C\">words</Constant><Formula>C</Formula>", "error"},
        {"IntSwissKnife",
         "<pVariable Name=\"X\">Seven</pVariable><Expression Name=\"S\">X*X</Expression>"
         "<Expression Name=\"T\">S+1</Expression><Formula>T+S</Formula>",
         "99"},
        {"IntSwissKnife", "<Expression Name=\"S\">1/0</Expression><Formula>S</Formula>", "error"},
        {"IntSwissKnife", "<Expression Name=\"S\">0.5</Expression><Formula>S*4</Formula>", "2"},
        // Names with a suffix, in the variable or in the formula.
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>X.Min</Formula>", "2"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>X.Max-X.Min</Formula>", "8"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>X.Inc</Formula>", "2"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>X.Value</Formula>", "4"},
        {"IntSwissKnife", "<pVariable Name=\"X.Max\">Limited</pVariable><Formula>X.Max</Formula>", "10"},
        {"IntSwissKnife", "<pVariable Name=\"X.Value\">Limited</pVariable><Formula>X.Value</Formula>", "4"},
        {"IntSwissKnife", "<pVariable Name=\"S\">Choice</pVariable><Formula>S.Entry.P</Formula>", "3"},
        {"IntSwissKnife", "<pVariable Name=\"S.Entry.P\">Choice</pVariable><Formula>S.Entry.P</Formula>",
         "3"},
        {"IntSwissKnife", "<pVariable Name=\"S\">Choice</pVariable><Formula>S=S.Enum.Q</Formula>", "1"},
        {"IntSwissKnife", "<pVariable Name=\"S\">Choice</pVariable><Formula>S.Entry.X</Formula>", "error"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>X.Nothing</Formula>", "error"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Limited</pVariable><Formula>Y.Min</Formula>", "error"},
        {"IntSwissKnife", "<pVariable Name=\"X\">Sel</pVariable><Formula>X.Max</Formula>", "error"},
        {"Command", "<Value>0</Value><CommandValue>1</CommandValue>", "error"},
        {"Category", "<pFeature>Seven</pFeature>", "error"},
        {"Register", "<Address>0</Address><Length>4</Length><pPort>Device</pPort>", "error"},
        {"Port", "", "error"},
        {"Strange", "<Value>5</Value>", "error"}};
    for (const auto& lCase : lCases)
    {
        mSpace.Put(0x50, {0x7F, 0x80, 0, 0});
        MakeNodes(
            lCommon +
            "<FloatReg Name=\"Infinite\"><Address>0x50</Address><Length>4</Length><pPort>Device</pPort>"
            "<Endianess>BigEndian</Endianess></FloatReg>"
            "<Integer Name=\"Limited\"><Value>4</Value><Min>2</Min><Max>10</Max><Inc>2</Inc></Integer>" +
            NodeXml(lCase.mKind, "It", lCase.mInside));
        EXPECT_EQ(TextOf("It"), lCase.mText) << lCase.mKind << ' ' << lCase.mInside;
    }
}

TEST_F(ValueTable, RangesComeFromTheNodeOrItsSource)
{
    const std::string lCommon =
        IntReg("Reg", "0x10") +
        "<Integer Name=\"Limit\"><Value>50</Value></Integer>"
        "<Integer Name=\"Limited\"><pValue>Reg</pValue><Min>2</Min><Max>10</Max><Inc>2</Inc>"
        "</Integer>";
    const struct
    {
        const char* mKind;
        const char* mInside;
        const char* mRange;
    } lCases[] = {
        {"Integer", "<Value>1</Value>", "- - -"},
        {"Integer", "<Value>1</Value><Min>-5</Min><Max>0x10</Max><Inc>3</Inc>", "-5 16 3"},
        {"Integer", "<Value>1</Value><pMax>Limit</pMax><pMin>Reg</pMin><pInc>Limit</pInc>", "0 50 50"},
        {"Integer", "<Value>1</Value><pMax>Nothing</pMax>", "error"},
        {"Integer", "<pValue>Reg</pValue>", "0 4294967295 -"},
        {"Integer", "<pValue>Reg</pValue><Max>7</Max>", "0 7 -"},
        {"Integer", "<pValue>Limited</pValue>", "2 10 2"},
        {"Float", "<pValue>Limited</pValue>", "2 10 2"},
        {"Float", "<Value>1</Value><Min>0.5</Min><Max>1.5</Max>", "0.5 1.5 -"},
        {"Converter",
         "<FormulaTo>FROM*10</FormulaTo><FormulaFrom>TO/10</FormulaFrom><pValue>Limited</pValue>", "0.2 1 -"},
        {"Converter", "<FormulaTo>0-FROM</FormulaTo><FormulaFrom>0-TO</FormulaFrom><pValue>Limited</pValue>",
         "-10 -2 -"},
        {"Converter", "<FormulaTo>1/FROM</FormulaTo><FormulaFrom>1/TO</FormulaFrom><pValue>Reg</pValue>",
         "- - -"},
        {"Converter",
         "<FormulaTo>FROM</FormulaTo><FormulaFrom>TO</FormulaFrom><pValue>Limited</pValue><Slope>Varying</"
         "Slope>",
         "- - -"},
        {"IntConverter",
         "<FormulaTo>FROM*2</FormulaTo><FormulaFrom>TO/2</FormulaFrom><pValue>Limited</pValue>", "1 5 -"},
        {"Float", "<pValue>Reg</pValue><Min>1</Min>", "1 4294967295 -"},
        {"Boolean", "<pValue>Reg</pValue>", "error"}};
    for (const auto& lCase : lCases)
    {
        MakeNodes(lCommon + NodeXml(lCase.mKind, "It", lCase.mInside));
        EXPECT_EQ(RangeOf("It"), lCase.mRange) << lCase.mKind << ' ' << lCase.mInside;
    }
}

TEST_F(ValueTable, WhatIsOutOfRangeIsNotSet)
{
    const struct
    {
        const char* mKind;
        const char* mInside;
        std::vector<const char*> mGood;
        std::vector<const char*> mBad;
    } lCases[] = {{"Integer",
                   "<Min>2</Min><Max>10</Max><Inc>4</Inc>",
                   {"2", "6", "10"},
                   {"1", "3", "11", "-2", "0x100"}},
                  {"Integer",
                   "<Min>0x8000000000000000</Min><Max>9223372036854775807</Max><Inc>2</Inc>",
                   {"0", "2"},
                   {"1"}},
                  {"Integer", "<ValidValueSet>1; 2;4</ValidValueSet>", {"1", "2", "4"}, {"0", "3", "5"}},
                  {"Integer", "<Inc>0</Inc>", {"0", "5"}, {}},
                  {"Float", "<Min>0.5</Min><Max>1.5</Max>", {"0.5", "1", "1.5"}, {"0.49", "1.51"}},
                  {"Float", "<Min>1</Min><Max>3</Max>", {"1", "2.5", "3"}, {"0", "4"}}};
    for (const auto& lCase : lCases)
    {
        for (const char* const lSource : {"<Value>0</Value>", "<pValue>Reg</pValue>"})
        {
            MakeNodes(IntReg("Reg", "0x10") +
                      NodeXml(lCase.mKind, "It", std::string(lSource) + lCase.mInside));
            for (const char* const lGood : lCase.mGood)
            {
                EXPECT_THAT(Set("It", lGood), IsOK()) << lCase.mInside << lGood;
            }
            for (const char* const lBad : lCase.mBad)
            {
                EXPECT_EQ(Set("It", lBad).GetCode(), 0x8002U) << lCase.mInside << lBad;
            }
        }
    }
    MakeNodes("<Integer Name=\"It\"><Value>1</Value><Max>7</Max></Integer>");
    EXPECT_THAT(Set("It", "8"), KyTest::IsResult(0x8002, "The feature It does not take 8."));
}

TEST_F(ValueTable, LimitsOfASourceCountToo)
{
    MakeNodes("<Integer Name=\"It\"><pValue>Inner</pValue><Max>100</Max></Integer>"
              "<Integer Name=\"Inner\"><pValue>Reg</pValue><Max>50</Max></Integer>" +
              IntReg("Reg", "0x10"));
    EXPECT_EQ(Set("It", "60").GetCode(), 0x8002U);
    EXPECT_THAT(Set("It", "50"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 50U);
}

TEST_F(ValueTable, AWriteReachesTheSourceAndItsCopies)
{
    MakeNodes("<Integer "
              "Name=\"It\"><pValue>A</pValue><pValueCopy>B</pValueCopy><pValueCopy>C</pValueCopy></Integer>" +
              IntReg("A", "0x10") + IntReg("B", "0x14") + IntReg("C", "0x18", "WO"));
    EXPECT_THAT(Set("It", "9"), IsOK());
    EXPECT_THAT(TakeAccesses(), ElementsAre("W 0x10 4", "W 0x14 4", "W 0x18 4"));
    EXPECT_EQ(mSpace.GetWord(0x14), 9U);
    EXPECT_EQ(mSpace.GetWord(0x18), 9U);
}

TEST_F(ValueTable, AnIndexDecidesWhatIsSet)
{
    MakeNodes("<Integer Name=\"Sel\"><Value>1</Value></Integer>"
              "<Integer Name=\"It\"><pIndex>Sel</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed>"
              "<pValueIndexed Index=\"2\">Reg</pValueIndexed><ValueDefault>0</ValueDefault></Integer>" +
              IntReg("Reg", "0x10"));
    EXPECT_THAT(Set("It", "11"), IsOK());
    EXPECT_EQ(TextOf("It"), "11");
    EXPECT_THAT(Set("Sel", "2"), IsOK());
    EXPECT_EQ(TextOf("It"), "0");
    EXPECT_THAT(Set("It", "22"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 22U);
    EXPECT_THAT(Set("Sel", "3"), IsOK());
    EXPECT_THAT(Set("It", "33"), IsOK());
    EXPECT_THAT(Set("Sel", "1"), IsOK());
    EXPECT_EQ(TextOf("It"), "11");
}

TEST_F(ValueTable, ConvertersRoundToWhatTheirRegistersHold)
{
    MakeNodes("<Float Name=\"Gain\"><pValue>Conv</pValue></Float>"
              "<Converter Name=\"Conv\"><pVariable Name=\"S\">Scale</pVariable><FormulaTo>FROM*S</FormulaTo>"
              "<FormulaFrom>TO/S</FormulaFrom><pValue>Reg</pValue></Converter>"
              "<Integer Name=\"Scale\"><Value>100</Value></Integer>" +
              IntReg("Reg", "0x10"));
    EXPECT_THAT(Set("Gain", "0.29"), IsOK()); // 28.999999999999996 in between
    EXPECT_EQ(mSpace.GetWord(0x10), 29U);
    EXPECT_EQ(TextOf("Gain"), "0.29");
    EXPECT_EQ(Set("Gain", "-1").GetCode(), 0x8002U);
    EXPECT_EQ(Set("Gain", "1e300").GetCode(), 0x8002U);
}

TEST_F(ValueTable, BooleansWriteWhatStandsForThem)
{
    MakeNodes(
        "<Boolean Name=\"It\"><pValue>Reg</pValue><OnValue>0x80</OnValue><OffValue>3</OffValue></Boolean>"
        "<Boolean Name=\"Own\"><Value>false</Value></Boolean>"
        "<IntSwissKnife Name=\"Knife\"><pVariable Name=\"X\">It</pVariable><Formula>X</Formula>"
        "</IntSwissKnife>" +
        IntReg("Reg", "0x10"));
    EXPECT_THAT(Set("It", "True"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 0x80U);
    EXPECT_EQ(TextOf("It"), "true");
    EXPECT_EQ(TextOf("Knife"), "1");
    EXPECT_THAT(Set("It", "0"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 3U);
    EXPECT_EQ(TextOf("Knife"), "0");
    EXPECT_THAT(Set("Own", "1"), IsOK());
    EXPECT_EQ(TextOf("Own"), "true");
}

TEST_F(ValueTable, EntriesAreSetByEitherName)
{
    MakeNodes(
        "<Enumeration Name=\"It\"><EnumEntry Name=\"E_A\"><Value>1</Value><Symbolic>A</Symbolic></EnumEntry>"
        "<EnumEntry Name=\"E_B\"><Value>2</Value><Symbolic>B</Symbolic></EnumEntry><pValue>Reg</pValue>"
        "</Enumeration>"
        "<Integer Name=\"Through\"><pValue>It</pValue></Integer>" +
        IntReg("Reg", "0x10"));
    EXPECT_THAT(Set("It", "B"), IsOK());
    EXPECT_EQ(TextOf("It"), "B");
    EXPECT_THAT(Set("It", "E_A"), IsOK());
    EXPECT_EQ(TextOf("It"), "A");
    EXPECT_THAT(Set("Through", "2"), IsOK());
    EXPECT_EQ(TextOf("It"), "B");
    EXPECT_EQ(Set("Through", "3").GetCode(), 0x8002U);
    std::vector<std::string> lEntries;
    EXPECT_THAT(mMap->GetEntries("It", lEntries), IsOK());
    EXPECT_THAT(lEntries, ElementsAre("A", "B"));
}

TEST_F(ValueTable, CommandsWriteTheirValueAndAreDoneWhenItIsGone)
{
    const std::string lRegisters = IntReg("Reg", "0x10", "RW", "") + IntReg("Silent", "0x14", "WO") +
                                   "<Integer Name=\"Number\"><Value>9</Value></Integer>";
    MakeNodes(
        lRegisters +
        "<Command Name=\"It\"><pValue>NoCacheReg</pValue><CommandValue>5</CommandValue></Command>"
        "<Command Name=\"Unread\"><pValue>Silent</pValue><pCommandValue>Number</pCommandValue></Command>"
        "<Command Name=\"Plain\"><pValue>Reg</pValue></Command>"
        "<IntReg Name=\"NoCacheReg\"><Address>0x20</Address><Length>4</Length><AccessMode>RW</AccessMode>"
        "<pPort>Device</pPort><Cachable>NoCache</Cachable><Endianess>BigEndian</Endianess></IntReg>");
    bool lDone = false;
    EXPECT_THAT(mMap->IsDone("It", lDone), IsOK());
    EXPECT_TRUE(lDone);
    EXPECT_THAT(Set("It", "1"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x20), 5U);
    EXPECT_THAT(mMap->IsDone("It", lDone), IsOK());
    EXPECT_FALSE(lDone);
    mSpace.PutWord(0x20, 0);
    EXPECT_THAT(mMap->IsDone("It", lDone), IsOK());
    EXPECT_TRUE(lDone);
    EXPECT_THAT(Set("Unread", "true"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x14), 9U);
    EXPECT_THAT(mMap->IsDone("Unread", lDone), IsOK());
    EXPECT_TRUE(lDone);
    EXPECT_THAT(Set("Plain", "1"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 1U);
    EXPECT_EQ(mMap->IsDone("Reg", lDone).GetCode(), 0x8002U);
    EXPECT_EQ(Set("It", "0").GetCode(), 0x8002U);
}

TEST_F(ValueTable, StringsReplaceTheWholeRegister)
{
    MakeNodes("<StringReg Name=\"Reg\"><Address>0x40</Address><Length>8</Length><AccessMode>RW</AccessMode>"
              "<pPort>Device</pPort></StringReg><String Name=\"It\"><pValue>Reg</pValue></String>"
              "<String Name=\"Own\"><Value>old</Value></String>");
    mSpace.Put(0x40, {'l', 'o', 'n', 'g', 'e', 'r', '!', '!'});
    EXPECT_EQ(TextOf("It"), "longer!!");
    EXPECT_THAT(Set("It", "new"), IsOK());
    EXPECT_THAT(mSpace.Get(0x40, 8), ElementsAre('n', 'e', 'w', 0, 0, 0, 0, 0));
    EXPECT_THAT(Set("It", "eight888"), IsOK());
    EXPECT_EQ(TextOf("It"), "eight888");
    EXPECT_THAT(Set("It", "nine99999"), KyTest::IsResult(0x8002, "The text is too long for Reg."));
    EXPECT_THAT(Set("Own", "new"), IsOK());
    EXPECT_EQ(TextOf("Own"), "new");
}

} // namespace
