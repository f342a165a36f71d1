#include "kyserial/Commands/Commands.h"

#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Output.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace KySerialTool
{

namespace
{

std::string Joined(const std::vector<std::string>& aTexts)
{
    std::string lText;
    for (const std::string& lPart : aTexts)
    {
        lText += (lText.empty() ? "" : " ") + lPart;
    }
    return lText;
}

ExitCode RunPorts(Context& aContext, bool aJson)
{
    // To ask for a bulk port's protocols means to select the port, which needs control. Another application
    // keeps its own.
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext, DeviceAccess::ControlIfFree);
    const uint64_t lGeneration = lDevice->GetGeneration();
    const std::vector<PortFinding> lFindings = SurveyPorts(lDevice->GetAdapter());
    CheckConnection(*lDevice, lGeneration); // a lost connection would look like missing ports
    Print(aContext, aJson ? PortsJson(aContext.mCommon.mDevice.mName, lFindings) : PortsTable(lFindings));
    return ExitCode::Ok;
}

} // namespace

void AddPortsCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("ports", "List the serial ports of the device");
    const auto lJson = std::make_shared<bool>(false);
    lCommand.add_flag("--json", *lJson, "One JSON object in one line instead of a table");
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer(
        "Columns: the port's name and its number in the programming interface, whether the device offers "
        "it, what drives it, the protocols it can run and the one that it runs now. While another "
        "application controls the device, some protocols of bulk ports stay unknown: asking means to select "
        "the "
        "port.\n\nExample:\n  kyserial ports --device sim");
    lCommand.callback(
        [&aContext, lJson]
        { aContext.mAction = [lJson](Context& aRunning) { return RunPorts(aRunning, *lJson); }; });
}

std::string PortsTable(const std::vector<PortFinding>& aFindings)
{
    Table lTable({"PORT", "VALUE", "SUPPORTED", "ENGINE", "PROTOCOLS", "MODE"});
    for (const PortFinding& lFinding : aFindings)
    {
        lTable.Add({PortName(lFinding.mPort), std::to_string(lFinding.mPort),
                    lFinding.mSupported ? "yes" : "no",
                    lFinding.mSupported ? EngineText(lFinding.mEngine) : "-",
                    OrDash(Joined(lFinding.mProtocols)), OrDash(lFinding.mMode)});
    }
    return lTable.Text();
}

std::string PortsJson(const std::string& aDevice, const std::vector<PortFinding>& aFindings)
{
    nlohmann::ordered_json lPorts = nlohmann::ordered_json::array();
    for (const PortFinding& lFinding : aFindings)
    {
        lPorts.push_back({{"name", PortName(lFinding.mPort)},
                          {"value", static_cast<int>(lFinding.mPort)},
                          {"supported", lFinding.mSupported},
                          {"engine", EngineText(lFinding.mEngine)},
                          {"protocols", lFinding.mProtocols},
                          {"mode", lFinding.mMode}});
    }
    return JsonLine({{"device", aDevice}, {"ports", lPorts}});
}

} // namespace KySerialTool
