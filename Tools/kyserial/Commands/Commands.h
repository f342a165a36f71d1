#pragma once

#include "kyserial/Device/NetworkDevices.h"
#include "kyserial/Device/PortSurvey.h"
#include "kyserial/Options/Options.h"

#include <CommandLine/ParserNames.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds "bridge": a port of the device becomes a serial port of the host, or one for Camera Link clients.
void AddBridgeCommand(CLI::App& aProgram, Context& aContext);

/// Adds "clser": the Camera Link servers of this machine, seen through the client library alone.
void AddClserCommand(CLI::App& aProgram, Context& aContext);

/// The servers as a table.
std::string ClserTable(const std::vector<std::string>& aNames);

/// The servers, and who made the client library, as one JSON object.
std::string ClserJson(const std::vector<std::string>& aNames);

/// Adds "devices": the devices that answer on the network.
void AddDevicesCommand(CLI::App& aProgram, Context& aContext);

/// The findings as a table.
std::string DevicesTable(const std::vector<NetworkFinding>& aFindings);

/// The findings as one JSON object.
std::string DevicesJson(const std::vector<NetworkFinding>& aFindings);

/// Adds "features": the device's GenICam features by name.
void AddFeaturesCommand(CLI::App& aProgram, Context& aContext);

/// The findings as a table.
std::string FeaturesTable(const std::vector<FeatureFinding>& aFindings);

/// The findings as one JSON object.
std::string FeaturesJson(const std::string& aDevice, const std::vector<FeatureFinding>& aFindings);

/// Adds "ports": what the device offers.
void AddPortsCommand(CLI::App& aProgram, Context& aContext);

/// The findings as a table.
std::string PortsTable(const std::vector<PortFinding>& aFindings);

/// The findings as one JSON object.
std::string PortsJson(const std::string& aDevice, const std::vector<PortFinding>& aFindings);

/// Adds "term": the standard input to a port, and the port to the standard output.
void AddTermCommand(CLI::App& aProgram, Context& aContext);

} // namespace KySerialTool
