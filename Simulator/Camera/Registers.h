#pragma once

#include <cstdint>

namespace KySimulator
{

// Addresses of the serial registers.
constexpr uint32_t cInterruptEnable = 0xB838;
constexpr uint32_t cUart0Data = 0xB84C;
constexpr uint32_t cUart1Data = 0xB850;
constexpr uint32_t cBulk0Configuration = 0xB898;
constexpr uint32_t cFunctionCapabilities = 0xB8FC;
constexpr uint32_t cBulk0Rate = 0xB954;
constexpr uint32_t cBulkCapabilities = 0xB95C;

// Interrupt bits, in the enable register and in the status word of events.
constexpr uint32_t cUart0TransmitDone = 0x1;
constexpr uint32_t cUart0Receive = 0x2;
constexpr uint32_t cUart1TransmitDone = 0x4;
constexpr uint32_t cUart1Receive = 0x8;
constexpr uint32_t cBulkReceive = 0x700;
constexpr uint32_t cBulkTransmitEmpty = 0x800;
constexpr uint32_t cBulkTransmitPartialEmpty = 0x1000;

constexpr uint16_t cInterruptEvent = 0x9000;

// UART data register.
constexpr uint32_t cDataValid = 1U << 16U;
constexpr uint32_t cDataMore = 1U << 23U;

constexpr uint32_t cImplemented = 1U << 31U;

// Bulk configuration register.
constexpr uint32_t cSpeedShift = 5;
constexpr uint32_t cDoubleByteTime = 1U << 10U;
constexpr uint32_t cResetFifos = 1U << 11U;
constexpr uint32_t cInterfaceShift = 12;
constexpr uint32_t cThresholdShift = 24;
constexpr uint32_t cThreeBits = 0x7;

// Addresses of the transmit window.
constexpr uint32_t cWindow = 1U << 31U;
constexpr uint32_t cWindowFast = 0x200;
constexpr uint32_t cWindowStop = 0x400;
constexpr uint32_t cWindowThird = 0x800;
constexpr uint32_t cWindowTransfer = 0x1000;

} // namespace KySimulator
