#include "kyserial/Options/LineOptions.h"

#include "kyserial/Options/NumberOption.h"

namespace KySerialTool
{

namespace
{

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
    AddNumberChoice(aCommand, "--baud", {9600, 14400, 19200, 28800, 38400, 57600, 115200},
                    "Bits per second (9600 unless given)", aSelection.mBaudRate);
    aCommand
        .add_option_function<std::string>(
            "--parity", [&aSelection](const std::string& aText) { aSelection.mParity = ParseParity(aText); },
            "Parity (none unless given): none, even or odd")
        ->type_name("PARITY");
    AddNumberChoice(aCommand, "--bits", {7, 8}, "Data bits (8 unless given)", aSelection.mBits);
    AddNumberChoice(aCommand, "--stop", {1, 2}, "Stop bits (1 unless given)", aSelection.mStopBits);
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
