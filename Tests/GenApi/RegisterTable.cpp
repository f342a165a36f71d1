// What numbers the bytes of registers are, and what bytes numbers become.

#include "GenApi/MapFixture.h"

namespace
{

using KyTest::Element;
using KyTest::NodeXml;
using testing::ElementsAre;
using Bytes = std::vector<uint8_t>;

struct RegisterCase
{
    const char* mKind;
    int mLength;
    const char* mInside; ///< Elements after the length.
    Bytes mBytes;
    const char* mText; ///< "error": no number.
};

const char* const cBig = "<Endianess>BigEndian</Endianess>";
const char* const cBigSigned = "<Sign>Signed</Sign><Endianess>BigEndian</Endianess>";
const char* const cLittleSigned = "<Sign>Signed</Sign><Endianess>LittleEndian</Endianess>";

const RegisterCase cRegisterCases[] = {
    {"IntReg", 1, "", {0xFF}, "255"},
    {"IntReg", 1, cBigSigned, {0xFF}, "-1"},
    {"IntReg", 1, cBigSigned, {0x80}, "-128"},
    {"IntReg", 2, "", {0x34, 0x12}, "4660"}, // little-endian unless said
    {"IntReg", 2, cBig, {0x12, 0x34}, "4660"},
    {"IntReg", 2, cBigSigned, {0x80, 0x00}, "-32768"},
    {"IntReg", 2, cLittleSigned, {0x00, 0x80}, "-32768"},
    {"IntReg", 3, cBig, {0x01, 0x02, 0x03}, "66051"},
    {"IntReg", 3, cBigSigned, {0xFF, 0xFF, 0xFE}, "-2"},
    {"IntReg", 4, "", {0x78, 0x56, 0x34, 0x12}, "305419896"},
    {"IntReg", 4, cBig, {0xFF, 0xFF, 0xFF, 0xFF}, "4294967295"},
    {"IntReg", 4, cBigSigned, {0xFF, 0xFF, 0xFF, 0xFF}, "-1"},
    {"IntReg", 5, cBig, {1, 0, 0, 0, 0}, "4294967296"},
    {"IntReg", 6, cBig, {0, 0x1B, 0x63, 0x84, 0x45, 0xE6}, "117633730022"},
    {"IntReg", 8, cBig, {0, 0x20, 0, 0, 0, 0, 0, 1}, "9007199254740993"},
    {"IntReg", 8, "", {1, 0, 0, 0, 0, 0, 0x20, 0}, "9007199254740993"},
    {"IntReg", 8, cBigSigned, {0x80, 0, 0, 0, 0, 0, 0, 0}, "-9223372036854775808"},
    {"IntReg", 8, cBig, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, "-1"},
    {"IntReg", 0, cBig, {}, "error"},
    {"IntReg", 9, cBig, {}, "error"},
    {"IntReg", -1, cBig, {}, "error"},
    // Bits of big-endian registers are counted from the upper end, of little-endian ones from the lower.
    {"MaskedIntReg", 4, "<Bit>0</Bit><Endianess>BigEndian</Endianess>", {0x80, 0, 0, 0}, "1"},
    {"MaskedIntReg", 4, "<Bit>31</Bit><Endianess>BigEndian</Endianess>", {0, 0, 0, 1}, "1"},
    {"MaskedIntReg", 4, "<Bit>0</Bit>", {1, 0, 0, 0}, "1"},
    {"MaskedIntReg", 4, "<Bit>31</Bit>", {0, 0, 0, 0x80}, "1"},
    {"MaskedIntReg", 4, "<Bit>8</Bit>", {0, 1, 0, 0}, "1"},
    {"MaskedIntReg", 4, "<LSB>31</LSB><MSB>24</MSB><Endianess>BigEndian</Endianess>", {1, 2, 3, 0xA5}, "165"},
    {"MaskedIntReg", 4, "<LSB>7</LSB><MSB>0</MSB><Endianess>BigEndian</Endianess>", {0xA5, 2, 3, 4}, "165"},
    {"MaskedIntReg", 4, "<LSB>0</LSB><MSB>7</MSB><Endianess>BigEndian</Endianess>", {0xA5, 2, 3, 4}, "165"},
    {"MaskedIntReg", 4, "<LSB>0</LSB><MSB>7</MSB>", {0xA5, 2, 3, 4}, "165"},
    {"MaskedIntReg", 4, "<LSB>24</LSB><MSB>31</MSB>", {1, 2, 3, 0xA5}, "165"},
    {"MaskedIntReg", 4, "<LSB>4</LSB><MSB>11</MSB>", {0x50, 0x0A, 0, 0}, "165"},
    {"MaskedIntReg", 4, "<LSB>4</LSB><MSB>7</MSB><Sign>Signed</Sign>", {0xF0, 0, 0, 0}, "-1"},
    {"MaskedIntReg", 4, "<LSB>4</LSB><MSB>7</MSB><Sign>Signed</Sign>", {0x70, 0, 0, 0}, "7"},
    {"MaskedIntReg", 4, "<Bit>3</Bit><Sign>Signed</Sign>", {8, 0, 0, 0}, "-1"},
    {"MaskedIntReg", 8, "<LSB>0</LSB><MSB>63</MSB>", {1, 0, 0, 0, 0, 0, 0x20, 0}, "9007199254740993"},
    {"MaskedIntReg", 8, "<LSB>32</LSB><MSB>63</MSB>", {0, 0, 0, 0, 5, 0, 0, 0}, "5"},
    {"MaskedIntReg", 2, "<Bit>15</Bit><Endianess>BigEndian</Endianess>", {0, 1}, "1"},
    {"MaskedIntReg", 4, "<Bit>32</Bit>", {1, 2, 3, 4}, "error"},
    {"MaskedIntReg", 4, "<Bit>-1</Bit>", {1, 2, 3, 4}, "error"},
    {"MaskedIntReg", 4, "<LSB>0</LSB>", {1, 2, 3, 4}, "error"},
    {"MaskedIntReg", 4, "", {1, 2, 3, 4}, "error"},
    // Floating-point numbers.
    {"FloatReg", 4, cBig, {0x3F, 0x80, 0, 0}, "1"},
    {"FloatReg", 4, "", {0, 0, 0x80, 0x3F}, "1"},
    {"FloatReg", 4, cBig, {0x3D, 0xCC, 0xCC, 0xCD}, "0.10000000149011612"}, // all that it is
    {"FloatReg", 8, cBig, {0x3F, 0xB9, 0x99, 0x99, 0x99, 0x99, 0x99, 0x9A}, "0.1"},
    {"FloatReg", 8, "", {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}, "0.1"},
    {"FloatReg", 4, cBig, {0xC2, 0xC8, 0, 0}, "-100"},
    {"FloatReg", 4, cBig, {0x7F, 0x80, 0, 0}, "inf"},
    {"FloatReg", 2, cBig, {1, 2}, "error"},
    // Texts end at the first zero, or where the register ends.
    {"StringReg", 4, "", {'a', 'b', 0, 'c'}, "ab"},
    {"StringReg", 4, "", {'a', 'b', 'c', 'd'}, "abcd"},
    {"StringReg", 4, "", {0, 'b', 'c', 'd'}, ""},
    {"StringReg", 0, "", {}, ""},
};

class RegisterTable : public KyTest::MapFixture
{
protected:
    void MakeRegister(const std::string& aKind, int aLength, const std::string& aInside,
                      const std::string& aAccess = "RW")
    {
        MakeNodes(NodeXml(aKind, "Reg",
                          Element("Address", "0x10") + Element("Length", std::to_string(aLength)) +
                              Element("AccessMode", aAccess) + Element("pPort", "Device") +
                              Element("Cachable", "NoCache") + aInside));
    }
};

TEST_F(RegisterTable, BytesBecomeValues)
{
    for (const RegisterCase& lCase : cRegisterCases)
    {
        MakeRegister(lCase.mKind, lCase.mLength, lCase.mInside);
        mSpace.Put(0x10, lCase.mBytes);
        EXPECT_EQ(TextOf("Reg"), lCase.mText) << lCase.mKind << lCase.mLength << lCase.mInside;
    }
}

TEST_F(RegisterTable, ValuesBecomeTheSameBytes)
{
    for (const RegisterCase& lCase : cRegisterCases)
    {
        const std::string lText = lCase.mText;
        if (lText == "error" || lText == "inf")
        {
            continue;
        }
        MakeRegister(lCase.mKind, lCase.mLength, lCase.mInside);
        mSpace.Put(0x10, Bytes(lCase.mBytes.size(), 0xEE));
        EXPECT_THAT(Set("Reg", lText), KyTest::IsOK()) << lCase.mKind << lCase.mInside;
        EXPECT_EQ(TextOf("Reg"), lText) << lCase.mKind << lCase.mInside;
    }
}

TEST_F(RegisterTable, AFieldLeavesTheOtherBits)
{
    MakeRegister("MaskedIntReg", 4, "<LSB>4</LSB><MSB>11</MSB>");
    mSpace.Put(0x10, {0xFF, 0xFF, 0xFF, 0xFF});
    EXPECT_THAT(Set("Reg", "0"), KyTest::IsOK());
    EXPECT_THAT(mSpace.Get(0x10, 4), ElementsAre(0x0F, 0xF0, 0xFF, 0xFF));
    EXPECT_THAT(TakeAccesses(), ElementsAre("R 0x10 4", "W 0x10 4"));
    MakeRegister("MaskedIntReg", 4, "<LSB>4</LSB><MSB>11</MSB>", "WO");
    EXPECT_THAT(Set("Reg", "1"), KyTest::IsOK()); // the other bits are unknown
    EXPECT_THAT(TakeAccesses(), ElementsAre("W 0x10 4"));
    EXPECT_THAT(mSpace.Get(0x10, 4), ElementsAre(0x10, 0, 0, 0));
}

TEST_F(RegisterTable, WhatDoesNotFitIsNotWritten)
{
    const struct
    {
        const char* mKind;
        int mLength;
        const char* mInside;
        const char* mText;
    } lCases[] = {{"IntReg", 1, "", "256"},
                  {"IntReg", 1, "", "-1"},
                  {"IntReg", 1, cBigSigned, "128"},
                  {"IntReg", 1, cBigSigned, "-129"},
                  {"IntReg", 4, "", "4294967296"},
                  {"IntReg", 4, cBigSigned, "2147483648"},
                  {"MaskedIntReg", 4, "<Bit>3</Bit>", "2"},
                  {"MaskedIntReg", 4, "<LSB>0</LSB><MSB>3</MSB>", "16"},
                  {"MaskedIntReg", 4, "<LSB>0</LSB><MSB>3</MSB><Sign>Signed</Sign>", "8"},
                  {"FloatReg", 4, "", "1e39"},
                  {"FloatReg", 4, "", "-1e39"},
                  {"FloatReg", 4, "", "1e999"},
                  {"FloatReg", 4, "", "inf"},
                  {"FloatReg", 4, "", "nan"},
                  {"StringReg", 4, "", "abcde"}};
    for (const auto& lCase : lCases)
    {
        MakeRegister(lCase.mKind, lCase.mLength, lCase.mInside);
        EXPECT_EQ(Set("Reg", lCase.mText).GetCode(), 0x8002U) << lCase.mKind << lCase.mInside << lCase.mText;
        EXPECT_THAT(TakeAccesses(), testing::Each(testing::StartsWith("R"))) << lCase.mText;
    }
}

TEST_F(RegisterTable, AddressesAddUp)
{
    const std::string lNodes = "<Integer Name=\"Sel\"><Value>3</Value></Integer>"
                               "<Integer Name=\"Base\"><Value>0x100</Value></Integer>"
                               "<Integer Name=\"Minus\"><Value>-16</Value></Integer>";
    const struct
    {
        const char* mAddress;
        const char* mAccess;
    } lCases[] = {{"<Address>0x10</Address>", "R 0x10 4"},
                  {"<Address>16</Address><Address>0x20</Address>", "R 0x30 4"},
                  {"<Address>0x10</Address><pAddress>Base</pAddress>", "R 0x110 4"},
                  {"<pAddress>Base</pAddress><pAddress>Base</pAddress>", "R 0x200 4"},
                  {"<pAddress>Base</pAddress><pAddress>Minus</pAddress>", "R 0xF0 4"},
                  {"<Address>0x10</Address><pIndex Offset=\"8\">Sel</pIndex>", "R 0x28 4"},
                  {"<Address>0x10</Address><pIndex Offset=\"0x100\">Sel</pIndex>", "R 0x310 4"},
                  {"<Address>0x10</Address><pIndex>Sel</pIndex>", "R 0x1C 4"}, // by the length
                  {"<Address>0x10</Address><pIndex pOffset=\"Base\">Sel</pIndex>", "R 0x310 4"},
                  {"<Address>0x10</Address><IntSwissKnife Name=\"x\"><pVariable Name=\"S\">Sel</pVariable>"
                   "<Formula>S*2</Formula></IntSwissKnife>",
                   "R 0x16 4"},
                  {"<Address>0xFFFFFFFC</Address>", "R 0xFFFFFFFC 4"},
                  {"", "R 0x0 4"}};
    for (const auto& lCase : lCases)
    {
        MakeNodes(lNodes + NodeXml("IntReg", "Reg",
                                   std::string(lCase.mAddress) + "<Length>4</Length><pPort>Device</pPort>"));
        EXPECT_NE(TextOf("Reg"), "error") << lCase.mAddress;
        EXPECT_THAT(TakeAccesses(), ElementsAre(lCase.mAccess)) << lCase.mAddress;
    }
}

TEST_F(RegisterTable, ARegisterWithoutAPlaceIsAnError)
{
    for (const char* const lInside :
         {"<Address>x</Address><Length>4</Length><pPort>Device</pPort>",
          "<Address>0</Address><pPort>Device</pPort>", "<Address>0</Address><Length>4</Length>",
          "<Address>0</Address><Length>4</Length><pPort>Nothing</pPort>",
          "<Address>0</Address><Length>4</Length><pPort>Other</pPort>",
          "<Address>0</Address><Length>4</Length><pPort>Chunk</pPort>",
          "<pAddress>Nothing</pAddress><Length>4</Length><pPort>Device</pPort>",
          "<Address>0</Address><pLength>Nothing</pLength><pPort>Device</pPort>",
          "<Address>0</Address><pIndex>Nothing</pIndex><Length>4</Length><pPort>Device</pPort>"})
    {
        MakeNodes(NodeXml("IntReg", "Reg", lInside) + NodeXml("Port", "Chunk", "<ChunkID>12</ChunkID>") +
                  NodeXml("Integer", "Other", "<Value>1</Value>"));
        EXPECT_EQ(TextOf("Reg"), "error") << lInside;
        EXPECT_THAT(TakeAccesses(), testing::IsEmpty()) << lInside;
    }
}

TEST_F(RegisterTable, EntriesOfAStructureLieWhereItLies)
{
    MakeNodes("<StructReg Comment=\"s\"><Address>0x10</Address><Length>4</Length><AccessMode>RW</AccessMode>"
              "<pPort>Device</pPort><Endianess>BigEndian</Endianess>"
              "<StructEntry Name=\"Low\"><LSB>31</LSB><MSB>16</MSB></StructEntry>"
              "<StructEntry Name=\"Flag\"><Bit>0</Bit><AccessMode>RO</AccessMode></StructEntry></StructReg>");
    mSpace.Put(0x10, {0x80, 0, 0x12, 0x34});
    EXPECT_EQ(TextOf("Low"), "4660");
    EXPECT_EQ(TextOf("Flag"), "1");
    EXPECT_THAT(Set("Low", "1"), KyTest::IsOK());
    EXPECT_THAT(mSpace.Get(0x10, 4), ElementsAre(0x80, 0, 0, 1));
    EXPECT_EQ(Set("Flag", "0").GetCode(), 0x8004U);
}

TEST_F(RegisterTable, NothingIsReadOrWrittenWhereThereIsNothing)
{
    MakeRegister("StringReg", 0, "");
    EXPECT_EQ(TextOf("Reg"), "");
    EXPECT_THAT(Set("Reg", ""), KyTest::IsOK());
    EXPECT_THAT(TakeAccesses(), testing::IsEmpty());
}

TEST_F(RegisterTable, TheFailureOfTheDeviceIsTheResult)
{
    MakeRegister("IntReg", 4, "");
    mSpace.mFailure = KyResult(0x8003, "nothing there");
    std::string lText;
    EXPECT_THAT(mMap->GetText("Reg", lText), KyTest::IsResult(0x8003, "nothing there"));
    EXPECT_THAT(Set("Reg", "1"), KyTest::IsResult(0x8003, "nothing there"));
}

} // namespace
