#pragma once

#include "Simulator/Network/FeatureRegisters.h"
#include "Simulator/Network/NetworkForms.h"

#include <array>
#include <string>

namespace KySimulator
{

/// The features that a camera has because it is on a network, besides those of its feature table.
constexpr std::array<const char*, 3> cTransportFeatures = {"GevHeartbeatTimeout", "GevCCP", "TLParamsLocked"};

/// The GenICam description (GenApi 1.1) of a camera: its features, exactly those of its feature table and cTransportFeatures.
///
/// Upstream features lie on event ports, whose address 0 is the event item: its size at 0, the data at 16, or at 24 with long
/// ids.
std::string MakeDeviceXml(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration,
                          const NetworkForms& aForms = {});

} // namespace KySimulator
