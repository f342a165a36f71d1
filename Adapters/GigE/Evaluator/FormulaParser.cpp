#include "Adapters/GigE/Evaluator/FormulaParser.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace KyGigE
{

namespace
{

using Code = Formula::Code;

constexpr int cDeepest = 300; // parentheses in each other
constexpr int cTightest = 11;

bool IsDigit(char aChar)
{
    return aChar >= '0' && aChar <= '9';
}

bool IsNameBegin(char aChar)
{
    return (aChar >= 'a' && aChar <= 'z') || (aChar >= 'A' && aChar <= 'Z') || aChar == '_';
}

bool IsNamePart(char aChar)
{
    return IsNameBegin(aChar) || IsDigit(aChar) || aChar == '.'; // "X.Min" is one name
}

constexpr std::array<std::pair<std::string_view, Code>, 17> cFunctions = {{{"SGN", Code::Sgn},
                                                                           {"NEG", Code::Neg},
                                                                           {"ABS", Code::Abs},
                                                                           {"EXP", Code::Exp},
                                                                           {"LN", Code::Ln},
                                                                           {"LG", Code::Lg},
                                                                           {"SQRT", Code::Sqrt},
                                                                           {"SIN", Code::Sin},
                                                                           {"COS", Code::Cos},
                                                                           {"TAN", Code::Tan},
                                                                           {"ASIN", Code::Asin},
                                                                           {"ACOS", Code::Acos},
                                                                           {"ATAN", Code::Atan},
                                                                           {"TRUNC", Code::Trunc},
                                                                           {"FLOOR", Code::Floor},
                                                                           {"CEIL", Code::Ceil},
                                                                           {"ROUND", Code::Round}}};

constexpr double cE = 2.71828182845904523536;
constexpr double cPi = 3.14159265358979323846;

} // namespace

std::string FormulaParser::Parse()
{
    if (ParseConditional())
    {
        SkipBlanks();
        if (mNext != mText.size())
        {
            Fail("\"" + std::string(mText.substr(mNext, 20)) + "\" is not expected");
        }
    }
    return mProblem;
}

bool FormulaParser::Fail(const std::string& aProblem)
{
    // The first problem is the cause; those after it only follow from it.
    if (mProblem.empty())
    {
        mProblem = aProblem;
    }
    return false;
}

uint32_t FormulaParser::Emit(Code aCode, uint32_t aTarget)
{
    mCode.push_back({aCode, aTarget});
    return static_cast<uint32_t>(mCode.size() - 1);
}

void FormulaParser::EmitConstant(const Number& aValue)
{
    mCode.push_back({Code::Constant, 0, aValue});
}

void FormulaParser::SkipBlanks()
{
    while (mNext < mText.size() &&
           (mText[mNext] == ' ' || mText[mNext] == '\t' || mText[mNext] == '\r' || mText[mNext] == '\n'))
    {
        ++mNext;
    }
}

bool FormulaParser::Take(std::string_view aToken)
{
    SkipBlanks();
    if (mText.substr(mNext, aToken.size()) != aToken)
    {
        return false;
    }
    mNext += aToken.size();
    return true;
}

const FormulaParser::Operator* FormulaParser::PeekOperator()
{
    // Longer operators first: "<=" would be taken for "<" otherwise.
    static constexpr std::array<Operator, 19> cOperators = {{{"||", 1, Code::OrElse},
                                                             {"&&", 2, Code::AndThen},
                                                             {"<>", 6, Code::Unequal},
                                                             {"<<", 8, Code::ShiftLeft},
                                                             {">>", 8, Code::ShiftRight},
                                                             {"<=", 7, Code::LessOrEqual},
                                                             {">=", 7, Code::GreaterOrEqual},
                                                             {"**", cTightest, Code::Power},
                                                             {"|", 3, Code::BitOr},
                                                             {"^", 4, Code::BitXor},
                                                             {"&", 5, Code::BitAnd},
                                                             {"=", 6, Code::Equal},
                                                             {"<", 7, Code::Less},
                                                             {">", 7, Code::Greater},
                                                             {"+", 9, Code::Add},
                                                             {"-", 9, Code::Subtract},
                                                             {"*", 10, Code::Multiply},
                                                             {"/", 10, Code::Divide},
                                                             {"%", 10, Code::Modulo}}};
    SkipBlanks();
    for (const Operator& lOperator : cOperators)
    {
        if (mText.substr(mNext, lOperator.mText.size()) == lOperator.mText)
        {
            return &lOperator;
        }
    }
    return nullptr;
}

// A table is written as "A=0 ? 1 : A=1 ? 2 : ...", which may be long; so the right side is a loop here.
bool FormulaParser::ParseConditional()
{
    std::vector<uint32_t> lEnds;
    if (++mDepth > cDeepest)
    {
        return Fail("it is nested too deep");
    }
    while (ParseBinary(1) && Take("?"))
    {
        // The target is not known yet. It is filled in when the part before it has been parsed.
        const uint32_t lElse = Emit(Code::JumpUnless);
        if (!ParseConditional())
        {
            return false;
        }
        if (!Take(":"))
        {
            return Fail("\":\" is missing");
        }
        lEnds.push_back(Emit(Code::Jump));
        PatchHere(lElse);
    }
    for (const uint32_t lEnd : lEnds)
    {
        PatchHere(lEnd);
    }
    --mDepth;
    return mProblem.empty();
}

bool FormulaParser::ParseShortCircuit(const Operator& aOperator)
{
    const uint32_t lJump = Emit(aOperator.mCode);
    if (!ParseBinary(aOperator.mBinding + 1))
    {
        return false;
    }
    // The result of && and || is 1 or 0, whatever the right side is.
    Emit(Code::Truth);
    PatchHere(lJump);
    return true;
}

// Operators of the same binding from left to right. The depth of calls is bounded by the number of bindings.
bool FormulaParser::ParseBinary(int aLowest)
{
    if (aLowest >= cTightest)
    {
        return ParsePower();
    }
    if (!ParseBinary(aLowest + 1))
    {
        return false;
    }
    const Operator* lOperator = PeekOperator();
    while (lOperator != nullptr && lOperator->mBinding == aLowest)
    {
        mNext += lOperator->mText.size();
        if (lOperator->mCode == Code::AndThen || lOperator->mCode == Code::OrElse)
        {
            if (!ParseShortCircuit(*lOperator))
            {
                return false;
            }
        }
        else
        {
            if (!ParseBinary(aLowest + 1))
            {
                return false;
            }
            Emit(lOperator->mCode);
        }
        lOperator = PeekOperator();
    }
    return true;
}

// 2**3**2 is 2**9: the operands first, then the powers from right to left.
bool FormulaParser::ParsePower()
{
    size_t lPowers = 0;
    while (ParseUnary() && Take("**"))
    {
        ++lPowers;
    }
    for (; lPowers > 0 && mProblem.empty(); --lPowers)
    {
        Emit(Code::Power);
    }
    return mProblem.empty();
}

bool FormulaParser::ParseUnary()
{
    std::vector<Code> lSigns;
    for (;;)
    {
        SkipBlanks();
        const char lChar = mNext < mText.size() ? mText[mNext] : '\0';
        if (lChar != '-' && lChar != '+' && lChar != '~')
        {
            break;
        }
        lSigns.push_back(lChar == '-' ? Code::Minus : lChar == '+' ? Code::Plus : Code::Complement);
        ++mNext;
    }
    if (!ParsePrimary())
    {
        return false;
    }
    // Signs bind from the inside: "-~x" complements first. A loop, since a hostile formula may have thousands of
    // them.
    std::for_each(lSigns.rbegin(), lSigns.rend(), [this](Code aCode) { Emit(aCode); });
    return true;
}

bool FormulaParser::ParsePrimary()
{
    if (Take("("))
    {
        return ParseConditional() && (Take(")") || Fail("\")\" is missing"));
    }
    const char lChar = mNext < mText.size() ? mText[mNext] : '\0';
    if (IsDigit(lChar) || lChar == '.')
    {
        return ParseNumber();
    }
    return IsNameBegin(lChar) ? ParseName() : Fail("a value is missing");
}

bool FormulaParser::ParseNumber()
{
    const size_t lBegin = mNext;
    const bool lHexadecimal = mText.substr(mNext, 2) == "0x" || mText.substr(mNext, 2) == "0X";
    bool lFloat = false;
    for (; mNext < mText.size(); ++mNext)
    {
        const char lChar = mText[mNext];
        const char lBefore = mNext > lBegin ? mText[mNext - 1] : '\0';
        // "1e-3" is one number; "0x1e-3" is a difference.
        const bool lExponentSign = (lChar == '+' || lChar == '-') && (lBefore == 'e' || lBefore == 'E');
        if (!IsNamePart(lChar) && !(lExponentSign && !lHexadecimal))
        {
            break;
        }
        lFloat = lFloat || lChar == '.' || lChar == 'e' || lChar == 'E';
    }
    // All that may belong to a number is taken first and judged then: "12abc" is one wrong number, not 12 and a
    // name.
    const std::string_view lText = mText.substr(lBegin, mNext - lBegin);
    if (const std::optional<int64_t> lInteger = ParseInteger(lText))
    {
        EmitConstant(Number::Integer(*lInteger));
        return true;
    }
    if (lText == "9223372036854775808") // the smallest number, after a minus
    {
        EmitConstant(Number::Integer(std::numeric_limits<int64_t>::min()));
        return true;
    }
    const std::optional<double> lValue = lFloat && !lHexadecimal ? ParseFloat(lText) : std::nullopt;
    if (!lValue)
    {
        return Fail("\"" + std::string(lText.substr(0, 40)) + "\" is no number of 64 bits");
    }
    EmitConstant(Number::Float(*lValue));
    return true;
}

bool FormulaParser::ParseName()
{
    const size_t lBegin = mNext;
    while (mNext < mText.size() && IsNamePart(mText[mNext]))
    {
        ++mNext;
    }
    const std::string_view lName = mText.substr(lBegin, mNext - lBegin);
    if (Take("("))
    {
        return ParseFunction(lName);
    }
    Emit(Code::Variable, static_cast<uint32_t>(mNames.size()));
    // A name may come several times. Its value is the same within a use, so that costs little.
    mNames.emplace_back(lName);
    return true;
}

bool FormulaParser::ParseFunction(std::string_view aName)
{
    // Constants are written as functions without an argument.
    if (aName == "E" || aName == "PI")
    {
        EmitConstant(Number::Float(aName == "E" ? cE : cPi));
        return Take(")") || Fail("\")\" is missing");
    }
    const auto* const lFunction = std::find_if(cFunctions.begin(), cFunctions.end(),
                                               [&](const auto& aOne) { return aOne.first == aName; });
    if (lFunction == cFunctions.end())
    {
        return Fail("there is no function " + std::string(aName.substr(0, 40)));
    }
    if (!ParseConditional())
    {
        return false;
    }
    Code lCode = lFunction->second;
    // A second argument is the number of digits after the point.
    if (lCode == Code::Round && Take(","))
    {
        lCode = Code::RoundDigits;
        if (!ParseConditional())
        {
            return false;
        }
    }
    Emit(lCode);
    return Take(")") || Fail("\")\" is missing");
}

} // namespace KyGigE
