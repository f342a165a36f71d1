#pragma once

#include "Adapters/GigE/Evaluator/Evaluator.h"
#include "Adapters/GigE/GenApi/INodeMap.h"

#include <JxUtilsLib/Mutex.h>

#include <memory>
#include <string>

namespace KyGigE
{

/// The features of a device, as its description says.
///
/// Values are kept as far as the description allows it: a register that is written through the map holds what
/// was written ("WriteThrough"), is read anew ("WriteAround") or is always read ("NoCache"); one with a
/// polling time is kept that long; a write drops what depends on the feature or names it as its invalidator.
/// What an event brought is never kept.
///
/// One lock is held during each call, accesses to the register space included; the register space must not
/// call back.
class NodeMap final : public INodeMap
{
public:
    /// \param aDescription, aSpace  Have to outlive the object.
    /// \param aClock  Milliseconds since anything, for polling times.
    NodeMap(const DeviceDescription& aDescription, IRegisterSpace& aSpace, Evaluator::Clock aClock);
    /// With the system's steady clock.
    NodeMap(const DeviceDescription& aDescription, IRegisterSpace& aSpace);

    NodeKind GetKind(const std::string& aName) override;
    bool IsAvailable(const std::string& aName) override;
    bool IsReadable(const std::string& aName) override;
    bool IsWritable(const std::string& aName) override;
    FeatureState GetState(const std::string& aName, bool aWithValue) override;
    KyResult GetInteger(const std::string& aName, int64_t& aValue) override;
    KyResult GetEntries(const std::string& aName, std::vector<std::string>& aEntries) override;
    KyResult GetText(const std::string& aName, std::string& aValue) override;
    KyResult SetText(const std::string& aName, const std::string& aValue) override;
    KyResult GetRegister(const std::string& aName, RegisterUse aUse, RegisterPlace& aPlace) override;

    /// What an integer or floating-point feature may be now.
    KyResult GetRange(const std::string& aName, Range& aRange);
    /// Whether the device has done a command that was executed. A device that does not say so has.
    KyResult IsDone(const std::string& aName, bool& aDone);
    /// Visits of nodes, and steps of formulas, that the last call took (Evaluator::cMostVisits): its costs, whatever the machine.
    int64_t GetVisits();

private:
    /// One use of the evaluator for one feature.
    struct Use
    {
        NodeId mNode = cNoNode;
        NodeKind mKind = NodeKind::None;
        Access mAccess; ///< Good after CheckReadable() or CheckWritable().
    };

    Use Begin(const std::string& aName) JX_REQUIRES(mLock);
    KyResult CheckKind(const Use& aUse, const std::string& aName, NodeKind aKind) const;
    KyResult CheckAccess(Use& aUse, const std::string& aName) JX_REQUIRES(mLock);
    KyResult CheckReadable(Use& aUse, const std::string& aName) JX_REQUIRES(mLock);
    KyResult CheckWritable(Use& aUse, const std::string& aName) JX_REQUIRES(mLock);
    bool MakeText(const Use& aUse, std::string& aValue) JX_REQUIRES(mLock);
    bool MakeEntries(NodeId aEnumeration, std::vector<std::string>& aEntries) JX_REQUIRES(mLock);
    bool Set(const Use& aUse, const std::string& aName, const std::string& aValue) JX_REQUIRES(mLock);
    bool SetEntry(const Use& aUse, const std::string& aName, const std::string& aValue) JX_REQUIRES(mLock);

    JxUtilsLib::Mutex mLock; // the evaluator
    Evaluator mEvaluator;
};

} // namespace KyGigE
