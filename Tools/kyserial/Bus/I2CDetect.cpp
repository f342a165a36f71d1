#include "kyserial/Bus/I2COptions.h"
#include "kyserial/Bus/I2CSyntax.h"
#include "kyserial/Bus/I2CTables.h"
#include "kyserial/Commands/I2CCommand.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <nlohmann/json.hpp>

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
    return nlohmann::ordered_json{{"port", PortName(aOptions.mPort)}, {"addresses", lAddresses}}.dump() +
           '\n';
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
    lCommand.add_flag("-r", lOptions->mReadByte, "Ask with a read of one byte (default)");
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object instead of a table");
    AddI2COptions(lCommand, *lOptions, aContext);
    OnCommand(lCommand, aContext, lOptions, &RunDetect);
}

} // namespace KySerialTool
