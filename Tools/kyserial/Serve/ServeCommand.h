#pragma once

#include "kyserial/Options/Options.h"

namespace KySerialTool
{

/// Adds "serve": all ports of all devices of a configuration file, from one process.
void AddServeCommand(CLI::App& aProgram, Context& aContext);

/// Adds "status": what a service does now.
void AddStatusCommand(CLI::App& aProgram, Context& aContext);

} // namespace KySerialTool
