#pragma once

#include "kyserial/Bridge/HostSelection.h"

#include <CommandLine/ParserNames.h>

namespace KySerialTool
{

/// Adds --tty, --pty, --com, --clser, --tcp and --rfc2217; one at most is taken.
void AddHostOptions(CLI::App& aCommand, HostSelection& aSelection);

/// Throws UsageError when no host side was given.
void CheckHostSelection(const HostSelection& aSelection);

} // namespace KySerialTool
