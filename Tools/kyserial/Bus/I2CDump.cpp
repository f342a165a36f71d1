#include "kyserial/Bus/I2COptions.h"
#include "kyserial/Bus/I2CSyntax.h"
#include "kyserial/Bus/I2CTables.h"
#include "kyserial/Commands/I2CCommand.h"
#include "kyserial/Text/Failure.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cBlock = 32;

struct DumpOptions : I2COptions
{
    std::string mAddress{};
    std::string mMode{};
    std::string mRange{};
};

/// What to dump, taken apart.
struct Request
{
    uint8_t mAddress = 0;
    char mMode = 'b';
    DumpRange mRange{};
};

Request ParseRequest(const DumpOptions& aOptions)
{
    Request lRequest;
    lRequest.mAddress = ParseI2CAddress(aOptions.mAddress, aOptions.mAll);
    if (!aOptions.mMode.empty() &&
        (aOptions.mMode.size() != 1 || std::string("bwci").find(aOptions.mMode) > 3))
    {
        throw UsageError('"' + aOptions.mMode +
                         "\" is no mode; use b (bytes), w (words), c (consecutive bytes) or i (blocks)");
    }
    lRequest.mMode = aOptions.mMode.empty() ? 'b' : aOptions.mMode.front();
    if (!aOptions.mRange.empty())
    {
        const auto [lFirst, lLast] = ParseI2CRange(aOptions.mRange);
        lRequest.mRange = {lFirst, lLast};
    }
    return lRequest;
}

/// Reads aCount bytes from a register on; what does not answer stays empty, other failures end the dump.
std::vector<uint8_t> TryRegisters(I2CBus& aBus, const Request& aRequest, uint32_t aRegister, size_t aCount)
{
    std::vector<uint8_t> lBytes;
    const KyResult lResult =
        aBus.TryWriteAndRead(aRequest.mAddress, {static_cast<uint8_t>(aRegister)}, aCount, lBytes);
    if (!lResult.IsOK() && !I2CBus::IsNoAnswer(lResult))
    {
        Check(lResult, "reading failed");
    }
    return lBytes;
}

/// One read for each register, of one byte or of a word.
DumpValues ReadOneByOne(I2CBus& aBus, const Request& aRequest)
{
    const size_t lCount = aRequest.mMode == 'w' ? 2 : 1;
    DumpValues lValues;
    for (uint32_t lRegister = aRequest.mRange.mFirst; lRegister <= aRequest.mRange.mLast; ++lRegister)
    {
        const std::vector<uint8_t> lBytes = TryRegisters(aBus, aRequest, lRegister, lCount);
        if (lBytes.size() == lCount)
        {
            const uint32_t lHigh = lCount == 2 ? lBytes.at(1) : 0;
            lValues.at(lRegister) = static_cast<uint16_t>(lBytes.at(0) | lHigh << 8U);
        }
    }
    return lValues;
}

/// Blocks of up to 32 registers at once.
DumpValues ReadBlocks(I2CBus& aBus, const Request& aRequest)
{
    DumpValues lValues;
    for (uint32_t lFirst = aRequest.mRange.mFirst; lFirst <= aRequest.mRange.mLast; lFirst += cBlock)
    {
        const size_t lCount = std::min(cBlock, aRequest.mRange.mLast - lFirst + 1);
        const std::vector<uint8_t> lBytes = TryRegisters(aBus, aRequest, lFirst, lCount);
        for (size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex)
        {
            lValues.at(lFirst + lIndex) = lBytes.at(lIndex);
        }
    }
    return lValues;
}

/// The first register, and then reads that follow the slave's own counting.
DumpValues ReadConsecutively(I2CBus& aBus, const Request& aRequest)
{
    DumpValues lValues;
    aBus.Write(aRequest.mAddress, {static_cast<uint8_t>(aRequest.mRange.mFirst)});
    for (uint32_t lRegister = aRequest.mRange.mFirst; lRegister <= aRequest.mRange.mLast; ++lRegister)
    {
        lValues.at(lRegister) = aBus.Read(aRequest.mAddress, 1).at(0);
    }
    return lValues;
}

ExitCode RunDump(Context& aContext, const DumpOptions& aOptions)
{
    const Request lRequest = ParseRequest(aOptions);
    if (!Confirm(aContext, aOptions, "I will read from address " + aOptions.mAddress))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    const DumpValues lValues = lRequest.mMode == 'i'   ? ReadBlocks(lBus.mBus, lRequest)
                               : lRequest.mMode == 'c' ? ReadConsecutively(lBus.mBus, lRequest)
                                                       : ReadOneByOne(lBus.mBus, lRequest);
    Print(aContext, lRequest.mMode == 'w' ? DumpWordsTable(lValues, lRequest.mRange)
                                          : DumpBytesTable(lValues, lRequest.mRange));
    return ExitCode::Ok;
}

} // namespace

void AddI2CDump(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand = *aParent.add_subcommand("dump", "Show all registers of a slave");
    const auto lOptions = std::make_shared<DumpOptions>();
    lCommand.add_option("ADDRESS", lOptions->mAddress, "Address of the slave, 0x08 to 0x77")->required();
    lCommand.add_option("MODE", lOptions->mMode,
                        "b one by one (default), w words, c consecutive bytes, i blocks of 32");
    lCommand.add_option("-r,--range", lOptions->mRange, "Registers, 0x00-0xff by default")
        ->type_name("FIRST-LAST");
    AddI2COptions(lCommand, *lOptions, aContext);
    OnCommand(lCommand, aContext, lOptions, &RunDump);
}

} // namespace KySerialTool
