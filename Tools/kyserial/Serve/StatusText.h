#pragma once

#include "kyserial/Serve/ServedDevice.h"

#include <string>
#include <vector>

namespace KySerialTool
{

/// What the service does as one JSON object.
std::string StatusJson(const std::string& aName, const std::vector<ServedDeviceStatus>& aDevices);

/// The same as OpenMetrics.
std::string StatusMetrics(const std::vector<ServedDeviceStatus>& aDevices);

/// What StatusJson() gave as a table for a terminal. Throws OperationError when it is something else.
std::string StatusTable(const std::string& aJson);

} // namespace KySerialTool
