#include "kyserial/Bus/Eeprom.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

/// A read of this size is over within the library's 50 ms at 100 kHz, and stays within one block of 256.
constexpr size_t cReadPiece = 128;
/// Milliseconds; data sheets promise 10 at most.
constexpr uint64_t cWriteCycleLimit = 500;
constexpr size_t cBlock = 256;

} // namespace

Eeprom::Eeprom(I2CBus& aBus, const EepromShape& aShape) : mBus(aBus), mShape(aShape) {}

std::vector<uint8_t> Eeprom::Read(size_t aOffset, size_t aSize, const Advance& aAdvance)
{
    std::vector<uint8_t> lBytes;
    while (lBytes.size() < aSize)
    {
        const size_t lOffset = aOffset + lBytes.size();
        const size_t lCount = std::min(aSize - lBytes.size(), cReadPiece - lOffset % cReadPiece);
        const std::vector<uint8_t> lPiece =
            mBus.WriteAndRead(SlaveAddress(lOffset), OffsetBytes(lOffset), lCount);
        lBytes.insert(lBytes.end(), lPiece.begin(), lPiece.end());
        aAdvance(lCount);
    }
    return lBytes;
}

void Eeprom::Write(size_t aOffset, const std::vector<uint8_t>& aBytes, const Advance& aAdvance)
{
    size_t lDone = 0;
    while (lDone < aBytes.size())
    {
        const size_t lOffset = aOffset + lDone;
        const size_t lCount = std::min(aBytes.size() - lDone, mShape.mPage - lOffset % mShape.mPage);
        std::vector<uint8_t> lMessage = OffsetBytes(lOffset);
        const auto lBegin = aBytes.begin() + static_cast<std::ptrdiff_t>(lDone);
        lMessage.insert(lMessage.end(), lBegin, lBegin + static_cast<std::ptrdiff_t>(lCount));
        mBus.Write(SlaveAddress(lOffset), lMessage);
        AwaitWriteCycle(lOffset);
        lDone += lCount;
        aAdvance(lCount);
    }
}

uint8_t Eeprom::SlaveAddress(size_t aOffset) const
{
    return static_cast<uint8_t>(mShape.mAddress + (mShape.mOffsetBytes == 1 ? aOffset / cBlock : 0));
}

std::vector<uint8_t> Eeprom::OffsetBytes(size_t aOffset) const
{
    const auto lLow = static_cast<uint8_t>(aOffset & 0xFFU);
    const auto lHigh = static_cast<uint8_t>(aOffset >> 8U);
    return mShape.mOffsetBytes == 1 ? std::vector<uint8_t>{lLow} : std::vector<uint8_t>{lHigh, lLow};
}

void Eeprom::AwaitWriteCycle(size_t aOffset)
{
    // Asked with a read: not every device reports that a write was not acknowledged, but a read without an
    // answer always shows.
    const uint64_t lEnd = JxUtilsLib::Thread::GetTickCount() + cWriteCycleLimit;
    std::vector<uint8_t> lByte;
    KyResult lResult = mBus.TryRead(SlaveAddress(aOffset), 1, lByte);
    while (I2CBus::IsNoAnswer(lResult) && JxUtilsLib::Thread::GetTickCount() < lEnd)
    {
        lResult = mBus.TryRead(SlaveAddress(aOffset), 1, lByte);
    }
    Check(lResult, "the memory does not come back from its write cycle");
}

} // namespace KySerialTool
