#include "kyserial/Bus/I2COptions.h"
#include "kyserial/Bus/I2CSyntax.h"
#include "kyserial/Commands/I2CCommand.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/HexDump.h"

#include <array>
#include <cstdio>

namespace KySerialTool
{

namespace
{

constexpr uint32_t cLongestBlock = 32;

struct GetOptions : I2COptions
{
    std::string mAddress{};
    std::string mRegister{};
    std::string mMode{};
    std::string mLength{};
};

/// What to read, taken apart.
struct Request
{
    uint8_t mAddress = 0;
    std::vector<uint8_t> mRegister{}; ///< None or one.
    char mMode = 'b';
    size_t mCount = 1;
};

Request ParseRequest(const GetOptions& aOptions)
{
    Request lRequest;
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

std::vector<uint8_t> Read(I2CBus& aBus, const Request& aRequest)
{
    if (aRequest.mRegister.empty())
    {
        return aBus.Read(aRequest.mAddress, aRequest.mCount);
    }
    if (aRequest.mMode == 'c')
    {
        aBus.Write(aRequest.mAddress, aRequest.mRegister);
        return aBus.Read(aRequest.mAddress, aRequest.mCount);
    }
    return aBus.WriteAndRead(aRequest.mAddress, aRequest.mRegister, aRequest.mCount);
}

/// "0x19", "0x1900" with the second byte in front, "0x19 0x00".
std::string Text(const Request& aRequest, const std::vector<uint8_t>& aBytes)
{
    std::string lText;
    if (aRequest.mMode == 'w')
    {
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

ExitCode RunGet(Context& aContext, const GetOptions& aOptions)
{
    const Request lRequest = ParseRequest(aOptions);
    if (!Confirm(aContext, aOptions, "I will read from address " + aOptions.mAddress))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    Print(aContext, Text(lRequest, Read(lBus.mBus, lRequest)));
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
    AddI2COptions(lCommand, *lOptions, aContext);
    OnCommand(lCommand, aContext, lOptions, &RunGet);
}

} // namespace KySerialTool
