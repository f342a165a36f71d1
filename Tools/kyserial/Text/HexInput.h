#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Bytes that a user writes in hexadecimal: "9f", "03 00 10 00", "0x03001000"; each word is whole bytes.
/// \return Nothing when a word is anything else.
std::optional<std::vector<uint8_t>> ParseHexBytes(const std::vector<std::string>& aWords);

} // namespace KySerialTool
