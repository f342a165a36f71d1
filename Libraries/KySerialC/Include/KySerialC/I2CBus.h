#ifndef KYSERIALC_I2CBUS_H
#define KYSERIALC_I2CBUS_H

#include <KySerialC/Device.h>

/// \file
/// I2C buses on a device's bulk ports; the application is the master. Example: Examples/SerialPort.c shows
/// how a device is made.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A bus that KyI2CBusCreate() has made; 0 is no bus. Calls on one bus wait for each other.
    ///
    /// The port's mode on the device ("BulkMode") has to be I2C; see KyDeviceSetFeature(). Slave addresses
    /// are 7-bit values (0x50, not 0xA0). With aFastMode the bus runs at 400 kHz, else at 100 kHz. What a
    /// slave does not acknowledge shows in reads, which time out; in writes only if the camera reports it.
    ///
    /// Results of every transfer: KY_OK; KY_NOT_OPEN before the first successful opening; KY_NO_CONNECTION
    /// when the bus is closed or the device disconnected; KY_BAD_PARAMETER for a null buffer with a size;
    /// KY_BUFFER_TOO_SMALL: no room in the device's message register; codes of the adapter.
    typedef uint64_t KyI2CBusHandle;

    /// Makes a closed bus.
    /// \param aBus  Receives it; 0 on a failure.
    /// \return KY_OK. KY_FAILURE: out of memory.
    KYSERIALC_API KyCode KyI2CBusCreate(KyI2CBusHandle* aBus);

    /// Ends a bus, and closes it if it is open.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyI2CBusDestroy(KyI2CBusHandle aBus);

    /// Claims the port and starts receiving.
    /// \param aSerial  A bulk port.
    /// \return KY_OK. KY_WRONG_STATE: open already. KY_UNSUPPORTED: the device offers no I2C on this port, or
    ///         is not connected. KY_BAD_PARAMETER: not a bulk port. KY_NO_CONNECTION: the device was
    ///         disconnected after it had offered I2C. KY_FAILURE: the port is in use, or the device refused a
    ///         step; then close it if it is open.
    KYSERIALC_API KyCode KyI2CBusOpen(KyI2CBusHandle aBus, KyDeviceHandle aDevice, int32_t aSerial);

    /// Releases the port.
    /// \return KY_OK; KY_NO_CONNECTION, nothing released, while the device is disconnected; KY_NOT_OPEN.
    KYSERIALC_API KyCode KyI2CBusClose(KyI2CBusHandle aBus);

    /// Whether the bus has to be closed.
    /// \param aIsOpened  Receives 1 or 0.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyI2CBusIsOpened(KyI2CBusHandle aBus, int32_t* aIsOpened);

    /// Whether the device offers I2C on the port.
    /// \param aIsSupported  Receives 1 or 0.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyI2CBusIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported);

    /// One write transaction: start, address, data, and a stop if asked for.
    /// \param aBuffer  May be null when aSize is 0, which sends the address alone.
    /// \param aStop  0 holds the bus: the next transfer begins with a repeated start.
    /// \return See KyI2CBusHandle; KY_TIMED_OUT: through registers, the transmit interrupt did not come.
    KYSERIALC_API KyCode KyI2CBusWrite(KyI2CBusHandle aBus, uint8_t aSlaveAddress, const uint8_t* aBuffer,
                                       uint32_t aSize, int32_t aFastMode, int32_t aStop);

    /// One read transaction. Bytes received earlier and not read are dropped.
    /// \param aSize  Bytes to read; 65535 at most, else KY_BAD_PARAMETER.
    /// \param aRead  Receives the number of bytes that came, also with KY_TIMED_OUT; 0 when the command could
    ///         not be sent.
    /// \param aStop  As in KyI2CBusWrite().
    /// \return See KyI2CBusHandle; KY_TIMED_OUT: the slave stopped answering for 50 ms (longer for transfers
    ///         that take more than a second on the wire).
    KYSERIALC_API KyCode KyI2CBusRead(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t* aBuffer,
                                      uint32_t aSize, uint32_t* aRead, int32_t aFastMode, int32_t aStop);

    /// Writes to a register of the slave: one transaction whose first data byte is aOffset. Results as
    /// KyI2CBusWrite().
    KYSERIALC_API KyCode KyI2CBusIndirectWrite(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t aOffset,
                                               const uint8_t* aBuffer, uint32_t aSize, int32_t aFastMode);

    /// Reads from a register of the slave: writes aOffset, then reads.
    /// \param aCombined  Not 0: no stop between the two; the read begins with a repeated start.
    /// \return The first failure, or KY_OK; as KyI2CBusWrite() and KyI2CBusRead().
    KYSERIALC_API KyCode KyI2CBusIndirectRead(KyI2CBusHandle aBus, uint8_t aSlaveAddress, uint8_t aOffset,
                                              uint8_t* aBuffer, uint32_t aSize, uint32_t* aRead,
                                              int32_t aFastMode, int32_t aCombined);

#ifdef __cplusplus
}
#endif

#endif
