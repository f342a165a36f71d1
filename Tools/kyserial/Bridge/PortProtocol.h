#pragma once

#include <KySerial/KySerialTypes.h>

#include <cstdint>
#include <string>

/// \file
/// How the bytes of a serial port travel between the library and a device: registers and interrupts of the
/// video-interface engines, and messages in features of the bulk ports.

namespace KySerialTool
{

inline constexpr uint32_t cUart0Data = 0xB84C; ///< Data registers.
inline constexpr uint32_t cUart1Data = 0xB850;
inline constexpr uint32_t cDataValid = 0x10000;          ///< A data register's value has a received byte.
inline constexpr uint32_t cTransmitWindow = 0x80000000U; ///< Memory of bulk port 0.

inline constexpr uint16_t cInterrupt = 0x9000;     ///< Event of both UARTs, and of bulk port 0.
inline constexpr uint16_t cBulkInterrupt = 0x9001; ///< Further event of bulk port 0.
inline constexpr uint32_t cUart0Done = 0x1;        ///< Bits of an event's first word: transmitted.
inline constexpr uint32_t cUart1Done = 0x4;
inline constexpr uint32_t cBulkDone = 0x1800;
inline constexpr uint32_t cUart0Receive = 0x2; ///< Received.
inline constexpr uint32_t cUart1Receive = 0x8;
inline constexpr uint32_t cBulkReceive = 0x700;

/// Header of a message to a bulk port: flags, number of bytes.
inline constexpr int64_t cMessageHeader = 8;

/// The feature that takes messages to a bulk port; empty for a UART.
std::string DownstreamFeature(KyDeviceSerial aPort);
/// The feature that has what came last from a bulk port; empty for a UART.
std::string UpstreamFeature(KyDeviceSerial aPort);

/// Whether this is the data register of that UART.
bool IsDataRegister(KyDeviceSerial aPort, uint32_t aAddress);

/// Bytes in a message, as its header has them, but not more than it has room for.
/// \param aMessage    aLength bytes. \param aBigEndian  Whether the device is reached over GigE Vision.
int64_t MessageSize(const uint8_t* aMessage, int64_t aLength, bool aBigEndian);

/// A word of four bytes.
uint32_t Word(const uint8_t* aBytes, bool aBigEndian);

} // namespace KySerialTool
