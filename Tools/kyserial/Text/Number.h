#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// A number as a user writes one: decimal digits, or hexadecimal ones behind "0x".
/// \return Nothing for any other text, signs and spaces included, and for numbers above aMaximum.
std::optional<uint64_t> ParseNumber(const std::string& aText, uint64_t aMaximum);

} // namespace KySerialTool
