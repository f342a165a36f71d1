#include "Adapters/GigE/Evaluator/Evaluator.h"

#include <algorithm>

namespace KyGigE
{

namespace
{

// The texts of a description are not to grow in memory without end.
constexpr size_t cLongestLocalText = 65'536;

} // namespace

bool Evaluator::SetNumber(NodeId aNode, const Number& aValue)
{
    const Visit lVisit(*this, aNode);
    return lVisit.IsGood() && SetByKind(aNode, aValue);
}

bool Evaluator::SetByKind(NodeId aNode, const Number& aValue)
{
    // What is made of a formula or a floating-point feature goes to the nearest whole number.
    const std::optional<int64_t> lInteger = aValue.Rounded();
    switch (mNodes.Get(aNode).mKind)
    {
    case ElementKind::Integer:
        if (!lInteger)
        {
            return FailAt(aNode, "the value is too large for 64 bits");
        }
        return CheckRange(aNode, Number::Integer(*lInteger)) && SetSource(aNode, Number::Integer(*lInteger));
    // A floating-point number goes on as it is: what takes it rounds it or not.
    case ElementKind::Float:
        return CheckRange(aNode, Number::Float(aValue.AsFloat())) && SetSource(aNode, aValue);
    case ElementKind::IntReg:
    case ElementKind::MaskedIntReg:
    case ElementKind::StructEntry:
        return lInteger ? WriteInteger(aNode, *lInteger)
                        : FailAt(aNode, "the value is too large for 64 bits");
    case ElementKind::FloatReg:
        return WriteFloat(aNode, aValue.AsFloat());
    case ElementKind::Boolean:
    {
        std::optional<Number> lStands;
        const bool lOn = !aValue.IsZero();
        Source lSource;
        if (!GetSource(aNode, lSource) ||
            !GetProperty(aNode, lOn ? PropertyId::OnValue : PropertyId::OffValue, PropertyId::None, lStands))
        {
            return false;
        }
        // OnValue and OffValue are what a register holds. A value in the description itself is 1 or 0.
        const Number lPlain = Number::Integer(lOn ? 1 : 0);
        return SetSource(aNode, lSource.mConstant != nullptr ? lPlain : lStands.value_or(lPlain));
    }
    case ElementKind::Enumeration:
        return SetEnumeration(aNode, aValue);
    case ElementKind::Command:
        return SetSource(aNode, aValue);
    case ElementKind::Converter:
    case ElementKind::IntConverter:
        return SetConverter(aNode, aValue);
    default:
        return Fail(cWriteProtect, "The feature " + NameOf(aNode) + " can only be read.");
    }
}

/// Sets what a node's value comes from, and the copies of it.
bool Evaluator::SetSource(NodeId aNode, const Number& aValue)
{
    Source lSource;
    if (!GetSource(aNode, lSource))
    {
        return false;
    }
    if (lSource.mConstant != nullptr)
    {
        // A value in the description is the application's own: TLParamsLocked, for example, has no register.
        mLocalNumbers[lSource.mConstant] = aValue;
        ++mUse; // what was worked out with the old value
        mExpressions.clear();
        mRanges.clear();
    }
    else if (!SetNumber(lSource.mNode, aValue))
    {
        return false;
    }
    // The copies last: when the device refuses the value they stay as they were.
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        if (lProperty.mId == PropertyId::PValueCopy &&
            (!Follow(aNode, lProperty) || !SetNumber(lProperty.mNode, aValue)))
        {
            return false;
        }
    }
    return true;
}

bool Evaluator::SetEnumeration(NodeId aNode, const Number& aValue)
{
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        Number lEntry;
        if (lProperty.mId != PropertyId::Entry)
        {
            continue;
        }
        if (!GetNumber(lProperty.mNode, lEntry))
        {
            return false;
        }
        // The entry's own number is written. Whether the entry is available is the caller's question.
        if (lEntry.Rounded() == aValue.Rounded())
        {
            return SetSource(aNode, lEntry);
        }
    }
    return Fail(cInvalidParameter, "The feature " + NameOf(aNode) + " has no entry with that value.");
}

bool Evaluator::SetConverter(NodeId aNode, const Number& aValue)
{
    // In a converter's formula for writing, FROM is the value that the user gives.
    const Argument lArgument{"FROM", aValue};
    Number lResult;
    return EvaluateFormula(aNode, mNodes.Find(aNode, PropertyId::FormulaTo), &lArgument, lResult) &&
           SetSource(aNode, lResult);
}

bool Evaluator::SetString(NodeId aNode, const std::string& aValue)
{
    const Visit lVisit(*this, aNode);
    if (!lVisit.IsGood())
    {
        return false;
    }
    if (mNodes.Get(aNode).mKind == ElementKind::StringReg)
    {
        return WriteString(aNode, aValue);
    }
    Source lSource;
    if (mNodes.Get(aNode).mKind != ElementKind::String)
    {
        return FailAt(aNode, "it is no text");
    }
    if (!GetSource(aNode, lSource))
    {
        return false;
    }
    if (lSource.mConstant == nullptr)
    {
        return SetString(lSource.mNode, aValue);
    }
    if (aValue.size() > cLongestLocalText)
    {
        return Fail(cInvalidParameter, "The text is too long for " + NameOf(aNode) + ".");
    }
    mLocalStrings[lSource.mConstant] = aValue;
    return true;
}

bool Evaluator::Execute(NodeId aCommand)
{
    const Visit lVisit(*this, aCommand);
    std::optional<Number> lValue;
    return lVisit.IsGood() &&
           GetProperty(aCommand, PropertyId::CommandValue, PropertyId::PCommandValue, lValue) &&
           SetSource(aCommand, lValue.value_or(Number::Integer(1)));
}

void Evaluator::EndWrite(NodeId aNode)
{
    if (mNodes.Get(aNode).mKind == ElementKind::Command)
    {
        mCache.Clear(); // it may have loaded other settings
        return;
    }
    const std::vector<NodeId> lStale = mGraph.StaleAfter(aNode);
    for (const NodeId lNode : lStale)
    {
        mCache.Drop(lNode);
    }
    for (const Written& lWritten : mWritten)
    {
        mCache.DropOverlapping(lWritten.mSpot.mAddress, lWritten.mBytes.size());
        if (MayKeepWritten(lWritten.mNode, lStale))
        {
            Keep(lWritten.mNode, lWritten.mSpot, lWritten.mBytes);
        }
    }
    mWritten.clear();
}

/// Whether a register holds what was written to it.
bool Evaluator::MayKeepWritten(NodeId aRegister, const std::vector<NodeId>& aStale) const
{
    for (const Property& lProperty : mNodes.GetProperties(aRegister))
    {
        // WriteAround: the device may make something else of the value, so it is read back.
        const bool lAround = lProperty.mId == PropertyId::Cachable && lProperty.mText != "WriteThrough";
        const bool lWriteOnly = lProperty.mId == PropertyId::AccessMode && lProperty.mText == "WO";
        const bool lInvalidated = lProperty.mId == PropertyId::Invalidator &&
                                  std::binary_search(aStale.begin(), aStale.end(), lProperty.mNode);
        if (lAround || lWriteOnly || lInvalidated)
        {
            return false;
        }
    }
    return true;
}

} // namespace KyGigE
