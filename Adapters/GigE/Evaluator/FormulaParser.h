#pragma once

#include "Adapters/GigE/Evaluator/Formula.h"

namespace KyGigE
{

/// Makes steps of a formula's text.
class FormulaParser
{
public:
    FormulaParser(std::string_view aText, std::vector<Formula::Step>& aCode, std::vector<std::string>& aNames)
        : mText(aText), mCode(aCode), mNames(aNames)
    {
    }

    /// \return Empty, or what is wrong.
    std::string Parse();

private:
    using Code = Formula::Code;
    struct Operator
    {
        std::string_view mText;
        int mBinding;
        Code mCode;
    };

    bool ParseConditional();
    bool ParseBinary(int aLowest);
    bool ParseUnary();
    bool ParsePower();
    bool ParsePrimary();
    bool ParseNumber();
    bool ParseName();
    bool ParseFunction(std::string_view aName);
    bool ParseShortCircuit(const Operator& aOperator);

    void SkipBlanks();
    bool Take(std::string_view aToken);
    const Operator* PeekOperator();
    bool Fail(const std::string& aProblem);
    uint32_t Emit(Code aCode, uint32_t aTarget = 0);
    void EmitConstant(const Number& aValue);
    void PatchHere(uint32_t aJump) { mCode[aJump].mTarget = static_cast<uint32_t>(mCode.size()); }

    const std::string_view mText;
    size_t mNext = 0;
    int mDepth = 0;
    std::string mProblem;
    std::vector<Formula::Step>& mCode;
    std::vector<std::string>& mNames;
};

} // namespace KyGigE
