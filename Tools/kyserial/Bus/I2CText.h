#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KySerialTool
{

/// Slave addresses that belong to slaves; those below and above are the bus's own.
constexpr uint8_t cFirstI2CAddress = 0x08;
constexpr uint8_t cLastI2CAddress = 0x77;
constexpr uint8_t cHighestI2CAddress = 0x7F;

/// Bytes of the longest block that SMBus has.
constexpr uint32_t cLongestBlock = 32;

/// A slave's address. Throws UsageError for others than 0x08 to 0x77, with aAll than 0x00 to 0x7f.
uint8_t ParseI2CAddress(const std::string& aText, bool aAll);

/// A number of one byte, or up to aMaximum. Throws UsageError. \param aWhat  "register", "value"; for the
/// refusal.
uint32_t ParseI2CNumber(const std::string& aText, const std::string& aWhat, uint32_t aMaximum);

/// "0x00-0x3f". Throws UsageError.
std::pair<uint8_t, uint8_t> ParseI2CRange(const std::string& aText);

/// One message of a transfer.
struct I2CMessage
{
    bool mRead = false;
    uint8_t mAddress = 0;
    size_t mCount = 0;             ///< Bytes to read.
    std::vector<uint8_t> mBytes{}; ///< Bytes to write.
};

/// Messages as i2ctransfer takes them: {r|w}LENGTH[@ADDRESS], a write followed by its bytes. A message
/// without an address goes to that of the message before. The last byte of a write may end in "=" (repeat
/// it), "+" (count up),
/// "-" (count down) or "p" (pseudo-random from it) to fill the length. Throws UsageError.
std::vector<I2CMessage> ParseI2CMessages(const std::vector<std::string>& aWords, bool aAll);

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
