#pragma once

#include "Simulator/Camera/CameraConfiguration.h"
#include "Simulator/Camera/CameraModel.h"

#include <map>
#include <optional>
#include <string>

namespace KySimulator
{

/// What a feature is about.
enum class FeatureId
{
    Vendor,
    Model,
    Version,
    ManufacturerInfo,
    SerialNumber,
    UserID,
    MacAddress,
    BulkSelector,
    BulkMode,
    BaudRate,
    Parity,
    StopBits,
    EventSelector,
    EventNotification,
    Downstream,
    UpstreamBuffer,
    UpstreamLength
};

/// A feature of the camera.
struct Feature
{
    FeatureId mId;
    FeatureKind mKind;
    bool mReadable;
    bool mWritable;
    std::optional<Port> mPort; ///< Without one it belongs to the selected bulk port.
};

using FeatureTable = std::map<std::string, Feature>;

/// The features of a camera.
FeatureTable MakeFeatureTable(const CameraConfiguration& aConfiguration);

/// Entry names of the protocols, by their number.
const char* NameOf(Protocol aProtocol);

} // namespace KySimulator
