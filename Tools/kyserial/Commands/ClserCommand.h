#pragma once

#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds "clser": the Camera Link servers of this machine, seen through the client library alone.
void AddClserCommand(CLI::App& aProgram, Context& aContext);

/// The servers as a table.
std::string ClserTable(const std::vector<std::string>& aNames);

/// The servers, and who made the client library, as one JSON object.
std::string ClserJson(const std::vector<std::string>& aNames);

} // namespace KySerialTool
