#include "Adapters/GigE/Evaluator/Formula.h"

#include "Adapters/GigE/Evaluator/FormulaParser.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace KyGigE
{

namespace
{

using Code = Formula::Code;

constexpr int64_t cSmallest = std::numeric_limits<int64_t>::min();

// The registers that formulas work for wrap, and their formulas count on it; signed numbers must not.
int64_t Wrapped(uint64_t aValue)
{
    return static_cast<int64_t>(aValue);
}

uint64_t Bits(int64_t aValue)
{
    return static_cast<uint64_t>(aValue);
}

int64_t IntegerPower(int64_t aBase, uint64_t aExponent)
{
    uint64_t lResult = 1;
    for (uint64_t lBase = Bits(aBase); aExponent != 0; aExponent >>= 1U)
    {
        // By squaring: an exponent of a hostile description may be as large as a number can be.
        lResult *= (aExponent & 1U) != 0 ? lBase : 1;
        lBase *= lBase;
    }
    return Wrapped(lResult);
}

/// Works on the top of a stack.
class Machine
{
public:
    Machine(Arithmetic aArithmetic, std::string& aProblem) : mArithmetic(aArithmetic), mProblem(aProblem) {}

    bool Fail(const char* aProblem)
    {
        mProblem = aProblem;
        return false;
    }

    void Push(const Number& aValue) { mStack.push_back(aValue); }
    Number Pop()
    {
        const Number lValue = mStack.back();
        mStack.pop_back();
        return lValue;
    }

    bool Do(Code aCode)
    {
        if (aCode == Code::RoundDigits || (aCode >= Code::Power && aCode <= Code::BitOr))
        {
            // The right operand was pushed last.
            const Number lRight = Pop();
            const Number lLeft = Pop();
            return DoBinary(aCode, lLeft, lRight);
        }
        return DoUnary(aCode, Pop());
    }

private:
    bool PushInteger(int64_t aValue)
    {
        Push(Number::Integer(aValue));
        return true;
    }
    bool PushFloat(double aValue)
    {
        if (!std::isfinite(aValue))
        {
            return Fail("the result is no number");
        }
        Push(Number::Float(aValue));
        return true;
    }

    bool DoBinary(Code aCode, const Number& aLeft, const Number& aRight)
    {
        if (aCode >= Code::Less && aCode <= Code::Unequal)
        {
            return Compare(aCode, aLeft, aRight);
        }
        const bool lBits = (aCode >= Code::BitAnd && aCode <= Code::BitOr) || aCode == Code::ShiftLeft ||
                           aCode == Code::ShiftRight;
        // In a formula for floating-point numbers 1/2 is 0.5 even though both operands are whole.
        const bool lFloats = aLeft.IsFloat() || aRight.IsFloat() || mArithmetic == Arithmetic::Floats;
        if (lBits || (!lFloats && aCode != Code::RoundDigits))
        {
            const std::optional<int64_t> lLeft = aLeft.Truncated();
            const std::optional<int64_t> lRight = aRight.Truncated();
            return lLeft && lRight ? DoIntegers(aCode, *lLeft, *lRight)
                                   : Fail("a number is too large for 64 bits");
        }
        return DoFloats(aCode, aLeft.AsFloat(), aRight.AsFloat());
    }

    bool Compare(Code aCode, const Number& aLeft, const Number& aRight)
    {
        int lOrder = 0;
        if (aLeft.IsFloat() || aRight.IsFloat())
        {
            const double lLeft = aLeft.AsFloat();
            const double lRight = aRight.AsFloat();
            lOrder = lLeft < lRight ? -1 : lLeft > lRight ? 1 : 0;
        }
        else
        {
            // A double has 53 bits: it would take large whole numbers for equal.
            const int64_t lLeft = *aLeft.Truncated();
            const int64_t lRight = *aRight.Truncated();
            lOrder = lLeft < lRight ? -1 : lLeft > lRight ? 1 : 0;
        }
        switch (aCode)
        {
        case Code::Less:
            return PushInteger(lOrder < 0 ? 1 : 0);
        case Code::LessOrEqual:
            return PushInteger(lOrder <= 0 ? 1 : 0);
        case Code::Greater:
            return PushInteger(lOrder > 0 ? 1 : 0);
        case Code::GreaterOrEqual:
            return PushInteger(lOrder >= 0 ? 1 : 0);
        case Code::Equal:
            return PushInteger(lOrder == 0 ? 1 : 0);
        default:
            return PushInteger(lOrder != 0 ? 1 : 0);
        }
    }

    bool DoIntegers(Code aCode, int64_t aLeft, int64_t aRight)
    {
        switch (aCode)
        {
        case Code::Add:
            return PushInteger(Wrapped(Bits(aLeft) + Bits(aRight)));
        case Code::Subtract:
            return PushInteger(Wrapped(Bits(aLeft) - Bits(aRight)));
        case Code::Multiply:
            return PushInteger(Wrapped(Bits(aLeft) * Bits(aRight)));
        case Code::Divide:
        case Code::Modulo:
            return Divide(aCode, aLeft, aRight);
        case Code::Power:
            return Power(aLeft, aRight);
        case Code::BitAnd:
            return PushInteger(Wrapped(Bits(aLeft) & Bits(aRight)));
        case Code::BitXor:
            return PushInteger(Wrapped(Bits(aLeft) ^ Bits(aRight)));
        case Code::BitOr:
            return PushInteger(Wrapped(Bits(aLeft) | Bits(aRight)));
        default:
            return Shift(aCode, aLeft, aRight);
        }
    }

    bool Divide(Code aCode, int64_t aLeft, int64_t aRight)
    {
        if (aRight == 0)
        {
            return Fail("it divides by zero");
        }
        if (aRight == -1) // the processor's division ends the process for the smallest number
        {
            if (aCode == Code::Modulo)
            {
                return PushInteger(0);
            }
            return aLeft == cSmallest ? Fail("the result is too large for 64 bits") : PushInteger(-aLeft);
        }
        return PushInteger(aCode == Code::Divide ? aLeft / aRight : aLeft % aRight);
    }

    bool Power(int64_t aBase, int64_t aExponent)
    {
        if (aExponent >= 0)
        {
            return PushInteger(IntegerPower(aBase, Bits(aExponent)));
        }
        if (aBase == 0)
        {
            return Fail("it divides by zero");
        }
        // A fraction whose digits after the point are cut off.
        return PushInteger(aBase == 1 ? 1 : aBase == -1 ? (aExponent % 2 == 0 ? 1 : -1) : 0);
    }

    bool Shift(Code aCode, int64_t aLeft, int64_t aCount)
    {
        if (aCount < 0)
        {
            return Fail("it shifts by a negative number");
        }
        if (aCode == Code::ShiftLeft)
        {
            // C++ leaves a shift by the width or more undefined.
            return PushInteger(aCount < 64 ? Wrapped(Bits(aLeft) << Bits(aCount)) : 0);
        }
        // The sign fills up, so a shift by the width or more gives 0 or -1.
        return PushInteger(aLeft >> std::min<int64_t>(aCount, 63));
    }

    bool DoFloats(Code aCode, double aLeft, double aRight)
    {
        switch (aCode)
        {
        case Code::Add:
            return PushFloat(aLeft + aRight);
        case Code::Subtract:
            return PushFloat(aLeft - aRight);
        case Code::Multiply:
            return PushFloat(aLeft * aRight);
        case Code::Divide:
            return aRight != 0 ? PushFloat(aLeft / aRight) : Fail("it divides by zero");
        case Code::Modulo:
            return aRight != 0 ? PushFloat(std::fmod(aLeft, aRight)) : Fail("it divides by zero");
        case Code::Power:
            return PushFloat(std::pow(aLeft, aRight));
        default: // Code::RoundDigits
        {
            // Multiplied, so that it is exact: libraries differ in what they make of a power of ten.
            constexpr double cMostDigits = 15; // of a double
            const auto lDigits = static_cast<int>(std::clamp(aRight, -cMostDigits, cMostDigits));
            double lScale = 1;
            for (int lDigit = std::abs(lDigits); lDigit > 0; --lDigit)
            {
                lScale *= 10;
            }
            const double lScaled = lDigits < 0 ? aLeft / lScale : aLeft * lScale;
            const double lRounded = std::round(lScaled);
            return PushFloat(!std::isfinite(lScaled) ? aLeft
                             : lDigits < 0           ? lRounded * lScale
                                                     : lRounded / lScale);
        }
        }
    }

    bool DoUnary(Code aCode, const Number& aValue)
    {
        const bool lFloat = aValue.IsFloat();
        // Of a floating-point number too large for 64 bits this is 0; the codes that use it look before.
        const int64_t lInteger = aValue.Truncated().value_or(0);
        const double lValue = aValue.AsFloat();
        switch (aCode)
        {
        case Code::Truth:
            return PushInteger(aValue.IsZero() ? 0 : 1);
        case Code::Minus:
        case Code::Neg:
            return lFloat ? PushFloat(-lValue) : PushInteger(Wrapped(0 - Bits(lInteger)));
        case Code::Complement:
            return aValue.Truncated() ? PushInteger(~lInteger) : Fail("a number is too large for 64 bits");
        case Code::Sgn:
            return lFloat ? PushInteger(lValue > 0   ? 1
                                        : lValue < 0 ? -1
                                                     : 0)
                          : PushInteger(lInteger > 0   ? 1
                                        : lInteger < 0 ? -1
                                                       : 0);
        case Code::Abs:
            return lFloat ? PushFloat(std::fabs(lValue))
                          : PushInteger(lInteger < 0 ? Wrapped(0 - Bits(lInteger)) : lInteger);
        case Code::Plus:
        case Code::Trunc:
        case Code::Floor:
        case Code::Ceil:
        case Code::Round:
            if (!lFloat)
            {
                return PushInteger(lInteger);
            }
            [[fallthrough]];
        default:
            return PushFloat(GetFunction(aCode, lValue));
        }
    }

    static double GetFunction(Code aCode, double aValue)
    {
        switch (aCode)
        {
        case Code::Trunc:
            return std::trunc(aValue);
        case Code::Floor:
            return std::floor(aValue);
        case Code::Ceil:
            return std::ceil(aValue);
        case Code::Round:
            return std::round(aValue);
        case Code::Exp:
            return std::exp(aValue);
        case Code::Ln:
            return std::log(aValue);
        case Code::Lg:
            return std::log10(aValue);
        case Code::Sqrt:
            return std::sqrt(aValue);
        case Code::Sin:
            return std::sin(aValue);
        case Code::Cos:
            return std::cos(aValue);
        case Code::Tan:
            return std::tan(aValue);
        case Code::Asin:
            return std::asin(aValue);
        case Code::Acos:
            return std::acos(aValue);
        case Code::Atan:
            return std::atan(aValue);
        default: // Code::Plus
            return aValue;
        }
    }

    const Arithmetic mArithmetic;
    std::string& mProblem;
    std::vector<Number> mStack;
};

} // namespace

std::shared_ptr<const Formula> Formula::Parse(std::string_view aText, std::string& aProblem)
{
    if (aText.size() > cLongestText)
    {
        aProblem = "it is too long";
        return nullptr;
    }
    auto lFormula = std::make_shared<Formula>();
    aProblem = FormulaParser(aText, lFormula->mCode, lFormula->mNames).Parse();
    return aProblem.empty() ? lFormula : nullptr;
}

bool Formula::Evaluate(Arithmetic aArithmetic, const Variables& aVariables, Number& aValue,
                       std::string& aProblem) const
{
    Machine lMachine(aArithmetic, aProblem);
    // Jumps lead forwards only, so there are at most as many rounds as steps.
    for (size_t lNext = 0; lNext < mCode.size(); ++lNext)
    {
        const Step& lStep = mCode[lNext];
        Number lValue;
        switch (lStep.mCode)
        {
        case Code::Constant:
            lMachine.Push(lStep.mConstant);
            break;
        case Code::Variable:
            if (!aVariables(mNames[lStep.mTarget], lValue))
            {
                return false;
            }
            if (!std::isfinite(lValue.AsFloat())) // a register may hold anything
            {
                return lMachine.Fail("a variable is no number");
            }
            lMachine.Push(lValue);
            break;
        case Code::Jump:
            lNext = lStep.mTarget - 1; // the loop adds one
            break;
        case Code::JumpUnless:
            lNext = lMachine.Pop().IsZero() ? lStep.mTarget - 1 : lNext;
            break;
        case Code::AndThen:
        case Code::OrElse:
        {
            const bool lTrue = !lMachine.Pop().IsZero();
            // The left side decides: the right one is jumped over, and its variables are not read from the device.
            if (lTrue == (lStep.mCode == Code::OrElse))
            {
                lMachine.Push(Number::Integer(lTrue ? 1 : 0));
                lNext = lStep.mTarget - 1;
            }
            break;
        }
        default:
            if (!lMachine.Do(lStep.mCode))
            {
                return false;
            }
            break;
        }
    }
    // Every path through a parsed formula leaves exactly one value.
    aValue = lMachine.Pop();
    return true;
}

} // namespace KyGigE
