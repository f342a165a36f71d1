#pragma once

#include "kyserial/Text/Failure.h"

#include <Platform/Console.h>

namespace KySerialTool
{

/// Runs the program: takes the command line apart, does what it says, and reports what goes wrong in one line
/// on the error output. Nothing is thrown.
ExitCode RunCommandLine(int aCount, const char* const* aArguments, KyToolPlatform::Console& aConsole);

} // namespace KySerialTool
