#pragma once

#include <KyBase/KyResult.h>
#include <KySerial/Export.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>

namespace KySerialLib
{
class DeviceI2CBus;
} // namespace KySerialLib

/// An I2C bus on one of the device's bulk ports; the application is its master. Example: Examples/I2CBus.cpp.
///
/// Bulk port 0 runs I2C through registers where the device can, else, like the other bulk ports, through
/// GenICam features. The port's mode on the device ("BulkMode") has to be I2C; the library does not set it.
///
/// Order of calls: construct, Open(), transfers, Close(), destroy. Slave addresses are 7-bit values (0x50,
/// not 0xA0); larger ones lose their upper bit on the wire. In fast mode the bus runs at 400 kHz, else at 100
/// kHz.
///
/// What a device on the bus does not acknowledge shows in reads only: they time out. A write is OK when the
/// camera has taken it, unless the camera itself reports the missing acknowledge.
///
/// Assigning one object to another makes both refer to one bus, which lives until both are gone; the bus that
/// the assigned-to object had is given up. There is no copy constructor: one owner is the rule.
///
/// Results of every operation: NOT_OPEN (logged) when there has been no successful choice of a port by
/// Open(); FAILURE "Out of memory."; NO_CONNECTION when the bus is closed or the device disconnected; codes
/// of the adapter. Further ones stand at the operations.
///
/// Threads: one caller at a time; may meet the adapter's event thread.
class KYSERIAL_API KyDeviceI2CBus
{
public:
    KyDeviceI2CBus();
    /// Closes the bus if it is open and if no other object refers to it.
    ~KyDeviceI2CBus();
    KyDeviceI2CBus(const KyDeviceI2CBus&) = delete;
    /// Makes this object refer to aOther's bus.
    KyDeviceI2CBus& operator=(const KyDeviceI2CBus& aOther);

    /// Chooses an engine, claims the port and starts receiving.
    ///
    /// On an object that is open: call Close() first. Otherwise the port that it had stays taken until
    /// the process ends. Each Open() on bulk port 1 to 7 keeps less than 1 KiB of the one before it until
    /// then, also after Close().
    /// \param aDevice  The adapter of a connected device, not owned.
    /// \param aPort    A bulk port.
    /// \return OK.
    ///         UNSUPPORTED: the device offers no I2C on this port, is not connected, or is null.
    ///         BAD_PARAMETER: not a bulk port, although the device claims I2C for it.
    ///         NO_CONNECTION: the device was disconnected after it had offered I2C.
    ///         FAILURE: the port is in use, or the device refused a step; then call Close() if IsOpened().
    /// Blocks for the adapter's register and feature accesses.
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Releases the port. \return OK; NO_CONNECTION, nothing released, while the device is disconnected.
    KyResult Close();

    /// Whether the bus holds a device. Before the first Open() it is false and logs an error.
    bool IsOpened();

    /// Whether the device offers I2C on the port. \param aDevice  Null gives false. Any thread.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// One write transaction: start, address, data, and a stop if asked for.
    /// \param aSlaveAddress  7-bit address.
    /// \param aBuffer        Bytes to write; may be null when aBufferSize is 0.
    /// \param aBufferSize    Number of bytes; 0 sends the address alone.
    /// \param aFastMode      400 kHz instead of 100 kHz.
    /// \param aStop          False holds the bus: the next transfer begins with a repeated start.
    /// \return OK: the device has taken the bytes.
    ///         BAD_PARAMETER: null buffer with a size; the bus was not touched.
    ///         TIMED_OUT: through registers, the transmit interrupt did not come.
    ///         BUFFER_TOO_SMALL: no room in the device's message register.
    /// Blocks through registers until the bytes are out; through features for the adapter's accesses.
    KyResult MasterTransmitter(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                               bool aFastMode, bool aStop);

    /// One read transaction. Bytes received earlier and not read are dropped.
    /// \param aBuffer      Destination; may be null when aBufferSize is 0.
    /// \param aBufferSize  Bytes to read; at most 65535, a larger count breaks an assertion and is cut to its
    ///                     low 16 bits on the wire.
    /// \param aBytesRead   Receives the number of bytes that came, also with TIMED_OUT; untouched when the
    ///                     command was not sent.
    /// \return OK: all bytes came.
    ///         BAD_PARAMETER: null buffer with a size; the bus was not touched.
    ///         TIMED_OUT: the device stopped answering for 50 ms; longer for transfers that take more than a
    ///         second on the wire.
    ///         Otherwise as MasterTransmitter().
    KyResult MasterReceiverAfterFirstByte(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize,
                                          uint32_t& aBytesRead, bool aFastMode, bool aStop);

    /// MasterTransmitter() with a stop.
    KyResult BurstWrite(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize, bool aFastMode);

    /// MasterReceiverAfterFirstByte() with a stop.
    KyResult BurstRead(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead,
                       bool aFastMode);

    /// Writes to a register of the slave: one transaction whose first data byte is aOffset.
    /// \param aBuffer  Bytes after the offset; may be null when aBufferSize is 0.
    /// \return As MasterTransmitter().
    KyResult IndirectBurstWrite(uint8_t aSlaveAddress, uint8_t aOffset, const uint8_t* aBuffer,
                                uint32_t aBufferSize, bool aFastMode);

    /// Reads from a register of the slave: writes aOffset, then reads.
    /// \param aBytesRead          As in MasterReceiverAfterFirstByte(); untouched when the offset was not
    ///                            written.
    /// \param aUseCombinedFormat  True: no stop between the two; the read begins with a repeated start.
    /// \return The first failure, or OK; see MasterTransmitter() and MasterReceiverAfterFirstByte().
    ///         BAD_PARAMETER: null buffer with a size; not even the offset was written.
    KyResult IndirectBurstRead(uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer, uint32_t aBufferSize,
                               uint32_t& aBytesRead, bool aFastMode, bool aUseCombinedFormat);

private:
    KySerialLib::DeviceI2CBus* mThis;
};
