// Numbers as texts and texts as numbers.

#include "GenApi/MapFixture.h"

#include "Adapters/GigE/Evaluator/Number.h"

#include <limits>

namespace
{

using KyGigE::FloatText;
using KyGigE::ParseFloat;
using KyGigE::ParseInteger;
using KyTest::NodeXml;

TEST(TextTable, WholeNumbers)
{
    const struct
    {
        const char* mText;
        std::optional<int64_t> mValue;
    } lCases[] = {{"0", 0},
                  {"-0", 0},
                  {"7", 7},
                  {"+7", 7},
                  {"007", 7},
                  {"-7", -7},
                  {"9223372036854775807", std::numeric_limits<int64_t>::max()},
                  {"-9223372036854775808", std::numeric_limits<int64_t>::min()},
                  {"9223372036854775808", std::nullopt},
                  {"-9223372036854775809", std::nullopt},
                  {"99999999999999999999", std::nullopt},
                  {"0x0", 0},
                  {"0xff", 255},
                  {"0XFF", 255},
                  {"0x7FFFFFFFFFFFFFFF", std::numeric_limits<int64_t>::max()},
                  {"0x8000000000000000", std::numeric_limits<int64_t>::min()},
                  {"0xFFFFFFFFFFFFFFFF", -1},
                  {"0x00000000FFFFFFFFFFFFFFFF", -1},
                  {"0x10000000000000000", std::nullopt},
                  {"0x", std::nullopt},
                  {"0xg", std::nullopt},
                  {"-0x1", std::nullopt},
                  {"", std::nullopt},
                  {" 1", std::nullopt},
                  {"1 ", std::nullopt},
                  {"1.0", std::nullopt},
                  {"1e3", std::nullopt},
                  {"--1", std::nullopt},
                  {"+-1", std::nullopt},
                  {"one", std::nullopt}};
    for (const auto& lCase : lCases)
    {
        EXPECT_EQ(ParseInteger(lCase.mText), lCase.mValue) << lCase.mText;
    }
}

TEST(TextTable, FloatingPointNumbers)
{
    const struct
    {
        const char* mText;
        std::optional<double> mValue;
    } lCases[] = {{"0", 0.0},
                  {"2.5", 2.5},
                  {".5", 0.5},
                  {"5.", 5.0},
                  {"-1e3", -1000.0},
                  {"+1", 1.0},
                  {"1E-3", 0.001},
                  {"1e999", std::nullopt},
                  {"inf", std::nullopt},
                  {"nan", std::nullopt},
                  {"", std::nullopt},
                  {"1,5", std::nullopt},
                  {" 1", std::nullopt},
                  {"0x10", std::nullopt},
                  {"1e", std::nullopt},
                  {"e1", std::nullopt}};
    for (const auto& lCase : lCases)
    {
        EXPECT_EQ(ParseFloat(lCase.mText), lCase.mValue) << lCase.mText;
    }
}

TEST(TextTable, AFloatAsTextIsTheSameFloatAgain)
{
    double lValue = 1e-300;
    for (int lRound = 0; lRound < 2000; ++lRound)
    {
        lValue *= -1.4142135623730951;
        EXPECT_EQ(ParseFloat(FloatText(lValue)), lValue);
    }
    EXPECT_EQ(FloatText(0.1), "0.1");
    EXPECT_EQ(FloatText(2.5), "2.5");
    EXPECT_EQ(FloatText(100), "100");
    EXPECT_EQ(FloatText(1e21), "1e+21");
    EXPECT_EQ(FloatText(0.1 + 0.2), "0.30000000000000004");
}

TEST(TextTable, Booleans)
{
    for (const char* const lText : {"true", "True", "TRUE", "1"})
    {
        EXPECT_EQ(KyGigE::ParseBoolean(lText), true) << lText;
    }
    for (const char* const lText : {"false", "False", "FALSE", "0"})
    {
        EXPECT_EQ(KyGigE::ParseBoolean(lText), false) << lText;
    }
    for (const char* const lText : {"", "yes", "2", "tru", "truee", " true", "on"})
    {
        EXPECT_EQ(KyGigE::ParseBoolean(lText), std::nullopt) << lText;
    }
}

class RepresentationTable : public KyTest::MapFixture
{
};

TEST_F(RepresentationTable, NumbersAreShownAndSetAsTheDescriptionWantsThem)
{
    const struct
    {
        const char* mRepresentation;
        const char* mValue;
        const char* mText;
        std::vector<const char*> mGood;
        std::vector<const char*> mBad;
    } lCases[] = {
        {"", "31", "31", {"0x1F", "31"}, {"1F", "31.0", ""}},
        {"Linear", "31", "31", {"31"}, {"x"}},
        {"Logarithmic", "31", "31", {"31"}, {"x"}},
        {"PureNumber", "31", "31", {"31"}, {"x"}},
        {"Boolean", "1", "1", {"1"}, {"x"}},
        {"HexNumber", "31", "0x1F", {"0x1F", "0x1f", "31"}, {"1F", ""}},
        {"HexNumber", "-1", "0xFFFFFFFFFFFFFFFF", {"-1", "0xFFFFFFFFFFFFFFFF"}, {"x"}},
        {"IPV4Address",
         "3232235521",
         "192.168.0.1",
         {"192.168.0.1", "3232235521", "0xC0A80001"},
         {"192.168.0", "192.168.0.256", "192.168.0.1.", "192.168..1", "192.168.0.1.1", "a.b.c.d", ""}},
        {"IPV4Address", "0", "0.0.0.0", {"0.0.0.0"}, {"."}},
        {"IPV4Address", "4294967296", "4294967296", {"4294967296"}, {}}, // no address
        {"MACAddress",
         "117633730022",
         "00:1B:63:84:45:E6",
         {"00:1B:63:84:45:E6", "0:1b:63:84:45:e6", "117633730022"},
         {"00:1B:63:84:45", "00:1B:63:84:45:1E6", "00-1B-63-84-45-E6", ":::::", ""}},
        {"MACAddress", "-1", "-1", {"-1"}, {}}};
    for (const auto& lCase : lCases)
    {
        const std::string lRepresentation = lCase.mRepresentation;
        MakeNodes(
            NodeXml("Integer", "Direct",
                    "<Value>" + std::string(lCase.mValue) + "</Value>" +
                        (lRepresentation.empty() ? "" : KyTest::Element("Representation", lRepresentation))) +
            NodeXml("Integer", "Through", "<pValue>Direct</pValue>"));
        EXPECT_EQ(TextOf("Direct"), lCase.mText) << lRepresentation;
        EXPECT_EQ(TextOf("Through"), lCase.mText) << lRepresentation;
        for (const char* const lGood : lCase.mGood)
        {
            EXPECT_THAT(Set("Direct", "2"), KyTest::IsOK());
            EXPECT_THAT(Set("Through", lGood), KyTest::IsOK()) << lGood;
            EXPECT_EQ(TextOf("Direct"), lCase.mText) << lGood;
        }
        for (const char* const lBad : lCase.mBad)
        {
            EXPECT_EQ(Set("Direct", lBad).GetCode(), 0x8002U) << lBad;
        }
    }
}

} // namespace
