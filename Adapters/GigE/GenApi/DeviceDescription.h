#pragma once

#include "Adapters/GigE/GenApi/FeatureGraph.h"

#include <KyBase/KyResult.h>

#include <memory>
#include <string>

namespace KyGigE
{

/// A device's GenICam description, checked and made ready for an evaluator that knows no events: what lies on
/// an event port lies in the event space (EventAddress.h) instead.
class DeviceDescription
{
public:
    /// \param aXml  The device's text, which is not trusted.
    /// \param aDescription  Null on a failure.
    /// \return FAILURE: no XML, not a device description, or one that no evaluator gets to the end of.
    static KyResult Parse(const std::string& aXml, std::unique_ptr<DeviceDescription>& aDescription);

    /// The text for the evaluator.
    const std::string& GetXml() const { return mXml; }
    const FeatureGraph& GetGraph() const { return mGraph; }
    /// Written to a version of the schema that wants four bytes to be accessed as a register.
    bool HasRegistersOnly() const { return mRegistersOnly; }

private:
    DeviceDescription(xmlDoc& aDocument, const xmlNode& aRoot);

    FeatureGraph mGraph;
    std::string mXml;
    bool mRegistersOnly;
};

} // namespace KyGigE
