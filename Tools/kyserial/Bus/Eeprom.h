#pragma once

#include "kyserial/Bus/I2CBus.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace KySerialTool
{

/// What an EEPROM looks like.
struct EepromShape
{
    uint8_t mAddress = 0x50;
    size_t mSize = 256;
    size_t mPage = 8; ///< Bytes that one write takes.
    size_t mOffsetBytes =
        1; ///< 1, or 2 for memories above 2 KiB. With 1, the block is part of the slave's address.
};

/// An EEPROM on an I2C bus. Every function throws OperationError when the memory does not answer.
class Eeprom
{
public:
    /// Called with the number of bytes that are newly done.
    using Advance = std::function<void(size_t)>;

    Eeprom(I2CBus& aBus, const EepromShape& aShape);

    /// All bytes from aOffset on. Requires: the range is within the memory.
    std::vector<uint8_t> Read(size_t aOffset, size_t aSize, const Advance& aAdvance);

    /// Writes page by page and waits for each write cycle: the memory does not acknowledge while it lasts.
    void Write(size_t aOffset, const std::vector<uint8_t>& aBytes, const Advance& aAdvance);

private:
    uint8_t SlaveAddress(size_t aOffset) const;
    std::vector<uint8_t> OffsetBytes(size_t aOffset) const;
    void AwaitWriteCycle(size_t aOffset);

    I2CBus& mBus;
    const EepromShape mShape;
};

} // namespace KySerialTool
