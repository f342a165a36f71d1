#pragma once

#include "BulkWithI2C.h"

#include <array>

namespace KySerialLib
{

/// Drives bulk port 0 through registers, a transmit window in the device's memory and interrupt events.
///
/// Data goes out in chunks, paced by the Tx FIFO interrupts, with time-outs that follow from the line rate.
/// Chunk sizes and rate are computed from the device's registers at open; a later change of the port's
/// configuration is seen at the next open.
///
/// States: closed (no device) and open. Open() is open from the claim on, even when a later step fails;
/// Close() closes only while the device is connected.
class BulkIPEngine : public BulkWithI2C
{
public:
    BulkIPEngine();
    /// Does not close: the owner does that before.
    ~BulkIPEngine() override;

    /// Whether the device drives this bulk port through registers. Never fails: logs the reason of a false.
    /// \param aDevice  Null gives false.
    /// \param aPort    Bulk port 0; others are a broken assertion and give false.
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// Whether the port exists and its registers can run I2C; as IsSupported().
    static bool IsI2CSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    /// \param aDevice  Null is NO_CONNECTION.
    /// \return OK; NO_CONNECTION; UNSUPPORTED; FAILURE when the port is in use or the interrupts could not be
    ///         enabled; the adapter's result of a register access. After a failed access the engine is open
    ///         and has to be closed.
    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort) override;

    /// Puts the interrupt enable bits back to those found at open, releases the claim, empties the buffer.
    /// \return OK; NO_CONNECTION without a device or with a disconnected one: nothing is released.
    KyResult Close() override;

    /// Sends in chunks and waits until the device reports its Tx FIFO empty. With aSize 0 nothing is sent,
    /// and the result is that of a look at the last Tx FIFO interrupt.
    /// \param aBytesWritten  Bytes handed to the device so far, on failures too.
    /// \return OK; NO_CONNECTION; BAD_PARAMETER for a null buffer; TIMED_OUT when a Tx interrupt did not
    ///         come; the adapter's result of a refused chunk.
    KyResult Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten) override;

    /// Takes received bytes and Tx FIFO signals from an interrupt event. Event thread.
    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;

protected:
    /// Milliseconds that a chunk of aSize bytes may take until its Tx interrupt.
    uint32_t ComputeChunkTimeout(uint32_t aSize) const;
    /// Milliseconds per bit, or per byte for I2C, from the registers read at open.
    double GetUSRTTimePerBit() const;
    double GetUARTTimePerBit() const;
    static double GetI2CTimePerByte();
    void UpdateTimePerByte();
    void UpdateChunkSizes();

    [[nodiscard]] KyResult EnableInterrupts(bool aRestore);
    [[nodiscard]] KyResult ResetFifos();
    [[nodiscard]] KyResult TransmitChunk(const uint8_t* aData, uint32_t aSize);

private:
    void ResetTxEvents();
    [[nodiscard]] KyResult TxTimeOut(uint32_t aBytesWritten) const;
    uint32_t GetSpeedIndex() const;
    uint32_t GetInterface() const;

    std::array<bool, 5> mSavedInterrupts{}; // bits 8 to 12 of the interrupt enable register
    JxUtilsLib::Mutex mTxLock;              // one interrupt's signals, and one chunk's resets, are one step
    JxUtilsLib::Event mTxEmptyEvent;
    JxUtilsLib::Event mTxRoomEvent;
    uint32_t mFirstChunkSize = 256;
    uint32_t mNextChunkSize = 128;
    double mTimePerByte; // milliseconds
    uint32_t mBulkConfig = 0;
    uint32_t mBulkRate = 0;
};

} // namespace KySerialLib
