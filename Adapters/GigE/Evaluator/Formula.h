#pragma once

#include "Adapters/GigE/Evaluator/Number.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace KyGigE
{

/// What numbers a formula works with.
enum class Arithmetic
{
    Integers, ///< Whole ones exact in 64 bits; what has a point, or a function that gives such, makes floats.
    Floats    ///< 5/2 is 2.5. Bits and shifts work on whole numbers.
};

/// A formula of a description, read once and worked out as often as needed.
///
/// In falling order of binding: `- + ~` before a value; `**` (right to left); `* / %`; `+ -`; `<< >>`;
/// `< <= > >=`; `= <>`; `&`; `^`; `|`; `&&`; `||`; `? :` (right to left). Functions: SGN NEG ABS EXP LN LG
/// SQRT SIN COS TAN ASIN ACOS ATAN TRUNC FLOOR CEIL ROUND(x, digits) E() PI(). What is not needed is not
/// worked out: the other side of `?:`, the right one of a decided `&&` or `||`.
///
/// Sums, differences and products of whole numbers are those of 64-bit registers (modulo 2^64). Dividing by
/// zero, the smallest number by -1, a negative shift, and whatever is no finite number, are failures.
class Formula
{
public:
    static constexpr size_t cLongestText = size_t{64} << 10U;

    /// Gives the value of a name. \return False: the name has no value, so the formula has no value either.
    using Variables = std::function<bool(std::string_view aName, Number& aValue)>;

    /// \param aProblem  Set on a failure. \return Null on a failure.
    static std::shared_ptr<const Formula> Parse(std::string_view aText, std::string& aProblem);

    /// \param aProblem  Why there is no value; left alone when aVariables has failed.
    bool Evaluate(Arithmetic aArithmetic, const Variables& aVariables, Number& aValue,
                  std::string& aProblem) const;

    /// How much there is to do, and to keep.
    size_t GetSize() const { return mCode.size(); }

    enum class Code : uint8_t
    {
        Constant,
        Variable,
        Jump,
        JumpUnless, ///< Takes the condition away.
        AndThen,    ///< Jumps over the right side and leaves 0.
        OrElse,     ///< Jumps over the right side and leaves 1.
        Truth,      ///< 0 or 1.
        Plus,
        Minus,
        Complement,
        Power,
        Multiply,
        Divide,
        Modulo,
        Add,
        Subtract,
        ShiftLeft,
        ShiftRight,
        Less,
        LessOrEqual,
        Greater,
        GreaterOrEqual,
        Equal,
        Unequal,
        BitAnd,
        BitXor,
        BitOr,
        Sgn,
        Neg,
        Abs,
        Exp,
        Ln,
        Lg,
        Sqrt,
        Sin,
        Cos,
        Tan,
        Asin,
        Acos,
        Atan,
        Trunc,
        Floor,
        Ceil,
        Round,
        RoundDigits
    };

    /// One step for a machine with a stack.
    struct Step
    {
        Code mCode;
        uint32_t mTarget = 0; ///< Of a jump; of a variable: its name.
        Number mConstant{};
    };

private:
    std::vector<Step> mCode;
    std::vector<std::string> mNames;
};

} // namespace KyGigE
