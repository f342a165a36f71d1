#include "kyserial/Bus/Eeprom.h"
#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Bus/I2CText.h"
#include "kyserial/Bus/MemoryChange.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Output.h"

#include <CLI/CLI.hpp>
#include <JxUtilsLib/Thread.h>

#include <algorithm>
#include <cstdio>

namespace KySerialTool
{

namespace
{

/// A read of this size is over within the library's 50 ms at 100 kHz, and stays within one block of 256.
constexpr size_t cEepromPiece = 128;
/// Milliseconds; data sheets promise 10 at most.
constexpr uint64_t cWriteCycleLimit = 500;
constexpr size_t cEepromBlock = 256;

} // namespace

Eeprom::Eeprom(I2CBus& aBus, const EepromShape& aShape) : mBus(aBus), mShape(aShape) {}

std::vector<uint8_t> Eeprom::Read(size_t aOffset, size_t aSize, const Advance& aAdvance)
{
    std::vector<uint8_t> lBytes;
    while (lBytes.size() < aSize)
    {
        const size_t lOffset = aOffset + lBytes.size();
        // Pieces start at multiples of their size, so none crosses a block, whose address differs.
        const size_t lCount = std::min(aSize - lBytes.size(), cEepromPiece - lOffset % cEepromPiece);
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
        // A write past the end of its page would start again at the page's beginning and overwrite it.
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
    // Memories with one offset byte answer to one address for each block of 256 bytes.
    return static_cast<uint8_t>(mShape.mAddress + (mShape.mOffsetBytes == 1 ? aOffset / cEepromBlock : 0));
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

namespace
{

constexpr uint32_t cLargest = 65536;
constexpr uint32_t cLargestWithBlocks = 2048; // eight blocks of 256: three bits of the slave's address

struct EepromOptions : I2COptions
{
    std::string mFile{};
    std::string mAddress = "0x50";
    uint32_t mSize = 256;
    uint32_t mPage = 8;
    uint32_t mOffset = 0;
    bool mWideOffsets = false;
    bool mQuiet = false;
};

EepromShape ParseShape(const EepromOptions& aOptions)
{
    EepromShape lShape{ParseI2CAddress(aOptions.mAddress, aOptions.mAll), aOptions.mSize, aOptions.mPage,
                       aOptions.mWideOffsets ? 2U : 1U};
    const uint32_t lLargest = aOptions.mWideOffsets ? cLargest : cLargestWithBlocks;
    if (lShape.mSize == 0 || lShape.mSize > lLargest)
    {
        throw UsageError("--size: use 1 to " + std::to_string(lLargest) + " bytes" +
                         (aOptions.mWideOffsets ? "" : ", or up to 65536 with --wide-offsets"));
    }
    // Pieces are cut at multiples of the page, which is only right for the sizes that chips have.
    if (lShape.mPage == 0 || (lShape.mPage & (lShape.mPage - 1)) != 0)
    {
        throw UsageError("--page: a page is a power of two; use 1, 2, 4 and so on up to 256");
    }
    if (aOptions.mOffset >= lShape.mSize)
    {
        throw UsageError("--offset: use 0 to " + std::to_string(lShape.mSize - 1) + ", or a larger --size");
    }
    return lShape;
}

std::vector<uint8_t> ReadWithProgress(const Context& aContext, Eeprom& aEeprom, const char* aLabel,
                                      size_t aOffset, size_t aSize)
{
    std::vector<uint8_t> lBytes;
    MemoryProgress(aContext, aLabel, "", aOffset, aSize)
        .Run([&](const MemoryProgress::Advance& aAdvance)
             { lBytes = aEeprom.Read(aOffset, aSize, aAdvance); });
    return lBytes;
}

ExitCode RunRead(Context& aContext, const EepromOptions& aOptions)
{
    const EepromShape lShape = ParseShape(aOptions);
    WatchInterrupts(aContext);
    OpenI2CBus lBus(aContext, aOptions);
    Eeprom lEeprom(lBus.mBus, lShape);
    SaveFile(
        aContext, aOptions.mFile,
        ReadWithProgress(aContext, lEeprom, "reading", aOptions.mOffset, lShape.mSize - aOptions.mOffset));
    return ExitCode::Ok;
}

ExitCode RunWrite(Context& aContext, const EepromOptions& aOptions)
{
    const EepromShape lShape = ParseShape(aOptions);
    // The file is read before the user is asked, so that the question has the number of bytes.
    const std::vector<uint8_t> lBytes = LoadFile(aContext, aOptions.mFile, lShape.mSize - aOptions.mOffset);
    ConfirmChange(aContext, aOptions.mYes, aOptions.mFile == "-",
                  "this writes " + std::to_string(lBytes.size()) + " bytes into the EEPROM at " +
                      aOptions.mAddress + " on " + PortName(aOptions.mPort));
    WatchInterrupts(aContext);
    OpenI2CBus lBus(aContext, aOptions);
    Eeprom lEeprom(lBus.mBus, lShape);
    MemoryProgress(aContext, "writing", "written", aOptions.mOffset, lBytes.size())
        .Run([&](const MemoryProgress::Advance& aAdvance)
             { lEeprom.Write(aOptions.mOffset, lBytes, aAdvance); });
    // A write that no device has acknowledged may pass without an error, so what was written is read back.
    Verify(lBytes, ReadWithProgress(aContext, lEeprom, "verifying", aOptions.mOffset, lBytes.size()),
           aOptions.mOffset);
    if (!aOptions.mQuiet)
    {
        std::fputs(("wrote and verified " + std::to_string(lBytes.size()) + " bytes\n").c_str(), stderr);
    }
    return ExitCode::Ok;
}

void AddShapeOptions(CLI::App& aCommand, EepromOptions& aOptions, Context& aContext)
{
    aCommand.add_option("FILE", aOptions.mFile, "File with the bytes, - for the standard input or output")
        ->required();
    aCommand.add_option("--address", aOptions.mAddress, "Address of the memory (0x50)")->type_name("ADDRESS");
    AddSizeOption(aCommand, "--size", cLargest, "Size of the memory in bytes (256)", aOptions.mSize);
    AddNumberOption(aCommand, "--page", 256, "bytes", "Bytes that one write takes (8)", aOptions.mPage);
    AddSizeOption(aCommand, "--offset", cLargest - 1, "First byte, from the memory's beginning (0)",
                  aOptions.mOffset);
    aCommand.add_flag("--wide-offsets", aOptions.mWideOffsets,
                      "Offsets of two bytes, as memories above 2048 bytes take them");
    AddI2COptions(aCommand, aOptions, aContext);
}

} // namespace

void AddI2CEeprom(CLI::App& aParent, Context& aContext)
{
    CLI::App& lEeprom = *aParent.add_subcommand("eeprom", "Read and write EEPROMs as a whole");
    lEeprom.footer("Example:\n  kyserial i2c eeprom read --device sim --port bulk2 contents.bin");
    const auto lReadOptions = std::make_shared<EepromOptions>();
    CLI::App& lRead = *lEeprom.add_subcommand("read", "Copy the memory into a file");
    AddShapeOptions(lRead, *lReadOptions, aContext);
    lRead.footer("Example:\n  kyserial i2c eeprom read -y --device sim --port bulk2 contents.bin");
    OnCommand(lRead, aContext, lReadOptions, &RunRead);

    const auto lWriteOptions = std::make_shared<EepromOptions>();
    CLI::App& lWrite =
        *lEeprom.add_subcommand("write", "Copy a file into the memory, page by page, and verify it");
    AddShapeOptions(lWrite, *lWriteOptions, aContext);
    lWrite.add_flag("--quiet", lWriteOptions->mQuiet, "No note on the error output");
    lWrite.footer("Example:\n  kyserial i2c eeprom write -y --device sim --port bulk2 contents.bin");
    OnCommand(lWrite, aContext, lWriteOptions, &RunWrite);
}

} // namespace KySerialTool
