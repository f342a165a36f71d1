#pragma once

#include "Simulator/Network/FeatureRegisters.h"

#include <string>

namespace KySimulator
{

/// The GenICam description (GenApi 1.1) of a camera: its features, exactly those of its feature table.
///
/// Upstream features lie on event ports, whose address 0 is the event item: its size at 0, the data at 16.
std::string MakeDeviceXml(const FeatureRegisters& aFeatures, const CameraConfiguration& aConfiguration);

} // namespace KySimulator
