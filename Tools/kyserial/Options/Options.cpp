#include "kyserial/Options/Options.h"

#include "CommandLine/PlainText.h"
#include "kyserial/Device/DevicePort.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <CLI/CLI.hpp>
#include <JxUtilsLib/Assert.h>
#include <JxUtilsLib/Logger.h>
#include <KyPlatform/HostSerialPort.h>

#include <algorithm>
#include <array>
#include <optional>
#include <sstream>
#include <utility>

namespace KySerialTool
{

namespace
{

/// "none, even or odd".
std::string Listed(const std::vector<std::string>& aWords)
{
    std::string lText;
    for (const std::string& lWord : aWords)
    {
        lText += (lText.empty() ? "" : &lWord == &aWords.back() ? " or " : ", ") + lWord;
    }
    return lText;
}

/// "7 or 8".
std::string Choices(const std::vector<uint32_t>& aValues)
{
    std::vector<std::string> lWords;
    lWords.reserve(aValues.size());
    for (const uint32_t lValue : aValues)
    {
        lWords.push_back(std::to_string(lValue));
    }
    return Listed(lWords);
}

} // namespace

CLI::Option* AddWordOption(CLI::App& aCommand, const std::string& aName, const std::string& aWords,
                           const std::function<void(const std::string&)>& aTake,
                           const std::string& aDescription)
{
    return aCommand.add_option_function<std::string>(aName, aTake, aDescription)->type_name(aWords);
}

void RefuseWord(const std::string& aName, const std::string& aText, const std::string& aWords)
{
    std::vector<std::string> lWords;
    std::istringstream lRest(aWords);
    for (std::string lWord; std::getline(lRest, lWord, '|');)
    {
        lWords.push_back(lWord);
    }
    // A list of words is only useful when none of them is near: a slip of the finger gets the one word.
    const std::optional<std::string> lMeant = KyCommandLine::Nearest(aText, lWords);
    throw CLI::ValidationError(
        aName, '"' + aText + "\" does not fit; " +
                   (lMeant.has_value() ? "did you mean " + *lMeant + '?' : "use " + Listed(lWords)));
}

CLI::Option* AddNumberOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                             const std::string& aUnit, const std::string& aDescription, uint32_t& aValue)
{
    const auto lParse = [=, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, aMaximum);
        if (!lNumber.has_value())
        {
            // A name may begin with a short form; the message has the long one, as the help does.
            throw CLI::ValidationError(aName.substr(aName.find("--")),
                                       '"' + aText + "\" does not fit; use 0 to " + std::to_string(aMaximum) +
                                           ' ' + aUnit);
        }
        aValue = static_cast<uint32_t>(*lNumber);
    };
    return aCommand.add_option_function<std::string>(aName, lParse, aDescription)->type_name("N");
}

CLI::Option* AddSizeOption(CLI::App& aCommand, const std::string& aName, uint32_t aMaximum,
                           const std::string& aDescription, uint32_t& aValue)
{
    const auto lParse = [=, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lSize = ParseSize(aText, aMaximum);
        if (!lSize.has_value())
        {
            throw CLI::ValidationError(aName, '"' + aText + "\" does not fit; use 0 to " +
                                                  std::to_string(aMaximum) + " bytes, 4KiB for example");
        }
        aValue = static_cast<uint32_t>(*lSize);
    };
    return aCommand.add_option_function<std::string>(aName, lParse, aDescription)->type_name("BYTES");
}

CLI::Option* AddNumberChoice(CLI::App& aCommand, const std::string& aName,
                             const std::vector<uint32_t>& aValues, const std::string& aDescription,
                             std::optional<uint32_t>& aValue)
{
    const std::string lChoices = Choices(aValues);
    const auto lParse = [=, &aValue](const std::string& aText)
    {
        const std::optional<uint64_t> lNumber = ParseNumber(aText, UINT32_MAX);
        if (!lNumber.has_value() || std::find(aValues.begin(), aValues.end(), *lNumber) == aValues.end())
        {
            throw CLI::ValidationError(aName, '"' + aText + "\" does not fit; use " + lChoices);
        }
        aValue = static_cast<uint32_t>(*lNumber);
    };
    return aCommand.add_option_function<std::string>(aName, lParse, aDescription + ": " + lChoices)
        ->type_name("N");
}

namespace
{

std::optional<KyParity> ParseParity(const std::string& aText)
{
    if (aText == "none")
    {
        return KyParityNone;
    }
    if (aText == "even")
    {
        return KyParityEven;
    }
    return aText == "odd" ? std::optional(KyParityOdd) : std::nullopt;
}

} // namespace

void AddLineOptions(CLI::App& aCommand, LineSelection& aSelection)
{
    AddNumberChoice(aCommand, "--baud", {9600, 14400, 19200, 28800, 38400, 57600, 115200}, "Bits per second",
                    aSelection.mBaudRate);
    AddChoice(aCommand, "--parity", "none|even|odd", ParseParity, "Parity", aSelection.mParity);
    AddNumberChoice(aCommand, "--bits", {7, 8}, "Data bits of a character", aSelection.mBits);
    AddNumberChoice(aCommand, "--stop", {1, 2}, "Stop bits of a character", aSelection.mStopBits);
}

namespace
{

using JxUtilsLib::Logger;

constexpr int cLogOff = JxUtilsLib::PriorityFatal + 1;

constexpr std::array<std::pair<const char*, int>, 6> cLogLevels = {{{"debug", JxUtilsLib::PriorityDebug},
                                                                    {"info", JxUtilsLib::PriorityInfo},
                                                                    {"warning", JxUtilsLib::PriorityWarning},
                                                                    {"error", JxUtilsLib::PriorityError},
                                                                    {"fatal", JxUtilsLib::PriorityFatal},
                                                                    {"off", cLogOff}}};

std::optional<int> ParseLogLevel(const std::string& aText)
{
    const auto* const lLevel = std::find_if(cLogLevels.begin(), cLogLevels.end(),
                                            [&](const auto& aLevel) { return aText == aLevel.first; });
    return lLevel != cLogLevels.end() ? std::optional(lLevel->second) : std::nullopt;
}

KyDeviceSerial ParsePort(const std::string& aText, PortKind aKind)
{
    const std::optional<KyDeviceSerial> lPort = ParsePortName(aText);
    // Buses are on bulk ports alone, and the message then names those alone.
    if (aKind == PortKind::Bulk && (!lPort.has_value() || !IsBulk(*lPort)))
    {
        throw CLI::ValidationError("--port", '"' + aText + "\" is no bulk port; use bulk0 to bulk7");
    }
    if (!lPort.has_value())
    {
        throw CLI::ValidationError("--port",
                                   '"' + aText + "\" is no port; use uart0, uart1 or bulk0 to bulk7");
    }
    return *lPort;
}

void LogBrokenAssertion(const char* aText, const char* aFile, int aLine)
{
    // At the lowest level: what breaks the assertion has its own message, and the library goes on.
    const Logger lLogger("kyserial");
    if (lLogger.IsPriorityEnabled(JxUtilsLib::PriorityDebug))
    {
        lLogger.Log(JxUtilsLib::PriorityDebug, aFile, aLine, "KySerialTool::LogBrokenAssertion",
                    "Assertion \"%s\" does not hold; going on.", aText);
    }
}

} // namespace

CommonOptions::CommonOptions() : mLogLevel(cLogOff) {}

CLI::Option* AddCommonOptions(CLI::App& aCommand, CommonOptions& aOptions)
{
    CLI::Option* const lDevice = AddDeviceOptions(aCommand, aOptions.mDevice);
    AddLogOption(aCommand, aOptions);
    return lDevice;
}

void AddLogOption(CLI::App& aCommand, CommonOptions& aOptions)
{
    AddChoice(aCommand, "--log-level", "debug|info|warning|error|fatal|off", ParseLogLevel,
              "Library's log: debug, info, warning, error, fatal or off", aOptions.mLogLevel)
        ->type_name("LEVEL");
}

void AddPortOption(CLI::App& aCommand, PortKind aKind, KyDeviceSerial& aPort)
{
    const std::string lPorts = aKind == PortKind::Bulk ? "bulk0 to bulk7" : "uart0, uart1 or bulk0 to bulk7";
    aCommand
        .add_option_function<std::string>(
            "-p,--port", [&aPort, aKind](const std::string& aText) { aPort = ParsePort(aText, aKind); },
            "Port of the device: " + lPorts)
        ->type_name("PORT")
        ->required();
}

void ApplyLogOptions(const CommonOptions& aOptions)
{
    // A level above every priority makes the library silent; the enumeration has no name for it.
    Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(aOptions.mLogLevel));
    JxUtilsLib::SetAssertHandler(LogBrokenAssertion);
}

std::unique_ptr<Device> OpenDevice(Context& aContext, DeviceAccess aAccess)
{
    return OpenDevice(aContext.mCommon.mDevice, aContext.mConsole, aAccess);
}

const char* StatusQuestion()
{
    // A system whose ports have paths has the POSIX shell, too; the other one's echo ends a line with both characters.
    return KyPlatform::HostSerialPort::IsPath("/") ? "printf 'STATUS?\\r\\n'" : "echo STATUS?";
}

bool ReadLine(KyToolPlatform::Console& aConsole, std::string& aLine)
{
    uint8_t lByte = 0;
    size_t lRead = 0;
    aLine.clear();
    // Byte by byte: a larger piece would take more than this line from the input.
    while (aConsole.Read(&lByte, 1, lRead, KyToolPlatform::Console::cInfinite) ==
           KyToolPlatform::Console::ReadResult::Data)
    {
        if (lByte == '\n')
        {
            return true;
        }
        aLine += static_cast<char>(lByte);
    }
    // The last line of a file may lack its end.
    return !aLine.empty();
}

void Print(Context& aContext, const std::string& aText)
{
    if (!aContext.mConsole.Write(reinterpret_cast<const uint8_t*>(aText.data()), aText.size()))
    {
        throw OperationError("cannot write to the standard output");
    }
}

} // namespace KySerialTool
