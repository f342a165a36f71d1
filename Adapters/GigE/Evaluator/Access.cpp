#include "Adapters/GigE/Evaluator/Evaluator.h"

namespace KyGigE
{

namespace
{

/// What an access mode allows; without one a register can be read and any other node does not say.
void Narrow(std::string_view aMode, Access& aAccess)
{
    aAccess.mReadable = aAccess.mReadable && aMode != "WO" && aMode != "NA" && aMode != "NI";
    aAccess.mWritable = aAccess.mWritable && aMode != "RO" && aMode != "NA" && aMode != "NI";
}

/// A value that comes from another node can only be used as that one can.
void Combine(const Access& aOther, Access& aAccess)
{
    aAccess.mAvailable = aAccess.mAvailable && aOther.mAvailable;
    aAccess.mReadable = aAccess.mReadable && aOther.mReadable;
    aAccess.mWritable = aAccess.mWritable && aOther.mWritable;
    aAccess.mLocked = aAccess.mLocked || aOther.mLocked;
}

} // namespace

bool Evaluator::GetAccess(NodeId aNode, Access& aAccess)
{
    Memo& lMemo = mMemos[aNode];
    // Worked out once in a use: conditions of many nodes lead to the same few registers.
    if (lMemo.mAccessUse != mUse)
    {
        const Visit lVisit(*this, aNode);
        Access lAccess;
        if (!lVisit.IsGood() || !FindAccess(aNode, lAccess))
        {
            return false;
        }
        lMemo.mAccess = lAccess;
        lMemo.mAccessUse = mUse;
    }
    aAccess = lMemo.mAccess;
    return true;
}

bool Evaluator::FindAccess(NodeId aNode, Access& aAccess)
{
    Conditions lImplemented;
    Conditions lAvailable;
    Conditions lLocked;
    if (!GetConditions(aNode, PropertyId::IsImplemented, lImplemented))
    {
        return false;
    }
    if (!lImplemented.mAll) // its other conditions may be nonsense on this device
    {
        aAccess.mAvailable = false;
        return true;
    }
    if (!GetConditions(aNode, PropertyId::IsAvailable, lAvailable))
    {
        return false;
    }
    if (!lAvailable.mAll)
    {
        aAccess.mAvailable = false;
        return true;
    }
    if (!GetBaseAccess(aNode, aAccess) || !GetConditions(aNode, PropertyId::IsLocked, lLocked))
    {
        return false;
    }
    // Takes rights away, and gives none that the register does not have.
    Narrow(mNodes.GetText(aNode, PropertyId::ImposedAccessMode), aAccess);
    aAccess.mLocked = aAccess.mLocked || lLocked.mAny;
    aAccess.mAvailable = aAccess.mAvailable && (aAccess.mReadable || aAccess.mWritable);
    return true;
}

bool Evaluator::GetBaseAccess(NodeId aNode, Access& aAccess)
{
    Source lSource;
    switch (mNodes.Get(aNode).mKind)
    {
    case ElementKind::Integer:
    case ElementKind::Float:
    case ElementKind::Boolean:
    case ElementKind::Enumeration:
    case ElementKind::Command:
    case ElementKind::String:
    case ElementKind::Converter:
    case ElementKind::IntConverter:
        if (!GetSource(aNode, lSource) || (lSource.mNode != cNoNode && !GetAccess(lSource.mNode, aAccess)))
        {
            return false;
        }
        break;
    case ElementKind::IntReg:
    case ElementKind::MaskedIntReg:
    case ElementKind::StructEntry:
    case ElementKind::FloatReg:
    case ElementKind::StringReg:
    case ElementKind::Register:
    {
        const std::string_view lMode = mNodes.GetText(aNode, PropertyId::AccessMode);
        const Property* const lPort = mNodes.Find(aNode, PropertyId::PPort);
        Narrow(lMode.empty() ? "RO" : lMode, aAccess);
        if (lPort == nullptr || lPort->mNode == cNoNode)
        {
            return lPort == nullptr ? FailAt(aNode, "it has no port") : Follow(aNode, *lPort);
        }
        Access lPortAccess;
        if (!GetAccess(lPort->mNode, lPortAccess))
        {
            return false;
        }
        Combine(lPortAccess, aAccess);
        break;
    }
    case ElementKind::SwissKnife:
    case ElementKind::IntSwissKnife:
        // The result of a formula has no place that it could be written to.
        aAccess.mWritable = false;
        break;
    case ElementKind::Port:
        // What an event brought can only be read; chunks of images do not come this way at all.
        aAccess.mWritable = mGraph.GetEventId(aNode) == 0;
        aAccess.mAvailable = mNodes.Find(aNode, PropertyId::ChunkId) == nullptr &&
                             mNodes.Find(aNode, PropertyId::PChunkId) == nullptr;
        break;
    default:
        break;
    }
    const bool lConverter = mNodes.Get(aNode).mKind == ElementKind::Converter ||
                            mNodes.Get(aNode).mKind == ElementKind::IntConverter;
    if (lConverter)
    {
        // Each direction has a formula of its own, and a description may leave one out.
        aAccess.mReadable = aAccess.mReadable && mNodes.Find(aNode, PropertyId::FormulaFrom) != nullptr;
        aAccess.mWritable = aAccess.mWritable && mNodes.Find(aNode, PropertyId::FormulaTo) != nullptr;
    }
    return true;
}

bool Evaluator::GetConditions(NodeId aNode, PropertyId aId, Conditions& aConditions)
{
    aConditions = {};
    for (const Property& lProperty : mNodes.GetProperties(aNode))
    {
        Number lValue;
        if (lProperty.mId != aId)
        {
            continue;
        }
        // A condition that cannot be read fails the whole use. Taken for "yes" or "no" it would show a feature in a
        // wrong state.
        if (!Follow(aNode, lProperty) || !GetNumber(lProperty.mNode, lValue))
        {
            return false;
        }
        aConditions.mAll = aConditions.mAll && !lValue.IsZero();
        aConditions.mAny = aConditions.mAny || !lValue.IsZero();
    }
    return true;
}

} // namespace KyGigE
