#include "kyserial/Bus/I2COptions.h"
#include "kyserial/Bus/I2CSyntax.h"
#include "kyserial/Commands/I2CCommand.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/HexDump.h"

#include <cstdio>

namespace KySerialTool
{

namespace
{

constexpr size_t cMostMessages = 42; // that of i2ctransfer

struct TransferOptions : I2COptions
{
    std::vector<std::string> mWords{};
    bool mVerbose = false;
};

std::string Numbers(const std::vector<uint8_t>& aBytes)
{
    std::string lText;
    for (const uint8_t lByte : aBytes)
    {
        lText += (lText.empty() ? "0x" : " 0x") + HexBytes(&lByte, 1);
    }
    return lText;
}

void Describe(size_t aIndex, const I2CMessage& aMessage, const std::vector<uint8_t>& aBytes)
{
    const std::string lText =
        "msg " + std::to_string(aIndex) + ": addr 0x" + HexBytes(&aMessage.mAddress, 1) +
        (aMessage.mRead ? ", read, len " : ", write, len ") + std::to_string(aMessage.mCount) +
        (aBytes.empty() ? "" : ", buf " + Numbers(aBytes)) + '\n';
    std::fputs(lText.c_str(), stderr);
}

ExitCode RunTransfer(Context& aContext, const TransferOptions& aOptions)
{
    const std::vector<I2CMessage> lMessages = ParseI2CMessages(aOptions.mWords, aOptions.mAll);
    if (lMessages.size() > cMostMessages)
    {
        throw UsageError("a transfer has at most " + std::to_string(cMostMessages) +
                         " messages; use several");
    }
    if (!Confirm(aContext, aOptions, "I will send " + std::to_string(lMessages.size()) + " messages"))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    std::string lOutput;
    for (size_t lIndex = 0; lIndex < lMessages.size(); ++lIndex)
    {
        const I2CMessage& lMessage = lMessages[lIndex];
        const auto lThen = lIndex + 1 == lMessages.size() ? I2CBus::Then::Stop : I2CBus::Then::RepeatedStart;
        std::vector<uint8_t> lBytes = lMessage.mBytes;
        if (lMessage.mRead)
        {
            lBytes = lBus.mBus.Read(lMessage.mAddress, lMessage.mCount, lThen);
            lOutput += Numbers(lBytes) + '\n';
        }
        else
        {
            lBus.mBus.Write(lMessage.mAddress, lBytes, lThen);
        }
        if (aOptions.mVerbose)
        {
            Describe(lIndex, lMessage, lBytes);
        }
    }
    Print(aContext, lOutput);
    return ExitCode::Ok;
}

} // namespace

void AddI2CTransfer(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand =
        *aParent.add_subcommand("transfer", "Send messages with repeated starts between them");
    const auto lOptions = std::make_shared<TransferOptions>();
    lCommand.add_option("MESSAGE", lOptions->mWords, "{r|w}LENGTH[@ADDRESS], a write followed by its bytes")
        ->required();
    lCommand.add_flag("-v,--verbose", lOptions->mVerbose, "Show every message on the error output");
    AddI2COptions(lCommand, *lOptions, aContext);
    lCommand.footer("The last byte of a write may end in = (repeat it), + (count up), - (count down) or p\n"
                    "(pseudo-random from it) to fill the length.\n\n"
                    "Example: kyserial i2c transfer -y --port bulk2 w1@0x50 0x00 r16");
    OnCommand(lCommand, aContext, lOptions, &RunTransfer);
}

} // namespace KySerialTool
