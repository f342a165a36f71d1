#include "kyserial/Bus/FlashMemory.h"
#include "kyserial/Bus/SpiCommand.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Output.h"

#include <JxUtilsLib/Thread.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <cstdio>

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

namespace
{

struct FlashOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    std::string mFile{};
    uint32_t mOffset = 0;
    uint32_t mSize = 0; ///< 0: to the end.
    bool mErase = false;
    bool mChip = false;
    bool mJson = false;
    bool mQuiet = false;
};

/// A flash memory on an open bus, and how large it is.
struct OpenFlash
{
    OpenFlash(Context& aContext, KyDeviceSerial aPort)
        : mBus(aContext, aPort)
        , mMemory(mBus.mBus)
        , mIdentity(mMemory.ReadIdentity())
        , mSize(FlashMemory::SizeOf(mIdentity))
    {
    }

    /// The part of the memory that the options name. Throws UsageError when it is not within the memory.
    size_t SizeFor(const FlashOptions& aOptions) const
    {
        if (mSize == 0 && aOptions.mSize == 0)
        {
            throw OperationError("the memory does not tell its size; give --size");
        }
        const size_t lTotal = mSize != 0 ? mSize : FlashMemory::cLargest;
        if (aOptions.mOffset >= lTotal || aOptions.mSize > lTotal - aOptions.mOffset)
        {
            throw UsageError("--offset, --size: the memory has " + std::to_string(lTotal) +
                             " bytes; use a part within them");
        }
        return aOptions.mSize != 0 ? aOptions.mSize : lTotal - aOptions.mOffset;
    }

    OpenSpiBus mBus;
    FlashMemory mMemory;
    const FlashMemory::Identity mIdentity;
    const size_t mSize;
};

void Note(const FlashOptions& aOptions, const std::string& aText)
{
    if (!aOptions.mQuiet)
    {
        std::fputs((aText + '\n').c_str(), stderr);
    }
}

ExitCode RunId(Context& aContext, const FlashOptions& aOptions)
{
    const OpenFlash lFlash(aContext, aOptions.mPort);
    if (aOptions.mJson)
    {
        const nlohmann::ordered_json lJson = {{"port", PortName(aOptions.mPort)},
                                              {"manufacturer", lFlash.mIdentity[0]},
                                              {"type", lFlash.mIdentity[1]},
                                              {"capacity", lFlash.mIdentity[2]},
                                              {"size", lFlash.mSize}};
        Print(aContext, lJson.dump() + '\n');
        return ExitCode::Ok;
    }
    std::array<char, 96> lText{};
    std::snprintf(lText.data(), lText.size(),
                  "manufacturer 0x%02x, type 0x%02x, capacity 0x%02x (%zu bytes)\n",
                  static_cast<unsigned>(lFlash.mIdentity[0]), static_cast<unsigned>(lFlash.mIdentity[1]),
                  static_cast<unsigned>(lFlash.mIdentity[2]), lFlash.mSize);
    Print(aContext, lText.data());
    return ExitCode::Ok;
}

std::vector<uint8_t> ReadWithProgress(OpenFlash& aFlash, const char* aLabel, size_t aOffset, size_t aSize)
{
    Progress lProgress(aLabel, aSize);
    return aFlash.mMemory.Read(aOffset, aSize, [&](size_t aCount) { lProgress.Advance(aCount); });
}

ExitCode RunRead(Context& aContext, const FlashOptions& aOptions)
{
    OpenFlash lFlash(aContext, aOptions.mPort);
    const std::vector<uint8_t> lBytes =
        ReadWithProgress(lFlash, "reading", aOptions.mOffset, lFlash.SizeFor(aOptions));
    SaveFile(aContext, aOptions.mFile, lBytes);
    return ExitCode::Ok;
}

void EraseWithProgress(OpenFlash& aFlash, size_t aOffset, size_t aSize)
{
    Progress lProgress("erasing", aSize);
    aFlash.mMemory.EraseSectors(aOffset, aSize, [&](size_t aCount) { lProgress.Advance(aCount); });
}

/// Erases the sectors that the bytes touch. \return What has to be programmed then, from the first of the
/// sectors on: the bytes, and around them what was there.
std::vector<uint8_t> EraseAround(OpenFlash& aFlash, size_t& aOffset, const std::vector<uint8_t>& aBytes)
{
    const size_t lFirst = aOffset / FlashMemory::cSector * FlashMemory::cSector;
    const size_t lEnd =
        (aOffset + aBytes.size() + FlashMemory::cSector - 1) / FlashMemory::cSector * FlashMemory::cSector;
    std::vector<uint8_t> lContents = ReadWithProgress(aFlash, "reading", lFirst, lEnd - lFirst);
    std::copy(aBytes.begin(), aBytes.end(),
              lContents.begin() + static_cast<std::ptrdiff_t>(aOffset - lFirst));
    EraseWithProgress(aFlash, lFirst, lEnd - lFirst);
    aOffset = lFirst;
    return lContents;
}

void VerifyFlash(OpenFlash& aFlash, const FlashOptions& aOptions, size_t aOffset,
                 const std::vector<uint8_t>& aBytes)
{
    const std::vector<uint8_t> lRead = ReadWithProgress(aFlash, "verifying", aOffset, aBytes.size());
    try
    {
        Verify(aBytes, lRead, aOffset);
    }
    catch (const OperationError& lError)
    {
        throw OperationError(lError.what() +
                             std::string(aOptions.mErase ? "" : "; was it erased? See --erase"));
    }
}

ExitCode RunWrite(Context& aContext, const FlashOptions& aOptions)
{
    std::vector<uint8_t> lBytes = LoadFile(aContext, aOptions.mFile);
    const size_t lGiven = lBytes.size();
    OpenFlash lFlash(aContext, aOptions.mPort);
    const size_t lRoom = lFlash.SizeFor(aOptions);
    if (lGiven > lRoom)
    {
        throw UsageError(aOptions.mFile + " has " + std::to_string(lGiven) + " bytes; the memory takes " +
                         std::to_string(lRoom) + " there");
    }
    size_t lOffset = aOptions.mOffset;
    if (aOptions.mErase && !lBytes.empty())
    {
        lBytes = EraseAround(lFlash, lOffset, lBytes);
    }
    {
        Progress lProgress("writing", lBytes.size());
        lFlash.mMemory.Program(lOffset, lBytes, [&](size_t aCount) { lProgress.Advance(aCount); });
    }
    VerifyFlash(lFlash, aOptions, lOffset, lBytes);
    Note(aOptions, "wrote and verified " + std::to_string(lGiven) + " bytes");
    return ExitCode::Ok;
}

ExitCode RunErase(Context& aContext, const FlashOptions& aOptions)
{
    if (aOptions.mOffset % FlashMemory::cSector != 0 || aOptions.mSize % FlashMemory::cSector != 0)
    {
        throw UsageError("--offset, --size: sectors are erased as a whole; use multiples of 4096");
    }
    OpenFlash lFlash(aContext, aOptions.mPort);
    if (aOptions.mChip)
    {
        lFlash.mMemory.EraseChip();
        Note(aOptions, "erased the memory");
        return ExitCode::Ok;
    }
    const size_t lSize = lFlash.SizeFor(aOptions);
    EraseWithProgress(lFlash, aOptions.mOffset, lSize);
    Note(aOptions, "erased " + std::to_string(lSize) + " bytes");
    return ExitCode::Ok;
}

/// A command below "flash" with the options that all of them take.
CLI::App& AddCommand(CLI::App& aParent, Context& aContext, const char* aName, const char* aDescription,
                     const std::shared_ptr<FlashOptions>& aOptions,
                     ExitCode (*aRun)(Context&, const FlashOptions&))
{
    CLI::App& lCommand = *aParent.add_subcommand(aName, aDescription);
    AddPortOption(lCommand, PortKind::Bulk, aOptions->mPort);
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.callback(
        [&aContext, aOptions, aRun]
        { aContext.mAction = [aOptions, aRun](Context& aRunning) { return aRun(aRunning, *aOptions); }; });
    return lCommand;
}

void AddOffset(CLI::App& aCommand, FlashOptions& aOptions)
{
    AddNumberOption(aCommand, "--offset", FlashMemory::cLargest - 1, "bytes", "Where to begin (0)",
                    aOptions.mOffset);
}

void AddSize(CLI::App& aCommand, FlashOptions& aOptions)
{
    AddNumberOption(aCommand, "--size", FlashMemory::cLargest, "bytes", "How many bytes (all up to the end)",
                    aOptions.mSize);
}

} // namespace

void AddSpiFlash(CLI::App& aParent, Context& aContext)
{
    CLI::App& lFlash =
        *aParent.add_subcommand("flash", "Identify, read, write and erase a serial flash memory");

    const auto lIdOptions = std::make_shared<FlashOptions>();
    CLI::App& lId = AddCommand(lFlash, aContext, "id", "Show what memory it is", lIdOptions, &RunId);
    lId.add_flag("--json", lIdOptions->mJson, "One JSON object");

    const auto lReadOptions = std::make_shared<FlashOptions>();
    CLI::App& lRead =
        AddCommand(lFlash, aContext, "read", "Copy the memory into a file", lReadOptions, &RunRead);
    lRead.add_option("FILE", lReadOptions->mFile, "File, - for the standard output")->required();
    AddOffset(lRead, *lReadOptions);
    AddSize(lRead, *lReadOptions);

    const auto lWriteOptions = std::make_shared<FlashOptions>();
    CLI::App& lWrite = AddCommand(lFlash, aContext, "write", "Copy a file into the memory and verify it",
                                  lWriteOptions, &RunWrite);
    lWrite.add_option("FILE", lWriteOptions->mFile, "File, - for the standard input")->required();
    AddOffset(lWrite, *lWriteOptions);
    lWrite.add_flag(
        "--erase", lWriteOptions->mErase,
        "Erase the sectors first; what else is in them is kept. Without it, only ones become zeros");
    lWrite.add_flag("-q,--quiet", lWriteOptions->mQuiet, "No note on the error output");

    const auto lEraseOptions = std::make_shared<FlashOptions>();
    CLI::App& lErase =
        AddCommand(lFlash, aContext, "erase", "Erase sectors of 4096 bytes", lEraseOptions, &RunErase);
    AddOffset(lErase, *lEraseOptions);
    AddSize(lErase, *lEraseOptions);
    lErase.add_flag("--chip", lEraseOptions->mChip, "Erase the whole memory with one command");
    lErase.add_flag("-q,--quiet", lEraseOptions->mQuiet, "No note on the error output");
}

} // namespace KySerialTool
