#pragma once

#include "kyserial/Device/NetworkDevices.h"
#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds "devices": the devices that answer on the network.
void AddDevicesCommand(CLI::App& aProgram, Context& aContext);

/// The findings as a table.
std::string DevicesTable(const std::vector<NetworkFinding>& aFindings);

/// The findings as one JSON object.
std::string DevicesJson(const std::vector<NetworkFinding>& aFindings);

} // namespace KySerialTool
