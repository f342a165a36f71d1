#pragma once

#include <KyBase/KyResult.h>
#include <KySerial/Export.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <cstdint>

namespace KySerialLib
{
class Bridge;
class SerialPort;
} // namespace KySerialLib

/// A byte port of the device: one of its two UARTs or of its eight bulk ports. Example:
/// Examples/SerialPort.cpp.
///
/// Open() chooses the engine that serves the port: the UARTs and, where the device offers it, bulk port 0 are
/// driven through registers and interrupt events; every other bulk port through GenICam features.
///
/// Order of calls: construct, Open(), Write() and Read(), Close(), destroy. The adapter must stay alive, and
/// should stay connected, from Open() to Close().
///
/// States:
///
/// | call    | while closed                 | while open                                             |
/// |---------|------------------------------|--------------------------------------------------------|
/// | Open()  | open, or as its result says  | starts anew; the port that it had stays taken until    |
/// |         |                              | the process ends: call Close() first                   |
/// | Close() | NO_CONNECTION                | closed; NO_CONNECTION, and still open, while the       |
/// |         |                              | device is disconnected                                 |
/// | Write() | NO_CONNECTION                | sends                                                  |
/// | Read()  | TIMED_OUT, no bytes          | takes what came                                        |
///
/// After a loss: keep the object. Close() gives NO_CONNECTION until the device is connected again, and OK then; Open()
/// has the port back. A device that was away and back between two looks needs the same, for it has forgotten the
/// port: compare the adapter's generation where it has one (KyGigE::GigEDeviceAdapter::GetGeneration()).
///
/// Threads: one thread at a time calls Open(), Close() and the destructor, with no other call running. One
/// reader and one writer may work on an open port at the same time, while the adapter's event thread
/// delivers.
///
/// Failures are logged under "KySerialLib" and described by the result. Out of memory is FAILURE with the
/// description "Out of memory.".
class KYSERIAL_API KyDeviceSerialPort
{
public:
    /// A closed port with an empty receive buffer of 16384 cells.
    KyDeviceSerialPort();

    /// Closes the port if it is open, and logs a warning about that. If the device is disconnected by then,
    /// the port stays claimed for the life of the process: close ports while the device is there.
    virtual ~KyDeviceSerialPort();

    KyDeviceSerialPort(const KyDeviceSerialPort&) = delete;
    KyDeviceSerialPort& operator=(const KyDeviceSerialPort&) = delete;

    /// Claims a port of the device and starts receiving from it.
    ///
    /// The claim is process wide and by device, not by adapter. The receive buffer is a new one of 16384
    /// cells; its size, if it matters, is set after this call.
    /// \param aDevice  The adapter of a connected device, not owned.
    /// \param aPort    The port.
    /// \return OK.
    ///         BAD_PARAMETER: aPort is KyDeviceSerialInvalid; nothing has changed.
    ///         NO_CONNECTION: the device is null or not connected.
    ///         UNSUPPORTED: the device does not offer the port, or there is no such port. Bulk port 0 gives
    ///         this for a device that is null or not connected, too.
    ///         FAILURE: the port is in use already, or the device refused a step. After a refused step the
    ///         port may be left claimed and IsOpened(): Close() then releases it.
    ///         Other codes come from the adapter, with the same after-care.
    /// Blocks for the adapter's register and feature accesses.
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Restores the device's interrupt or event settings, releases the claim and drops waiting bytes.
    /// \return OK. NO_CONNECTION: not open, or the device is disconnected; nothing was released then.
    /// Blocks for the adapter's register and feature accesses.
    KyResult Close();

    /// Whether the port holds a device, that is, has to be closed. Any thread.
    bool IsOpened();

    /// Sends bytes.
    ///
    /// UARTs wait for the device's transmit-done interrupt after each byte, up to 1020 ms. Bulk port 0
    /// through registers waits for the transmit FIFO to run empty, with a time-out that follows from the line
    /// rate. Through features the bytes are in the device's hands when the call returns.
    /// \param aBuffer        Bytes to send; may be null when aSize is 0.
    /// \param aSize          Number of bytes.
    /// \param aBytesWritten  Receives the number handed to the device, also on a failure on the way; 0 when
    ///                       nothing was sent.
    /// \return OK: all were sent.
    ///         BAD_PARAMETER: null buffer with a size; nothing was sent.
    ///         NO_CONNECTION: not open, or the device is disconnected.
    ///         TIMED_OUT: bulk port 0, the transmit interrupt did not come.
    ///         FAILURE: a UART byte was refused, or its interrupt did not come; that byte is counted then.
    ///         BUFFER_TOO_SMALL: the bulk port's downstream feature has no room for any payload.
    ///         Other codes come from the adapter.
    KyResult Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten);

    /// Takes received bytes, oldest first, waiting only for the first one.
    /// \param aBuffer     Destination; not null, room for one byte at least.
    /// \param aSize       Capacity in bytes. 0 counts as 1.
    /// \param aBytesRead  Receives the number of bytes taken; 0 on every failure.
    /// \param aTimeout    Milliseconds to wait for the first byte; 0 does not wait.
    /// \return OK: what was there, up to aSize; 0 bytes only when the buffer was flushed meanwhile.
    ///         TIMED_OUT: nothing came.
    ///         BAD_PARAMETER: null buffer; nothing was taken.
    /// One reader at a time; may meet Write() and the event thread. Holds no lock while it waits.
    KyResult Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesRead, uint32_t aTimeout);

    /// Drops the received bytes that nobody has read. \return OK.
    KyResult FlushRxBuffer();

    /// Number of received bytes waiting. \return OK.
    KyResult GetRxBytesReady(uint32_t& aBytes);

    /// Cells of the receive buffer. It holds one byte less than cells; when it is full, the oldest byte gives
    /// way to the newest. \return OK.
    KyResult GetRxBufferSize(uint32_t& aSize);

    /// Makes the receive buffer anew; waiting bytes are dropped. Bytes may arrive meanwhile.
    /// \param aSize  Cells; no bounds. 0 and 1 hold nothing.
    /// \return OK. FAILURE: out of memory; buffer and waiting bytes are as before.
    KyResult SetRxBufferSize(uint32_t aSize);

    /// Whether the device offers the port now.
    /// \param aDevice  Null gives false.
    /// \param aPort    A value without a port gives false.
    /// \return Never fails: the reason of a false is in the log. Any thread. Blocks for register and feature
    ///         accesses. A device whose capability register cannot be read is remembered as not offering
    ///         UARTs for the life of the process.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

private:
    friend class KySerialLib::Bridge; // ends a read that waits
    KySerialLib::SerialPort* mThis;
};
