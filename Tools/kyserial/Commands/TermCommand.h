#pragma once

#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

namespace KySerialTool
{

/// Adds "term": the standard input to a port, and the port to the standard output.
void AddTermCommand(CLI::App& aProgram, Context& aContext);

} // namespace KySerialTool
