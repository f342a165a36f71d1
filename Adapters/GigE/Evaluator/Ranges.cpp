#include "Adapters/GigE/Evaluator/Evaluator.h"

#include <algorithm>
#include <limits>

namespace KyGigE
{

namespace
{

bool IsLess(const Number& aLeft, const Number& aRight)
{
    return aLeft.IsFloat() || aRight.IsFloat() ? aLeft.AsFloat() < aRight.AsFloat()
                                               : aLeft.Truncated() < aRight.Truncated();
}

/// Whether a whole number is a whole count of steps above another one.
bool IsStep(int64_t aValue, int64_t aMin, int64_t aInc)
{
    const uint64_t lDistance = static_cast<uint64_t>(aValue) - static_cast<uint64_t>(aMin);
    return aInc <= 1 || lDistance % static_cast<uint64_t>(aInc) == 0;
}

} // namespace

bool Evaluator::GetRange(NodeId aNode, Range& aRange)
{
    const auto lKnown = mRanges.find(aNode);
    if (lKnown != mRanges.end())
    {
        aRange = lKnown->second;
        return true;
    }
    const Visit lVisit(*this, aNode);
    if (!lVisit.IsGood() || !FindRange(aNode, aRange))
    {
        return false;
    }
    mRanges[aNode] = aRange;
    return true;
}

// A limit that a node does not have is that of the node that its value comes from.
bool Evaluator::FindRange(NodeId aNode, Range& aRange)
{
    Source lSource;
    Range lBase;
    aRange = {};
    switch (mNodes.Get(aNode).mKind)
    {
    case ElementKind::IntReg:
    case ElementKind::MaskedIntReg:
    case ElementKind::StructEntry:
        GetRegisterRange(aNode, aRange);
        return true;
    case ElementKind::Converter:
    case ElementKind::IntConverter:
        return GetConverterRange(aNode, aRange);
    case ElementKind::Integer:
    case ElementKind::Float:
        if (!GetProperty(aNode, PropertyId::Min, PropertyId::PMin, aRange.mMin) ||
            !GetProperty(aNode, PropertyId::Max, PropertyId::PMax, aRange.mMax) ||
            !GetProperty(aNode, PropertyId::Inc, PropertyId::PInc, aRange.mInc) ||
            !GetSource(aNode, lSource) || (lSource.mNode != cNoNode && !GetRange(lSource.mNode, lBase)))
        {
            return false;
        }
        aRange.mMin = aRange.mMin ? aRange.mMin : lBase.mMin;
        aRange.mMax = aRange.mMax ? aRange.mMax : lBase.mMax;
        aRange.mInc = aRange.mInc ? aRange.mInc : lBase.mInc;
        return true;
    default:
        return true;
    }
}

// The formula of a rising or falling converter takes the limits of what it converts to its own.
bool Evaluator::GetConverterRange(NodeId aNode, Range& aRange)
{
    Source lSource;
    Range lBase;
    if (!GetSource(aNode, lSource) || lSource.mNode == cNoNode || !GetRange(lSource.mNode, lBase))
    {
        return !mFailure;
    }
    const Property* const lFormula = mNodes.Find(aNode, PropertyId::FormulaFrom);
    // A formula that rises and falls has its extremes anywhere.
    if (!lBase.mMin || !lBase.mMax || lFormula == nullptr ||
        mNodes.GetText(aNode, PropertyId::Slope) == "Varying")
    {
        return true;
    }
    const Argument lMin{"TO", *lBase.mMin};
    const Argument lMax{"TO", *lBase.mMax};
    Number lFirst;
    Number lSecond;
    if (!EvaluateFormula(aNode, lFormula, &lMin, lFirst) || !EvaluateFormula(aNode, lFormula, &lMax, lSecond))
    {
        // The formula need not work at the ends of a register's range ("1000/TO").
        mFailure.reset();
        return true;
    }
    aRange.mMin = IsLess(lSecond, lFirst) ? lSecond : lFirst;
    aRange.mMax = IsLess(lSecond, lFirst) ? lFirst : lSecond;
    return true;
}

void Evaluator::GetRegisterRange(NodeId aNode, Range& aRange)
{
    RegisterSpot lSpot;
    Field lField;
    if (!GetNumberSpot(aNode, lSpot) || !GetField(aNode, lSpot, lField))
    {
        mFailure.reset(); // reading the value reports it
        return;
    }
    const bool lWhole = lField.mWidth >= 64;
    const int64_t lHalf = lWhole ? 0 : int64_t{1} << (lField.mWidth - 1);
    if (lWhole) // unsigned ones too: their upper half is read as negative, and has to be written so
    {
        aRange.mMin = Number::Integer(std::numeric_limits<int64_t>::min());
        aRange.mMax = Number::Integer(std::numeric_limits<int64_t>::max());
        return;
    }
    aRange.mMin = Number::Integer(lField.mSigned ? -lHalf : 0);
    aRange.mMax = Number::Integer(lField.mSigned ? lHalf - 1 : 2 * (lHalf - 1) + 1);
}

bool Evaluator::IsInSet(NodeId aNode, const Number& aValue)
{
    std::string_view lSet = mNodes.GetText(aNode, PropertyId::ValidValueSet);
    if (lSet.empty())
    {
        return true;
    }
    while (!lSet.empty())
    {
        const size_t lEnd = std::min(lSet.find(';'), lSet.size());
        std::string_view lOne = lSet.substr(0, lEnd);
        lOne.remove_prefix(std::min(lOne.find_first_not_of(" \t\r\n"), lOne.size()));
        lOne = lOne.substr(0, lOne.find_last_not_of(" \t\r\n") + 1);
        if (ParseInteger(lOne) == aValue.Rounded() && !lOne.empty())
        {
            return true;
        }
        lSet.remove_prefix(std::min(lEnd + 1, lSet.size()));
    }
    return false;
}

bool Evaluator::CheckRange(NodeId aNode, const Number& aValue)
{
    Range lRange;
    if (!GetRange(aNode, lRange))
    {
        return false;
    }
    bool lFits = !(lRange.mMin && IsLess(aValue, *lRange.mMin)) &&
                 !(lRange.mMax && IsLess(*lRange.mMax, aValue)) && IsInSet(aNode, aValue);
    const std::optional<int64_t> lMin = lRange.mMin.value_or(Number()).Rounded();
    const std::optional<int64_t> lInc = lRange.mInc.value_or(Number()).Rounded();
    // Only whole numbers have steps that a text can hit exactly.
    const bool lWhole = !aValue.IsFloat() && (!lRange.mInc || !lRange.mInc->IsFloat());
    lFits = lFits && (!lWhole || !lMin || !lInc || IsStep(*aValue.Truncated(), *lMin, *lInc));
    return lFits || Fail(cInvalidParameter, "The feature " + NameOf(aNode) + " does not take " +
                                                (aValue.IsFloat() ? FloatText(aValue.AsFloat())
                                                                  : std::to_string(*aValue.Truncated())) +
                                                ".");
}

} // namespace KyGigE
