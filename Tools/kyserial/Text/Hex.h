#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// A number as a user writes one: decimal digits, or hexadecimal ones after "0x".
/// \return Nothing for any other text, signs and spaces included, and for numbers above aMaximum.
std::optional<uint64_t> ParseNumber(const std::string& aText, uint64_t aMaximum);

/// A number of bytes as a user writes one: "4096", "0x1000", "4KiB" or "1MiB".
/// \return Nothing for any other text, and for numbers above aMaximum.
std::optional<uint64_t> ParseSize(const std::string& aText, uint64_t aMaximum);

/// Bytes that a user writes in hexadecimal: "9f", "03 00 10 00", "0x03001000"; each word is whole bytes.
/// \return Nothing when a word is anything else.
std::optional<std::vector<uint8_t>> ParseHexBytes(const std::vector<std::string>& aWords);

/// Bytes that a user types, or a file has, as hexadecimal digits: two are a byte, and between bytes spaces, commas
/// and line ends are skipped. The text comes in pieces of any size.
class HexReader
{
public:
    /// \param aBytes  Receives the bytes that are complete, appended.
    /// \return Number of characters taken: fewer than aSize when the next one is no digit, or cuts a byte in two.
    size_t Add(const uint8_t* aData, size_t aSize, std::vector<uint8_t>& aBytes);

    /// Whether a byte has been begun; forgets it.
    bool Drop();

private:
    std::optional<uint8_t> mFirst; // digit of a byte
};

/// Bytes as lines of an offset, up to sixteen hexadecimal numbers and the printable characters among them:
///
///     00000010  4f 4b 0d 0a                                       |OK..|
///
/// Bytes come in pieces of any size; a line is given out when it is full, or on Flush().
class HexDump
{
public:
    static constexpr size_t cBytesPerLine = 16;

    /// \return The lines that are full with these bytes.
    std::string Add(const uint8_t* aData, size_t aSize);

    /// \return The line that has been begun, as it is; empty without one. The next byte starts a new
    /// line.
    std::string Flush();

private:
    std::vector<uint8_t> mLine;
    uint64_t mOffset = 0;
};

/// Bytes as "53 54 41".
std::string HexBytes(const uint8_t* aData, size_t aSize);

/// Bytes as characters, a point for those that cannot be printed.
std::string PrintableBytes(const uint8_t* aData, size_t aSize);

} // namespace KySerialTool
