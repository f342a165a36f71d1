#pragma once

#include <KyBase/KyResult.h>
#include <KySerial/Export.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>

namespace KySerialLib
{
class DeviceSPIBus;
} // namespace KySerialLib

/// An SPI bus on one of the device's bulk ports; the device is its master. Example: Examples/SPIBus.cpp.
///
/// Always driven through GenICam features. The port's mode on the device ("BulkMode") has to be SPI; the
/// library does not set it. A transfer is BurstWriteAndRead(); what it read is collected with BurstRead().
///
/// Assigning one object to another makes both refer to one bus, which lives until both are gone; the bus that
/// the assigned-to object had is given up. There is no copy constructor: one owner is the rule.
///
/// Results of every operation: NOT_OPEN (logged) when there has been no successful choice of a port by
/// Open(); FAILURE "Out of memory."; codes of the adapter. Further ones stand at the operations.
///
/// Threads: one caller at a time; may meet the adapter's event thread.
class KYSERIAL_API KyDeviceSPIBus
{
public:
    KyDeviceSPIBus();
    /// Closes the bus if it is open and if no other object refers to it.
    ~KyDeviceSPIBus();
    KyDeviceSPIBus(const KyDeviceSPIBus&) = delete;
    /// Makes this object refer to aOther's bus.
    KyDeviceSPIBus& operator=(const KyDeviceSPIBus& aOther);

    /// Claims the port and starts receiving. On an object that is open: call Close() first; otherwise the
    /// port that it had stays taken until the process ends.
    /// \param aDevice  The adapter of a connected device, not owned.
    /// \param aPort    A bulk port.
    /// \return OK.
    ///         UNSUPPORTED: the device offers no SPI on this port, is not connected, or is null.
    ///         BAD_PARAMETER: not a bulk port, although the device claims SPI for it.
    ///         NO_CONNECTION: the device was disconnected after it had offered SPI.
    ///         FAILURE: the port is in use, or the device's event notification could not be switched on.
    /// Blocks for the adapter's feature accesses.
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Releases the port. \return OK; NO_CONNECTION, nothing released, while the device is disconnected.
    KyResult Close();

    /// Whether the bus holds a device. Before the first Open() it is false and logs an error.
    bool IsOpened();

    /// Whether the device offers SPI on the port. \param aDevice  Null gives false. Any thread.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Takes bytes that transfers have read: one look, which does not wait until aBufferSize bytes are there.
    /// \param aBuffer      Destination; not null, room for one byte at least.
    /// \param aBufferSize  Capacity in bytes; 0 counts as 1.
    /// \param aBytesRead   Receives the number taken; 0 on every failure but NOT_OPEN, which leaves it
    ///                     untouched.
    /// \param aTimeout     Milliseconds to wait for the first byte; 0 does not wait.
    /// \return OK. TIMED_OUT: nothing came. BAD_PARAMETER: null buffer.
    KyResult BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead, uint32_t aTimeout);

    /// One SPI transfer.
    /// \param aBuffer        Bytes to write; may be null when aWriteSize is 0.
    /// \param aWriteSize     Bytes to write; 255 at most. 0 is a pure read.
    /// \param aReadSize      Bytes to read; 255 at most.
    /// \param aSimultaneous  Reads while it writes; the sizes should be equal then, or a warning is logged.
    /// \param aFinal         Ends the transaction: the device releases the slave's select line.
    /// \return OK: the device has taken the transfer.
    ///         BAD_PARAMETER: a size above 255, or a null buffer with a size; the bus was not touched.
    ///         NO_CONNECTION: closed or disconnected.
    ///         BUFFER_TOO_SMALL: no room in the device's message register.
    /// Blocks for the adapter's feature accesses.
    KyResult BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                               bool aSimultaneous, bool aFinal);

private:
    KySerialLib::DeviceSPIBus* mThis;
};
