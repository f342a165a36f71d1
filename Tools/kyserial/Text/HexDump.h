#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KySerialTool
{

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

    /// \return The line that has been begun, as it is; nothing when there is none. The next byte starts a new
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
