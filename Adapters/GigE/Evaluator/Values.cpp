#include "Adapters/GigE/Evaluator/Evaluator.h"

namespace KyGigE
{

bool Evaluator::GetNumber(NodeId aNode, Number& aValue)
{
    // Worked out once in a use. A node that many others name would else be read as often, and each layer of such nodes multiplies it.
    Memo& lMemo = mMemos[aNode];
    if (lMemo.mValueUse == mUse)
    {
        aValue = lMemo.mValue;
        return true;
    }
    const Visit lVisit(*this, aNode);
    if (!lVisit.IsGood() || !FindNumber(aNode, aValue))
    {
        return false;
    }
    lMemo.mValue = aValue;
    lMemo.mValueUse = mUse;
    return true;
}

bool Evaluator::GetInteger(NodeId aNode, int64_t& aValue)
{
    Number lNumber;
    if (!GetNumber(aNode, lNumber))
    {
        return false;
    }
    const std::optional<int64_t> lValue = lNumber.Rounded();
    aValue = lValue.value_or(0);
    return lValue || FailAt(aNode, "its value is too large for 64 bits");
}

bool Evaluator::FindNumber(NodeId aNode, Number& aValue)
{
    switch (mNodes.Get(aNode).mKind)
    {
    case ElementKind::Integer:
    case ElementKind::Enumeration:
    case ElementKind::Command:
    {
        if (!GetSourceNumber(aNode, aValue))
        {
            return false;
        }
        const std::optional<int64_t> lValue = aValue.Rounded();
        aValue = Number::Integer(lValue.value_or(0));
        return lValue || FailAt(aNode, "its value is too large for 64 bits");
    }
    // A whole number becomes a floating-point one here: the kind decides how it is shown.
    case ElementKind::Float:
        if (!GetSourceNumber(aNode, aValue))
        {
            return false;
        }
        aValue = Number::Float(aValue.AsFloat());
        return true;
    case ElementKind::Boolean:
        return GetBoolean(aNode, aValue);
    case ElementKind::EnumEntry:
    {
        const Property* const lValue = mNodes.Find(aNode, PropertyId::Value);
        return lValue != nullptr ? GetConstant(aNode, *lValue, aValue) : FailAt(aNode, "it has no value");
    }
    case ElementKind::IntReg:
    case ElementKind::MaskedIntReg:
    case ElementKind::StructEntry:
        return ReadInteger(aNode, aValue);
    case ElementKind::FloatReg:
        return ReadFloat(aNode, aValue);
    case ElementKind::SwissKnife:
    case ElementKind::IntSwissKnife:
        return EvaluateFormula(aNode, mNodes.Find(aNode, PropertyId::Formula), nullptr, aValue);
    case ElementKind::Converter:
    case ElementKind::IntConverter:
    {
        // In a converter's formula for reading, TO is the register's value.
        Argument lArgument{"TO", {}};
        return GetSourceNumber(aNode, lArgument.mValue) &&
               EvaluateFormula(aNode, mNodes.Find(aNode, PropertyId::FormulaFrom), &lArgument, aValue);
    }
    default:
        return FailAt(aNode, "it is no number");
    }
}

/// Whether a reference leads anywhere.
bool Evaluator::Follow(NodeId aNode, const Property& aReference)
{
    constexpr size_t cLongest = 100; // of a message
    return aReference.mNode != cNoNode ||
           FailAt(aNode, "there is no node " + std::string(aReference.mText.substr(0, cLongest)));
}

bool Evaluator::GetSource(NodeId aNode, Source& aSource)
{
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        // The first of these elements counts, in the order of the description.
        switch (lProperty.mId)
        {
        case PropertyId::Index:
            return GetIndexed(aNode, lProperty, aSource);
        case PropertyId::PValue:
            aSource.mNode = lProperty.mNode;
            return Follow(aNode, lProperty);
        case PropertyId::Value:
            aSource.mConstant = &lProperty;
            return true;
        default:
            break;
        }
    }
    return FailAt(aNode, "it has no value");
}

bool Evaluator::GetIndexed(NodeId aNode, const Property& aIndex, Source& aSource)
{
    int64_t lIndex = 0;
    if (!Follow(aNode, aIndex) || !GetInteger(aIndex.mNode, lIndex))
    {
        return false;
    }
    const Property* lChosen = nullptr;
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        const bool lIndexed =
            lProperty.mId == PropertyId::ValueIndexed || lProperty.mId == PropertyId::PValueIndexed;
        const bool lDefault =
            lProperty.mId == PropertyId::ValueDefault || lProperty.mId == PropertyId::PValueDefault;
        // The default counts wherever it stands, and an entry of the index before it.
        if ((lIndexed && ParseInteger(lProperty.mAttribute) == lIndex) || (lDefault && lChosen == nullptr))
        {
            lChosen = &lProperty;
        }
        // The first entry of the index counts, as in a table that is read from the top.
        if (lIndexed && lChosen == &lProperty)
        {
            break;
        }
    }
    if (lChosen == nullptr)
    {
        return FailAt(aNode, "it has no value for the index " + std::to_string(lIndex));
    }
    const bool lReference =
        lChosen->mId == PropertyId::PValueIndexed || lChosen->mId == PropertyId::PValueDefault;
    aSource.mNode = lReference ? lChosen->mNode : cNoNode;
    aSource.mConstant = lReference ? nullptr : lChosen;
    return !lReference || Follow(aNode, *lChosen);
}

bool Evaluator::GetSourceNumber(NodeId aNode, Number& aValue)
{
    Source lSource;
    if (!GetSource(aNode, lSource))
    {
        return false;
    }
    return lSource.mConstant == nullptr ? GetNumber(lSource.mNode, aValue)
                                        : GetConstant(aNode, *lSource.mConstant, aValue);
}

bool Evaluator::GetConstant(NodeId aNode, const Property& aProperty, Number& aValue)
{
    // A constant that was written to lives here; the description itself never changes.
    const auto lLocal = mLocalNumbers.find(&aProperty);
    if (lLocal != mLocalNumbers.end())
    {
        aValue = lLocal->second;
        return true;
    }
    // Whole first: a large number would lose its last digits as a floating-point one.
    if (const std::optional<int64_t> lInteger = ParseInteger(aProperty.mText))
    {
        aValue = Number::Integer(*lInteger);
        return true;
    }
    if (const std::optional<double> lFloat = ParseFloat(aProperty.mText))
    {
        aValue = Number::Float(*lFloat);
        return true;
    }
    constexpr size_t cLongest = 40; // of a message
    return FailAt(aNode, "\"" + std::string(aProperty.mText.substr(0, cLongest)) + "\" is no number");
}

/// A number that is written down in a node, or that one of its references leads to; neither is fine.
bool Evaluator::GetProperty(NodeId aNode, PropertyId aConstant, PropertyId aReference,
                            std::optional<Number>& aValue)
{
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        if (lProperty.mId != aConstant && lProperty.mId != aReference)
        {
            continue;
        }
        Number lValue;
        const bool lGood = lProperty.mId == aConstant
                               ? GetConstant(aNode, lProperty, lValue)
                               : Follow(aNode, lProperty) && GetNumber(lProperty.mNode, lValue);
        aValue = lGood ? std::optional(lValue) : std::nullopt;
        return lGood;
    }
    return true;
}

// As a number a boolean is 1 or 0, whatever stands for it in its register.
bool Evaluator::GetBoolean(NodeId aNode, Number& aValue)
{
    Source lSource;
    Number lNumber;
    std::optional<Number> lOn;
    if (!GetSource(aNode, lSource))
    {
        return false;
    }
    if (lSource.mConstant != nullptr && mLocalNumbers.count(lSource.mConstant) == 0)
    {
        const std::optional<bool> lValue = ParseBoolean(lSource.mConstant->mText);
        aValue = Number::Integer(lValue.value_or(false) ? 1 : 0);
        return lValue || FailAt(aNode, "its value is neither true nor false");
    }
    if (lSource.mConstant != nullptr)
    {
        return GetConstant(aNode, *lSource.mConstant, aValue);
    }
    if (!GetNumber(lSource.mNode, lNumber) || !GetProperty(aNode, PropertyId::OnValue, PropertyId::None, lOn))
    {
        return false;
    }
    // Any other value than the one for "on" is "off": registers hold values that the description does not name.
    aValue = Number::Integer(lNumber.Rounded() == lOn.value_or(Number::Integer(1)).Rounded() ? 1 : 0);
    return true;
}

bool Evaluator::GetString(NodeId aNode, std::string& aValue)
{
    const Visit lVisit(*this, aNode);
    if (!lVisit.IsGood())
    {
        return false;
    }
    const ElementKind lKind = mNodes.Get(aNode).mKind;
    if (lKind == ElementKind::StringReg)
    {
        return ReadString(aNode, aValue);
    }
    Source lSource;
    if (lKind != ElementKind::String)
    {
        return FailAt(aNode, "it is no text");
    }
    if (!GetSource(aNode, lSource))
    {
        return false;
    }
    if (lSource.mConstant == nullptr)
    {
        return GetString(lSource.mNode, aValue);
    }
    const auto lLocal = mLocalStrings.find(lSource.mConstant);
    aValue = lLocal != mLocalStrings.end() ? lLocal->second : std::string(lSource.mConstant->mText);
    return true;
}

bool Evaluator::GetEntry(NodeId aEnumeration, NodeId& aEntry)
{
    int64_t lValue = 0;
    aEntry = cNoNode;
    if (!GetInteger(aEnumeration, lValue))
    {
        return false;
    }
    for (const Property& lProperty : mNodes.GetProperties(aEnumeration))
    {
        int64_t lOne = 0;
        if (lProperty.mId != PropertyId::Entry)
        {
            continue;
        }
        if (!GetInteger(lProperty.mNode, lOne))
        {
            return false;
        }
        // The first entry with the value: several names for one value are allowed.
        if (lOne == lValue)
        {
            aEntry = lProperty.mNode;
            return true;
        }
    }
    return true;
}

std::string_view Evaluator::GetEntryText(NodeId aEntry) const
{
    const std::string_view lSymbolic = mNodes.GetText(aEntry, PropertyId::Symbolic);
    return lSymbolic.empty() ? mNodes.Get(aEntry).mName : lSymbolic;
}

bool Evaluator::GetEntryNumber(NodeId aEnumeration, std::string_view aName, Number& aValue)
{
    for (const Property& lProperty : mNodes.GetProperties(aEnumeration))
    {
        if (lProperty.mId == PropertyId::Entry &&
            (mNodes.Get(lProperty.mNode).mName == aName || GetEntryText(lProperty.mNode) == aName))
        {
            return GetNumber(lProperty.mNode, aValue);
        }
    }
    return FailAt(aEnumeration, "it has no entry " + std::string(aName.substr(0, 100)));
}

bool Evaluator::IsDone(NodeId aCommand, bool& aDone)
{
    Source lSource;
    Access lAccess;
    Number lNow;
    std::optional<Number> lExecuting;
    aDone = true;
    if (!GetSource(aCommand, lSource))
    {
        return false;
    }
    if (lSource.mConstant != nullptr)
    {
        return true;
    }
    if (!GetAccess(lSource.mNode, lAccess))
    {
        return false;
    }
    if (!lAccess.CanRead())
    {
        return true; // the device does not say; a write that it has answered is done
    }
    if (!GetNumber(lSource.mNode, lNow) ||
        !GetProperty(aCommand, PropertyId::CommandValue, PropertyId::PCommandValue, lExecuting))
    {
        return false;
    }
    // A device that has executed a command puts another value into its register.
    aDone = lNow.Rounded() != lExecuting.value_or(Number::Integer(1)).Rounded();
    return true;
}

// A feature without one is shown as what its value comes from.
Representation Evaluator::GetRepresentation(NodeId aNode) const
{
    // A hostile description may lead in a circle.
    for (int lDepth = 0; lDepth < cDeepest && aNode != cNoNode; ++lDepth)
    {
        const std::string_view lText = mNodes.GetText(aNode, PropertyId::Representation);
        if (!lText.empty())
        {
            // Linear, Logarithmic and the like concern sliders. As text they are plain numbers.
            return lText == "HexNumber"     ? Representation::Hexadecimal
                   : lText == "IPV4Address" ? Representation::Ipv4
                   : lText == "MACAddress"  ? Representation::Mac
                                            : Representation::Decimal;
        }
        const Property* const lValue = mNodes.Find(aNode, PropertyId::PValue);
        aNode = lValue != nullptr ? lValue->mNode : cNoNode;
    }
    return Representation::Decimal;
}

} // namespace KyGigE
