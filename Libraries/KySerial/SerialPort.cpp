#include "SerialPort.h"

#include "DeviceChecks.h"
#include "JxUtilsLib/LockScope.h"
#include "LogResult.h"
#include "OutOfMemory.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace KySerialLib
{

namespace
{

constexpr char cSourceFile[] = "Libraries/KySerial/SerialPort";

} // namespace

SerialPort::SerialPort() : mDataEvent(true), mLogger(std::make_unique<JxUtilsLib::Logger>(cLogCategory, 0))
{
    // Not virtual here: no engine exists yet that could have replaced it.
    if (!SerialPort::SetRxBufferSize(cDefaultBufferSize).IsOK())
    {
        throw std::bad_alloc();
    }
}

SerialPort::~SerialPort()
{
    static_cast<void>(SerialPort::Close()); // only empties the buffer, and that cannot fail
}

void SerialPort::NotifyEvent(uint16_t /*aEventID*/, uint16_t /*aChannel*/, uint64_t /*aBlockID*/,
                             uint64_t /*aTimestamp*/, const void* /*aData*/, uint32_t /*aDataLength*/)
{
}

void SerialPort::NotifyFeatureInvalidated(const KyString* /*aName*/) {}

void SerialPort::LockRx()
{
    mReceiveLock.Wait();
}

void SerialPort::UnlockRx()
{
    if (!mWakeReader)
    {
        mReceiveLock.Release();
        return;
    }
    mWakeReader = false;
    mReceiveLock.Release();
    // After the lock: a reader woken under it would fall asleep at the lock at once.
    mDataEvent.Wake();
}

void SerialPort::SignalReader()
{
    mWakeReader = mDataEvent.Raise() || mWakeReader;
}

void SerialPort::Clear()
{
    mReceiveCounts.mCleared += GetUsed();
    mWriteIndex = 0;
    mReadIndex = 0;
}

KyResult SerialPort::Close()
{
    const JxUtilsLib::LockScope lLock(mReceiveLock);
    Clear();
    return KyResult(KyResult::OK);
}

KyResult SerialPort::FlushRxBuffer()
{
    const JxUtilsLib::LockScope lLock(mReceiveLock);
    Clear();
    return KyResult(KyResult::OK);
}

KyResult SerialPort::GetRxBytesReady(uint32_t& aBytes)
{
    const JxUtilsLib::LockScope lLock(mReceiveLock);
    aBytes = GetUsed();
    return KyResult(KyResult::OK);
}

KyResult SerialPort::GetRxBufferSize(uint32_t& aSize)
{
    aSize = mBufferSize;
    return KyResult(KyResult::OK);
}

KyResult SerialPort::SetRxBufferSize(uint32_t aSize)
{
    const uint32_t lFormerSize = mBufferSize.exchange(aSize);
    const uint32_t lCells = std::max(aSize, 1U); // a ring of one cell is always empty
    // Made before the old one goes, so that a failure loses nothing.
    std::unique_ptr<uint8_t[]> lBuffer(new (std::nothrow) uint8_t[lCells]);
    if (lBuffer == nullptr)
    {
        mBufferSize = lFormerSize;
        return OutOfMemory();
    }
    const JxUtilsLib::LockScope lLock(mReceiveLock);
    Clear(); // first: the indexes are those of the old buffer
    mBuffer = std::move(lBuffer);
    mCells = lCells;
    return KyResult(KyResult::OK);
}

uint32_t SerialPort::GetUsed() const
{
    return mWriteIndex >= mReadIndex ? mWriteIndex - mReadIndex : mCells - mReadIndex + mWriteIndex;
}

/// Where aIndex is after aCount cells, of which there are at most as many as the ring has.
uint32_t SerialPort::Advance(uint32_t aIndex, uint32_t aCount) const
{
    const uint32_t lToEnd = mCells - aIndex; // without a sum, which could exceed 32 bits
    return aCount < lToEnd ? aIndex + aCount : aCount - lToEnd;
}

void SerialPort::PushBytes(const uint8_t* aBytes, uint32_t aCount)
{
    if (aCount == 0 || mBuffer == nullptr) // retired: no buffer
    {
        return;
    }
    mReceiveCounts.mReceived += aCount;
    const uint32_t lRoom = mCells - 1 - GetUsed();
    mReceiveCounts.mOverrun += aCount > lRoom ? aCount - lRoom : 0;
    if (aCount >= mCells) // the new bytes replace all bytes that waited, and push out the oldest of their own
    {
        const uint32_t lKept = mCells - 1;
        std::memcpy(mBuffer.get(), aBytes + (aCount - lKept), lKept);
        mReadIndex = 0;
        mWriteIndex = lKept;
    }
    else
    {
        const uint32_t lFirst = std::min(aCount, mCells - mWriteIndex);
        std::memcpy(mBuffer.get() + mWriteIndex, aBytes, lFirst);
        std::memcpy(mBuffer.get(), aBytes + lFirst, aCount - lFirst);
        mWriteIndex = Advance(mWriteIndex, aCount);
        if (aCount > lRoom)
        {
            mReadIndex = Advance(mWriteIndex, 1); // the oldest bytes are lost
        }
    }
    // A reader looks at the ring before it waits, so only one that waits already needs the event.
    if (mReaderWaiting)
    {
        SignalReader();
    }
}

SerialPort::ReceiveCounts SerialPort::TakeReceiveCounts()
{
    const JxUtilsLib::LockScope lLock(mReceiveLock);
    return std::exchange(mReceiveCounts, ReceiveCounts());
}

void SerialPort::EndReads(bool aEnd)
{
    // Under the lock a reader is either before its look at the flag or waits already. Neither misses the end.
    LockRx();
    mReadsEnd = aEnd;
    if (aEnd && mReaderWaiting)
    {
        SignalReader();
    }
    UnlockRx();
}

void SerialPort::EndWrites(bool aEnd)
{
    const JxUtilsLib::LockScope lLock(mWriteLock);
    mWritesEnd = aEnd;
    if (aEnd && mAwaited != nullptr)
    {
        mAwaited->Set(); // each piece resets the event before it is sent
    }
}

bool SerialPort::AwaitInterrupt(JxUtilsLib::Event& aEvent, uint32_t aTimeout)
{
    // The interrupt may have come inside the call that writes. Then nothing is left to end: the lock is not needed.
    if (aEvent.Wait_ms(0))
    {
        return true;
    }
    {
        const JxUtilsLib::LockScope lLock(mWriteLock);
        // This is no failure. The engine sees before its next piece that writes have ended.
        if (mWritesEnd)
        {
            return true;
        }
        mAwaited = &aEvent;
    }
    const bool lCame = aEvent.Wait_ms(aTimeout);
    const JxUtilsLib::LockScope lLock(mWriteLock);
    mAwaited = nullptr;
    return lCame;
}

void SerialPort::PushByte(uint8_t aByte, bool aTakeLock)
{
    if (aTakeLock)
    {
        LockRx();
    }
    PushBytes(&aByte, 1);
    if (aTakeLock)
    {
        UnlockRx();
    }
}

KyResult SerialPort::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aBytesRead, uint32_t aTimeout)
{
    aBytesRead = 0;
    if (aBuffer == nullptr)
    {
        return KY_LOG_RESULT(*mLogger, KyResult::BAD_PARAMETER, "KySerialLib::SerialPort::Read", cNoBuffer);
    }
    LockRx();
    if (IsEmpty())
    {
        if (aTimeout == 0 || mReadsEnd)
        {
            UnlockRx();
            return KyResult(KyResult::TIMED_OUT);
        }
        // Reset under the lock: a byte pushed between here and the wait still ends the wait.
        mDataEvent.Reset();
        mReaderWaiting = true;
        UnlockRx();
        const bool lArrived = mDataEvent.Wait_ms(aTimeout);
        mReaderWaiting = false;
        if (!lArrived)
        {
            return KyResult(KyResult::TIMED_OUT);
        }
        LockRx();
        // While reads go on, an empty ring means that a flush came: the read is OK and has no bytes.
        if (mReadsEnd && IsEmpty())
        {
            UnlockRx();
            return KyResult(KyResult::TIMED_OUT);
        }
    }
    // A call with size 0 takes one byte: clients rely on a byte per call.
    aBytesRead = std::min(std::max(aSize, 1U), GetUsed());
    const uint32_t lFirst = std::min(aBytesRead, mCells - mReadIndex);
    std::memcpy(aBuffer, mBuffer.get() + mReadIndex, lFirst);
    std::memcpy(aBuffer + lFirst, mBuffer.get(), aBytesRead - lFirst);
    mReadIndex = Advance(mReadIndex, aBytesRead);
    if (IsEmpty()) // a port whose reader keeps up needs the memory of a few bytes, not of the whole buffer
    {
        mReadIndex = mWriteIndex = 0;
    }
    UnlockRx();
    return KyResult(KyResult::OK);
}

void SerialPort::Retire()
{
    mRetired = true;
    const JxUtilsLib::LockScope lLock(mReceiveLock); // an event that is being taken ends without its bytes
    Clear();
    mBuffer.reset();
    mCells = 1;
}

} // namespace KySerialLib
