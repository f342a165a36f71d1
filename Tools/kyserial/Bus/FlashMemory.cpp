#include "kyserial/Bus/FlashMemory.h"

#include "kyserial/Text/Failure.h"

#include <JxUtilsLib/Thread.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr uint8_t cIdentityCommand = 0x9F;
constexpr uint8_t cStatusCommand = 0x05;
constexpr uint8_t cWriteEnableCommand = 0x06;
constexpr uint8_t cReadCommand = 0x03;
constexpr uint8_t cProgramCommand = 0x02;
constexpr uint8_t cSectorEraseCommand = 0x20;
constexpr uint8_t cChipEraseCommand = 0xC7;
constexpr uint8_t cBusy = 0x01;

/// Half a page: with its command it fits into one step, so that the slave need not stay selected between two.
constexpr size_t cProgramPiece = 128;
constexpr size_t cReadPiece = 248;

/// Milliseconds; generous, data sheets promise a tenth.
constexpr uint64_t cProgramLimit = 1000;
constexpr uint64_t cSectorLimit = 10000;
constexpr uint64_t cChipLimit = 400000;

std::vector<uint8_t> Command(uint8_t aCommand, size_t aAddress)
{
    return {aCommand, static_cast<uint8_t>(aAddress >> 16U), static_cast<uint8_t>(aAddress >> 8U),
            static_cast<uint8_t>(aAddress)};
}

} // namespace

FlashMemory::FlashMemory(SpiBus& aBus) : mBus(aBus) {}

FlashMemory::Identity FlashMemory::ReadIdentity()
{
    const std::vector<uint8_t> lBytes = mBus.Transfer({cIdentityCommand}, 3);
    const Identity lIdentity = {lBytes.at(0), lBytes.at(1), lBytes.at(2)};
    if (lIdentity == Identity{0xFF, 0xFF, 0xFF} || lIdentity == Identity{0, 0, 0})
    {
        throw OperationError("no flash memory answers");
    }
    return lIdentity;
}

size_t FlashMemory::SizeOf(const Identity& aIdentity)
{
    const size_t lExponent = aIdentity[2];
    return lExponent >= 10 && lExponent <= 24 ? size_t{1} << lExponent : 0;
}

std::vector<uint8_t> FlashMemory::Read(size_t aOffset, size_t aSize, const Advance& aAdvance)
{
    std::vector<uint8_t> lBytes;
    while (lBytes.size() < aSize)
    {
        const size_t lCount = std::min(aSize - lBytes.size(), cReadPiece);
        const std::vector<uint8_t> lPiece =
            mBus.Transfer(Command(cReadCommand, aOffset + lBytes.size()), lCount);
        lBytes.insert(lBytes.end(), lPiece.begin(), lPiece.end());
        aAdvance(lCount);
    }
    return lBytes;
}

void FlashMemory::Program(size_t aOffset, const std::vector<uint8_t>& aBytes, const Advance& aAdvance)
{
    size_t lDone = 0;
    while (lDone < aBytes.size())
    {
        const size_t lOffset = aOffset + lDone;
        const size_t lCount = std::min(aBytes.size() - lDone, cProgramPiece - lOffset % cProgramPiece);
        std::vector<uint8_t> lCommand = Command(cProgramCommand, lOffset);
        const auto lBegin = aBytes.begin() + static_cast<std::ptrdiff_t>(lDone);
        lCommand.insert(lCommand.end(), lBegin, lBegin + static_cast<std::ptrdiff_t>(lCount));
        Write(lCommand, cProgramLimit);
        lDone += lCount;
        aAdvance(lCount);
    }
}

void FlashMemory::EraseSectors(size_t aOffset, size_t aSize, const Advance& aAdvance)
{
    for (size_t lDone = 0; lDone < aSize; lDone += cSector)
    {
        Write(Command(cSectorEraseCommand, aOffset + lDone), cSectorLimit);
        aAdvance(cSector);
    }
}

void FlashMemory::EraseChip()
{
    Write({cChipEraseCommand}, cChipLimit);
}

void FlashMemory::Write(const std::vector<uint8_t>& aCommand, uint64_t aLimit)
{
    mBus.Transfer({cWriteEnableCommand}, 0);
    mBus.Transfer(aCommand, 0);
    const uint64_t lEnd = JxUtilsLib::Thread::GetTickCount() + aLimit;
    while ((mBus.Transfer({cStatusCommand}, 1).at(0) & cBusy) != 0)
    {
        if (JxUtilsLib::Thread::GetTickCount() > lEnd)
        {
            throw OperationError("the flash memory stays busy");
        }
    }
}

} // namespace KySerialTool
