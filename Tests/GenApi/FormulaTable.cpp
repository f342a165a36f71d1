// What formulas give: one row for each trap that is known. A is 5, B is -3, Z is 0, F is 2.5, S is the
// smallest number of 64 bits, L the largest, W has all 64 bits set.

#include "GenApi/MapFixture.h"

namespace
{

using KyTest::Escaped;
using KyTest::NodeXml;

struct FormulaCase
{
    const char* mFormula;
    const char* mInteger; ///< As IntSwissKnife; null: not of interest.
    const char* mFloat;   ///< As SwissKnife.
};

constexpr FormulaCase cFormulaCases[] = {
    // Numbers.
    {"5", "5", "5"},
    {"010", "10", "10"}, // decimal, whatever C thinks
    {"0x1F", "31", "31"},
    {"0X1f", "31", "31"},
    {"0xFFFFFFFFFFFFFFFF", "-1", nullptr},
    {"0x8000000000000000", "-9223372036854775808", nullptr},
    {"0x10000000000000000", "error", "error"},
    {"9223372036854775807", "9223372036854775807", nullptr},
    {"-9223372036854775808", "-9223372036854775808", nullptr},
    {"9223372036854775809", "error", "error"},
    {"9007199254740993", "9007199254740993", nullptr}, // no double
    {".5", "0", "0.5"},
    {".5+.5", "1", "1"},
    {"1.", "1", "1"},
    {"1e3", "1000", "1000"},
    {"1.5E-3", "0", "0.0015"},
    {"1e999", "error", "error"},
    {"1.2.3", "error", "error"},
    {"0x", "error", "error"},
    {"0x1G", "error", "error"},
    {"5A", "error", "error"},
    // Whole numbers stay exact.
    {"L+0", "9223372036854775807", nullptr},
    {"L-1", "9223372036854775806", nullptr},
    {"L&0xFF", "255", nullptr},
    {"9007199254740993*1", "9007199254740993", nullptr},
    {"W&0xFFFFFFFF", "4294967295", nullptr},
    {"(L-1)/2*2+1", "9223372036854775807", nullptr},
    {"L=9223372036854775806", "0", nullptr}, // one double for both
    {"L>L-1", "1", nullptr},
    {"S+0", "-9223372036854775808", nullptr},
    // They wrap as registers do.
    {"L+1", "-9223372036854775808", "9223372036854775808"},
    {"S-1", "9223372036854775807", nullptr},
    {"-S", "-9223372036854775808", nullptr},
    {"ABS(S)", "-9223372036854775808", nullptr},
    {"NEG(S)", "-9223372036854775808", nullptr},
    {"4294967296*4294967296", "0", "18446744073709551616"},
    {"2**63", "-9223372036854775808", "9223372036854775808"},
    {"2**64", "0", "18446744073709551616"},
    // Division.
    {"A/2", "2", "2.5"},
    {"-7/2", "-3", "-3.5"},
    {"7/-2", "-3", "-3.5"},
    {"7%3", "1", "1"},
    {"-7%3", "-1", "-1"},
    {"7%-3", "1", "1"},
    {"7.5%2", "1", "1.5"},
    {"A/Z", "error", "error"},
    {"A%Z", "error", "error"},
    {"A/0.0", "error", "error"},
    {"A%0.0", "error", "error"},
    {"S/-1", "error", nullptr}, // ends the process when the processor does it
    {"S%-1", "0", nullptr},
    {"S/-2", "4611686018427387904", nullptr},
    {"L/-1", "-9223372036854775807", nullptr},
    {"S/B", "3074457345618258602", nullptr},
    // Powers.
    {"2**10", "1024", "1024"},
    {"2**3**2", "512", "512"}, // from right to left
    {"-2**2", "4", "4"},       // a sign binds closest
    {"2**-1", "0", "0.5"},
    {"1**-5", "1", "1"},
    {"(-1)**-3", "-1", "-1"},
    {"(-1)**-2", "1", "1"},
    {"0**0", "1", "1"},
    {"0**-1", "error", "error"},
    {"3**39", "4052555153018976267", nullptr}, // no double
    {"(0-8)**0.5", "error", "error"},
    {"2*3**2", "18", "18"},
    // Shifts and bits.
    {"1<<4", "16", "16"},
    {"1<<63", "-9223372036854775808", nullptr},
    {"1<<64", "0", "0"}, // not 1
    {"A<<1000", "0", "0"},
    {"256>>4", "16", "16"},
    {"-1>>1", "-1", "-1"}, // keeps the sign
    {"-1>>64", "-1", "-1"},
    {"A>>64", "0", "0"},
    {"A<<B", "error", "error"},
    {"A>>-1", "error", "error"},
    {"1<<3+1", "16", "16"}, // sums bind closer
    {"~0", "-1", "-1"},
    {"~A", "-6", "-6"},
    {"~0&0xFF", "255", "255"},
    {"6&3", "2", "2"},
    {"6|3", "7", "7"},
    {"6^3", "5", "5"},
    {"1|2^3&4", "3", "3"},
    {"5|2^1&3", "7", "7"},
    {"A&3=1", "0", "0"}, // comparisons bind closer
    {"(A&3)=1", "1", "1"},
    {"F&1", "0", "0"},
    {"1e30&1", "error", "error"},
    // Comparisons.
    {"A=5", "1", "1"},
    {"A<>5", "0", "0"},
    {"A!=5", "error", "error"},
    {"A<5", "0", "0"},
    {"A<=5", "1", "1"},
    {"A>B", "1", "1"},
    {"A>=6", "0", "0"},
    {"3>2>1", "0", "0"},
    {"1<2=1", "1", "1"},
    {"F=2.5", "1", "1"},
    {"0.1+0.2=0.3", "0", "0"},
    // Conditions.
    {"1&&0", "0", "0"},
    {"A&&B", "1", "1"},
    {"0||A", "1", "1"},
    {"0||0", "0", "0"},
    {"1||0&&0", "1", "1"},
    {"!A", "error", "error"},
    {"A?1:2", "1", "1"},
    {"Z?1:2", "2", "2"},
    {"0?2:1?3:4", "3", "3"},
    {"1?0?1:2:3", "2", "2"},
    {"A=1?10:A=5?50:0", "50", "50"},
    {"0.5?1:2", "1", "1"},
    {"Z=0?0:A/Z", "0", "0"}, // what is not needed is not worked out
    {"Z&&A/Z", "0", "0"},
    {"A||A/Z", "1", "1"},
    {"Z?Nothing:7", "7", "7"},
    // Functions.
    {"SGN(B)", "-1", "-1"},
    {"SGN(Z)", "0", "0"},
    {"SGN(2.5)", "1", "1"},
    {"NEG(A)", "-5", "-5"},
    {"ABS(B)", "3", "3"},
    {"ABS(-2.5)", "2", "2.5"},
    {"TRUNC(-2.7)", "-2", "-2"},
    {"FLOOR(-2.1)", "-3", "-3"},
    {"CEIL(2.1)", "3", "3"},
    {"ROUND(2.5)", "3", "3"},
    {"ROUND(-2.5)", "-3", "-3"},
    {"ROUND(2.567,1)", "2", "2.6"},
    {"ROUND(1234,-2)", "1200", "1200"},
    {"ROUND(L)", "9223372036854775807", nullptr},
    {"SQRT(9)", "3", "3"},
    {"SQRT(-1)", "error", "error"},
    {"LN(1)", "0", "0"},
    {"LN(0)", "error", "error"},
    {"LG(1000)", "3", "3"},
    {"EXP(0)", "1", "1"},
    {"EXP(1000)", "error", "error"},
    {"SIN(0)", "0", "0"},
    {"COS(0)", "1", "1"},
    {"TAN(0)", "0", "0"},
    {"ASIN(0)", "0", "0"},
    {"ASIN(2)", "error", "error"},
    {"ACOS(1)", "0", "0"},
    {"ATAN(0)", "0", "0"},
    {"E()=E", "1", "1"},
    {"PI", "3", "3.141592653589793"},
    {"PI()*0", "0", "0"},
    {"sin(0)", "error", "error"},
    {"FOO(1)", "error", "error"},
    {"ROUND(1,2,3)", "error", "error"},
    {"SGN()", "error", "error"},
    {"SGN(1,2)", "error", "error"},
    // Signs and blanks.
    {"--A", "5", "5"},
    {"-+-A", "5", "5"},
    {"2--3", "5", "5"},
    {"2*-3", "-6", "-6"},
    {" \t A\n+ 1 ", "6", "6"},
    {"A- -1", "6", "6"},
    {"2-1-1", "0", "0"},
    {"8/4/2", "1", "1"},
    {"2+3*4", "14", "14"},
    {"(2+3)*4", "20", "20"},
    // What is no formula.
    {"", "error", "error"},
    {"   ", "error", "error"},
    {"(", "error", "error"},
    {")", "error", "error"},
    {"()", "error", "error"},
    {"(A", "error", "error"},
    {"A)", "error", "error"},
    {"1+", "error", "error"},
    {"*1", "error", "error"},
    {"5 5", "error", "error"},
    {"A==5", "error", "error"},
    {"A B", "error", "error"},
    {"1?2", "error", "error"},
    {"1:2", "error", "error"},
    {"Nothing", "error", "error"},
    {"Nothing+1", "error", "error"},
    {"A;B", "error", "error"},
    {"A,B", "error", "error"},
    {"A#", "error", "error"},
    {"1e30", "error", "1e+30"},
    {"-1e30", "error", "-1e+30"},
    {"1e308*10", "error", "error"},
};

class FormulaTable : public KyTest::MapFixture
{
protected:
    std::string Result(const std::string& aKind, const std::string& aFormula)
    {
        MakeNodes(
            NodeXml(aKind, "Knife",
                    "<pVariable Name=\"A\">NodeA</pVariable><pVariable Name=\"B\">NodeB</pVariable>"
                    "<pVariable Name=\"F\">NodeF</pVariable><pVariable Name=\"S\">NodeS</pVariable>"
                    "<pVariable Name=\"L\">NodeL</pVariable><pVariable Name=\"W\">NodeW</pVariable>"
                    "<Constant Name=\"Z\">0</Constant><Formula>" +
                        Escaped(aFormula) + "</Formula>") +
            "<Integer Name=\"NodeA\"><Value>5</Value></Integer><Integer Name=\"NodeB\"><Value>-3</Value>"
            "</Integer><Float Name=\"NodeF\"><Value>2.5</Value></Float>"
            "<Integer Name=\"NodeS\"><Value>0x8000000000000000</Value></Integer>"
            "<Integer Name=\"NodeL\"><Value>9223372036854775807</Value></Integer>"
            "<Integer Name=\"NodeW\"><Value>0xFFFFFFFFFFFFFFFF</Value></Integer>");
        return TextOf("Knife");
    }
};

TEST_F(FormulaTable, IntegersAreExact)
{
    for (const FormulaCase& lCase : cFormulaCases)
    {
        if (lCase.mInteger != nullptr)
        {
            EXPECT_EQ(Result("IntSwissKnife", lCase.mFormula), lCase.mInteger) << lCase.mFormula;
        }
    }
}

// As many digits as a double has; the table writes them out where a short form would hide the value.
TEST_F(FormulaTable, FloatsAreFloats)
{
    for (const FormulaCase& lCase : cFormulaCases)
    {
        if (lCase.mFloat == nullptr)
        {
            continue;
        }
        const std::string lExpected = lCase.mFloat;
        const std::string lResult = Result("SwissKnife", lCase.mFormula);
        if (lExpected == "error")
        {
            EXPECT_EQ(lResult, lExpected) << lCase.mFormula;
        }
        else
        {
            EXPECT_EQ(KyGigE::ParseFloat(lResult), KyGigE::ParseFloat(lExpected)) << lCase.mFormula;
        }
    }
}

TEST_F(FormulaTable, AFailureSaysWhy)
{
    EXPECT_EQ(Result("IntSwissKnife", "A/Z"), "error");
    EXPECT_EQ(ProblemOf("Knife"), "The feature Knife cannot be evaluated: it divides by zero.");
    EXPECT_EQ(Result("IntSwissKnife", "Nothing"), "error");
    EXPECT_EQ(ProblemOf("Knife"),
              "The feature Knife cannot be evaluated: Nothing in its formula names nothing.");
    EXPECT_EQ(Result("IntSwissKnife", "(A"), "error");
    EXPECT_EQ(ProblemOf("Knife"),
              "The feature Knife cannot be evaluated: its formula makes no sense, \")\" is missing.");
}

TEST_F(FormulaTable, LongTablesAndDeepNestingHaveTheirLimits)
{
    std::string lTable = "0";
    std::string lSum = "0";
    for (int lIndex = 0; lIndex < 2000; ++lIndex)
    {
        lTable = "A=" + std::to_string(lIndex) + "?" + std::to_string(lIndex * 2) + ":" + lTable;
        lSum += "+1";
    }
    EXPECT_EQ(Result("IntSwissKnife", lTable), "10");
    EXPECT_EQ(Result("IntSwissKnife", lSum), "2000");
    EXPECT_EQ(Result("IntSwissKnife", std::string(250, '(') + "A" + std::string(250, ')')), "5");
    EXPECT_EQ(Result("IntSwissKnife", std::string(60'000, '(')), "error");
    EXPECT_EQ(Result("IntSwissKnife", std::string(60'000, '-') + "A"), "5");
    EXPECT_EQ(Result("IntSwissKnife", std::string(70'000, '-') + "A"), "error");
}

} // namespace
