#pragma once

#include "Adapters/GigE/Evaluator/Dependencies.h"
#include "Adapters/GigE/Evaluator/NodeTable.h"
#include "Adapters/GigE/Evaluator/XmlDocument.h"

#include <KyBase/KyResult.h>

#include <memory>
#include <string>

namespace KyGigE
{

/// A device's GenICam description, read once; constant from then on.
class DeviceDescription
{
public:
    /// \param aXml  The device's text, which is not trusted.
    /// \param aDescription  Null on a failure.
    /// \return FAILURE: no XML, no device description, or larger than any device's.
    static KyResult Parse(std::string aXml, std::unique_ptr<DeviceDescription>& aDescription);

    DeviceDescription(const DeviceDescription&) = delete;
    DeviceDescription& operator=(const DeviceDescription&) = delete;

    const NodeTable& GetNodes() const { return mNodes; }
    const Dependencies& GetGraph() const { return *mGraph; }
    /// Written to a version of the schema that wants four bytes to be accessed as a register.
    bool HasRegistersOnly() const { return mRegistersOnly; }

private:
    DeviceDescription() = default;

    XmlDocument mDocument; ///< Holds the texts that the nodes refer to.
    NodeTable mNodes;
    std::unique_ptr<const Dependencies> mGraph;
    bool mRegistersOnly = false;
};

} // namespace KyGigE
