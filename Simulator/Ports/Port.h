#pragma once

#include <KySerial/DeviceProtocol.h>

#include <cstddef>
#include <cstdint>

namespace KySimulator
{

/// A serial facility of the camera. Bulk port n is n + 2.
enum class Port : int32_t
{
    Uart0 = 0,
    Uart1 = 1,
    Bulk0 = 2,
    Bulk1 = 3,
    Bulk2 = 4,
    Bulk3 = 5,
    Bulk4 = 6,
    Bulk5 = 7,
    Bulk6 = 8,
    Bulk7 = 9
};

constexpr size_t cUartCount = 2;
constexpr size_t cBulkCount = 8;
constexpr size_t cPortCount = cUartCount + cBulkCount;

/// The port of bulk index aBulk (0 to 7).
constexpr Port BulkPortOf(size_t aBulk)
{
    return static_cast<Port>(static_cast<int32_t>(cUartCount + aBulk));
}

/// Whether aPort is one of the ten.
constexpr bool IsPort(Port aPort)
{
    return static_cast<int32_t>(aPort) >= 0 && static_cast<size_t>(aPort) < cPortCount;
}

/// The protocol that a bulk port speaks on its line; the number is that of its configuration word.
enum class Protocol : uint32_t
{
    Usrt = KyDeviceProtocol::cInterfaceUsrt,
    Uart = KyDeviceProtocol::cInterfaceUart,
    I2C = KyDeviceProtocol::cInterfaceI2C,
    Spi = KyDeviceProtocol::cInterfaceSpi
};

/// What one port has seen since the camera was made. Bytes, unless the name says otherwise.
struct PortCounters
{
    uint64_t mSent = 0;             ///< Left the camera on the line.
    uint64_t mReceived = 0;         ///< Arrived from the line, the lost ones included.
    uint64_t mReported = 0;         ///< Handed on in events or through a data register.
    uint64_t mTransmitOverflow = 0; ///< Dropped because the transmit FIFO was full.
    uint64_t mReceiveOverflow = 0;  ///< Dropped because the receive FIFO was full.
    uint64_t mDiscarded = 0;        ///< Given to a port whose interface does not exist.
    uint64_t mBadMessages = 0;      ///< Messages that were refused for their form.
    uint64_t mNotAcknowledged = 0;  ///< I2C transfers that ended with a missing acknowledge.
    uint64_t mInterrupts = 0;       ///< Interrupt events raised for the port.
    uint64_t mUpstreamEvents = 0;   ///< Upstream data events raised for the port.
};

} // namespace KySimulator
