#pragma once

#include "kyserial/Bus/SpiBus.h"

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace KySerialTool
{

/// A serial flash memory with the usual commands, addresses of 24 bits, pages of 256 bytes and sectors of 4
/// KiB. Every function throws OperationError when the memory does not answer as such a memory does.
class FlashMemory
{
public:
    static constexpr size_t cPage = 256;
    static constexpr size_t cSector = 4096;
    /// What addresses of 24 bits reach.
    static constexpr size_t cLargest = 1U << 24U;

    /// Called with the number of bytes that are newly done.
    using Advance = std::function<void(size_t)>;

    /// Manufacturer, type, and capacity as a power of two.
    using Identity = std::array<uint8_t, 3>;

    explicit FlashMemory(SpiBus& aBus);

    Identity ReadIdentity();

    /// Bytes of a memory with this identity, from the table of chips or by the usual meaning of the last byte; 0 for
    /// an unknown one.
    static size_t SizeOf(const Identity& aIdentity);

    /// Reads bytes. Requires: the range is within the memory; likewise for the others.
    std::vector<uint8_t> Read(size_t aOffset, size_t aSize, const Advance& aAdvance);

    /// Programs bytes, which can only turn ones into zeros: erase first where that will not do.
    void Program(size_t aOffset, const std::vector<uint8_t>& aBytes, const Advance& aAdvance);

    /// Sets sectors to 0xFF. \param aOffset, aSize  Multiples of cSector.
    void EraseSectors(size_t aOffset, size_t aSize, const Advance& aAdvance);

    /// Sets the whole memory to 0xFF. \param aAdvance  Called with 0 while the memory is busy.
    void EraseChip(const Advance& aAdvance);

private:
    /// Sends a command that writes, and waits until the memory has done it.
    /// \param aWait  Called again and again meanwhile.
    void Write(
        const std::vector<uint8_t>& aCommand, uint64_t aLimit, const std::function<void()>& aWait = [] {});

    SpiBus& mBus;
};

} // namespace KySerialTool
