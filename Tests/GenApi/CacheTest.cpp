// Which values are kept, and what makes the map read them anew. "R 0x10 4" is a read of the device.

#include "GenApi/MapFixture.h"

namespace
{

using KyTest::IsOK;
using KyTest::NodeXml;
using testing::ElementsAre;
using testing::IsEmpty;

std::string Reg(const std::string& aName, const std::string& aAddress, const std::string& aCachable,
                const std::string& aMore = "")
{
    return NodeXml("IntReg", aName,
                   "<Address>" + aAddress +
                       "</Address><Length>4</Length><AccessMode>RW</AccessMode>"
                       "<pPort>Device</pPort>" +
                       (aCachable.empty() ? "" : "<Cachable>" + aCachable + "</Cachable>") + aMore +
                       "<Endianess>BigEndian</Endianess>");
}

class CacheTest : public KyTest::MapFixture
{
};

TEST_F(CacheTest, ARegisterIsReadOnceUnlessItIsNotToBeKept)
{
    MakeNodes(Reg("Plain", "0x10", "") + Reg("Through", "0x14", "WriteThrough") +
              Reg("Around", "0x18", "WriteAround") + Reg("Never", "0x1C", "NoCache"));
    for (const char* const lName :
         {"Plain", "Through", "Around", "Never", "Plain", "Through", "Around", "Never"})
    {
        EXPECT_EQ(TextOf(lName), "0");
    }
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x10 4", "R 0x14 4", "R 0x18 4", "R 0x1C 4", "R 0x1C 4"));
}

TEST_F(CacheTest, WhatWasWrittenIsKeptOrReadBack)
{
    MakeNodes(Reg("Through", "0x14", "WriteThrough") + Reg("Around", "0x18", "WriteAround") +
              Reg("Never", "0x1C", "NoCache"));
    for (const char* const lName : {"Through", "Around", "Never"})
    {
        EXPECT_THAT(Set(lName, "5"), IsOK());
    }
    mSpace.PutWord(0x14, 7); // the device has made something else of it
    mSpace.PutWord(0x18, 7);
    mSpace.PutWord(0x1C, 7);
    TakeAccesses();
    EXPECT_EQ(TextOf("Through"), "5");
    EXPECT_EQ(TextOf("Around"), "7");
    EXPECT_EQ(TextOf("Never"), "7");
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x18 4", "R 0x1C 4"));
}

TEST_F(CacheTest, AnInvalidatorMakesTheMapReadAnew)
{
    MakeNodes(Reg("Mode", "0x10", "") + Reg("Gain", "0x14", "", "<pInvalidator>Mode</pInvalidator>") +
              Reg("Other", "0x18", ""));
    EXPECT_EQ(TextOf("Gain"), "0");
    EXPECT_EQ(TextOf("Other"), "0");
    mSpace.PutWord(0x14, 9);
    mSpace.PutWord(0x18, 9);
    EXPECT_THAT(Set("Mode", "1"), IsOK());
    TakeAccesses();
    EXPECT_EQ(TextOf("Gain"), "9");
    EXPECT_EQ(TextOf("Other"), "0"); // depends on nothing that was written
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x14 4"));
}

TEST_F(CacheTest, AnInvalidatorOfTheFeatureCountsForItsRegister)
{
    MakeNodes(Reg("ModeReg", "0x10", "") + NodeXml("Integer", "Mode", "<pValue>ModeReg</pValue>") +
              Reg("GainReg", "0x14", "") +
              NodeXml("Integer", "Gain", "<pInvalidator>Mode</pInvalidator><pValue>GainReg</pValue>"));
    EXPECT_EQ(TextOf("Gain"), "0");
    mSpace.PutWord(0x14, 9);
    EXPECT_THAT(Set("Mode", "1"), IsOK());
    EXPECT_EQ(TextOf("Gain"), "9");
}

TEST_F(CacheTest, ASelectorMakesTheMapReadAnewWhatItSelects)
{
    MakeNodes(Reg("SelReg", "0x10", "") +
              NodeXml("Integer", "Sel", "<pValue>SelReg</pValue><pSelected>Gain</pSelected>") +
              Reg("GainReg", "0x14", "") + NodeXml("Integer", "Gain", "<pValue>GainReg</pValue>"));
    EXPECT_EQ(TextOf("Gain"), "0");
    mSpace.PutWord(0x14, 9);
    EXPECT_THAT(Set("Sel", "1"), IsOK());
    EXPECT_EQ(TextOf("Gain"), "9");
}

TEST_F(CacheTest, ARegisterThatLiesElsewhereNowIsReadThere)
{
    MakeNodes(
        "<Integer Name=\"Sel\"><Value>0</Value></Integer>"
        "<IntReg Name=\"Gain\"><Address>0x10</Address><pIndex Offset=\"4\">Sel</pIndex><Length>4</Length>"
        "<AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>");
    EXPECT_EQ(TextOf("Gain"), "0");
    EXPECT_THAT(Set("Sel", "2"), IsOK());
    TakeAccesses();
    EXPECT_EQ(TextOf("Gain"), "0");
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x18 4"));
}

TEST_F(CacheTest, AWriteCountsForEveryRegisterAtThatPlace)
{
    MakeNodes(
        Reg("Whole", "0x10", "") +
        NodeXml("MaskedIntReg", "Bit",
                "<Address>0x10</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>"
                "<Bit>31</Bit><Endianess>BigEndian</Endianess>") +
        NodeXml("IntReg", "Around",
                "<Address>0xE</Address><Length>8</Length><pPort>Device</pPort>"
                "<Endianess>BigEndian</Endianess>") +
        Reg("Beside", "0x16", ""));
    for (const char* const lName : {"Whole", "Bit", "Around", "Beside"})
    {
        EXPECT_EQ(TextOf(lName), "0");
    }
    EXPECT_THAT(Set("Bit", "1"), IsOK());
    TakeAccesses();
    EXPECT_EQ(TextOf("Whole"), "1");
    EXPECT_EQ(TextOf("Around"), "65536");
    EXPECT_EQ(TextOf("Beside"), "0");
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x10 4", "R 0xE 8"));
}

TEST_F(CacheTest, ACommandMakesTheMapReadEverythingAnew)
{
    MakeNodes(Reg("Load", "0x10", "NoCache") + NodeXml("Command", "LoadIt", "<pValue>Load</pValue>") +
              Reg("Gain", "0x14", ""));
    EXPECT_EQ(TextOf("Gain"), "0");
    mSpace.PutWord(0x14, 9);
    EXPECT_THAT(Set("LoadIt", "1"), IsOK());
    EXPECT_EQ(TextOf("Gain"), "9");
}

TEST_F(CacheTest, APollingTimeIsHowLongAValueIsGood)
{
    MakeNodes(Reg("Polled", "0x10", "", "<PollingTime>100</PollingTime>") + Reg("FeatureReg", "0x14", "") +
              NodeXml("Integer", "Feature", "<pValue>FeatureReg</pValue><PollingTime>1000</PollingTime>") +
              Reg("Follows", "0x18", "", "<pInvalidator>Polled</pInvalidator>"));
    for (const char* const lName : {"Polled", "Feature", "Follows"})
    {
        EXPECT_EQ(TextOf(lName), "0");
    }
    mSpace.PutWord(0x10, 9);
    mSpace.PutWord(0x14, 9);
    mSpace.PutWord(0x18, 9);
    mNow += 99;
    EXPECT_EQ(TextOf("Polled"), "0");
    mNow += 1;
    EXPECT_EQ(TextOf("Follows"), "0"); // the feature that it follows was not read yet
    EXPECT_EQ(TextOf("Polled"), "9");
    EXPECT_EQ(TextOf("Follows"), "9");
    EXPECT_EQ(TextOf("Feature"), "0");
    mNow += 900;
    EXPECT_EQ(TextOf("Feature"), "9");
}

TEST_F(CacheTest, WhatOthersWroteCounts)
{
    MakeNodes(Reg("Gain", "0x14", ""));
    EXPECT_EQ(TextOf("Gain"), "0");
    mSpace.PutWord(0x14, 9);
    EXPECT_EQ(TextOf("Gain"), "0");
    ++mSpace.mForeignWrites;
    EXPECT_EQ(TextOf("Gain"), "9");
    TakeAccesses();
    EXPECT_EQ(TextOf("Gain"), "9");
    EXPECT_THAT(TakeAccesses(), IsEmpty());
}

TEST_F(CacheTest, EventsAreNeverKept)
{
    MakeNodes("<Port Name=\"Event\"><EventID>9101</EventID></Port>"
              "<IntReg Name=\"Data\"><Address>0x10</Address><Length>4</Length><pPort>Event</pPort></IntReg>");
    EXPECT_EQ(TextOf("Data"), "0");
    EXPECT_EQ(TextOf("Data"), "0");
    EXPECT_EQ(TakeAccesses().size(), 2U);
}

TEST_F(CacheTest, AFailedReadOrWriteIsNotKept)
{
    MakeNodes(Reg("Gain", "0x14", ""));
    mSpace.mFailure = KyResult(KyResult::FAILURE, "no");
    EXPECT_EQ(TextOf("Gain"), "error");
    mSpace.mFailure.reset();
    EXPECT_EQ(TextOf("Gain"), "0");
    mSpace.mFailure = KyResult(KyResult::FAILURE, "no");
    EXPECT_FALSE(Set("Gain", "5").IsOK());
    mSpace.mFailure.reset();
    mSpace.PutWord(0x14, 5); // it has arrived, only its answer was lost
    EXPECT_EQ(TextOf("Gain"), "5");
}

TEST_F(CacheTest, OneUseReadsARegisterOnce)
{
    MakeNodes(Reg("Never", "0x10", "NoCache") +
              NodeXml("IntSwissKnife", "Knife",
                      "<pVariable Name=\"X\">Never</pVariable><pVariable Name=\"Y\">Never</pVariable>"
                      "<Formula>X+X+Y</Formula>"));
    mSpace.PutWord(0x10, 2);
    EXPECT_EQ(TextOf("Knife"), "6");
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x10 4"));
}

TEST_F(CacheTest, ARangeThatDependsOnTheWrittenFeatureIsReadAfterwards)
{
    MakeNodes(Reg("Mode", "0x10", "") + Reg("MaxReg", "0x14", "", "<pInvalidator>Mode</pInvalidator>") +
              NodeXml("Integer", "Limited", "<pValue>Mode</pValue><pMax>MaxReg</pMax>"));
    mSpace.PutWord(0x14, 5);
    EXPECT_THAT(Set("Limited", "5"), IsOK());
    mSpace.PutWord(0x14, 3); // the device changes the limit with the mode
    EXPECT_EQ(Set("Limited", "4").GetCode(), 0x8002U);
}

} // namespace
