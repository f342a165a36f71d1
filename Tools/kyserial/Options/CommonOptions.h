#pragma once

#include "kyserial/Device/DeviceSelector.h"

#include <CLI/CLI.hpp>
#include <KySerial/KySerialTypes.h>

#include <cstdint>
#include <string>

namespace KySerialTool
{

/// What every command takes.
struct CommonOptions
{
    DeviceSelection mDevice;
    int mLogLevel = 0; ///< As JxUtilsLib::Logger::SetPriority() takes it; above PriorityFatal is silence.

    CommonOptions();
};

/// Adds --device, --log-level and the options of the simulated camera to a command.
void AddCommonOptions(CLI::App& aCommand, CommonOptions& aOptions);

/// Which ports a command works on.
enum class PortKind
{
    Any,
    Bulk ///< I2C and SPI are there only.
};

/// Adds the required option --port.
void AddPortOption(CLI::App& aCommand, PortKind aKind, KyDeviceSerial& aPort);

/// Makes the log level count, sends broken assertions of the library to the log, and goes on behind them:
/// some of them stand at questions that a program may well ask, such as that about the registers of bulk
/// port 1.
void ApplyLogOptions(const CommonOptions& aOptions);

} // namespace KySerialTool
