#pragma once

namespace KySerialTool
{

/// What the program leaves to the shell. Scripts rely on the numbers.
enum class ExitCode : int
{
    Ok = 0,
    Failed = 1, ///< The device, the library or a file refused; the reason is on the error output.
    Usage = 2   ///< Nothing was tried: the command line makes no sense.
};

} // namespace KySerialTool
