#pragma once

#include "kyserial/Options/Options.h"

namespace KySerialTool
{

/// Adds "doctor": what stands between this computer and bytes of a device, a line for each check.
void AddDoctorCommand(CLI::App& aProgram, Context& aContext);

} // namespace KySerialTool
