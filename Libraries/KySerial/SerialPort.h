#pragma once

#include "JxUtilsLib/Event.h"
#include "JxUtilsLib/Logger.h"
#include "JxUtilsLib/Mutex.h"
#include "KyBase/KyResult.h"
#include "KySerial/IKyDeviceEventSink.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace KySerialLib
{

/// What all port engines have in common: the receive side.
///
/// An engine's event handler pushes the bytes that the device sends into a ring buffer; Read() takes them
/// out. The ring holds one byte less than it has cells. When it is full, the oldest byte is dropped. The
/// buffer exists from construction on, open or not, and receiving never allocates.
///
/// Threads: the adapter's event thread pushes; one caller thread at a time reads, flushes or resizes.
/// The receive lock guards buffer and indexes; nothing is called while it is held but the log.
class SerialPort : public IKyDeviceEventSink
{
public:
    /// Cells of a new port's receive buffer.
    static constexpr uint32_t cDefaultBufferSize = 16384;

    /// Throws std::bad_alloc without memory for the buffer; the public classes make that a result.
    SerialPort();
    SerialPort(const SerialPort&) = delete;
    SerialPort& operator=(const SerialPort&) = delete;

    /// Does nothing; register-driven engines receive here.
    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;
    /// Does nothing; the feature-driven engine receives here.
    void NotifyFeatureInvalidated(const KyString* aName) override;

    /// Empties the buffer. An engine still open is not closed: its owner does that before.
    virtual ~SerialPort();

    /// Empties the buffer. \return OK. Engines override it and call it last.
    virtual KyResult Close();

    /// Whether the engine holds a device.
    virtual bool IsOpened() = 0;

    /// Sends aSize bytes; see the engines.
    /// \param aBytesWritten  Receives the number of bytes handed to the device.
    virtual KyResult Write(const uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesWritten) = 0;

    /// Drops the bytes that wait. \return OK.
    virtual KyResult FlushRxBuffer();

    /// Number of bytes that wait. \return OK.
    virtual KyResult GetRxBytesReady(uint32_t& aBytes);

    /// Cells of the buffer as asked for last; takes no lock. \return OK.
    virtual KyResult GetRxBufferSize(uint32_t& aSize);

    /// Makes the buffer anew and drops the bytes that wait.
    /// \param aSize  Cells; without bounds. 0 is reported as 0 and, like 1, holds nothing.
    /// \return OK; FAILURE without memory: buffer, bytes and reported size are as before.
    virtual KyResult SetRxBufferSize(uint32_t aSize);

    /// Takes bytes that have arrived, waiting only for the first one.
    /// \param aBuffer     Destination; null is BAD_PARAMETER and takes nothing.
    /// \param aSize       Capacity. With 0, one byte is taken all the same: clients rely on a byte per call.
    /// \param aBytesRead  Receives the number taken; 0 on a failure.
    /// \param aTimeout    Milliseconds for the first byte; 0 does not wait.
    /// \return OK, with 0 bytes when a flush came between wake-up and copying; TIMED_OUT, which is not
    /// logged.
    KyResult Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesRead, uint32_t aTimeout);

    /// Frees what an open engine without an owner costs: the receive buffer goes, and events are ignored
    /// without asking the adapter. The object stays, for adapters that still call it; see
    /// RetiredEngines.h. Only IsOpened() and the destructor may follow, and events.
    void Retire(); // not virtual: the engines' table of virtual functions is fixed

    /// Ends the wait of a reader, which gets TIMED_OUT as if its time had passed; until EndReads(false),
    /// reads that find nothing do not wait. Bytes that are there are taken as ever. Does not block. Any
    /// thread.
    void EndReads(bool aEnd);

    /// Ends a write in progress, between two pieces of it or in its wait for an interrupt. The write returns
    /// OK with the number of bytes that the device has by then; so do later writes, at once, until
    /// EndWrites(false). Nothing is logged. Does not block. Any thread.
    void EndWrites(bool aEnd);

    /// Decides about each piece of a write before it goes out, and hears of each that the device has taken.
    class WriteMonitor
    {
    public:
        /// Whether the next piece may go out; if not, the write ends as EndWrites(true) ends it.
        virtual bool MaySend() noexcept = 0;
        /// The device has taken these bytes. The writer's thread.
        virtual void Sent(const uint8_t* aBytes, uint32_t aCount) noexcept = 0;

    protected:
        ~WriteMonitor() = default;
    };

    /// \param aMonitor  Not owned; null: none. Must stay while there are writes; set between them.
    void SetWriteMonitor(WriteMonitor* aMonitor) { mWriteMonitor = aMonitor; }

    /// What became of received bytes that no reader has taken.
    struct ReceiveCounts
    {
        uint64_t mReceived = 0; ///< All bytes, whatever became of them.
        uint64_t mOverrun = 0;  ///< They gave way to newer ones.
        uint64_t mCleared = 0;  ///< They waited when the buffer was emptied or made anew.
    };

    /// The counts since the last call, or since construction. Any thread.
    ReceiveCounts TakeReceiveCounts();

    /// Stores a received byte and wakes a waiting reader.
    /// \param aTakeLock  False when the caller holds the receive lock, for the bytes of one event.
    void PushByte(uint8_t aByte,
                  bool aTakeLock) JX_NO_THREAD_SAFETY_ANALYSIS; // the lock depends on an argument

    /// Stores the bytes of one event, oldest first, as that many PushByte(byte, false) would. The caller
    /// holds the receive lock. \param aBytes  Not null, unless there are none.
    void PushBytes(const uint8_t* aBytes, uint32_t aCount) JX_REQUIRES(mReceiveLock);

    /// Takes the receive lock around a batch of PushByte(byte, false) or PushBytes.
    void LockRx() JX_ACQUIRE(mReceiveLock);
    /// Gives it back, and wakes the reader if something was stored meanwhile.
    void UnlockRx() JX_RELEASE(mReceiveLock);

private:
    uint32_t GetUsed() const JX_REQUIRES(mReceiveLock);
    uint32_t Advance(uint32_t aIndex, uint32_t aCount) const JX_REQUIRES(mReceiveLock);
    void Clear() JX_REQUIRES(mReceiveLock);
    void SignalReader() JX_REQUIRES(mReceiveLock);
    bool IsEmpty() const JX_REQUIRES(mReceiveLock) { return mWriteIndex == mReadIndex; }

    friend class RetiredEngines;
    SerialPort* mNextRetired = nullptr; // guarded by their list
    std::atomic<bool> mRetired{false};

    JxUtilsLib::Mutex mReceiveLock;
    std::unique_ptr<uint8_t[]> mBuffer JX_GUARDED_BY(mReceiveLock);
    uint32_t mWriteIndex JX_GUARDED_BY(mReceiveLock) = 0;
    uint32_t mReadIndex JX_GUARDED_BY(mReceiveLock) = 0;
    ReceiveCounts mReceiveCounts JX_GUARDED_BY(mReceiveLock);
    std::atomic<uint32_t> mBufferSize{0}; // as reported: stored before the lock is taken
    // Cells of the array that exists. The ring works with this one, so that a byte that arrives while the
    // buffer is being replaced stays inside it.
    uint32_t mCells JX_GUARDED_BY(mReceiveLock) = 1;
    JxUtilsLib::Event mDataEvent;
    std::atomic<bool> mReaderWaiting{false};
    bool mWakeReader JX_GUARDED_BY(mReceiveLock) =
        false; // the event is set, and the sleeping reader is not woken yet
    bool mReadsEnd JX_GUARDED_BY(mReceiveLock) = false; // see EndReads()

    JxUtilsLib::Mutex mWriteLock;
    JxUtilsLib::Event*
        mAwaited JX_GUARDED_BY(mWriteLock) = nullptr; // what the writer waits for; null: nothing
    std::atomic<bool> mWritesEnd{false};              // see EndWrites()
    WriteMonitor* mWriteMonitor = nullptr;            // the writer's

protected:
    /// Whether EndWrites(true) is in force, or the monitor stops the write. Engines ask before each piece.
    bool AreWritesEnded() const
    {
        return mWritesEnd || (mWriteMonitor != nullptr && !mWriteMonitor->MaySend());
    }

    /// To be called by the engine when the device has taken a piece of a write.
    void CountSent(const uint8_t* aBytes, uint32_t aCount)
    {
        if (mWriteMonitor != nullptr)
        {
            mWriteMonitor->Sent(aBytes, aCount);
        }
    }

    /// Waits for the event that the device's interrupt sets. The writer's thread.
    /// \return False: the time is over. True: the event was set, or EndWrites(true) is in force.
    bool AwaitInterrupt(JxUtilsLib::Event& aEvent, uint32_t aTimeout);

    /// For the log lines of the receive side and of the engines.
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;

    /// Whether the engine has retired: event handlers ask first.
    bool IsRetired() const { return mRetired; }
};

} // namespace KySerialLib
