#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace KySerialTool
{

/// Which addresses of a bus answered; nothing for those that were not asked.
using I2CAnswers = std::array<std::optional<bool>, 128>;

/// The answers in the layout of i2cdetect.
std::string DetectTable(const I2CAnswers& aAnswers);

/// Where the registers of a dump begin and end.
struct DumpRange
{
    uint32_t mFirst = 0;
    uint32_t mLast = 0xFF;
};

/// Values of a dump by register number; nothing for those that could not be read.
using DumpValues = std::array<std::optional<uint16_t>, 256>;

/// Bytes in the layout of i2cdump: numbers and characters.
std::string DumpBytesTable(const DumpValues& aValues, DumpRange aRange);

/// 16-bit words, one at each register number, in the layout of i2cdump.
std::string DumpWordsTable(const DumpValues& aValues, DumpRange aRange);

} // namespace KySerialTool
