#include "KyGvcp/Protocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

namespace
{

using namespace KyGvcp;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

using Buffer = std::vector<uint8_t>;

Buffer Copy(const Packet& aPacket)
{
    const Bytes lBytes = aPacket.GetBytes();
    return {lBytes.begin(), lBytes.end()};
}

TEST(ProtocolTest, WritesCommandsBigEndianWithTheirLength)
{
    EXPECT_THAT(Copy(MakeWriteRegister(0x1234, 0xB84C, 0x55)),
                ElementsAre(0x42, 0x01, 0x00, 0x82, 0x00, 0x08, 0x12, 0x34, // header
                            0x00, 0x00, 0xB8, 0x4C, 0x00, 0x00, 0x00, 0x55));
    EXPECT_THAT(Copy(MakeReadRegister(1, 0x0A00)),
                ElementsAre(0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00));
    EXPECT_THAT(Copy(MakeReadMemory(2, 0x200, 512)),
                ElementsAre(0x42, 0x01, 0x00, 0x84, 0x00, 0x08, 0x00, 0x02, // header
                            0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x02, 0x00));
}

TEST(ProtocolTest, WritesMemoryWithoutPadding)
{
    const Buffer lByte = {0xAB};
    EXPECT_THAT(Copy(MakeWriteMemory(3, 0x80000400, lByte)),
                ElementsAre(0x42, 0x01, 0x00, 0x86, 0x00, 0x05, 0x00, 0x03, 0x80, 0x00, 0x04, 0x00, 0xAB));
}

TEST(ProtocolTest, AsksForDiscoveryWithOrWithoutBroadcastAnswers)
{
    EXPECT_THAT(Copy(MakeDiscovery(0xFFFF, true)),
                ElementsAre(0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0xFF, 0xFF));
    EXPECT_EQ(0x01, Copy(MakeDiscovery(1, false))[1]);
}

TEST(ProtocolTest, TakesTheLargestBlockAndRefusesOneByteMore)
{
    const Buffer lData(cMaxBlock + 1, 0x11);
    EXPECT_TRUE(MakeWriteMemory(1, 0, Bytes(lData).first(cMaxBlock)).IsGood());
    EXPECT_EQ(cMaxPacket, MakeWriteMemory(1, 0, Bytes(lData).first(cMaxBlock)).GetBytes().size());
    const Packet lPacket = MakeWriteMemory(1, 0, lData);
    EXPECT_FALSE(lPacket.IsGood());
    EXPECT_EQ(cHeaderSize + 4, lPacket.GetBytes().size());
}

TEST(ProtocolTest, LeavesOutEverythingAfterAPartThatDidNotFit)
{
    const Buffer lData(cMaxPayload, 0x11);
    Packet lPacket = Packet::Command(cWriteMemory, 0, 1);
    lPacket.Add32(1).Add(lData).Add16(7);
    EXPECT_FALSE(lPacket.IsGood());
    EXPECT_EQ(cHeaderSize + 4, lPacket.GetBytes().size());
}

TEST(ProtocolTest, ParsesWhatItWrote)
{
    const Buffer lData = {1, 2, 3};
    const Buffer lPacket = Copy(MakeWriteMemory(0x4321, 0x80001200, lData));
    const auto lCommand = ParseCommand(lPacket);
    ASSERT_TRUE(lCommand.has_value());
    EXPECT_EQ(cWriteMemory, lCommand->mCode);
    EXPECT_EQ(cAcknowledgeWanted, lCommand->mFlags);
    EXPECT_EQ(0x4321, lCommand->mRequestID);
    EXPECT_TRUE(lCommand->mLengthFits);
    Reader lReader(lCommand->mPayload);
    EXPECT_EQ(0x80001200U, lReader.Take32());
    EXPECT_THAT(lReader.GetRest(), ElementsAre(1, 2, 3));
}

TEST(ProtocolTest, ParsesAcknowledges)
{
    const Buffer lPacket = Copy(Packet::Acknowledge(cAccessDenied, cWriteRegisterAck, 9).Add16(0).Add16(1));
    const auto lAcknowledge = ParseAcknowledge(lPacket);
    ASSERT_TRUE(lAcknowledge.has_value());
    EXPECT_EQ(cAccessDenied, lAcknowledge->mStatus);
    EXPECT_EQ(cWriteRegisterAck, lAcknowledge->mCode);
    EXPECT_EQ(9, lAcknowledge->mRequestID);
    EXPECT_THAT(lAcknowledge->mPayload, ElementsAre(0, 0, 0, 1));
}

TEST(ProtocolTest, ToleratesBytesAfterAnAcknowledgeButNotMissingOnes)
{
    Buffer lPacket = Copy(Packet::Acknowledge(cSuccess, cReadRegisterAck, 9).Add32(7));
    lPacket.push_back(0);
    const auto lAcknowledge = ParseAcknowledge(lPacket);
    ASSERT_TRUE(lAcknowledge.has_value());
    EXPECT_THAT(lAcknowledge->mPayload, SizeIs(4));
    lPacket.resize(lPacket.size() - 2);
    EXPECT_FALSE(ParseAcknowledge(lPacket).has_value());
}

TEST(ProtocolTest, TakesNoCommandForAnAcknowledge)
{
    const Buffer lPacket = {0x42, 0x01, 0x00, 0x82, 0x00, 0x00, 0x00, 0x01};
    EXPECT_FALSE(ParseAcknowledge(lPacket).has_value());
}

TEST(ProtocolTest, TakesNothingWithoutTheKeyOrAFullHeaderForACommand)
{
    Buffer lPacket = Copy(MakeReadRegister(1, 0));
    lPacket[0] = 0x43;
    EXPECT_FALSE(ParseCommand(lPacket).has_value());
    lPacket[0] = 0x42;
    lPacket.resize(7);
    EXPECT_FALSE(ParseCommand(lPacket).has_value());
    EXPECT_FALSE(ParseCommand({}).has_value());
}

TEST(ProtocolTest, HidesThePayloadOfACommandWithAWrongLength)
{
    Buffer lPacket = Copy(MakeReadRegister(1, 0x0A00));
    lPacket.push_back(0);
    const auto lCommand = ParseCommand(lPacket);
    ASSERT_TRUE(lCommand.has_value());
    EXPECT_FALSE(lCommand->mLengthFits);
    EXPECT_THAT(lCommand->mPayload, IsEmpty());
    EXPECT_EQ(1, lCommand->mRequestID);
}

TEST(ProtocolTest, ReaderGivesZerosAfterTheEnd)
{
    const Buffer lData = {1, 2, 3};
    Reader lReader(lData);
    EXPECT_EQ(0x0102, lReader.Take16());
    EXPECT_TRUE(lReader.IsGood());
    EXPECT_EQ(0U, lReader.Take32());
    EXPECT_FALSE(lReader.IsGood());
    EXPECT_EQ(0U, lReader.Take16()); // not the byte that was left
    EXPECT_THAT(lReader.Take(1), IsEmpty());
}

std::vector<EventView> Parse(const Buffer& aPacket)
{
    const auto lCommand = ParseCommand(aPacket);
    return lCommand.has_value() ? ParseEvents(*lCommand) : std::vector<EventView>();
}

TEST(ProtocolTest, CarriesAnEventWithItsData)
{
    const Buffer lData = {9, 8, 7};
    Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted, 5);
    AddEvent(lPacket, 0x9101, 77, 0x0123456789ABCDEF, lData);
    const Buffer lBytes = Copy(lPacket);
    const auto lEvents = Parse(lBytes);
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(0x9101, lEvents[0].mID);
    EXPECT_EQ(cNoStreamChannel, lEvents[0].mStreamChannel);
    EXPECT_EQ(77U, lEvents[0].mBlockID);
    EXPECT_EQ(0x0123456789ABCDEFU, lEvents[0].mTimestamp);
    EXPECT_THAT(lEvents[0].mData, ElementsAreArray(lData));
    EXPECT_THAT(lEvents[0].mItem, SizeIs(cEventItemSize + 3));
}

TEST(ProtocolTest, ParsesLongEventIds)
{
    Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted | cExtendedID, 5);
    lPacket.Add16(0).Add16(0x9000).Add16(1).Add16(0).Add64(0x1122334455667788).Add64(42).Add32(3);
    const Buffer lBytes = Copy(lPacket);
    const auto lEvents = Parse(lBytes);
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(0x1122334455667788U, lEvents[0].mBlockID);
    EXPECT_EQ(42U, lEvents[0].mTimestamp);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(0, 0, 0, 3));
}

TEST(ProtocolTest, CarriesSeveralEventsWithLongIdsAndTheirData)
{
    Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted | cExtendedID, 5);
    AddEvent(lPacket, 0x9101, 0x1122334455667788, 1, Buffer{9, 8, 7});
    AddEvent(lPacket, 0x9102, 0x1122334455667789, 2, Buffer{6});
    const Buffer lBytes = Copy(lPacket);
    const auto lEvents = Parse(lBytes);
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_THAT(lEvents[0].mData, ElementsAre(9, 8, 7));
    EXPECT_EQ(0x1122334455667789U, lEvents[1].mBlockID);
    EXPECT_EQ(2U, lEvents[1].mTimestamp);
    EXPECT_THAT(lEvents[1].mItem, SizeIs(cExtendedEventItemSize + 1));
}

TEST(ProtocolTest, ParsesSeveralEventsOfOneCommand)
{
    Packet lPacket = Packet::Command(cEvent, cAcknowledgeWanted, 5);
    AddEvent(lPacket, 0x9000, 1, 10, {});
    AddEvent(lPacket, 0x9001, 2, 20, {});
    const Buffer lBytes = Copy(lPacket);
    const auto lEvents = Parse(lBytes);
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_EQ(0x9001, lEvents[1].mID);
    EXPECT_EQ(20U, lEvents[1].mTimestamp);
    EXPECT_THAT(lEvents[1].mData, IsEmpty());
}

TEST(ProtocolTest, ParsesEventsThatHaveTheirSize)
{
    Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted, 5);
    for (const uint16_t lID : {uint16_t{0x9000}, uint16_t{0x9001}})
    {
        lPacket.Add16(20).Add16(lID).Add16(0xFFFF).Add16(1).Add64(0).Add32(lID);
    }
    const Buffer lBytes = Copy(lPacket);
    const auto lEvents = Parse(lBytes);
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_THAT(lEvents[1].mData, ElementsAre(0, 0, 0x90, 0x01));
}

TEST(ProtocolTest, DropsEventsThatDoNotFitTheirSize)
{
    for (const uint16_t lSize : {uint16_t{1}, uint16_t{15}, uint16_t{17}, uint16_t{0xFFFF}})
    {
        Packet lPacket = Packet::Command(cEventData, cAcknowledgeWanted, 5);
        lPacket.Add16(lSize).Add16(0x9000).Add16(0xFFFF).Add16(1).Add64(0);
        EXPECT_THAT(Parse(Copy(lPacket)), IsEmpty()) << lSize;
    }
    // An item shorter than its header, followed by bytes that look like an event.
    Packet lInside = Packet::Command(cEventData, cAcknowledgeWanted, 5);
    lInside.Add16(8).Add16(0x9000).Add16(0xFFFF).Add16(1);
    AddEvent(lInside, 0x9000, 1, 10, {});
    EXPECT_THAT(Parse(Copy(lInside)), IsEmpty());
    Packet lShort = Packet::Command(cEvent, cAcknowledgeWanted, 5);
    lShort.Add16(0).Add16(0x9000).Add32(0);
    EXPECT_THAT(Parse(Copy(lShort)), IsEmpty());
}

TEST(ProtocolTest, ParsesAnythingWithoutLeavingTheBuffer)
{
    std::mt19937 lRandom(1); // the same packets in every run
    for (int lRound = 0; lRound < 20000; ++lRound)
    {
        // On the heap and exactly as long as it is: the address sanitizer sees one byte too many.
        Buffer lPacket(lRandom() % 80);
        for (uint8_t& lByte : lPacket)
        {
            lByte = lRandom() % 3 == 0 ? 0 : static_cast<uint8_t>(lRandom() & 0xFFU);
        }
        if (lPacket.size() >= cHeaderSize && lRound % 2 == 0)
        {
            lPacket[0] = 0x42;
            lPacket[2] = 0;
            lPacket[3] = lRound % 4 == 0 ? 0xC2 : 0xC0;
            lPacket[4] = 0;
            lPacket[5] = static_cast<uint8_t>(lPacket.size() - cHeaderSize);
        }
        size_t lSeen = 0;
        for (const EventView& lEvent : Parse(lPacket))
        {
            lSeen += lEvent.mItem.size();
        }
        EXPECT_LE(lSeen, lPacket.size());
        const auto lAcknowledge = ParseAcknowledge(lPacket);
        EXPECT_TRUE(!lAcknowledge.has_value() ||
                    lAcknowledge->mPayload.size() + cHeaderSize <= lPacket.size());
    }
}

TEST(ProtocolTest, NamesStatuses)
{
    using Names = std::vector<std::pair<uint16_t, std::string>>;
    const Names lNames = {{0, "success"},
                          {0x8001, "not implemented"},
                          {0x8002, "invalid parameter"},
                          {0x8003, "invalid address"},
                          {0x8004, "write protected"},
                          {0x8005, "bad alignment"},
                          {0x8006, "access denied"},
                          {0x8007, "busy"},
                          {0x800E, "invalid header"},
                          {0x8FFF, "error"}};
    for (const auto& [lStatus, lName] : lNames)
    {
        EXPECT_EQ(lName, NameOfStatus(lStatus));
    }
    EXPECT_EQ("status 0x8F01", NameOfStatus(0x8F01));
    EXPECT_EQ("status 0x0001", NameOfStatus(1));
}

} // namespace
