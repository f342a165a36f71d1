#include "kyserial/Bus/FlashMemory.h"
#include "kyserial/Bus/FlashChips.h"
#include "kyserial/Bus/MemoryChange.h"
#include "kyserial/Bus/SpiCommand.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/FileContent.h"
#include "kyserial/Text/Output.h"

#include "kyserial/Text/Json.h"
#include <CLI/CLI.hpp>
#include <JxUtilsLib/Thread.h>

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
constexpr size_t cFlashPiece = 248;

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
    // An open line reads as ones, one that is held low as zeros.
    if (lIdentity == Identity{0xFF, 0xFF, 0xFF} || lIdentity == Identity{0, 0, 0})
    {
        throw OperationError("no flash memory answers");
    }
    return lIdentity;
}

size_t FlashMemory::SizeOf(const Identity& aIdentity)
{
    const FlashChip* const lChip = FindFlashChip(aIdentity);
    if (lChip != nullptr)
    {
        return lChip->mSize;
    }
    // Most makers have the size there as a power of two. Others are in the table, or their size is not known.
    const size_t lExponent = aIdentity[2];
    return lExponent >= 10 && lExponent <= 24 ? size_t{1} << lExponent : 0;
}

std::vector<uint8_t> FlashMemory::Read(size_t aOffset, size_t aSize, const Advance& aAdvance)
{
    std::vector<uint8_t> lBytes;
    while (lBytes.size() < aSize)
    {
        const size_t lCount = std::min(aSize - lBytes.size(), cFlashPiece);
        // Each piece is a command of its own with its address. One long command would
        // need the chip selected between two steps.
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
        // No piece crosses a page: the chip would go on at the beginning of the same page.
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

void FlashMemory::EraseChip(const Advance& aAdvance)
{
    // No bytes are counted meanwhile: the chip says only that it is busy. The call looks for an interruption.
    Write({cChipEraseCommand}, cChipLimit, [&] { aAdvance(0); });
}

void FlashMemory::Write(const std::vector<uint8_t>& aCommand, uint64_t aLimit,
                        const std::function<void()>& aWait)
{
    // The chip drops its write enable after each command that changes it, so each one is enabled anew.
    mBus.Transfer({cWriteEnableCommand}, 0);
    mBus.Transfer(aCommand, 0);
    const uint64_t lEnd = JxUtilsLib::Thread::GetTickCount() + aLimit;
    while ((mBus.Transfer({cStatusCommand}, 1).at(0) & cBusy) != 0)
    {
        // A chip that is gone reads as ones, which looks busy for ever.
        if (JxUtilsLib::Thread::GetTickCount() > lEnd)
        {
            throw OperationError("the flash memory stays busy");
        }
        aWait();
    }
}

namespace
{

struct FlashOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    std::string mFile{};
    std::string mBackup{};
    uint32_t mOffset = 0;
    uint32_t mSize = 0; ///< 0: to the end.
    bool mYes = false;
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
            throw OperationError("the size of this memory is not known; give --size");
        }
        // An address has three bytes, so a memory of unknown size ends there at the latest.
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
    const FlashChip* const lChip = FindFlashChip(lFlash.mIdentity);
    if (aOptions.mJson)
    {
        const nlohmann::ordered_json lJson = {{"port", PortName(aOptions.mPort)},
                                              {"manufacturer", lFlash.mIdentity[0]},
                                              {"type", lFlash.mIdentity[1]},
                                              {"capacity", lFlash.mIdentity[2]},
                                              {"size", lFlash.mSize},
                                              {"chip", lChip != nullptr ? lChip->mName : ""}};
        Print(aContext, JsonLine(lJson));
        return ExitCode::Ok;
    }
    std::array<char, 128> lText{};
    std::snprintf(lText.data(), lText.size(),
                  "manufacturer 0x%02x, type 0x%02x, capacity 0x%02x (%zu bytes, %s)\n",
                  static_cast<unsigned>(lFlash.mIdentity[0]), static_cast<unsigned>(lFlash.mIdentity[1]),
                  static_cast<unsigned>(lFlash.mIdentity[2]), lFlash.mSize,
                  lChip != nullptr ? lChip->mName : "unknown chip");
    Print(aContext, lText.data());
    return ExitCode::Ok;
}

std::vector<uint8_t> ReadWithProgress(const Context& aContext, OpenFlash& aFlash, const char* aLabel,
                                      size_t aOffset, size_t aSize)
{
    std::vector<uint8_t> lBytes;
    MemoryProgress(aContext, aLabel, "", aOffset, aSize)
        .Run([&](const MemoryProgress::Advance& aAdvance)
             { lBytes = aFlash.mMemory.Read(aOffset, aSize, aAdvance); });
    return lBytes;
}

ExitCode RunRead(Context& aContext, const FlashOptions& aOptions)
{
    WatchInterrupts(aContext);
    OpenFlash lFlash(aContext, aOptions.mPort);
    SaveFile(aContext, aOptions.mFile,
             ReadWithProgress(aContext, lFlash, "reading", aOptions.mOffset, lFlash.SizeFor(aOptions)));
    return ExitCode::Ok;
}

/// Bytes for a part of the memory, beside what the memory has there. With --erase the part is widened to whole
/// sectors, and what was around the bytes is kept.
struct FlashPlan
{
    size_t mOffset = 0;
    std::vector<uint8_t> mOld{};
    std::vector<uint8_t> mNew{};
};

FlashPlan MakePlan(const Context& aContext, OpenFlash& aFlash, const FlashOptions& aOptions,
                   const std::vector<uint8_t>& aBytes)
{
    // An erase takes a whole sector, so what is around the bytes has to be read first and written back.
    const size_t lUnit = aOptions.mErase ? FlashMemory::cSector : 1;
    FlashPlan lPlan;
    lPlan.mOffset = aOptions.mOffset / lUnit * lUnit;
    const size_t lEnd = (aOptions.mOffset + aBytes.size() + lUnit - 1) / lUnit * lUnit;
    lPlan.mOld = ReadWithProgress(aContext, aFlash, "reading", lPlan.mOffset, lEnd - lPlan.mOffset);
    lPlan.mNew = lPlan.mOld;
    std::copy(aBytes.begin(), aBytes.end(),
              lPlan.mNew.begin() + static_cast<std::ptrdiff_t>(aOptions.mOffset - lPlan.mOffset));
    return lPlan;
}

/// Writes sector by sector, so that a break costs one sector at most. \return How many sectors were equal already.
size_t WriteSectors(const Context& aContext, OpenFlash& aFlash, const FlashOptions& aOptions,
                    const FlashPlan& aPlan)
{
    size_t lEqual = 0;
    MemoryProgress lProgress(aContext, "writing", "written", aPlan.mOffset, aPlan.mNew.size());
    lProgress.Run(
        [&](const MemoryProgress::Advance& aAdvance)
        {
            for (size_t lDone = 0; lDone < aPlan.mNew.size();)
            {
                const size_t lOffset = aPlan.mOffset + lDone;
                const size_t lCount = std::min(FlashMemory::cSector - lOffset % FlashMemory::cSector,
                                               aPlan.mNew.size() - lDone);
                const auto lBegin = static_cast<std::ptrdiff_t>(lDone);
                const auto lEnd = static_cast<std::ptrdiff_t>(lDone + lCount);
                const std::vector<uint8_t> lNew(aPlan.mNew.begin() + lBegin, aPlan.mNew.begin() + lEnd);
                // A sector that has these bytes already is left alone: it saves time, and the chip's limited
                // erases.
                if (std::equal(lNew.begin(), lNew.end(), aPlan.mOld.begin() + lBegin))
                {
                    ++lEqual;
                }
                else
                {
                    if (aOptions.mErase)
                    {
                        aFlash.mMemory.EraseSectors(lOffset, FlashMemory::cSector, [](size_t) {});
                    }
                    aFlash.mMemory.Program(lOffset, lNew, [](size_t) {});
                }
                lDone += lCount;
                aAdvance(lCount);
            }
        });
    return lEqual;
}

void VerifyFlash(const Context& aContext, OpenFlash& aFlash, const FlashOptions& aOptions,
                 const FlashPlan& aPlan)
{
    const std::vector<uint8_t> lRead =
        ReadWithProgress(aContext, aFlash, "verifying", aPlan.mOffset, aPlan.mNew.size());
    try
    {
        Verify(aPlan.mNew, lRead, aPlan.mOffset);
    }
    catch (const OperationError& lError)
    {
        // Programming only clears bits, so a part that was not erased reads back as a mix of old and new.
        throw OperationError(lError.what() +
                             std::string(aOptions.mErase ? "" : "; was it erased? See --erase"));
    }
}

ExitCode RunWrite(Context& aContext, const FlashOptions& aOptions)
{
    const std::vector<uint8_t> lBytes =
        LoadFile(aContext, aOptions.mFile, FlashMemory::cLargest - aOptions.mOffset);
    ConfirmChange(aContext, aOptions.mYes, aOptions.mFile == "-",
                  "this writes " + std::to_string(lBytes.size()) + " bytes into the flash memory on " +
                      PortName(aOptions.mPort));
    // Only after the question: until then nothing has begun that Ctrl-C could leave half done.
    WatchInterrupts(aContext);
    OpenFlash lFlash(aContext, aOptions.mPort);
    // The size is known only now: it follows from the chip's identity.
    const size_t lRoom = lFlash.SizeFor(aOptions);
    if (lBytes.size() > lRoom)
    {
        throw UsageError(aOptions.mFile + " has " + std::to_string(lBytes.size()) +
                         " bytes; the memory takes " + std::to_string(lRoom) + " there");
    }
    // With --erase the plan for no bytes could still be a whole sector.
    if (lBytes.empty())
    {
        Note(aOptions, "wrote and verified 0 bytes");
        return ExitCode::Ok;
    }
    // Everything that can be refused is refused before the memory is touched.
    const FlashPlan lPlan = MakePlan(aContext, lFlash, aOptions, lBytes);
    // The copy is on the disk before the first byte changes.
    if (!aOptions.mBackup.empty())
    {
        SaveFile(aContext, aOptions.mBackup, lPlan.mOld);
        Note(aOptions, "saved " + std::to_string(lPlan.mOld.size()) + " bytes from offset " +
                           std::to_string(lPlan.mOffset) + " on in " + aOptions.mBackup);
    }
    const size_t lEqual = WriteSectors(aContext, lFlash, aOptions, lPlan);
    VerifyFlash(aContext, lFlash, aOptions, lPlan);
    Note(aOptions, "wrote and verified " + std::to_string(lBytes.size()) + " bytes" +
                       (lEqual == 0 ? "" : "; sectors that were equal already: " + std::to_string(lEqual)));
    return ExitCode::Ok;
}

/// For the question, which comes before the memory has said how large it is.
std::string WhatIsErased(const FlashOptions& aOptions)
{
    const std::string lMemory = "the flash memory on " + PortName(aOptions.mPort);
    const std::string lFrom = "from offset " + std::to_string(aOptions.mOffset);
    if (aOptions.mSize != 0)
    {
        return std::to_string(aOptions.mSize) + " bytes of " + lMemory + ", " + lFrom + " on";
    }
    return aOptions.mOffset != 0 ? lMemory + ' ' + lFrom + " to its end" : "all of " + lMemory;
}

ExitCode RunErase(Context& aContext, const FlashOptions& aOptions)
{
    if (aOptions.mOffset % FlashMemory::cSector != 0 || aOptions.mSize % FlashMemory::cSector != 0)
    {
        throw UsageError("--offset, --size: sectors are erased as a whole; use multiples of 4096");
    }
    ConfirmChange(aContext, aOptions.mYes, false, "this erases " + WhatIsErased(aOptions));
    WatchInterrupts(aContext);
    OpenFlash lFlash(aContext, aOptions.mPort);
    if (aOptions.mChip)
    {
        // The memory goes on by itself when the program ends meanwhile.
        MemoryProgress(aContext, "erasing", "erased", 0, lFlash.mSize)
            .Run([&](const MemoryProgress::Advance& aAdvance) { lFlash.mMemory.EraseChip(aAdvance); });
        Note(aOptions, "erased the memory");
        return ExitCode::Ok;
    }
    const size_t lSize = lFlash.SizeFor(aOptions);
    MemoryProgress(aContext, "erasing", "erased", aOptions.mOffset, lSize)
        .Run([&](const MemoryProgress::Advance& aAdvance)
             { lFlash.mMemory.EraseSectors(aOptions.mOffset, lSize, aAdvance); });
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

CLI::Option* AddOffset(CLI::App& aCommand, FlashOptions& aOptions)
{
    return AddSizeOption(aCommand, "--offset", FlashMemory::cLargest - 1,
                         "First byte, from the memory's beginning (0)", aOptions.mOffset);
}

CLI::Option* AddSize(CLI::App& aCommand, FlashOptions& aOptions)
{
    return AddSizeOption(aCommand, "--size", FlashMemory::cLargest, "Number of bytes (all up to the end)",
                         aOptions.mSize);
}

void AddYes(CLI::App& aCommand, FlashOptions& aOptions)
{
    aCommand.add_flag("-y,--yes", aOptions.mYes, "Do not ask before the memory is changed");
}

} // namespace

void AddSpiFlash(CLI::App& aParent, Context& aContext)
{
    CLI::App& lFlash =
        *aParent.add_subcommand("flash", "Identify, read, write and erase a serial flash memory");

    lFlash.footer("Example:\n  kyserial spi flash id --device sim --port bulk3");
    const auto lIdOptions = std::make_shared<FlashOptions>();
    CLI::App& lId = AddCommand(lFlash, aContext, "id", "Show what memory it is", lIdOptions, &RunId);
    lId.footer("Example:\n  kyserial spi flash id --device sim --port bulk3 --json");
    lId.add_flag("--json", lIdOptions->mJson, "One JSON object in one line");

    const auto lReadOptions = std::make_shared<FlashOptions>();
    CLI::App& lRead =
        AddCommand(lFlash, aContext, "read", "Copy the memory into a file", lReadOptions, &RunRead);
    lRead.footer("Example:\n  kyserial spi flash read --device sim --port bulk3 contents.bin");
    lRead.add_option("FILE", lReadOptions->mFile, "File, - for the standard output")->required();
    AddOffset(lRead, *lReadOptions);
    AddSize(lRead, *lReadOptions);

    const auto lWriteOptions = std::make_shared<FlashOptions>();
    CLI::App& lWrite = AddCommand(lFlash, aContext, "write", "Copy a file into the memory and verify it",
                                  lWriteOptions, &RunWrite);
    lWrite.footer("Example:\n  kyserial spi flash write -y --erase --device sim --port bulk3 contents.bin");
    lWrite.add_option("FILE", lWriteOptions->mFile, "File, - for the standard input")->required();
    AddOffset(lWrite, *lWriteOptions);
    AddYes(lWrite, *lWriteOptions);
    lWrite
        .add_option("--backup", lWriteOptions->mBackup, "File that gets the old contents of what is written")
        ->type_name("FILE");
    lWrite.add_flag(
        "--erase", lWriteOptions->mErase,
        "Erase the sectors first; what else is in them is kept. Without it, only ones become zeros");
    lWrite.add_flag("-q,--quiet", lWriteOptions->mQuiet, "No note on the error output");

    const auto lEraseOptions = std::make_shared<FlashOptions>();
    CLI::App& lErase =
        AddCommand(lFlash, aContext, "erase", "Erase sectors of 4096 bytes", lEraseOptions, &RunErase);
    lErase.footer("Example:\n  kyserial spi flash erase -y --device sim --port bulk3 --size 4KiB");
    CLI::Option* const lOffset = AddOffset(lErase, *lEraseOptions);
    CLI::Option* const lSize = AddSize(lErase, *lEraseOptions);
    AddYes(lErase, *lEraseOptions);
    // A part that is named means that the rest is to stay.
    lErase.add_flag("--chip", lEraseOptions->mChip, "Erase the whole memory with one command")
        ->excludes(lOffset)
        ->excludes(lSize);
    lErase.add_flag("-q,--quiet", lEraseOptions->mQuiet, "No note on the error output");
}

} // namespace KySerialTool
