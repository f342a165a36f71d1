#pragma once

#include <cstdint>
#include <cstring>

/// \file
/// The serial registers of the maker's video-interface engines, in the GigE Vision register space.

namespace KySerialLib
{

/// Interrupt enable; interrupt events carry the same bits as their status. Bits of other functions are kept.
inline constexpr uint32_t cRegInterruptEnable = 0xB838;
inline constexpr uint32_t cRegUart0Data = 0xB84C;
inline constexpr uint32_t cRegUart1Data = 0xB850;
inline constexpr uint32_t cRegBulk0Config = 0xB898;
/// Function capabilities: bit 31 says that the register means anything, bits 0 to 2 count the UARTs.
inline constexpr uint32_t cRegFunctionCaps = 0xB8FC;
inline constexpr uint32_t cRegBulk0Rate = 0xB954;
/// Bulk interface capabilities: bits 0 and 1 both set mean I2C.
inline constexpr uint32_t cRegBulk03Config = 0xB95C;

inline constexpr uint32_t cCapsImplemented = 0x80000000U;
inline constexpr uint32_t cCapsUartCountMask = 0x7U;

/// Serial interrupts of the UARTs, and of the bulk port.
inline constexpr uint16_t cEventInterrupt = 0x9000;
/// Further serial interrupts of the bulk port.
inline constexpr uint16_t cEventBulkInterrupt = 0x9001;

/// Word aIndex of an event's payload, which consists of little-endian words and has no alignment.
inline uint32_t EventWord(const void* aData, uint32_t aIndex)
{
    uint8_t lBytes[4];
    std::memcpy(lBytes, static_cast<const uint8_t*>(aData) + size_t{aIndex} * 4, sizeof(lBytes));
    return static_cast<uint32_t>(lBytes[0]) | static_cast<uint32_t>(lBytes[1]) << 8U |
           static_cast<uint32_t>(lBytes[2]) << 16U | static_cast<uint32_t>(lBytes[3]) << 24U;
}

} // namespace KySerialLib
