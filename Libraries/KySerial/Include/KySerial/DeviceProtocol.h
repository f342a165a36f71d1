#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// \file
/// What the maker's video interfaces and their hosts say to each other: serial registers, interrupt events,
/// features and messages. The library's engines use it, and so can an adapter or a simulated device.
///
/// Addresses are those of the GigE Vision register space. Fields of a register are given as bits (a mask), or as
/// a shift and the width of the value there.

namespace KyDeviceProtocol
{

/// \name Registers
/// @{
constexpr uint32_t cInterruptEnable =
    0xB838;                             ///< Interrupt bits, see below. Bits of other functions share it.
constexpr uint32_t cUart0Data = 0xB84C; ///< Written: a byte to send. Read: a received byte and its bits.
constexpr uint32_t cUart1Data = 0xB850;
constexpr uint32_t cBulk0Configuration = 0xB898;
constexpr uint32_t cFunctionCapabilities = 0xB8FC;
constexpr uint32_t cBulk0Rate = 0xB954; ///< Divisor of the custom UART rate, in the low byte.
constexpr uint32_t cBulkCapabilities = 0xB95C;
/// @}

/// \name Interrupts
/// The bits of the interrupt enable register, and of the status word that begins an interrupt event.
/// @{
constexpr uint32_t cUart0TransmitDone = 0x1;
constexpr uint32_t cUart0Receive = 0x2;
constexpr uint32_t cUart1TransmitDone = 0x4;
constexpr uint32_t cUart1Receive = 0x8;
constexpr uint32_t cBulkReceive = 0x700; ///< Three causes, each of which means received bytes.
constexpr uint32_t cBulkTransmitEmpty = 0x800;
constexpr uint32_t cBulkTransmitPartialEmpty = 0x1000;
constexpr uint32_t cBulkInterrupts = cBulkReceive | cBulkTransmitEmpty | cBulkTransmitPartialEmpty;
constexpr uint32_t cFirstBulkInterruptBit = 8;
/// @}

/// \name Events
/// An interrupt event carries the status word, then what was received: for a UART one word for each byte, which
/// is the low one; for the bulk port the bytes themselves. Words of a payload are little-endian.
/// @{
constexpr uint16_t cInterruptEvent = 0x9000;     ///< Of the UARTs and of bulk port 0.
constexpr uint16_t cBulkInterruptEvent = 0x9001; ///< Of bulk port 0.

/// Word aIndex of an event's payload, which need not be aligned.
inline uint32_t EventWord(const void* aData, uint32_t aIndex)
{
    const uint8_t* const lBytes = static_cast<const uint8_t*>(aData) + size_t{aIndex} * 4;
    return static_cast<uint32_t>(lBytes[0]) | static_cast<uint32_t>(lBytes[1]) << 8U |
           static_cast<uint32_t>(lBytes[2]) << 16U | static_cast<uint32_t>(lBytes[3]) << 24U;
}
/// @}

/// \name UART data register
/// @{
constexpr uint32_t cDataValid = 0x10000; ///< The low byte was received.
constexpr uint32_t cDataMore = 0x800000; ///< More bytes wait.
/// @}

/// \name Capabilities
/// @{
constexpr uint32_t cImplemented = 0x80000000U; ///< The function capabilities register means something.
constexpr uint32_t cUartCountMask = 0x7; ///< Function capabilities: number of UARTs. With one, bulk port 0.
constexpr uint32_t cBulkI2C = 0x3;       ///< Bulk capabilities: both bits set mean I2C.
/// @}

/// \name Bulk configuration register
/// @{
constexpr uint32_t cThreeBits = 0x7; ///< The width of the speed and of the interface.
constexpr uint32_t cSpeedShift = 5;  ///< Index of the speed.
constexpr uint32_t cDoubleByteTime = 1U << 10U;
constexpr uint32_t cResetFifos = 1U << 11U;
constexpr uint32_t cInterfaceShift = 12;
constexpr uint32_t cThresholdShift =
    24; ///< Eight bits: fill of the Tx FIFO at the "partial empty" interrupt.

constexpr uint32_t cInterfaceUsrt = 0;
constexpr uint32_t cInterfaceUart = 1;
constexpr uint32_t cInterfaceI2C = 2;
constexpr uint32_t cInterfaceSpi = 3;

/// Bits per second of a UART by speed index; the index after the last one means the custom rate.
constexpr std::array<uint32_t, 7> cUartRates = {9600, 14400, 19200, 28800, 38400, 57600, 115200};
constexpr uint32_t cCustomRateIndex = 7;
constexpr uint32_t cCustomBitNanoseconds =
    480; ///< Times the rate register's divisor: a bit of the custom rate.
/// Hertz of the synchronous interfaces, before the divider, which is 2 << speed index.
constexpr uint32_t cSynchronousClock = 16700000;
/// @}

/// \name Transmit window of bulk port 0
/// Memory written at cTransmitWindow goes out; the flags of an I2C transfer are bits of the address.
/// @{
constexpr uint32_t cTransmitWindow = 0x80000000U;
constexpr uint32_t cWindowFast = 0x200;
constexpr uint32_t cWindowStop = 0x400;
constexpr uint32_t cWindowThird = 0x800;
constexpr uint32_t cWindowTransfer = 0x1000;
constexpr uint32_t cBulkTransmitFifo = 256; ///< Bytes that the port takes at once.
/// @}

/// \name Messages
/// What is written into a bulk port's downstream feature. Two words, in network order for GigE Vision devices and
/// in the order of the host for others: flags, and the number of bytes that follow. SPI: the flags are 0 and four control
/// bytes follow, which count as data: write size, read size, simultaneous size, final flag. The whole is padded to
/// a multiple of 4.
/// @{
constexpr uint32_t cMessageFast = 1U << 31U;
constexpr uint32_t cMessageStop = 1U << 30U;
constexpr uint32_t cMessageThird = 1U << 29U;
constexpr uint32_t cMessageTransfer = 1U << 28U;
constexpr uint32_t cMessageHeader = 8;
constexpr uint32_t cSpiControl = 4;
constexpr uint32_t cSpiMessageHeader = cMessageHeader + cSpiControl;
constexpr uint32_t cLongestMessage = 520;
/// @}

/// \name Features
/// @{
constexpr char cMacAddressFeature[] = "GevMACAddress";
constexpr char cVendorFeature[] = "DeviceVendorName";
constexpr char cSerialNumberFeature[] = "DeviceSerialNumber";
constexpr char cBulkSelectorFeature[] = "BulkSelector";
constexpr char cBulkModeFeature[] = "BulkMode";
constexpr char cEventSelectorFeature[] = "EventSelector";
constexpr char cEventNotificationFeature[] = "EventNotification";
/// The settings of a line follow a prefix: UartName(), BulkName(), or "Bulk" alone where "BulkSelector" exists.
constexpr char cBulkPrefix[] = "Bulk";
constexpr char cBaudRateSuffix[] = "BaudRate";
constexpr char cParitySuffix[] = "Parity";
constexpr char cStopBitsSuffix[] = "NumOfStopBits";

/// "Uart0"
inline std::string UartName(size_t aUart)
{
    return "Uart" + std::to_string(aUart);
}

/// "Bulk0": entry of "BulkSelector".
inline std::string BulkName(size_t aBulk)
{
    return cBulkPrefix + std::to_string(aBulk);
}

/// "Bulk0UpstreamData": entry of "EventSelector".
inline std::string UpstreamEventName(size_t aBulk)
{
    return BulkName(aBulk) + "UpstreamData";
}

/// "Bulk0DownstreamData": takes the messages for a port.
inline std::string DownstreamFeature(size_t aBulk)
{
    return BulkName(aBulk) + "DownstreamData";
}

/// "EventBulk0UpstreamDataBuffer": the bytes of a port's last event.
inline std::string UpstreamBufferFeature(size_t aBulk)
{
    return "Event" + UpstreamEventName(aBulk) + "Buffer";
}

/// "EventBulk0UpstreamDataLength": the number of those bytes.
inline std::string UpstreamLengthFeature(size_t aBulk)
{
    return "Event" + UpstreamEventName(aBulk) + "Length";
}
/// @}

} // namespace KyDeviceProtocol
