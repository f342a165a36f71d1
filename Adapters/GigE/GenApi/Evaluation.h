#pragma once

#include "Adapters/GigE/GenApi/INodeMap.h"
#include "Adapters/GigE/GenApi/SpaceDevice.h"

#include <string>

namespace KyGigE
{

// Statuses of GigE Vision that features are refused with.
constexpr uint32_t cNoSuchFeature = 0x8001;
constexpr uint32_t cInvalidParameter = 0x8002;
constexpr uint32_t cWriteProtect = 0x8004;
constexpr uint32_t cAccessDenied = 0x8006;

/// One use of the evaluator: finds a node, keeps what went wrong, and tells it. The caller holds the node
/// map's lock.
class Evaluation
{
public:
    Evaluation(SpaceAccess& aAccess, std::string aName);
    ~Evaluation();
    Evaluation(const Evaluation&) = delete;
    Evaluation& operator=(const Evaluation&) = delete;

    NodeKind GetKind() const { return mKind; }
    /// The node; null for NodeKind::None.
    ArvGcFeatureNode* GetNode() const { return mNode; }
    /// For Aravis's functions, which want it empty.
    GError** Error();
    /// Whether something went wrong since the beginning.
    bool HasFailed() const { return mError != nullptr || mAccess.mFailure.has_value(); }

    /// False: a register that is involved has a length that no value has, and must not be evaluated.
    bool HasFittingLengths();
    bool IsAvailable();
    bool IsReadable();
    bool IsWritable();
    /// OK, or why the feature cannot be read, or written, now.
    KyResult CheckReadable();
    KyResult CheckWritable();
    /// OK; or there is no such feature; or it is of another kind.
    KyResult CheckKind(NodeKind aKind) const;
    KyResult WrongKind() const;
    /// What went wrong, OK when nothing did.
    KyResult GetResult() const;

private:
    KyResult CheckAvailable();
    const std::vector<ArvGcRegister*>& GetRegisters();

    SpaceAccess& mAccess;
    const std::string mName;
    ArvGcFeatureNode* mNode = nullptr;
    NodeKind mKind = NodeKind::None;
    bool mHasChecked = false; ///< The lengths, once.
    GError* mError = nullptr;
};

/// A refusal.
KyResult Refusal(uint32_t aStatus, const std::string& aText);

} // namespace KyGigE
