#ifndef KYSERIALC_SPIBUS_H
#define KYSERIALC_SPIBUS_H

#include <KySerialC/Device.h>

/// \file
/// SPI buses on a device's bulk ports; the device is the master. Example: Examples/SerialPort.c shows how a
/// device is made.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A bus that KySPIBusCreate() has made; 0 is no bus. Calls on one bus wait for each other.
    ///
    /// The port's mode on the device ("BulkMode") has to be SPI; see KyDeviceSetFeature(). A transfer is
    /// KySPIBusTransfer(); what it read is collected with KySPIBusRead().
    typedef uint64_t KySPIBusHandle;

    /// Makes a closed bus.
    /// \param aBus  Receives it; 0 on a failure.
    /// \return KY_OK. KY_FAILURE: out of memory.
    KYSERIALC_API KyCode KySPIBusCreate(KySPIBusHandle* aBus);

    /// Ends a bus, and closes it if it is open.
    /// \return KY_OK.
    KYSERIALC_API KyCode KySPIBusDestroy(KySPIBusHandle aBus);

    /// Claims the port and starts receiving.
    /// \param aSerial  A bulk port.
    /// \return KY_OK. KY_WRONG_STATE: open already. KY_UNSUPPORTED: the device offers no SPI on this port, or
    ///         is not connected. KY_BAD_PARAMETER: not a bulk port. KY_NO_CONNECTION: the device was
    ///         disconnected after it had offered SPI. KY_FAILURE: the port is in use, or the device's event
    ///         notification could not be switched on.
    KYSERIALC_API KyCode KySPIBusOpen(KySPIBusHandle aBus, KyDeviceHandle aDevice, int32_t aSerial);

    /// Releases the port.
    /// \return KY_OK; KY_NO_CONNECTION, nothing released, while the device is disconnected; KY_NOT_OPEN.
    KYSERIALC_API KyCode KySPIBusClose(KySPIBusHandle aBus);

    /// Whether the bus has to be closed.
    /// \param aIsOpened  Receives 1 or 0.
    /// \return KY_OK.
    KYSERIALC_API KyCode KySPIBusIsOpened(KySPIBusHandle aBus, int32_t* aIsOpened);

    /// Whether the device offers SPI on the port.
    /// \param aIsSupported  Receives 1 or 0.
    /// \return KY_OK.
    KYSERIALC_API KyCode KySPIBusIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported);

    /// One SPI transfer.
    /// \param aBuffer  May be null when aWriteSize is 0.
    /// \param aWriteSize  Bytes to write; 255 at most. 0 is a pure read.
    /// \param aReadSize  Bytes to read; 255 at most.
    /// \param aSimultaneous  Not 0: reads while it writes; the sizes should be equal then.
    /// \param aFinal  Not 0: ends the transaction; the device releases the slave's select line.
    /// \return KY_OK: the device has taken the transfer. KY_NOT_OPEN. KY_BAD_PARAMETER: a size above 255, or
    ///         a null buffer. KY_NO_CONNECTION: closed or disconnected. KY_BUFFER_TOO_SMALL: no room in the
    ///         device's message register. Codes of the adapter.
    KYSERIALC_API KyCode KySPIBusTransfer(KySPIBusHandle aBus, const uint8_t* aBuffer, uint32_t aWriteSize,
                                          uint32_t aReadSize, int32_t aSimultaneous, int32_t aFinal);

    /// Takes bytes that transfers have read: one look, which does not wait until aSize bytes are there.
    /// \param aSize  Capacity in bytes; 1 at least.
    /// \param aRead  Receives the number taken; 0 on every failure.
    /// \param aTimeout  Milliseconds to wait for the first byte; 0 does not wait.
    /// \return KY_OK. KY_TIMED_OUT: nothing came. KY_NOT_OPEN. KY_BAD_PARAMETER: null, or no capacity.
    KYSERIALC_API KyCode KySPIBusRead(KySPIBusHandle aBus, uint8_t* aBuffer, uint32_t aSize, uint32_t* aRead,
                                      uint32_t aTimeout);

#ifdef __cplusplus
}
#endif

#endif
