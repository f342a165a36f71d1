#include "GenApi/MapFixture.h"

#include "Adapters/GigE/GenApi/EventAddress.h"

#include <gmock/gmock.h>

#include <thread>

using KyGigE::NodeKind;
using KyGigE::RegisterPlace;
using KyGigE::RegisterUse;
using KyTest::Description;
using KyTest::IntReg;
using KyTest::IsOK;
using KyTest::IsResult;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const char* const cNodes = R"(
<Category Name="Root"><pFeature>Mode</pFeature></Category>
<Enumeration Name="Mode"><EnumEntry Name="UART"><Value>0</Value></EnumEntry>
 <EnumEntry Name="I2C"><pIsAvailable>HasBus</pIsAvailable><Value>1</Value></EnumEntry>
 <EnumEntry Name="SPI"><Value>2</Value></EnumEntry><pValue>ModeReg</pValue></Enumeration>
<Integer Name="Width"><pValue>WidthReg</pValue><Min>16</Min><Max>4096</Max></Integer>
<Float Name="Gain"><pValue>GainKnife</pValue></Float>
<Converter Name="GainKnife"><FormulaTo>FROM*10</FormulaTo><FormulaFrom>TO/10</FormulaFrom>
 <pValue>GainReg</pValue></Converter>
<Boolean Name="Enable"><pValue>EnableReg</pValue><OnValue>1</OnValue><OffValue>0</OffValue></Boolean>
<Command Name="Reset"><pValue>ResetReg</pValue><CommandValue>7</CommandValue></Command>
<StringReg Name="UserID"><Address>0x40</Address><Length>16</Length><AccessMode>RW</AccessMode>
 <pPort>Device</pPort></StringReg>
<StringReg Name="Vendor"><Address>0x60</Address><Length>16</Length><AccessMode>RO</AccessMode>
 <pPort>Device</pPort></StringReg>
<Register Name="Downstream"><Address>0x1000</Address><Length>520</Length><AccessMode>WO</AccessMode>
 <pPort>Device</pPort></Register>
<Register Name="Upstream"><Address>0x10</Address><Length>512</Length><AccessMode>RO</AccessMode>
 <pPort>Event</pPort></Register>
<Port Name="Event"><EventID>9101</EventID></Port>)";

class NodeMapTest : public KyTest::MapFixture
{
protected:
    NodeMapTest()
    {
        Make(Description(cNodes + IntReg("ModeReg", "0x10") + IntReg("WidthReg", "0x14") +
                         IntReg("GainReg", "0x18") + IntReg("EnableReg", "0x1C") +
                         IntReg("ResetReg", "0x20", "WO") + IntReg("HasBus", "0x24") +
                         IntReg("Now", "0x28", "RW", "<pIsAvailable>HasBus</pIsAvailable>") +
                         IntReg("Free", "0x2C", "RW", "<pIsLocked>HasBus</pIsLocked>") +
                         IntReg("Fixed", "0x30", "RO") + IntReg("EventLength", "0x0", "RO", "", "Event")));
    }

    /// With registers that change by themselves.
    void Make(std::string aXml)
    {
        const std::string lEnd = "</pPort>";
        const std::string lMore = "<Cachable>NoCache</Cachable>";
        for (size_t lPlace = aXml.find(lEnd); lPlace != std::string::npos;
             lPlace = aXml.find(lEnd, lPlace + 1))
        {
            aXml.insert(lPlace + lEnd.size(), lMore);
        }
        MapFixture::Make(aXml);
    }

    std::string TextOf(const std::string& aName)
    {
        std::string lText = "?";
        EXPECT_THAT(mMap->GetText(aName, lText), IsOK());
        return lText;
    }
};

TEST_F(NodeMapTest, GivesTheKindOfAFeature)
{
    EXPECT_EQ(mMap->GetKind("Mode"), NodeKind::Enumeration);
    EXPECT_EQ(mMap->GetKind("Width"), NodeKind::Integer);
    EXPECT_EQ(mMap->GetKind("WidthReg"), NodeKind::Integer);
    EXPECT_EQ(mMap->GetKind("Gain"), NodeKind::Float);
    EXPECT_EQ(mMap->GetKind("Enable"), NodeKind::Boolean);
    EXPECT_EQ(mMap->GetKind("Reset"), NodeKind::Command);
    EXPECT_EQ(mMap->GetKind("UserID"), NodeKind::String);
    EXPECT_EQ(mMap->GetKind("Downstream"), NodeKind::Register);
    EXPECT_EQ(mMap->GetKind("Root"), NodeKind::Category);
    EXPECT_EQ(mMap->GetKind("Device"), NodeKind::None);
    EXPECT_EQ(mMap->GetKind("Nothing"), NodeKind::None);
}

TEST_F(NodeMapTest, AvailabilityFollowsTheDevice)
{
    EXPECT_FALSE(mMap->IsAvailable("Now"));
    EXPECT_FALSE(mMap->IsReadable("Now"));
    EXPECT_FALSE(mMap->IsWritable("Now"));
    EXPECT_TRUE(mMap->IsWritable("Free"));
    mSpace.PutWord(0x24, 1);
    EXPECT_TRUE(mMap->IsAvailable("Now"));
    EXPECT_TRUE(mMap->IsReadable("Now"));
    EXPECT_TRUE(mMap->IsWritable("Now"));
    EXPECT_FALSE(mMap->IsWritable("Free"));
    EXPECT_TRUE(mMap->IsReadable("Free"));
    EXPECT_FALSE(mMap->IsAvailable("Nothing"));
}

TEST_F(NodeMapTest, AccessModesCount)
{
    EXPECT_TRUE(mMap->IsReadable("Fixed"));
    EXPECT_FALSE(mMap->IsWritable("Fixed"));
    EXPECT_FALSE(mMap->IsReadable("Downstream"));
    EXPECT_TRUE(mMap->IsWritable("Downstream"));
    EXPECT_FALSE(mMap->IsWritable("Upstream"));
    EXPECT_FALSE(mMap->IsReadable("Reset"));
    EXPECT_TRUE(mMap->IsWritable("Reset"));
}

TEST_F(NodeMapTest, NothingIsAvailableOnADeviceThatDoesNotAnswer)
{
    mSpace.PutWord(0x24, 1);
    mSpace.mFailure = KyResult(KyResult::NO_CONNECTION, "gone");
    EXPECT_FALSE(mMap->IsAvailable("Now"));
    EXPECT_FALSE(mMap->IsWritable("Free"));
    int64_t lValue = 7;
    EXPECT_THAT(mMap->GetInteger("WidthReg", lValue), IsResult(KyResult::NO_CONNECTION, "gone"));
    EXPECT_EQ(lValue, 0);
    std::string lText = "x";
    EXPECT_THAT(mMap->GetText("Mode", lText), IsResult(KyResult::NO_CONNECTION, "gone"));
    EXPECT_EQ(lText, "");
    EXPECT_THAT(mMap->SetText("Mode", "UART"), IsResult(KyResult::NO_CONNECTION, "gone"));
    std::vector<std::string> lEntries = {"x"};
    EXPECT_THAT(mMap->GetEntries("Mode", lEntries), IsResult(KyResult::NO_CONNECTION, "gone"));
    EXPECT_THAT(lEntries, IsEmpty());
    mSpace.mFailure.reset();
    EXPECT_EQ(TextOf("Mode"), "UART");
}

TEST_F(NodeMapTest, ReadsIntegersOnly)
{
    mSpace.PutWord(0x14, 640);
    int64_t lValue = 0;
    EXPECT_THAT(mMap->GetInteger("Width", lValue), IsOK());
    EXPECT_EQ(lValue, 640);
    EXPECT_THAT(mMap->GetInteger("Mode", lValue), IsResult(0x8002, "The feature Mode is of another kind."));
    EXPECT_THAT(mMap->GetInteger("Nothing", lValue), IsResult(0x8001, "There is no feature Nothing."));
    EXPECT_THAT(mMap->GetInteger("Now", lValue), IsResult(0x8006, "The feature Now is not available now."));
}

TEST_F(NodeMapTest, ReadsEveryKindAsText)
{
    mSpace.PutWord(0x10, 2);
    mSpace.PutWord(0x14, 640);
    mSpace.PutWord(0x18, 25);
    mSpace.PutWord(0x1C, 1);
    mSpace.Put(0x60, {'K', 'o', 'r', 'v', 'o'});
    EXPECT_EQ(TextOf("Mode"), "SPI");
    EXPECT_EQ(TextOf("Width"), "640");
    EXPECT_EQ(TextOf("Gain"), "2.5");
    EXPECT_EQ(TextOf("Enable"), "true");
    EXPECT_EQ(TextOf("Vendor"), "Korvo");
    EXPECT_EQ(TextOf("UserID"), "");
}

TEST_F(NodeMapTest, WhatHasNoTextSaysSo)
{
    std::string lText;
    for (const char* const lName : {"Upstream", "Reset", "Root"})
    {
        EXPECT_EQ(mMap->GetText(lName, lText).GetCode(), 0x8002U) << lName;
    }
    EXPECT_THAT(mMap->GetText("Nothing", lText), IsResult(0x8001, "There is no feature Nothing."));
    EXPECT_THAT(mMap->GetText("ResetReg", lText),
                IsResult(0x8006, "The feature ResetReg can only be written."));
    mSpace.PutWord(0x10, 9);
    EXPECT_THAT(mMap->GetText("Mode", lText), IsResult(0x8006, "The value of Mode has no entry."));
}

TEST_F(NodeMapTest, WritesEveryKindFromText)
{
    EXPECT_THAT(mMap->SetText("Mode", "SPI"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x10), 2U);
    EXPECT_THAT(mMap->SetText("Width", "0x200"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x14), 512U);
    EXPECT_THAT(mMap->SetText("Gain", "1.5"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x18), 15U);
    EXPECT_THAT(mMap->SetText("Enable", "true"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x1C), 1U);
    EXPECT_THAT(mMap->SetText("Reset", "1"), IsOK());
    EXPECT_EQ(mSpace.GetWord(0x20), 7U);
    EXPECT_THAT(mMap->SetText("UserID", "left"), IsOK());
    EXPECT_THAT(mSpace.Get(0x40, 5), ElementsAre('l', 'e', 'f', 't', 0));
}

TEST_F(NodeMapTest, RefusesTextsThatDoNotFit)
{
    EXPECT_THAT(mMap->SetText("Mode", "CAN"), IsResult(0x8002, "The feature Mode has no entry CAN."));
    EXPECT_THAT(mMap->SetText("Mode", "I2C"), IsResult(0x8002, "The feature Mode has no entry I2C."));
    for (const char* const lText : {"", "many", "1x", "99999999999999999999"})
    {
        EXPECT_THAT(
            mMap->SetText("Width", lText),
            IsResult(0x8002, (std::string("The feature Width does not take ") + lText + ".").c_str()));
    }
    EXPECT_EQ(mMap->SetText("Width", "5000").GetCode(), 0x8002U);
    EXPECT_EQ(mMap->SetText("Gain", "much").GetCode(), 0x8002U);
    EXPECT_EQ(mMap->SetText("Enable", "yes").GetCode(), 0x8002U);
    EXPECT_EQ(mMap->SetText("Reset", "0").GetCode(), 0x8002U);
    EXPECT_THAT(mMap->SetText("UserID", "longer than sixteen"),
                IsResult(0x8002, "The text is too long for UserID."));
    EXPECT_THAT(mSpace.mAccesses, testing::Not(Contains(testing::StartsWith("W"))));
}

TEST_F(NodeMapTest, RefusesToWriteWhatCannotBeWritten)
{
    EXPECT_THAT(mMap->SetText("Vendor", "x"), IsResult(0x8004, "The feature Vendor can only be read."));
    EXPECT_THAT(mMap->SetText("Fixed", "1"), IsResult(0x8004, "The feature Fixed can only be read."));
    EXPECT_THAT(mMap->SetText("Now", "1"), IsResult(0x8006, "The feature Now is not available now."));
    mSpace.PutWord(0x24, 1);
    EXPECT_THAT(mMap->SetText("Free", "1"), IsResult(0x8006, "The feature Free cannot be written now."));
    EXPECT_EQ(mMap->SetText("Downstream", "1").GetCode(), 0x8002U);
    EXPECT_EQ(mMap->SetText("Nothing", "1").GetCode(), 0x8001U);
    EXPECT_EQ(mSpace.GetWord(0x30), 0U);
}

TEST_F(NodeMapTest, ListsTheEntriesThatCanBeChosen)
{
    std::vector<std::string> lEntries;
    EXPECT_THAT(mMap->GetEntries("Mode", lEntries), IsOK());
    EXPECT_THAT(lEntries, ElementsAre("UART", "SPI"));
    mSpace.PutWord(0x24, 1);
    EXPECT_THAT(mMap->GetEntries("Mode", lEntries), IsOK());
    EXPECT_THAT(lEntries, ElementsAre("UART", "I2C", "SPI"));
    EXPECT_EQ(mMap->GetEntries("Width", lEntries).GetCode(), 0x8002U);
    EXPECT_THAT(lEntries, IsEmpty());
}

// A list of a thousand features asks for all of this: each further access is a packet to the device.
TEST_F(NodeMapTest, TheStateOfAFeatureIsWorkedOutWithOneAccessOfEachRegister)
{
    TakeAccesses();
    KyGigE::FeatureState lState = mMap->GetState("Mode", true);
    EXPECT_TRUE(lState.mAvailable && lState.mReadable && lState.mWritable);
    EXPECT_EQ(lState.mValue, "UART");
    EXPECT_THAT(lState.mEntries, ElementsAre("UART", "SPI"));
    EXPECT_EQ(TakeAccesses().size(), 2U); // the value, and what decides about I2C
    mSpace.PutWord(0x24, 1);
    EXPECT_EQ(mMap->GetState("Now", true).mValue, "0");
    EXPECT_EQ(TakeAccesses().size(), 2U);
    EXPECT_EQ(mMap->GetState("Now", false).mValue, "");
    EXPECT_EQ(TakeAccesses().size(), 1U);
}

TEST_F(NodeMapTest, TheStateOfAFeatureIsWhatEachQuestionAnswers)
{
    mSpace.PutWord(0x10, 9); // no entry of Mode has this value
    for (const char* const lName : {"Root", "Mode", "Width", "Gain", "Enable", "Reset", "UserID", "Vendor",
                                    "Downstream", "Upstream", "Now", "Free", "Fixed", "Nobody"})
    {
        const KyGigE::FeatureState lState = mMap->GetState(lName, true);
        std::string lText;
        std::vector<std::string> lEntries;
        static_cast<void>(mMap->GetText(lName, lText)); // empty on a failure
        static_cast<void>(mMap->GetEntries(lName, lEntries));
        EXPECT_EQ(lState.mAvailable, mMap->IsAvailable(lName)) << lName;
        EXPECT_EQ(lState.mReadable, mMap->IsReadable(lName)) << lName;
        EXPECT_EQ(lState.mWritable, mMap->IsWritable(lName)) << lName;
        EXPECT_EQ(lState.mValue, lText) << lName;
        EXPECT_EQ(lState.mEntries, lEntries) << lName;
    }
}

TEST_F(NodeMapTest, GivesThePlaceOfARegisterFeature)
{
    RegisterPlace lPlace;
    EXPECT_THAT(mMap->GetRegister("Downstream", RegisterUse::Write, lPlace), IsOK());
    EXPECT_EQ(lPlace.mAddress, 0x1000U);
    EXPECT_EQ(lPlace.mLength, 520U);
    EXPECT_THAT(mMap->GetRegister("Downstream", RegisterUse::Read, lPlace),
                IsResult(0x8006, "The feature Downstream can only be written."));
    EXPECT_THAT(mMap->GetRegister("Downstream", RegisterUse::Look, lPlace), IsOK());
    EXPECT_EQ(mMap->GetRegister("UserID", RegisterUse::Read, lPlace).GetCode(), 0x8002U);
    EXPECT_EQ(lPlace.mLength, 0U);
    EXPECT_EQ(mMap->GetRegister("Nothing", RegisterUse::Read, lPlace).GetCode(), 0x8001U);
}

TEST_F(NodeMapTest, FeaturesOfAnEventLieInTheEventSpace)
{
    RegisterPlace lPlace;
    EXPECT_THAT(mMap->GetRegister("Upstream", RegisterUse::Read, lPlace), IsOK());
    EXPECT_EQ(lPlace.mAddress, KyGigE::EventAddress(0x9101) + 0x10);
    mSpace.PutWord(KyGigE::EventAddress(0x9101), 77);
    int64_t lValue = 0;
    EXPECT_THAT(mMap->GetInteger("EventLength", lValue), IsOK());
    EXPECT_EQ(lValue, 77);
}

TEST_F(NodeMapTest, OldDescriptionsAccessRegistersAsSuch)
{
    Make(Description(IntReg("Old", "0x10"), "0"));
    mSpace.PutWord(0x10, 0x01020304);
    EXPECT_EQ(TextOf("Old"), std::to_string(0x01020304));
    EXPECT_THAT(mSpace.mAccesses, ElementsAre("RR 0x10 4"));
    EXPECT_THAT(mMap->SetText("Old", "2"), IsOK());
    EXPECT_THAT(mSpace.mAccesses, Contains("WR 0x10 4"));
    EXPECT_EQ(mSpace.GetWord(0x10), 2U);
    Make(Description(IntReg("New", "0x10")));
    mSpace.mAccesses.clear();
    EXPECT_EQ(TextOf("New"), "2");
    EXPECT_THAT(mSpace.mAccesses, ElementsAre("R 0x10 4"));
}

TEST_F(NodeMapTest, ALengthThatTheDeviceMakesUpTakesNoMemory)
{
    Make(Description("<StringReg Name=\"Text\"><Address>0x40</Address><pLength>TextLength</pLength>"
                     "<AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>" +
                     IntReg("TextLength", "0x10")));
    mSpace.PutWord(0x10, 4);
    std::string lText;
    EXPECT_THAT(mMap->GetText("Text", lText), IsOK());
    mSpace.PutWord(0x10, 0xFFFFFFFF); // asked anew each time
    EXPECT_THAT(mMap->GetText("Text", lText),
                IsResult(KyResult::FAILURE, "The feature Text is longer than any value."));
}

TEST_F(NodeMapTest, ALengthBelowZeroTakesNoMemoryWhateverIsDoneWithIt)
{
    Make(Description("<IntReg Name=\"Bad\"><Address>0x40</Address><Length>-1</Length>"
                     "<AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>"
                     "<Integer Name=\"User\"><pValue>Bad</pValue></Integer>"));
    std::string lText;
    for (const char* const lName : {"Bad", "User"})
    {
        EXPECT_THAT(mMap->GetText(lName, lText),
                    IsResult(KyResult::FAILURE, "The feature Bad is longer than any value."));
        EXPECT_THAT(mMap->SetText(lName, "1"),
                    IsResult(KyResult::FAILURE, "The feature Bad is longer than any value."));
    }
}

TEST_F(NodeMapTest, ANegativeLengthTakesNoMemoryAfterAnAddressOrAnEntry)
{
    Make(Description("<IntReg Name=\"Bad\"><Address>0x40</Address><Length>-1</Length>"
                     "<AccessMode>RW</AccessMode><pPort>Device</pPort></IntReg>"
                     "<Register Name=\"Bytes\"><pAddress>Bad</pAddress><Length>8</Length>"
                     "<AccessMode>RW</AccessMode><pPort>Device</pPort></Register>"
                     "<Enumeration Name=\"Choice\"><EnumEntry Name=\"One\"><Value>1</Value>"
                     "<pIsAvailable>Bad</pIsAvailable></EnumEntry><Value>1</Value></Enumeration>"));
    RegisterPlace lPlace;
    for (const RegisterUse lUse : {RegisterUse::Look, RegisterUse::Read, RegisterUse::Write})
    {
        EXPECT_THAT(mMap->GetRegister("Bytes", lUse, lPlace),
                    IsResult(KyResult::FAILURE, "The feature Bad is longer than any value."));
    }
    std::vector<std::string> lEntries;
    EXPECT_THAT(mMap->GetEntries("Choice", lEntries),
                IsResult(KyResult::FAILURE, "The feature Bad is longer than any value."));
}

TEST_F(NodeMapTest, SeveralThreadsMayAskAtOnce)
{
    mSpace.PutWord(0x14, 640);
    std::vector<std::thread> lThreads;
    lThreads.reserve(4);
    for (int lThread = 0; lThread < 4; ++lThread)
    {
        lThreads.emplace_back(
            [this]
            {
                for (int lRound = 0; lRound < 200; ++lRound)
                {
                    EXPECT_EQ(TextOf("Width"), "640");
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
}

} // namespace
