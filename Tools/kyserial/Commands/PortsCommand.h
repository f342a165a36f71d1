#pragma once

#include "kyserial/Device/PortSurvey.h"
#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds "ports": what the device offers.
void AddPortsCommand(CLI::App& aProgram, Context& aContext);

/// The findings as a table.
std::string PortsTable(const std::vector<PortFinding>& aFindings);

/// The findings as one JSON object.
std::string PortsJson(const std::string& aDevice, const std::vector<PortFinding>& aFindings);

} // namespace KySerialTool
