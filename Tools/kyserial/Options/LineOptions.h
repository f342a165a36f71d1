#pragma once

#include <CLI/CLI.hpp>
#include <KySerial/KySerialPortConfiguration.h>

#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// Settings of a line as far as a command line gives them.
struct LineSelection
{
    std::optional<uint32_t> mBaudRate{};
    std::optional<KyParity> mParity{};
    std::optional<uint32_t> mBits{};
    std::optional<uint32_t> mStopBits{};
};

/// Adds --baud, --parity, --bits and --stop. What a bridge does not know is refused.
void AddLineOptions(CLI::App& aCommand, LineSelection& aSelection);

/// The settings, with the library's own where none are given.
KySerialPortConfiguration ToConfiguration(const LineSelection& aSelection);

/// "9600 8N1".
std::string LineText(const KySerialPortConfiguration& aLine);

} // namespace KySerialTool
