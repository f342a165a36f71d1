#include "Adapters/GigE/Evaluator/NodeMap.h"

#include <JxUtilsLib/LockScope.h>
#include <JxUtilsLib/Thread.h>

#include <utility>

namespace KyGigE
{

using JxUtilsLib::LockScope;

namespace
{

NodeKind KindOf(ElementKind aKind)
{
    switch (aKind)
    {
    case ElementKind::Integer:
    case ElementKind::IntReg:
    case ElementKind::MaskedIntReg:
    case ElementKind::StructEntry:
    case ElementKind::IntSwissKnife:
    case ElementKind::IntConverter:
        return NodeKind::Integer;
    case ElementKind::Float:
    case ElementKind::FloatReg:
    case ElementKind::SwissKnife:
    case ElementKind::Converter:
        return NodeKind::Float;
    case ElementKind::Boolean:
        return NodeKind::Boolean;
    case ElementKind::Enumeration:
        return NodeKind::Enumeration;
    case ElementKind::String:
    case ElementKind::StringReg:
        return NodeKind::String;
    case ElementKind::Register:
        return NodeKind::Register;
    case ElementKind::Command:
        return NodeKind::Command;
    case ElementKind::Category:
        return NodeKind::Category;
    case ElementKind::EnumEntry:
    case ElementKind::Port:
    case ElementKind::Other:
        break;
    }
    return NodeKind::None;
}

KyResult Refusal(uint32_t aStatus, const std::string& aText)
{
    return {aStatus, KyString(aText.c_str(), aText.size())};
}

KyResult WrongKind(const std::string& aName)
{
    return Refusal(cInvalidParameter, "The feature " + aName + " is of another kind.");
}

} // namespace

NodeMap::NodeMap(const DeviceDescription& aDescription, IRegisterSpace& aSpace, Evaluator::Clock aClock)
    : mEvaluator(aDescription, aSpace, std::move(aClock))
{
}

NodeMap::NodeMap(const DeviceDescription& aDescription, IRegisterSpace& aSpace)
    : NodeMap(aDescription, aSpace, &JxUtilsLib::Thread::GetTickCount)
{
}

NodeMap::Use NodeMap::Begin(const std::string& aName)
{
    // Each call is a use of its own, with a fresh budget and a fresh look at the device.
    mEvaluator.Begin();
    Use lUse;
    lUse.mNode = mEvaluator.GetNodes().FindNode(aName);
    lUse.mKind = lUse.mNode != cNoNode ? KindOf(mEvaluator.GetNodes().Get(lUse.mNode).mKind) : NodeKind::None;
    return lUse;
}

KyResult NodeMap::CheckKind(const Use& aUse, const std::string& aName, NodeKind aKind) const
{
    if (aUse.mKind == NodeKind::None)
    {
        return Refusal(cNoSuchFeature, "There is no feature " + aName + ".");
    }
    return aUse.mKind == aKind ? KyResult() : WrongKind(aName);
}

KyResult NodeMap::CheckAccess(Use& aUse, const std::string& aName)
{
    if (aUse.mKind == NodeKind::None)
    {
        return Refusal(cNoSuchFeature, "There is no feature " + aName + ".");
    }
    if (!mEvaluator.GetAccess(aUse.mNode, aUse.mAccess))
    {
        return mEvaluator.GetFailure();
    }
    return aUse.mAccess.mAvailable
               ? KyResult()
               : Refusal(cAccessDenied, "The feature " + aName + " is not available now.");
}

KyResult NodeMap::CheckReadable(Use& aUse, const std::string& aName)
{
    KyResult lResult = CheckAccess(aUse, aName);
    return lResult.IsOK() && !aUse.mAccess.mReadable
               ? Refusal(cAccessDenied, "The feature " + aName + " can only be written.")
               : lResult;
}

KyResult NodeMap::CheckWritable(Use& aUse, const std::string& aName)
{
    KyResult lResult = CheckAccess(aUse, aName);
    if (lResult.IsOK() && !aUse.mAccess.mWritable)
    {
        return Refusal(cWriteProtect, "The feature " + aName + " can only be read.");
    }
    return lResult.IsOK() && aUse.mAccess.mLocked
               ? Refusal(cAccessDenied, "The feature " + aName + " cannot be written now.")
               : lResult;
}

int64_t NodeMap::GetVisits()
{
    const LockScope lScope(mLock);
    return mEvaluator.GetVisits();
}

NodeKind NodeMap::GetKind(const std::string& aName)
{
    const LockScope lScope(mLock);
    return Begin(aName).mKind;
}

bool NodeMap::IsAvailable(const std::string& aName)
{
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    return CheckAccess(lUse, aName).IsOK();
}

bool NodeMap::IsReadable(const std::string& aName)
{
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    // A command has no value, though its register may have one.
    return lUse.mKind != NodeKind::Category && lUse.mKind != NodeKind::Command &&
           CheckReadable(lUse, aName).IsOK();
}

bool NodeMap::IsWritable(const std::string& aName)
{
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    // A command counts as writable: that is how it is run.
    return lUse.mKind != NodeKind::Category && CheckWritable(lUse, aName).IsOK();
}

FeatureState NodeMap::GetState(const std::string& aName, bool aWithValue)
{
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    FeatureState lState;
    if (!CheckAccess(lUse, aName).IsOK())
    {
        return lState;
    }
    const bool lHasValue = lUse.mKind != NodeKind::Category && lUse.mKind != NodeKind::Command;
    lState.mAvailable = true;
    // The same answers as IsReadable() and IsWritable() give, with one look at the device.
    lState.mReadable = lHasValue && lUse.mAccess.CanRead();
    lState.mWritable = lUse.mKind != NodeKind::Category && lUse.mAccess.CanWrite();
    if (!aWithValue)
    {
        return lState;
    }
    if (lState.mReadable && lUse.mKind != NodeKind::Register && !MakeText(lUse, lState.mValue))
    {
        lState.mValue.clear();
        lUse = Begin(aName); // a failed use works nothing out any more
    }
    if (lUse.mKind == NodeKind::Enumeration && !MakeEntries(lUse.mNode, lState.mEntries))
    {
        lUse = Begin(aName); // the budget, which the value may have used up, is whole again
        static_cast<void>(MakeEntries(lUse.mNode, lState.mEntries));
    }
    return lState;
}

KyResult NodeMap::GetInteger(const std::string& aName, int64_t& aValue)
{
    aValue = 0;
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    KyResult lResult = CheckKind(lUse, aName, NodeKind::Integer);
    lResult = lResult.IsOK() ? CheckReadable(lUse, aName) : lResult;
    // A failure leaves 0, whatever was worked out before it.
    if (lResult.IsOK() && !mEvaluator.GetInteger(lUse.mNode, aValue))
    {
        aValue = 0;
        return mEvaluator.GetFailure();
    }
    return lResult;
}

KyResult NodeMap::GetEntries(const std::string& aName, std::vector<std::string>& aEntries)
{
    aEntries.clear();
    const LockScope lScope(mLock);
    const Use lUse = Begin(aName);
    KyResult lResult = CheckKind(lUse, aName, NodeKind::Enumeration);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    return MakeEntries(lUse.mNode, aEntries) ? KyResult() : mEvaluator.GetFailure();
}

bool NodeMap::MakeEntries(NodeId aEnumeration, std::vector<std::string>& aEntries)
{
    for (const Property& lProperty : mEvaluator.GetNodes().GetProperties(aEnumeration))
    {
        Access lAccess;
        if (lProperty.mId != PropertyId::Entry)
        {
            continue;
        }
        if (!mEvaluator.GetAccess(lProperty.mNode, lAccess))
        {
            aEntries.clear();
            return false;
        }
        // Devices take entries away that do not fit their present mode.
        if (lAccess.mAvailable)
        {
            aEntries.emplace_back(mEvaluator.GetEntryText(lProperty.mNode));
        }
    }
    return true;
}

KyResult NodeMap::GetText(const std::string& aName, std::string& aValue)
{
    aValue.clear();
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    if (lUse.mKind == NodeKind::Register || lUse.mKind == NodeKind::Command ||
        lUse.mKind == NodeKind::Category)
    {
        return WrongKind(aName);
    }
    KyResult lResult = CheckReadable(lUse, aName);
    if (lResult.IsOK() && !MakeText(lUse, aValue))
    {
        aValue.clear();
        return mEvaluator.GetFailure();
    }
    return lResult;
}

bool NodeMap::MakeText(const Use& aUse, std::string& aValue)
{
    Number lNumber;
    NodeId lEntry = cNoNode;
    if (aUse.mKind == NodeKind::String)
    {
        return mEvaluator.GetString(aUse.mNode, aValue);
    }
    if (aUse.mKind == NodeKind::Enumeration)
    {
        if (!mEvaluator.GetEntry(aUse.mNode, lEntry))
        {
            return false;
        }
        // A register may have a number that no entry has. There is no text for it that SetText() would take back.
        aValue = lEntry != cNoNode ? std::string(mEvaluator.GetEntryText(lEntry)) : std::string();
        return lEntry != cNoNode ||
               mEvaluator.Fail(cAccessDenied,
                               "The value of " + mEvaluator.NameOf(aUse.mNode) + " has no entry.");
    }
    if (!mEvaluator.GetNumber(aUse.mNode, lNumber))
    {
        return false;
    }
    switch (aUse.mKind)
    {
    case NodeKind::Boolean:
        aValue = lNumber.IsZero() ? "false" : "true";
        break;
    case NodeKind::Float:
        aValue = FloatText(lNumber.AsFloat());
        break;
    default:
        aValue = IntegerText(lNumber.Rounded().value_or(0), mEvaluator.GetRepresentation(aUse.mNode));
        break;
    }
    return true;
}

KyResult NodeMap::SetText(const std::string& aName, const std::string& aValue)
{
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    if (lUse.mKind == NodeKind::Register || lUse.mKind == NodeKind::Category)
    {
        return WrongKind(aName);
    }
    KyResult lResult = CheckWritable(lUse, aName);
    if (!lResult.IsOK())
    {
        return lResult;
    }
    const bool lGood = Set(lUse, aName, aValue);
    mEvaluator.EndWrite(lUse.mNode); // a part may have been written before a failure
    return lGood ? KyResult() : mEvaluator.GetFailure();
}

bool NodeMap::Set(const Use& aUse, const std::string& aName, const std::string& aValue)
{
    constexpr size_t cLongest = 200; // of a message
    const auto lUnfit = [&]
    {
        return mEvaluator.Fail(cInvalidParameter,
                               "The feature " + aName + " does not take " + aValue.substr(0, cLongest) + ".");
    };
    switch (aUse.mKind)
    {
    case NodeKind::Integer:
    {
        const std::optional<int64_t> lValue = ParseInteger(aValue, mEvaluator.GetRepresentation(aUse.mNode));
        return lValue ? mEvaluator.SetNumber(aUse.mNode, Number::Integer(*lValue)) : lUnfit();
    }
    case NodeKind::Float:
    {
        const std::optional<double> lValue = ParseFloat(aValue);
        return lValue ? mEvaluator.SetNumber(aUse.mNode, Number::Float(*lValue)) : lUnfit();
    }
    case NodeKind::Boolean:
    {
        const std::optional<bool> lValue = ParseBoolean(aValue);
        return lValue ? mEvaluator.SetNumber(aUse.mNode, Number::Integer(*lValue ? 1 : 0)) : lUnfit();
    }
    case NodeKind::Command:
        return ParseBoolean(aValue).value_or(false) ? mEvaluator.Execute(aUse.mNode) : lUnfit();
    case NodeKind::Enumeration:
        return SetEntry(aUse, aName, aValue);
    default:
        return mEvaluator.SetString(aUse.mNode, aValue);
    }
}

bool NodeMap::SetEntry(const Use& aUse, const std::string& aName, const std::string& aValue)
{
    const NodeTable& lNodes = mEvaluator.GetNodes();
    for (const Property& lProperty : lNodes.GetProperties(aUse.mNode))
    {
        // Either name of an entry does: the symbolic one that GetText() gives, or the name of its node.
        if (lProperty.mId != PropertyId::Entry || (mEvaluator.GetEntryText(lProperty.mNode) != aValue &&
                                                   lNodes.Get(lProperty.mNode).mName != aValue))
        {
            continue;
        }
        Access lAccess;
        Number lNumber;
        if (!mEvaluator.GetAccess(lProperty.mNode, lAccess))
        {
            return false;
        }
        // An entry that is not available may have a twin of the same name that is.
        if (lAccess.mAvailable)
        {
            return mEvaluator.GetNumber(lProperty.mNode, lNumber) &&
                   mEvaluator.SetNumber(aUse.mNode, lNumber);
        }
    }
    constexpr size_t cLongest = 200; // of a message
    return mEvaluator.Fail(cInvalidParameter,
                           "The feature " + aName + " has no entry " + aValue.substr(0, cLongest) + ".");
}

KyResult NodeMap::GetRegister(const std::string& aName, RegisterUse aUse, RegisterPlace& aPlace)
{
    aPlace = {};
    const LockScope lScope(mLock);
    Use lUse = Begin(aName);
    KyResult lResult = CheckKind(lUse, aName, NodeKind::Register);
    // Looking at address and length needs no access: the device is not asked for the content.
    if (lResult.IsOK() && aUse != RegisterUse::Look)
    {
        lResult = aUse == RegisterUse::Read ? CheckReadable(lUse, aName) : CheckWritable(lUse, aName);
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    RegisterSpot lSpot;
    if (!mEvaluator.GetSpot(lUse.mNode, lSpot))
    {
        return mEvaluator.GetFailure();
    }
    aPlace = {lSpot.mAddress, lSpot.mLength};
    return {};
}

KyResult NodeMap::GetRange(const std::string& aName, Range& aRange)
{
    aRange = {};
    const LockScope lScope(mLock);
    const Use lUse = Begin(aName);
    // Floats and integers have ranges. Any other kind fails as no integer.
    KyResult lResult =
        CheckKind(lUse, aName, lUse.mKind == NodeKind::Float ? NodeKind::Float : NodeKind::Integer);
    if (lResult.IsOK() && !mEvaluator.GetRange(lUse.mNode, aRange))
    {
        aRange = {};
        return mEvaluator.GetFailure();
    }
    return lResult;
}

KyResult NodeMap::IsDone(const std::string& aName, bool& aDone)
{
    aDone = false;
    const LockScope lScope(mLock);
    const Use lUse = Begin(aName);
    KyResult lResult = CheckKind(lUse, aName, NodeKind::Command);
    return lResult.IsOK() && !mEvaluator.IsDone(lUse.mNode, aDone) ? mEvaluator.GetFailure() : lResult;
}

} // namespace KyGigE
