#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Bus/I2CText.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdio>
#include <optional>

namespace KySerialTool
{

namespace
{

struct SetOptions : I2COptions
{
    std::string mAddress{};
    std::string mRegister{};
    std::vector<std::string> mWords{}; ///< Values, and the mode at the end.
    std::string mMask{};
    bool mReadBack = false;
};

/// What to write, taken apart.
struct SetRequest
{
    uint8_t mAddress = 0;
    uint8_t mRegister = 0;
    char mMode = 'b';
    std::vector<uint32_t> mValues{};
    std::optional<uint32_t> mMask{};
};

bool IsMode(const std::string& aWord)
{
    return aWord.size() == 1 && std::string("cbwis").find(aWord) != std::string::npos;
}

void CheckValueCount(const SetRequest& aRequest)
{
    const size_t lCount = aRequest.mValues.size();
    if ((aRequest.mMode == 'b' || aRequest.mMode == 'w') && lCount != 1)
    {
        throw UsageError("mode " + std::string(1, aRequest.mMode) +
                         " takes one value; use mode i or s for several, or c for none");
    }
    if (aRequest.mMode == 'c' && lCount != 0)
    {
        throw UsageError("mode c writes the register alone; leave the value out, or use mode b");
    }
    // A block of SMBus has 32 bytes at most.
    if ((aRequest.mMode == 'i' || aRequest.mMode == 's') && (lCount == 0 || lCount > cLongestBlock))
    {
        throw UsageError("a block has 1 to 32 values");
    }
    // A mask needs the value that the register has now, which can be read as a byte or a word only.
    if (aRequest.mMask.has_value() && aRequest.mMode != 'b' && aRequest.mMode != 'w')
    {
        throw UsageError("--mask: only a byte or a word has a mask; use mode b or w");
    }
}

SetRequest ParseRequest(const SetOptions& aOptions)
{
    SetRequest lRequest;
    lRequest.mAddress = ParseI2CAddress(aOptions.mAddress, aOptions.mAll);
    lRequest.mRegister = static_cast<uint8_t>(ParseI2CNumber(aOptions.mRegister, "register", 0xFF));
    std::vector<std::string> lWords = aOptions.mWords;
    // Without a value there is only the register to write, which is mode c, as in i2cset.
    lRequest.mMode = lWords.empty() ? 'c' : 'b';
    // No mode letter is a number but "b" and "c" in hexadecimal, and those need 0x in front.
    if (!lWords.empty() && IsMode(lWords.back()))
    {
        lRequest.mMode = lWords.back().front();
        lWords.pop_back();
    }
    const uint32_t lMaximum = lRequest.mMode == 'w' ? 0xFFFF : 0xFF;
    for (const std::string& lWord : lWords)
    {
        lRequest.mValues.push_back(ParseI2CNumber(lWord, "value", lMaximum));
    }
    if (!aOptions.mMask.empty())
    {
        lRequest.mMask = ParseI2CNumber(aOptions.mMask, "mask", lMaximum);
    }
    // Last: a mistake in a number is more useful to hear of than that there are too many.
    CheckValueCount(lRequest);
    return lRequest;
}

uint32_t ReadRegister(I2CBus& aBus, const SetRequest& aRequest)
{
    const std::vector<uint8_t> lBytes =
        aBus.WriteAndRead(aRequest.mAddress, {aRequest.mRegister}, aRequest.mMode == 'w' ? 2 : 1);
    // Words come with the low byte first, as SMBus has them.
    return aRequest.mMode == 'w' ? lBytes.at(0) | static_cast<uint32_t>(lBytes.at(1)) << 8U : lBytes.at(0);
}

std::vector<uint8_t> Message(const SetRequest& aRequest)
{
    std::vector<uint8_t> lMessage = {aRequest.mRegister};
    if (aRequest.mMode == 's')
    {
        // An SMBus block says its length before its bytes; mode i leaves that out.
        lMessage.push_back(static_cast<uint8_t>(aRequest.mValues.size()));
    }
    for (const uint32_t lValue : aRequest.mValues)
    {
        lMessage.push_back(static_cast<uint8_t>(lValue & 0xFFU));
        if (aRequest.mMode == 'w')
        {
            lMessage.push_back(static_cast<uint8_t>(lValue >> 8U));
        }
    }
    return lMessage;
}

/// Reads back what was written, where that is one value.
void ReadBack(Context& aContext, I2CBus& aBus, const SetRequest& aRequest)
{
    const uint32_t lRead = ReadRegister(aBus, aRequest);
    const uint32_t lWritten = aRequest.mValues.front();
    std::array<char, 96> lText{};
    if (lRead != lWritten)
    {
        std::snprintf(lText.data(), lText.size(), "value mismatch: wrote 0x%02x, read back 0x%02x",
                      static_cast<unsigned>(lWritten), static_cast<unsigned>(lRead));
        throw OperationError(lText.data());
    }
    std::snprintf(lText.data(), lText.size(), "Value 0x%02x written, readback matched\n",
                  static_cast<unsigned>(lWritten));
    Print(aContext, lText.data());
}

ExitCode RunSet(Context& aContext, const SetOptions& aOptions)
{
    SetRequest lRequest = ParseRequest(aOptions);
    if (!Confirm(aContext, aOptions,
                 "I will write to address " + aOptions.mAddress + ", register " + aOptions.mRegister))
    {
        return ExitCode::Ok;
    }
    OpenI2CBus lBus(aContext, aOptions);
    if (lRequest.mMask.has_value())
    {
        // The bits outside the mask are those that the register has now.
        const uint32_t lKept = ReadRegister(lBus.mBus, lRequest) & ~*lRequest.mMask;
        lRequest.mValues.front() = (lRequest.mValues.front() & *lRequest.mMask) | lKept;
    }
    lBus.mBus.Write(lRequest.mAddress, Message(lRequest));
    // Mode s puts the number of values into the register, so that the one value is not what reads back.
    if (aOptions.mReadBack && lRequest.mValues.size() == 1 && lRequest.mMode != 's')
    {
        ReadBack(aContext, lBus.mBus, lRequest);
    }
    return ExitCode::Ok;
}

} // namespace

void AddI2CSet(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand = *aParent.add_subcommand("set", "Write to a register of a slave");
    const auto lOptions = std::make_shared<SetOptions>();
    lCommand.add_option("ADDRESS", lOptions->mAddress, "Address of the slave, 0x08 to 0x77")->required();
    lCommand.add_option("REGISTER", lOptions->mRegister, "Register")->required();
    lCommand.add_option(
        "VALUE", lOptions->mWords,
        "Values, and at the end the mode: c no value, b a byte (default), w a word (low byte first "
        "on the bus), i a block, s a block after its length");
    lCommand.add_option("-m,--mask", lOptions->mMask, "Change only these bits")->type_name("MASK");
    lCommand.add_flag("-r,--read-back", lOptions->mReadBack, "Read a single value back and compare");
    lCommand.footer("Example:\n  kyserial i2c set -y --device sim --port bulk2 0x50 0x10 0x55 -r");
    AddI2COptions(lCommand, *lOptions, aContext);
    OnCommand(lCommand, aContext, lOptions, &RunSet);
}

namespace
{

constexpr size_t cMostMessages = 42; // that of i2ctransfer

struct I2CTransferOptions : I2COptions
{
    std::vector<std::string> mWords{};
    bool mVerbose = false;
    bool mJson = false;
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
    // Not on the standard output, where scripts find the bytes that were read.
    std::fputs(lText.c_str(), stderr);
}

ExitCode RunTransfer(Context& aContext, const I2CTransferOptions& aOptions)
{
    // Everything is taken apart before the first message: half a transfer can do harm.
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
    nlohmann::ordered_json lRead = nlohmann::ordered_json::array();
    for (size_t lIndex = 0; lIndex < lMessages.size(); ++lIndex)
    {
        const I2CMessage& lMessage = lMessages[lIndex];
        // One stop at the end: another master of the bus must not come in between.
        const auto lThen = lIndex + 1 == lMessages.size() ? I2CBus::Then::Stop : I2CBus::Then::RepeatedStart;
        std::vector<uint8_t> lBytes = lMessage.mBytes;
        if (lMessage.mRead)
        {
            lBytes = lBus.mBus.Read(lMessage.mAddress, lMessage.mCount, lThen);
            lOutput += Numbers(lBytes) + '\n';
            lRead.push_back({{"address", lMessage.mAddress}, {"bytes", lBytes}});
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
    Print(aContext,
          aOptions.mJson ? JsonLine({{"port", PortName(aOptions.mPort)}, {"read", lRead}}) : lOutput);
    return ExitCode::Ok;
}

} // namespace

void AddI2CTransfer(CLI::App& aParent, Context& aContext)
{
    CLI::App& lCommand =
        *aParent.add_subcommand("transfer", "Send messages with repeated starts between them");
    const auto lOptions = std::make_shared<I2CTransferOptions>();
    lCommand.add_option("MESSAGE", lOptions->mWords, "{r|w}LENGTH[@ADDRESS], a write followed by its bytes")
        ->required();
    lCommand.add_flag("-v,--verbose", lOptions->mVerbose, "Show every message on the error output");
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line: what the read messages got");
    AddI2COptions(lCommand, *lOptions, aContext);
    lCommand.footer("The last byte of a write may end in = (repeat it), + (count up), - (count down) or p "
                    "(pseudo-random from it) to fill the length.\n\n"
                    "Example:\n  kyserial i2c transfer -y --device sim --port bulk2 w1@0x50 0x00 r16");
    OnCommand(lCommand, aContext, lOptions, &RunTransfer);
}

} // namespace KySerialTool
