#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Bus/I2CText.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>

namespace KySerialTool
{

namespace
{

struct DetectOptions : I2COptions
{
    std::string mFirst{};
    std::string mLast{};
    bool mQuickWrite = false;
    bool mReadByte = false;
    bool mJson = false;
};

/// Whether a slave answers. A device that is gone is no answer but a failure.
bool Answers(I2CBus& aBus, uint8_t aAddress, bool aQuickWrite)
{
    std::vector<uint8_t> lByte;
    // A read by default: without a report of missing acknowledges every write looks answered.
    const KyResult lResult = aQuickWrite ? aBus.TryWrite(aAddress, {}) : aBus.TryRead(aAddress, 1, lByte);
    if (!lResult.IsOK() && !I2CBus::IsNoAnswer(lResult))
    {
        Check(lResult, "asking the bus failed");
    }
    return lResult.IsOK();
}

std::string Json(const DetectOptions& aOptions, const I2CAnswers& aAnswers)
{
    nlohmann::ordered_json lAddresses = nlohmann::ordered_json::array();
    for (size_t lAddress = 0; lAddress < aAnswers.size(); ++lAddress)
    {
        if (aAnswers.at(lAddress).value_or(false))
        {
            lAddresses.push_back(lAddress);
        }
    }
    return JsonLine({{"port", PortName(aOptions.mPort)}, {"addresses", lAddresses}});
}

ExitCode RunDetect(Context& aContext, const DetectOptions& aOptions)
{
    const uint8_t lFirst = !aOptions.mFirst.empty() ? ParseI2CAddress(aOptions.mFirst, aOptions.mAll)
                           : aOptions.mAll          ? 0
                                                    : cFirstI2CAddress;
    const uint8_t lLast = !aOptions.mLast.empty() ? ParseI2CAddress(aOptions.mLast, aOptions.mAll)
                          : aOptions.mAll         ? cHighestI2CAddress
                                                  : cLastI2CAddress;
    if (lLast < lFirst)
    {
        throw UsageError("the last address is below the first; use FIRST LAST, 0x08 0x77 for example");
    }
    if (!Confirm(aContext, aOptions, "I will probe the I2C bus"))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    I2CAnswers lAnswers;
    for (uint32_t lAddress = lFirst; lAddress <= lLast; ++lAddress)
    {
        // Addresses outside the range stay without an answer, which the table shows as blanks.
        lAnswers.at(lAddress) = Answers(lBus.mBus, static_cast<uint8_t>(lAddress), aOptions.mQuickWrite);
    }
    Print(aContext, aOptions.mJson ? Json(aOptions, lAnswers) : DetectTable(lAnswers));
    return ExitCode::Ok;
}

} // namespace

void AddI2CDetect(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand = *aParent.add_subcommand("detect", "Show which addresses answer");
    const auto lOptions = std::make_shared<DetectOptions>();
    lCommand.add_option("FIRST", lOptions->mFirst, "First address (0x08)");
    lCommand.add_option("LAST", lOptions->mLast, "Last address (0x77)");
    lCommand.add_flag("-q", lOptions->mQuickWrite,
                      "Ask with a write of no bytes; only for devices that report a missing acknowledge");
    // It changes nothing, and command lines for i2c-tools have it.
    lCommand.add_flag("-r", lOptions->mReadByte, "Ask with a read of one byte (default)");
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line instead of a table");
    AddI2COptions(lCommand, *lOptions, aContext);
    lCommand.footer("Example:\n  kyserial i2c detect -y --device sim --port bulk2");
    OnCommand(lCommand, aContext, lOptions, &RunDetect);
}

namespace
{

struct GetOptions : I2COptions
{
    std::string mAddress{};
    std::string mRegister{};
    std::string mMode{};
    std::string mLength{};
    bool mJson = false;
};

/// What to read, taken apart.
struct GetRequest
{
    uint8_t mAddress = 0;
    std::vector<uint8_t> mRegister{}; ///< None or one.
    char mMode = 'b';
    size_t mCount = 1;
};

GetRequest ParseRequest(const GetOptions& aOptions)
{
    GetRequest lRequest;
    lRequest.mAddress = ParseI2CAddress(aOptions.mAddress, aOptions.mAll);
    if (!aOptions.mRegister.empty())
    {
        lRequest.mRegister = {static_cast<uint8_t>(ParseI2CNumber(aOptions.mRegister, "register", 0xFF))};
    }
    if (!aOptions.mMode.empty() &&
        (aOptions.mMode.size() != 1 || std::string("bwci").find(aOptions.mMode) > 3))
    {
        throw UsageError('"' + aOptions.mMode +
                         "\" is no mode; use b (byte), w (word), c (write byte, read byte) or i (block)");
    }
    lRequest.mMode = aOptions.mMode.empty() ? 'b' : aOptions.mMode.front();
    // A length that is ignored would look as if it had worked.
    if (!aOptions.mLength.empty() && lRequest.mMode != 'i')
    {
        throw UsageError("only a block has a length; use mode i, or leave the length out");
    }
    if (lRequest.mMode == 'w')
    {
        lRequest.mCount = 2;
    }
    if (lRequest.mMode == 'i')
    {
        lRequest.mCount = aOptions.mLength.empty()
                              ? cLongestBlock
                              : ParseI2CNumber(aOptions.mLength, "length", cLongestBlock);
    }
    return lRequest;
}

std::vector<uint8_t> Read(I2CBus& aBus, const GetRequest& aRequest)
{
    if (aRequest.mRegister.empty())
    {
        return aBus.Read(aRequest.mAddress, aRequest.mCount);
    }
    // Slaves that do not know the repeated start want a stop between the register and the read.
    if (aRequest.mMode == 'c')
    {
        aBus.Write(aRequest.mAddress, aRequest.mRegister);
        return aBus.Read(aRequest.mAddress, aRequest.mCount);
    }
    return aBus.WriteAndRead(aRequest.mAddress, aRequest.mRegister, aRequest.mCount);
}

/// "0x19", "0x1900" with the second byte in front, "0x19 0x00".
std::string Text(const GetRequest& aRequest, const std::vector<uint8_t>& aBytes)
{
    std::string lText;
    if (aRequest.mMode == 'w')
    {
        // Slaves send the low byte of a word first; a number is written with the high one first.
        const std::array<uint8_t, 2> lWord = {aBytes.at(1), aBytes.at(0)};
        lText = HexBytes(lWord.data(), lWord.size());
        lText.erase(lText.find(' '), 1);
        return "0x" + lText + '\n';
    }
    for (const uint8_t lByte : aBytes)
    {
        lText += (lText.empty() ? "0x" : " 0x") + HexBytes(&lByte, 1);
    }
    return lText + '\n';
}

std::string Json(const GetOptions& aOptions, const GetRequest& aRequest, const std::vector<uint8_t>& aBytes)
{
    nlohmann::ordered_json lReport = {{"port", PortName(aOptions.mPort)}, {"address", aRequest.mAddress}};
    if (!aRequest.mRegister.empty())
    {
        lReport["register"] = aRequest.mRegister.front();
    }
    lReport["bytes"] = aBytes; // in the order of the bus
    return JsonLine(lReport);
}

ExitCode RunGet(Context& aContext, const GetOptions& aOptions)
{
    const GetRequest lRequest = ParseRequest(aOptions);
    if (!Confirm(aContext, aOptions, "I will read from address " + aOptions.mAddress))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    const std::vector<uint8_t> lBytes = Read(lBus.mBus, lRequest);
    Print(aContext, aOptions.mJson ? Json(aOptions, lRequest, lBytes) : Text(lRequest, lBytes));
    return ExitCode::Ok;
}

} // namespace

void AddI2CGet(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand = *aParent.add_subcommand("get", "Read from a register of a slave");
    const auto lOptions = std::make_shared<GetOptions>();
    lCommand.add_option("ADDRESS", lOptions->mAddress, "Address of the slave, 0x08 to 0x77")->required();
    lCommand.add_option("REGISTER", lOptions->mRegister,
                        "Register; without it the slave's current one is read");
    lCommand.add_option(
        "MODE", lOptions->mMode,
        "b a byte (default), w a word (low byte first on the bus), c write the register with a "
        "stop, then read a byte, i a block");
    lCommand.add_option("LENGTH", lOptions->mLength, "Bytes of a block, 0 to 32 (32)");
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line");
    AddI2COptions(lCommand, *lOptions, aContext);
    lCommand.footer("Example:\n  kyserial i2c get -y --device sim --port bulk2 0x50 0x00");
    OnCommand(lCommand, aContext, lOptions, &RunGet);
}

namespace
{

struct DumpOptions : I2COptions
{
    std::string mAddress{};
    std::string mMode{};
    std::string mRange{};
    bool mJson = false;
};

/// What to dump, taken apart.
struct DumpRequest
{
    uint8_t mAddress = 0;
    char mMode = 'b';
    DumpRange mRange{};
};

DumpRequest ParseRequest(const DumpOptions& aOptions)
{
    DumpRequest lRequest;
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
std::vector<uint8_t> TryRegisters(I2CBus& aBus, const DumpRequest& aRequest, uint32_t aRegister,
                                  size_t aCount)
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
DumpValues ReadOneByOne(I2CBus& aBus, const DumpRequest& aRequest)
{
    const size_t lCount = aRequest.mMode == 'w' ? 2 : 1;
    DumpValues lValues;
    for (uint32_t lRegister = aRequest.mRange.mFirst; lRegister <= aRequest.mRange.mLast; ++lRegister)
    {
        const std::vector<uint8_t> lBytes = TryRegisters(aBus, aRequest, lRegister, lCount);
        // A word that came by half is no value.
        if (lBytes.size() == lCount)
        {
            // As in a word that is read alone: the low byte comes first.
            const uint32_t lHigh = lCount == 2 ? lBytes.at(1) : 0;
            lValues.at(lRegister) = static_cast<uint16_t>(lBytes.at(0) | lHigh << 8U);
        }
    }
    return lValues;
}

/// Blocks of up to 32 registers at once.
DumpValues ReadBlocks(I2CBus& aBus, const DumpRequest& aRequest)
{
    DumpValues lValues;
    for (uint32_t lFirst = aRequest.mRange.mFirst; lFirst <= aRequest.mRange.mLast; lFirst += cLongestBlock)
    {
        // A block that does not answer leaves a gap, and the next one begins with its own register.
        const size_t lCount = std::min(cLongestBlock, aRequest.mRange.mLast - lFirst + 1);
        const std::vector<uint8_t> lBytes = TryRegisters(aBus, aRequest, lFirst, lCount);
        for (size_t lIndex = 0; lIndex < lBytes.size(); ++lIndex)
        {
            lValues.at(lFirst + lIndex) = lBytes.at(lIndex);
        }
    }
    return lValues;
}

/// The first register, and then reads that follow the slave's own counting.
DumpValues ReadConsecutively(I2CBus& aBus, const DumpRequest& aRequest)
{
    // A missing answer ends the dump: the slave's own count would be off for all that follow.
    DumpValues lValues;
    aBus.Write(aRequest.mAddress, {static_cast<uint8_t>(aRequest.mRange.mFirst)});
    for (uint32_t lRegister = aRequest.mRange.mFirst; lRegister <= aRequest.mRange.mLast; ++lRegister)
    {
        lValues.at(lRegister) = aBus.Read(aRequest.mAddress, 1).at(0);
    }
    return lValues;
}

/// Values by register; null for those that did not answer.
std::string Json(const DumpOptions& aOptions, const DumpRequest& aRequest, const DumpValues& aValues)
{
    nlohmann::ordered_json lValues = nlohmann::ordered_json::array();
    for (uint32_t lRegister = aRequest.mRange.mFirst; lRegister <= aRequest.mRange.mLast; ++lRegister)
    {
        const std::optional<uint16_t>& lValue = aValues.at(lRegister);
        lValues.push_back(lValue.has_value() ? nlohmann::ordered_json(*lValue) : nlohmann::ordered_json());
    }
    return JsonLine({{"port", PortName(aOptions.mPort)},
                     {"address", aRequest.mAddress},
                     {"first", aRequest.mRange.mFirst},
                     {"bits", aRequest.mMode == 'w' ? 16 : 8},
                     {"values", lValues}});
}

ExitCode RunDump(Context& aContext, const DumpOptions& aOptions)
{
    const DumpRequest lRequest = ParseRequest(aOptions);
    if (!Confirm(aContext, aOptions, "I will read from address " + aOptions.mAddress))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    const DumpValues lValues = lRequest.mMode == 'i'   ? ReadBlocks(lBus.mBus, lRequest)
                               : lRequest.mMode == 'c' ? ReadConsecutively(lBus.mBus, lRequest)
                                                       : ReadOneByOne(lBus.mBus, lRequest);
    if (aOptions.mJson)
    {
        Print(aContext, Json(aOptions, lRequest, lValues));
        return ExitCode::Ok;
    }
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
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line instead of a table");
    AddI2COptions(lCommand, *lOptions, aContext);
    lCommand.footer("Example:\n  kyserial i2c dump -y --device sim --port bulk2 0x50 --range 0x00-0x3f");
    OnCommand(lCommand, aContext, lOptions, &RunDump);
}

} // namespace KySerialTool
