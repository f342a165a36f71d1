#pragma once

#include "Adapters/GigE/GenApi/INodeMap.h"
#include "KyGvcp/Protocol.h"

namespace KyGigE
{

/// The features of a device whose description cannot be used: there are none.
class NoFeatures final : public INodeMap
{
public:
    NodeKind GetKind(const std::string& /*aName*/) override { return NodeKind::None; }
    bool IsAvailable(const std::string& /*aName*/) override { return false; }
    bool IsReadable(const std::string& /*aName*/) override { return false; }
    bool IsWritable(const std::string& /*aName*/) override { return false; }
    FeatureState GetState(const std::string& /*aName*/, bool /*aWithValue*/) override { return {}; }
    KyResult GetInteger(const std::string& /*aName*/, int64_t& aValue) override
    {
        aValue = 0;
        return None();
    }
    KyResult GetEntries(const std::string& /*aName*/, std::vector<std::string>& aEntries) override
    {
        aEntries.clear();
        return None();
    }
    KyResult GetText(const std::string& /*aName*/, std::string& aValue) override
    {
        aValue.clear();
        return None();
    }
    KyResult SetText(const std::string& /*aName*/, const std::string& /*aValue*/) override { return None(); }
    KyResult GetRegister(const std::string& /*aName*/, RegisterUse /*aUse*/, RegisterPlace& aPlace) override
    {
        aPlace = {};
        return None();
    }

private:
    static KyResult None()
    {
        return {KyGvcp::cNotImplemented, "The device has no features that can be used."};
    }
};

} // namespace KyGigE
