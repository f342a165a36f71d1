#pragma once

#include "Adapters/GigE/GenApi/DeviceDescription.h"
#include "Adapters/GigE/GenApi/INodeMap.h"
#include "Adapters/GigE/GenApi/IRegisterSpace.h"

#include <memory>

namespace KyGigE
{

/// The features of a device, evaluated by Aravis. Nothing is cached: each access reads the device.
///
/// Aravis's evaluator is not for several threads, so one lock is held during each call, accesses to the
/// register space included; the register space must not call back.
class ArvNodeMap final : public INodeMap
{
public:
    /// \param aSpace  Has to outlive the object.
    /// \param aMap  Null on a failure. \return FAILURE: Aravis does not understand the description.
    static KyResult Create(const DeviceDescription& aDescription, IRegisterSpace& aSpace,
                           std::unique_ptr<INodeMap>& aMap);
    ~ArvNodeMap() override;

    NodeKind GetKind(const std::string& aName) override;
    bool IsAvailable(const std::string& aName) override;
    bool IsReadable(const std::string& aName) override;
    bool IsWritable(const std::string& aName) override;
    KyResult GetInteger(const std::string& aName, int64_t& aValue) override;
    KyResult GetEntries(const std::string& aName, std::vector<std::string>& aEntries) override;
    KyResult GetText(const std::string& aName, std::string& aValue) override;
    KyResult SetText(const std::string& aName, const std::string& aValue) override;
    KyResult GetRegister(const std::string& aName, RegisterUse aUse, RegisterPlace& aPlace) override;

private:
    struct Parts;
    explicit ArvNodeMap(std::unique_ptr<Parts> aParts);

    const std::unique_ptr<Parts> mThis;
};

} // namespace KyGigE
