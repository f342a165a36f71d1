#include "Adapters/GigE/GenApi/Evaluation.h"

#include <array>
#include <utility>

namespace KyGigE
{

namespace
{

constexpr guint64 cLongestValue = guint64{1} << 20U;

NodeKind KindOf(ArvGcFeatureNode* aNode)
{
    static constexpr std::array<std::pair<const char*, NodeKind>, 17> cKinds = {
        {{"Integer", NodeKind::Integer},
         {"IntReg", NodeKind::Integer},
         {"MaskedIntReg", NodeKind::Integer},
         {"StructEntry", NodeKind::Integer},
         {"IntSwissKnife", NodeKind::Integer},
         {"IntConverter", NodeKind::Integer},
         {"Float", NodeKind::Float},
         {"FloatReg", NodeKind::Float},
         {"SwissKnife", NodeKind::Float},
         {"Converter", NodeKind::Float},
         {"Boolean", NodeKind::Boolean},
         {"Enumeration", NodeKind::Enumeration},
         {"String", NodeKind::String},
         {"StringReg", NodeKind::String},
         {"Register", NodeKind::Register},
         {"Command", NodeKind::Command},
         {"Category", NodeKind::Category}}};
    const std::string lElement = arv_dom_node_get_node_name(ARV_DOM_NODE(aNode));
    for (const auto& [lName, lKind] : cKinds)
    {
        if (lElement == lName)
        {
            return lKind;
        }
    }
    return NodeKind::None;
}

} // namespace

KyResult Refusal(uint32_t aStatus, const std::string& aText)
{
    return {aStatus, KyString(aText.c_str())};
}

Evaluation::Evaluation(SpaceAccess& aAccess, std::string aName) : mAccess(aAccess), mName(std::move(aName))
{
    mAccess.mFailure.reset();
    ArvGcNode* const lNode = arv_gc_get_node(mAccess.mEvaluator, mName.c_str());
    if (lNode != nullptr && ARV_IS_GC_FEATURE_NODE(lNode))
    {
        mNode = ARV_GC_FEATURE_NODE(lNode);
        mKind = KindOf(mNode);
        mNode = mKind != NodeKind::None ? mNode : nullptr;
    }
}

Evaluation::~Evaluation()
{
    g_clear_error(&mError);
}

GError** Evaluation::Error()
{
    g_clear_error(&mError);
    return &mError;
}

KyResult Evaluation::GetResult() const
{
    if (mAccess.mFailure)
    {
        return *mAccess.mFailure;
    }
    if (mError == nullptr)
    {
        return {};
    }
    const bool lRange = g_error_matches(mError, ARV_GC_ERROR, ARV_GC_ERROR_OUT_OF_RANGE) != FALSE;
    return Refusal(lRange ? cInvalidParameter : static_cast<uint32_t>(KyResult::FAILURE),
                   "The feature " + mName + " cannot be evaluated: " + mError->message);
}

// Those behind the feature too, and those first that lengths of others come from. A feature that is a
// register of bytes is not read by the evaluator.
const std::vector<ArvGcRegister*>& Evaluation::GetRegisters()
{
    const auto [lFound, lNew] = mAccess.mRegisters.try_emplace(mName);
    if (lNew)
    {
        for (const std::string& lName : mAccess.mGraph->InvolvedIn(mName))
        {
            ArvGcNode* const lNode = arv_gc_get_node(mAccess.mEvaluator, lName.c_str());
            const bool lOwnBytes = mKind == NodeKind::Register && lNode == ARV_GC_NODE(mNode);
            if (lNode != nullptr && ARV_IS_GC_REGISTER(lNode) && !lOwnBytes)
            {
                lFound->second.push_back(ARV_GC_REGISTER(lNode));
            }
        }
    }
    return lFound->second;
}

// The evaluator takes memory for a whole register, whose length the description or the device may make up,
// and ends the process when there is not as much.
bool Evaluation::HasFittingLengths()
{
    if (mHasChecked)
    {
        return !HasFailed();
    }
    mHasChecked = true;
    for (ArvGcRegister* const lRegister : GetRegisters())
    {
        const guint64 lLength = arv_gc_register_get_length(lRegister, Error());
        if (!HasFailed() && lLength > cLongestValue)
        {
            const std::string lName = arv_gc_feature_node_get_name(ARV_GC_FEATURE_NODE(lRegister));
            mAccess.mFailure =
                Refusal(KyResult::FAILURE, "The feature " + lName + " is longer than any value.");
        }
        if (HasFailed())
        {
            return false;
        }
    }
    return true;
}

bool Evaluation::IsAvailable()
{
    return mNode != nullptr && HasFittingLengths() &&
           arv_gc_feature_node_is_implemented(mNode, Error()) != FALSE && !HasFailed() &&
           arv_gc_feature_node_is_available(mNode, Error()) != FALSE && !HasFailed();
}

bool Evaluation::IsReadable()
{
    return IsAvailable() && mKind != NodeKind::Category && mKind != NodeKind::Command &&
           arv_gc_feature_node_get_actual_access_mode(mNode) != ARV_GC_ACCESS_MODE_WO;
}

bool Evaluation::IsWritable()
{
    return IsAvailable() && mKind != NodeKind::Category &&
           arv_gc_feature_node_get_actual_access_mode(mNode) != ARV_GC_ACCESS_MODE_RO &&
           arv_gc_feature_node_is_locked(mNode, Error()) == FALSE && !HasFailed();
}

KyResult Evaluation::WrongKind() const
{
    return Refusal(cInvalidParameter, "The feature " + mName + " is of another kind.");
}

KyResult Evaluation::CheckKind(NodeKind aKind) const
{
    if (mNode == nullptr)
    {
        return Refusal(cNoSuchFeature, "There is no feature " + mName + ".");
    }
    return mKind == aKind ? KyResult() : WrongKind();
}

KyResult Evaluation::CheckAvailable()
{
    if (mNode == nullptr)
    {
        return Refusal(cNoSuchFeature, "There is no feature " + mName + ".");
    }
    const bool lAvailable = IsAvailable();
    if (HasFailed())
    {
        return GetResult();
    }
    return lAvailable ? KyResult()
                      : Refusal(cAccessDenied, "The feature " + mName + " is not available now.");
}

KyResult Evaluation::CheckReadable()
{
    KyResult lResult = CheckAvailable();
    if (lResult.IsOK() && !IsReadable())
    {
        return Refusal(cAccessDenied, "The feature " + mName + " can only be written.");
    }
    return lResult;
}

KyResult Evaluation::CheckWritable()
{
    KyResult lResult = CheckAvailable();
    if (!lResult.IsOK())
    {
        return lResult;
    }
    const bool lReadOnly = arv_gc_feature_node_get_actual_access_mode(mNode) == ARV_GC_ACCESS_MODE_RO;
    if (!lReadOnly && !IsWritable())
    {
        return HasFailed() ? GetResult()
                           : Refusal(cAccessDenied, "The feature " + mName + " cannot be written now.");
    }
    return lReadOnly ? Refusal(cWriteProtect, "The feature " + mName + " can only be read.") : lResult;
}

} // namespace KyGigE
