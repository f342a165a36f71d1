#include "Adapters/GigE/Evaluator/Evaluator.h"

namespace KyGigE
{

namespace
{

constexpr size_t cMostSteps = 500'000; // of all formulas that are kept

bool IsWhole(ElementKind aKind)
{
    return aKind == ElementKind::IntSwissKnife || aKind == ElementKind::IntConverter;
}

} // namespace

std::shared_ptr<const Formula> Evaluator::GetFormula(NodeId aNode, const Property& aFormula)
{
    const auto lKept = mFormulas.find(&aFormula);
    if (lKept != mFormulas.end())
    {
        return lKept->second;
    }
    std::string lProblem;
    std::shared_ptr<const Formula> lFormula = Formula::Parse(aFormula.mText, lProblem);
    // Parsing costs as much as the text is long, and counts against the budget of this use.
    mVisitsLeft -= static_cast<int64_t>(aFormula.mText.size());
    if (lFormula == nullptr)
    {
        FailAt(aNode, "its formula makes no sense, " + lProblem);
        return nullptr;
    }
    // All are dropped together. Descriptions of real devices do not come near this limit.
    if (mFormulaSteps + lFormula->GetSize() > cMostSteps)
    {
        mFormulas.clear();
        mFormulaSteps = 0;
    }
    mFormulaSteps += lFormula->GetSize();
    mFormulas[&aFormula] = lFormula;
    return lFormula;
}

/// The formula's result as it is: what a formula inside another gives, which works on with it.
bool Evaluator::RunFormula(NodeId aNode, const Property& aFormula, const Argument* aArgument, Number& aValue)
{
    const std::shared_ptr<const Formula> lFormula = GetFormula(aNode, aFormula);
    if (lFormula == nullptr)
    {
        return false;
    }
    mVisitsLeft -= static_cast<int64_t>(lFormula->GetSize());
    std::string lProblem;
    const auto lVariables = [&](std::string_view aName, Number& aVariable)
    { return GetVariable(aNode, aName, aArgument, aVariable); };
    // The kind of the node decides whether 1/2 is 0 or 0.5.
    const Arithmetic lArithmetic =
        IsWhole(mNodes.Get(aNode).mKind) ? Arithmetic::Integers : Arithmetic::Floats;
    return lFormula->Evaluate(lArithmetic, lVariables, aValue, lProblem) || FailAt(aNode, lProblem);
}

bool Evaluator::EvaluateFormula(NodeId aNode, const Property* aFormula, const Argument* aArgument,
                                Number& aValue)
{
    Number lResult;
    if (aFormula == nullptr)
    {
        return FailAt(aNode, "it has no formula");
    }
    if (!RunFormula(aNode, *aFormula, aArgument, lResult))
    {
        return false;
    }
    if (!IsWhole(mNodes.Get(aNode).mKind))
    {
        aValue = Number::Float(lResult.AsFloat());
        return true;
    }
    // Whole formulas may work on floating-point variables; only their result is cut off.
    const std::optional<int64_t> lTruncated = lResult.Truncated();
    aValue = Number::Integer(lTruncated.value_or(0));
    return lTruncated || FailAt(aNode, "the result is too large for 64 bits");
}

bool Evaluator::GetVariable(NodeId aNode, std::string_view aName, const Argument* aArgument, Number& aValue)
{
    // The value that a converter is about to convert, "TO" or "FROM", comes before everything that is named so.
    if (aArgument != nullptr && aName == aArgument->mName)
    {
        aValue = aArgument->mValue;
        return true;
    }
    const size_t lDot = aName.find('.');
    const std::string_view lBase = aName.substr(0, lDot);
    const Property* lDotted = nullptr;
    mVisitsLeft -= mNodes.Get(aNode).mCount;
    if (mVisitsLeft < 0)
    {
        return FailAt(aNode, "this takes too long");
    }
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        const bool lVariable = lProperty.mId == PropertyId::Variable;
        if (lVariable && lProperty.mAttribute == lBase)
        {
            lDotted = &lProperty;
        }
        if (lProperty.mAttribute != aName)
        {
            continue;
        }
        if (lVariable)
        {
            return GetSuffixed(aNode, lProperty, lDot == std::string_view::npos ? "" : aName.substr(lDot + 1),
                               aValue);
        }
        if (lProperty.mId == PropertyId::Constant)
        {
            return GetConstant(aNode, lProperty, aValue);
        }
        if (lProperty.mId == PropertyId::Expression)
        {
            return GetExpression(aNode, lProperty, aArgument, aValue);
        }
    }
    // A variable may have a dot in its own name, which counts before the part of another one.
    if (lDotted != nullptr && lDot != std::string_view::npos)
    {
        return GetSuffixed(aNode, *lDotted, aName.substr(lDot + 1), aValue);
    }
    // Last: a description may have variables of these names.
    if (aName == "E" || aName == "PI")
    {
        aValue = Number::Float(aName == "E" ? 2.71828182845904523536 : 3.14159265358979323846);
        return true;
    }
    return FailAt(aNode, std::string(aName.substr(0, 100)) + " in its formula names nothing");
}

bool Evaluator::GetExpression(NodeId aNode, const Property& aExpression, const Argument* aArgument,
                              Number& aValue)
{
    // With an argument the result is that of this value alone, so nothing is kept.
    const auto lKnown = aArgument == nullptr ? mExpressions.find(&aExpression) : mExpressions.end();
    if (lKnown != mExpressions.end())
    {
        aValue = lKnown->second;
        return true;
    }
    const Visit lVisit(*this, aNode);
    if (!lVisit.IsGood() || !RunFormula(aNode, aExpression, aArgument, aValue))
    {
        return false;
    }
    if (aArgument == nullptr)
    {
        mExpressions[&aExpression] = aValue;
    }
    return true;
}

bool Evaluator::GetSuffixed(NodeId aNode, const Property& aVariable, std::string_view aSuffix, Number& aValue)
{
    if (!Follow(aNode, aVariable))
    {
        return false;
    }
    // The suffixes that stand for the value itself.
    if (aSuffix.empty() || aSuffix == "Value" || aSuffix == "Enum")
    {
        return GetNumber(aVariable.mNode, aValue);
    }
    for (const std::string_view lEntry : {std::string_view("Entry."), std::string_view("Enum.")})
    {
        if (aSuffix.substr(0, lEntry.size()) == lEntry)
        {
            return GetEntryNumber(aVariable.mNode, aSuffix.substr(lEntry.size()), aValue);
        }
    }
    const bool lMin = aSuffix == "Min";
    const bool lMax = aSuffix == "Max";
    Range lRange;
    if (!lMin && !lMax && aSuffix != "Inc")
    {
        return FailAt(aNode, "there is nothing named ." + std::string(aSuffix.substr(0, 100)));
    }
    if (!GetRange(aVariable.mNode, lRange))
    {
        return false;
    }
    const std::optional<Number>& lLimit = lMin ? lRange.mMin : lMax ? lRange.mMax : lRange.mInc;
    aValue = lLimit.value_or(Number());
    return lLimit || FailAt(aNode, NameOf(aVariable.mNode) + " has no ." + std::string(aSuffix));
}

} // namespace KyGigE
