#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

namespace KySerialTool
{

/// Adds an option whose value is a number from 0 to aMaximum.
/// \param aUnit  What is counted, "milliseconds" for example; part of the help and of the refusal.
CLI::Option* AddNumberOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                             const std::string& aUnit, const std::string& aDescription, uint32_t& aValue);

} // namespace KySerialTool
