#ifndef KYSERIALC_PORT_H
#define KYSERIALC_PORT_H

#include <KySerialC/Device.h>

/// \file
/// Byte ports of a device: its two UARTs and its eight bulk ports. Example: Examples/SerialPort.c.

#ifdef __cplusplus
extern "C"
{
#endif

    /// A byte port that KyPortCreate() has made; 0 is no port.
    ///
    /// One thread reads and another writes at the same time; further readers and writers wait for their turn,
    /// and so do opening, closing and changing the buffer's size, which wait for both: up to a read's
    /// time-out.
    typedef uint64_t KyPortHandle;

    /// Makes a closed port with an empty receive buffer of 16384 cells.
    /// \param aPort  Receives the port; 0 on a failure.
    /// \return KY_OK. KY_FAILURE: out of memory.
    KYSERIALC_API KyCode KyPortCreate(KyPortHandle* aPort);

    /// Ends a port, and closes it if it is open: at once, or when the calls have ended that are on it. If the
    /// device is disconnected by then, the claim stays until the same port of the same camera is opened again with
    /// KyPortOpen(), KyI2CBusOpen() or KySPIBusOpen(), on this device or on another one: the way back after a loss.
    /// A camera that cannot be identified needs the same device for that.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyPortDestroy(KyPortHandle aPort);

    /// Claims a port of the device and starts receiving from it. The claim is process wide and by device. The
    /// receive buffer is a new one of 16384 cells.
    /// \param aSerial  KY_UART0 to KY_BULK7.
    /// \return KY_OK. KY_WRONG_STATE: open already. KY_BAD_PARAMETER: no such port. KY_NO_CONNECTION: the
    ///         device is not connected. KY_UNSUPPORTED: the device does not offer the port; KY_BULK0
    ///         gives this for a device that is not connected, too. KY_FAILURE: the port is in use
    ///         already, or the device refused a step; after a refused step the port may be open, to be
    ///         closed. Other codes come from the adapter. Blocks for the adapter's register and feature
    ///         accesses.
    KYSERIALC_API KyCode KyPortOpen(KyPortHandle aPort, KyDeviceHandle aDevice, int32_t aSerial);

    /// Restores the device's interrupt or event settings, releases the claim and drops waiting bytes.
    /// \return KY_OK. KY_NO_CONNECTION: not open, or the device is disconnected; nothing was released then, and the port
    ///         can be closed when the device is back, or destroyed at once.
    KYSERIALC_API KyCode KyPortClose(KyPortHandle aPort);

    /// Whether the port has to be closed.
    /// \param aIsOpened  Receives 1 or 0.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyPortIsOpened(KyPortHandle aPort, int32_t* aIsOpened);

    /// Sends bytes.
    ///
    /// UARTs wait for the device after each byte, up to 1020 ms; bulk port 0 through registers waits until
    /// the bytes are out. Through features they are in the device's hands when the call returns.
    /// \param aBuffer  May be null when aSize is 0.
    /// \param aWritten  Receives the number handed to the device, also on a failure on the way.
    /// \return KY_OK: all were sent. KY_BAD_PARAMETER: null with a size; nothing was sent.
    ///         KY_NO_CONNECTION: not open, or the device is disconnected. KY_TIMED_OUT: bulk port 0, the
    ///         transmit interrupt did not come. KY_FAILURE: a UART byte was refused or not confirmed; it
    ///         is counted then. KY_BUFFER_TOO_SMALL: the device's message register has no room. Others:
    ///         the adapter's.
    KYSERIALC_API KyCode KyPortWrite(KyPortHandle aPort, const uint8_t* aBuffer, uint32_t aSize,
                                     uint32_t* aWritten);

    /// Takes received bytes, oldest first, waiting only for the first one.
    /// \param aBuffer  Not null, room for one byte at least.
    /// \param aSize  Capacity in bytes; 1 at least.
    /// \param aRead  Receives the number of bytes taken; 0 on every failure.
    /// \param aTimeout  Milliseconds to wait for the first byte; 0 does not wait.
    /// \return KY_OK: what was there, up to aSize; 0 bytes only when the buffer was flushed meanwhile.
    ///         KY_TIMED_OUT: nothing came, also because the device is away; KyDeviceIsConnected() knows.
    ///         KY_BAD_PARAMETER: null, or no capacity.
    KYSERIALC_API KyCode KyPortRead(KyPortHandle aPort, uint8_t* aBuffer, uint32_t aSize, uint32_t* aRead,
                                    uint32_t aTimeout);

    /// Drops the received bytes that nobody has read.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyPortFlushRxBuffer(KyPortHandle aPort);

    /// \param aBytes  Receives the number of received bytes waiting.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyPortGetRxBytesReady(KyPortHandle aPort, uint32_t* aBytes);

    /// \param aSize  Receives the cells of the receive buffer. It holds one byte less; when it is full, the
    ///         oldest byte gives way to the newest.
    /// \return KY_OK.
    KYSERIALC_API KyCode KyPortGetRxBufferSize(KyPortHandle aPort, uint32_t* aSize);

    /// Makes the receive buffer anew; waiting bytes are dropped.
    /// \param aSize  Cells. 0 and 1 hold nothing.
    /// \return KY_OK. KY_FAILURE: out of memory; the buffer is as before.
    KYSERIALC_API KyCode KyPortSetRxBufferSize(KyPortHandle aPort, uint32_t aSize);

    /// Whether the device offers the port now.
    /// \param aIsSupported  Receives 1 or 0; the reason of a 0 is in the log.
    /// \return KY_OK. Blocks for register and feature accesses.
    KYSERIALC_API KyCode KyPortIsSupported(KyDeviceHandle aDevice, int32_t aSerial, int32_t* aIsSupported);

#ifdef __cplusplus
}
#endif

#endif
