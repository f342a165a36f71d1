#include "kyserial/LineOptions.h"

#include "kyserial/Number.h"

#include <algorithm>
#include <vector>

namespace KySerialTool
{

namespace
{

/// "7 or 8".
template<typename Values, typename ToText>
std::string Choices(const Values& aValues, const ToText& aToText)
{
    std::string lText;
    for (size_t lIndex = 0; lIndex < aValues.size(); ++lIndex)
    {
        lText += (lIndex == 0 ? "" : lIndex + 1 == aValues.size() ? " or " : ", ") + aToText(aValues[lIndex]);
    }
    return lText;
}

/// Adds an option whose value is one of a few numbers.
void AddChoice(CLI::App& aCommand, const std::string& aName, const std::vector<uint32_t>& aValues,
               const std::string& aDescription, std::optional<uint32_t>& aValue)
{
    const std::string lChoices = Choices(aValues, [](uint32_t aNumber) { return std::to_string(aNumber); });
    const auto lParse = [aName, aValues, lChoices, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, UINT32_MAX);
        if (!lNumber.has_value() || std::find(aValues.begin(), aValues.end(), *lNumber) == aValues.end())
        {
            throw CLI::ValidationError(aName, '"' + aText + "\" does not fit; use " + lChoices);
        }
        aValue = static_cast<uint32_t>(*lNumber);
    };
    aCommand.add_option_function<std::string>(aName, lParse, aDescription + ": " + lChoices)->type_name("N");
}

KyParity ParseParity(const std::string& aText)
{
    if (aText == "none")
    {
        return KyParityNone;
    }
    if (aText == "even")
    {
        return KyParityEven;
    }
    if (aText == "odd")
    {
        return KyParityOdd;
    }
    throw CLI::ValidationError("--parity", '"' + aText + "\" does not fit; use none, even or odd");
}

} // namespace

void AddLineOptions(CLI::App& aCommand, LineSelection& aSelection)
{
    AddChoice(aCommand, "--baud", {9600, 14400, 19200, 28800, 38400, 57600, 115200},
              "Bits per second (9600 unless given)", aSelection.mBaudRate);
    aCommand
        .add_option_function<std::string>(
            "--parity", [&aSelection](const std::string& aText) { aSelection.mParity = ParseParity(aText); },
            "Parity (none unless given): none, even or odd")
        ->type_name("PARITY");
    AddChoice(aCommand, "--bits", {7, 8}, "Data bits (8 unless given)", aSelection.mBits);
    AddChoice(aCommand, "--stop", {1, 2}, "Stop bits (1 unless given)", aSelection.mStopBits);
}

KySerialPortConfiguration ToConfiguration(const LineSelection& aSelection)
{
    KySerialPortConfiguration lLine;
    lLine.mBaudRate = aSelection.mBaudRate.value_or(lLine.mBaudRate);
    lLine.mParity = aSelection.mParity.value_or(lLine.mParity);
    lLine.mBitsPerByte = aSelection.mBits.value_or(lLine.mBitsPerByte);
    lLine.mStopBits = aSelection.mStopBits.value_or(lLine.mStopBits);
    return lLine;
}

std::string LineText(const KySerialPortConfiguration& aLine)
{
    const char* const lParity = aLine.mParity == KyParityEven  ? "E"
                                : aLine.mParity == KyParityOdd ? "O"
                                                               : "N";
    return std::to_string(aLine.mBaudRate) + ' ' + std::to_string(aLine.mBitsPerByte) + lParity +
           std::to_string(aLine.mStopBits);
}

} // namespace KySerialTool
