#pragma once

#include "kyserial/Serve/ServedDevice.h"

#include <string>
#include <vector>

namespace KySerialTool
{

/// What the service does as one JSON object.
std::string StatusJson(const std::string& aName, const std::vector<ServedDeviceStatus>& aDevices);

/// The same for Prometheus: as OpenMetrics, or in its text format 0.0.4.
std::string StatusMetrics(const std::vector<ServedDeviceStatus>& aDevices, bool aOpen);

/// What passed a port as one JSON object.
std::string TrafficJson(const std::vector<TrafficBlock>& aBlocks, uint64_t aNext);

/// What StatusJson() gave as a table for a terminal. Throws OperationError when it is something else.
std::string StatusTable(const std::string& aJson);

} // namespace KySerialTool
