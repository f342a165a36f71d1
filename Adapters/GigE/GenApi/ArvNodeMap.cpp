#include "Adapters/GigE/GenApi/ArvNodeMap.h"

#include "Adapters/GigE/GenApi/Evaluation.h"
#include "JxUtilsLib/LockScope.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace KyGigE
{

using JxUtilsLib::LockScope;

namespace
{

/// A decimal or, behind 0x, a hexadecimal number; nothing else.
bool ParseInteger(const std::string& aText, int64_t& aValue)
{
    const bool lHexadecimal = aText.rfind("0x", 0) == 0 || aText.rfind("0X", 0) == 0;
    char* lEnd = nullptr;
    errno = 0;
    aValue = lHexadecimal ? static_cast<int64_t>(std::strtoull(aText.c_str(), &lEnd, 16))
                          : std::strtoll(aText.c_str(), &lEnd, 10);
    return !aText.empty() && *lEnd == '\0' && errno == 0;
}

bool ParseFloat(const std::string& aText, double& aValue)
{
    char* lEnd = nullptr;
    aValue = g_ascii_strtod(aText.c_str(), &lEnd); // decimal points, whatever the user's language has
    return !aText.empty() && *lEnd == '\0';
}

bool ParseBoolean(const std::string& aText, bool& aValue)
{
    aValue = aText == "true" || aText == "1";
    return aValue || aText == "false" || aText == "0";
}

std::vector<std::string> EntriesOf(Evaluation& aEvaluation)
{
    guint lCount = 0;
    const char** const lNames = arv_gc_enumeration_dup_available_string_values(
        ARV_GC_ENUMERATION(aEvaluation.GetNode()), &lCount, aEvaluation.Error());
    std::vector<std::string> lEntries(lNames, lNames != nullptr ? lNames + lCount : lNames);
    g_free(lNames);
    return lEntries;
}

KyResult Unfit(const std::string& aName, const std::string& aValue)
{
    return Refusal(cInvalidParameter, "The feature " + aName + " does not take " + aValue + ".");
}

void SetString(Evaluation& aEvaluation, const std::string& aValue)
{
    arv_gc_string_set_value(ARV_GC_STRING(aEvaluation.GetNode()), aValue.c_str(), aEvaluation.Error());
}

KyResult Set(Evaluation& aEvaluation, const std::string& aName, const std::string& aValue)
{
    ArvGcFeatureNode* const lNode = aEvaluation.GetNode();
    int64_t lInteger = 0;
    double lFloat = 0;
    bool lBoolean = false;
    switch (aEvaluation.GetKind())
    {
    case NodeKind::Integer:
        if (!ParseInteger(aValue, lInteger))
        {
            return Unfit(aName, aValue);
        }
        arv_gc_integer_set_value(ARV_GC_INTEGER(lNode), lInteger, aEvaluation.Error());
        break;
    case NodeKind::Float:
        if (!ParseFloat(aValue, lFloat))
        {
            return Unfit(aName, aValue);
        }
        arv_gc_float_set_value(ARV_GC_FLOAT(lNode), lFloat, aEvaluation.Error());
        break;
    case NodeKind::Boolean:
        if (!ParseBoolean(aValue, lBoolean))
        {
            return Unfit(aName, aValue);
        }
        arv_gc_boolean_set_value(ARV_GC_BOOLEAN(lNode), lBoolean ? TRUE : FALSE, aEvaluation.Error());
        break;
    case NodeKind::Command:
        if (!ParseBoolean(aValue, lBoolean) || !lBoolean)
        {
            return Unfit(aName, aValue);
        }
        arv_gc_command_execute(ARV_GC_COMMAND(lNode), aEvaluation.Error());
        break;
    case NodeKind::Enumeration:
    {
        const std::vector<std::string> lEntries = EntriesOf(aEvaluation);
        if (aEvaluation.HasFailed())
        {
            break;
        }
        if (std::find(lEntries.begin(), lEntries.end(), aValue) == lEntries.end())
        {
            return Refusal(cInvalidParameter, "The feature " + aName + " has no entry " + aValue + ".");
        }
        arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(lNode), aValue.c_str(), aEvaluation.Error());
        break;
    }
    case NodeKind::String:
        if (static_cast<gint64>(aValue.size()) >
            arv_gc_string_get_max_length(ARV_GC_STRING(lNode), aEvaluation.Error()))
        {
            return aEvaluation.HasFailed()
                       ? aEvaluation.GetResult()
                       : Refusal(cInvalidParameter, "The text is too long for " + aName + ".");
        }
        SetString(aEvaluation, aValue);
        break;
    default:
        return aEvaluation.WrongKind();
    }
    return aEvaluation.GetResult();
}

} // namespace

struct ArvNodeMap::Parts
{
    explicit Parts(IRegisterSpace& aSpace) : mAccess{aSpace} {}
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;
    ~Parts()
    {
        g_clear_object(&mAccess.mEvaluator);
        g_clear_object(&mDevice);
    }

    JxUtilsLib::Mutex mLock; // Aravis's evaluator and everything below
    SpaceAccess mAccess;
    ArvDevice* mDevice = nullptr;
};

ArvNodeMap::ArvNodeMap(std::unique_ptr<Parts> aParts) : mThis(std::move(aParts)) {}

ArvNodeMap::~ArvNodeMap() = default;

KyResult ArvNodeMap::Create(const DeviceDescription& aDescription, IRegisterSpace& aSpace,
                            std::unique_ptr<INodeMap>& aMap)
{
    aMap.reset();
    auto lParts = std::make_unique<Parts>(aSpace);
    SpaceAccess& lAccess = lParts->mAccess;
    lAccess.mRegistersOnly = aDescription.HasRegistersOnly();
    lAccess.mXml = aDescription.GetXml();
    lAccess.mGraph = std::make_unique<const FeatureGraph>(aDescription.GetGraph());
    lParts->mDevice = NewSpaceDevice(lAccess);
    lAccess.mEvaluator = arv_gc_new(lParts->mDevice, lAccess.mXml.data(), lAccess.mXml.size());
    if (lAccess.mEvaluator == nullptr)
    {
        return {KyResult::FAILURE, "The device's description cannot be used."};
    }
    arv_gc_set_range_check_policy(lAccess.mEvaluator, ARV_RANGE_CHECK_POLICY_ENABLE);
    aMap.reset(new ArvNodeMap(std::move(lParts)));
    return {};
}

NodeKind ArvNodeMap::GetKind(const std::string& aName)
{
    const LockScope lScope(mThis->mLock);
    return Evaluation(mThis->mAccess, aName).GetKind();
}

bool ArvNodeMap::IsAvailable(const std::string& aName)
{
    const LockScope lScope(mThis->mLock);
    return Evaluation(mThis->mAccess, aName).IsAvailable();
}

bool ArvNodeMap::IsReadable(const std::string& aName)
{
    const LockScope lScope(mThis->mLock);
    return Evaluation(mThis->mAccess, aName).IsReadable();
}

bool ArvNodeMap::IsWritable(const std::string& aName)
{
    const LockScope lScope(mThis->mLock);
    return Evaluation(mThis->mAccess, aName).IsWritable();
}

KyResult ArvNodeMap::GetInteger(const std::string& aName, int64_t& aValue)
{
    aValue = 0;
    const LockScope lScope(mThis->mLock);
    Evaluation lEvaluation(mThis->mAccess, aName);
    KyResult lResult = lEvaluation.CheckKind(NodeKind::Integer);
    if (lResult.IsOK())
    {
        lResult = lEvaluation.CheckReadable();
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    aValue = arv_gc_integer_get_value(ARV_GC_INTEGER(lEvaluation.GetNode()), lEvaluation.Error());
    lResult = lEvaluation.GetResult();
    aValue = lResult.IsOK() ? aValue : 0;
    return lResult;
}

KyResult ArvNodeMap::GetEntries(const std::string& aName, std::vector<std::string>& aEntries)
{
    aEntries.clear();
    const LockScope lScope(mThis->mLock);
    Evaluation lEvaluation(mThis->mAccess, aName);
    KyResult lResult = lEvaluation.CheckKind(NodeKind::Enumeration);
    if (lResult.IsOK())
    {
        // Entries have conditions.
        std::vector<std::string> lEntries =
            lEvaluation.HasFittingLengths() ? EntriesOf(lEvaluation) : std::vector<std::string>();
        lResult = lEvaluation.GetResult();
        aEntries = lResult.IsOK() ? std::move(lEntries) : std::vector<std::string>();
    }
    return lResult;
}

KyResult ArvNodeMap::GetText(const std::string& aName, std::string& aValue)
{
    aValue.clear();
    const LockScope lScope(mThis->mLock);
    Evaluation lEvaluation(mThis->mAccess, aName);
    const NodeKind lKind = lEvaluation.GetKind();
    if (lKind == NodeKind::Register || lKind == NodeKind::Command || lKind == NodeKind::Category)
    {
        return lEvaluation.WrongKind();
    }
    KyResult lResult = lEvaluation.CheckReadable();
    if (!lResult.IsOK())
    {
        return lResult;
    }
    const char* const lText =
        arv_gc_feature_node_get_value_as_string(lEvaluation.GetNode(), lEvaluation.Error());
    lResult = lEvaluation.GetResult();
    if (lResult.IsOK() && lText == nullptr)
    {
        return Refusal(cAccessDenied, "The value of " + aName + " has no entry.");
    }
    aValue = lResult.IsOK() ? lText : "";
    return lResult;
}

KyResult ArvNodeMap::SetText(const std::string& aName, const std::string& aValue)
{
    const LockScope lScope(mThis->mLock);
    Evaluation lEvaluation(mThis->mAccess, aName);
    const NodeKind lKind = lEvaluation.GetKind();
    if (lKind == NodeKind::Register || lKind == NodeKind::Category)
    {
        return lEvaluation.WrongKind();
    }
    KyResult lResult = lEvaluation.CheckWritable();
    return lResult.IsOK() ? Set(lEvaluation, aName, aValue) : lResult;
}

KyResult ArvNodeMap::GetRegister(const std::string& aName, RegisterUse aUse, RegisterPlace& aPlace)
{
    aPlace = {};
    const LockScope lScope(mThis->mLock);
    Evaluation lEvaluation(mThis->mAccess, aName);
    KyResult lResult = lEvaluation.CheckKind(NodeKind::Register);
    if (lResult.IsOK() && aUse != RegisterUse::Look)
    {
        lResult = aUse == RegisterUse::Read ? lEvaluation.CheckReadable() : lEvaluation.CheckWritable();
    }
    if (!lResult.IsOK())
    {
        return lResult;
    }
    if (!lEvaluation.HasFittingLengths()) // of registers that the address comes from
    {
        return lEvaluation.GetResult();
    }
    ArvGcRegister* const lRegister = ARV_GC_REGISTER(lEvaluation.GetNode());
    const uint64_t lAddress = arv_gc_register_get_address(lRegister, lEvaluation.Error());
    if (!lEvaluation.HasFailed())
    {
        const uint64_t lLength = arv_gc_register_get_length(lRegister, lEvaluation.Error());
        aPlace = lEvaluation.HasFailed() ? RegisterPlace() : RegisterPlace{lAddress, lLength};
    }
    return lEvaluation.GetResult();
}

} // namespace KyGigE
