#include "kyserial/Options/CommonOptions.h"

#include "kyserial/Device/PortName.h"

#include <JxUtilsLib/Assert.h>
#include <JxUtilsLib/Logger.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace KySerialTool
{

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

int ParseLogLevel(const std::string& aText)
{
    const auto* const lLevel = std::find_if(cLogLevels.begin(), cLogLevels.end(),
                                            [&](const auto& aLevel) { return aText == aLevel.first; });
    if (lLevel == cLogLevels.end())
    {
        throw CLI::ValidationError(
            "--log-level", '"' + aText + "\" is no level; use debug, info, warning, error, fatal or off");
    }
    return lLevel->second;
}

KyDeviceSerial ParsePort(const std::string& aText, PortKind aKind)
{
    const std::optional<KyDeviceSerial> lPort = ParsePortName(aText);
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
    const Logger lLogger("kyserial");
    if (lLogger.IsPriorityEnabled(JxUtilsLib::PriorityDebug))
    {
        lLogger.Log(JxUtilsLib::PriorityDebug, aFile, aLine, "KySerialTool::LogBrokenAssertion",
                    "Assertion \"%s\" does not hold; going on.", aText);
    }
}

} // namespace

CommonOptions::CommonOptions() : mLogLevel(cLogOff) {}

void AddCommonOptions(CLI::App& aCommand, CommonOptions& aOptions)
{
    AddDeviceOptions(aCommand, aOptions.mDevice);
    aCommand
        .add_option_function<std::string>(
            "--log-level",
            [&aOptions](const std::string& aText) { aOptions.mLogLevel = ParseLogLevel(aText); },
            "Log of the library on the error output: debug, info, warning, error, fatal or off (default)")
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
    Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(aOptions.mLogLevel));
    JxUtilsLib::SetAssertHandler(LogBrokenAssertion);
}

} // namespace KySerialTool
