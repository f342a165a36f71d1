#pragma once

#include <cstdint>

namespace KyGigE
{

// The address space of a device is 32 bits wide, that of a node map 64. What lies on an event port gets
// addresses above the device's, so that everything that node maps can do with registers works there too.
//
// | bits 48 to 63 | 32 to 47         | 0 to 31                                   |
// |---------------|------------------|-------------------------------------------|
// | 0x4556        | event identifier | offset from the first byte of the item    |

constexpr uint64_t cEventSpace = 0x4556000000000000U;
constexpr unsigned cEventShift = 32;

/// Address of the first byte of an event's item.
constexpr uint64_t EventAddress(uint16_t aEventID)
{
    return cEventSpace | (static_cast<uint64_t>(aEventID) << cEventShift);
}

constexpr bool IsEventAddress(uint64_t aAddress)
{
    return aAddress >> 48U == cEventSpace >> 48U;
}

constexpr uint16_t EventOf(uint64_t aAddress)
{
    return static_cast<uint16_t>(aAddress >> cEventShift);
}

constexpr uint32_t EventOffset(uint64_t aAddress)
{
    return static_cast<uint32_t>(aAddress);
}

} // namespace KyGigE
