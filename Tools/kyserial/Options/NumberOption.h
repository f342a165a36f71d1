#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Adds an option whose value is a number from 0 to aMaximum.
/// \param aUnit  What is counted, "milliseconds" for example; part of the help and of the refusal.
CLI::Option* AddNumberOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                             const std::string& aUnit, const std::string& aDescription, uint32_t& aValue);

/// Adds an option whose value is one of a few numbers.
/// \param aValues  At least one; part of the help and of the refusal.
/// \param aValue   Stays empty while the option is not given.
CLI::Option* AddNumberChoice(CLI::App& aCommand, const std::string& aName,
                             const std::vector<uint32_t>& aValues, const std::string& aDescription,
                             std::optional<uint32_t>& aValue);

} // namespace KySerialTool
