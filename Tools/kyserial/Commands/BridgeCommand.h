#pragma once

#include "kyserial/Options/Context.h"

#include <CLI/CLI.hpp>

namespace KySerialTool
{

/// Adds "bridge": a port of the device becomes a serial port of the host, or one for Camera Link clients.
void AddBridgeCommand(CLI::App& aProgram, Context& aContext);

} // namespace KySerialTool
