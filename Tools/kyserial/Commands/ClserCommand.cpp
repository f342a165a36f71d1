#include "kyserial/Commands/Commands.h"

#include "kyserial/Device/ClserPort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Terminal/TerminalRun.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Output.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

namespace KySerialTool
{

namespace
{

struct ClserTermOptions
{
    std::string mName{};
    std::optional<uint32_t> mRate{};
    TerminalOptions mTerminal{};
};

/// A server's name may have any bytes; a terminal gets those that show.
std::string Printable(std::string aText)
{
    std::replace_if(
        aText.begin(), aText.end(),
        [](char aCharacter) { return static_cast<unsigned char>(aCharacter) < 0x20 || aCharacter == 0x7F; },
        '.');
    return aText;
}

ExitCode RunList(Context& aContext, bool aJson)
{
    const std::vector<std::string> lNames = ListClserPorts();
    const bool lAny =
        std::any_of(lNames.begin(), lNames.end(), [](const auto& aName) { return !aName.empty(); });
    // A script that reads JSON gets an empty list; a person gets a hint.
    if (!lAny && !aJson)
    {
        PrintNote("no Camera Link server runs; 'kyserial bridge --clser NAME' is one");
        return ExitCode::Ok;
    }
    Print(aContext, aJson ? ClserJson(lNames) : ClserTable(lNames));
    return ExitCode::Ok;
}

ExitCode RunClserTerm(Context& aContext, const ClserTermOptions& aOptions)
{
    TrafficLog lLog;
    PrepareSession(aContext, aOptions.mTerminal.mLogFile, lLog);
    const auto lOpen = [&aOptions](std::unique_ptr<BytePort>& aPort)
    {
        aPort.reset(); // first: a server has one client, and this port may still be it
        // Only a session that reconnects looks for the end of its server. Any other one goes on with the next
        // server of the name.
        auto lPort = std::make_unique<ClserPort>(aOptions.mName, aOptions.mTerminal.mReconnect);
        if (aOptions.mRate.has_value())
        {
            lPort->SetRate(*aOptions.mRate);
        }
        aPort = std::move(lPort);
    };
    TerminalOptions lTerminal = aOptions.mTerminal;
    const std::unique_ptr<BytePort> lPort = OpenPort(lOpen, lTerminal, lLog, aOptions.mName, "the server");
    const std::string lFailure =
        RunTerminal(aContext, lTerminal, *lPort, lLog, aOptions.mName, Printable(aOptions.mName));
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    return ExitCode::Ok;
}

void AddList(CLI::App& aClser, Context& aContext)
{
    CLI::App& lCommand = *aClser.add_subcommand("list", "List the Camera Link servers that run");
    const auto lJson = std::make_shared<bool>(false);
    lCommand.add_flag("--json", *lJson, "One JSON object in one line instead of a table");
    lCommand.footer("Example:\n  kyserial clser list --json");
    lCommand.callback(
        [&aContext, lJson]
        { aContext.mAction = [lJson](Context& aRunning) { return RunList(aRunning, *lJson); }; });
}

void AddTerm(CLI::App& aClser, Context& aContext)
{
    CLI::App& lCommand =
        *aClser.add_subcommand("term", "Connect the standard input and output to a Camera Link server");
    const auto lOptions = std::make_shared<ClserTermOptions>();
    lCommand.add_option("NAME", lOptions->mName, "Name of the server, as 'kyserial clser list' has it")
        ->required();
    AddNumberChoice(lCommand, "--baud", ClserRates(), "Bits per second (9600, or the server's lowest)",
                    lOptions->mRate);
    CLI::Option* const lTimeout =
        AddNumberOption(lCommand, "--timeout", 3600000, "milliseconds",
                        "Fail when the server takes nothing for N milliseconds (5000)",
                        lOptions->mTerminal.mSettings.mBusyLimit);
    CLI::Option* const lReconnect = AddTerminalOptions(lCommand, lOptions->mTerminal);
    // With --reconnect a server that takes nothing is waited for without end.
    lTimeout->excludes(lReconnect);
    lCommand.footer("When the input is a terminal, every key goes to the server, Ctrl-C too; Ctrl-] ? shows "
                    "the keys that do "
                    "not. Otherwise the command ends after the end of the input and a quiet time.\n\n"
                    "Example:\n  " +
                    std::string(StatusQuestion()) + " | kyserial clser term Lens --baud 38400");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunClserTerm(aRunning, *lOptions); }; });
}

} // namespace

void AddClserCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("clser", "List Camera Link servers, and talk to one");
    lCommand.footer("Example:\n  kyserial clser list");
    AddList(lCommand, aContext);
    AddTerm(lCommand, aContext);
}

std::string ClserTable(const std::vector<std::string>& aNames)
{
    Table lTable({"INDEX", "NAME"});
    // Indexes have gaps where a server has ended. They are what Camera Link programs know a port by, so they stay.
    for (size_t lIndex = 0; lIndex < aNames.size(); ++lIndex)
    {
        if (!aNames[lIndex].empty())
        {
            lTable.Add({std::to_string(lIndex), Printable(aNames[lIndex])});
        }
    }
    return lTable.Text();
}

std::string ClserJson(const std::vector<std::string>& aNames)
{
    std::array<CLINT8, 256> lManufacturer{};
    auto lSize = static_cast<CLUINT32>(lManufacturer.size());
    CLUINT32 lVersion = CL_DLL_VERSION_NO_VERSION;
    CheckClser(clGetManufacturerInfo(lManufacturer.data(), &lSize, &lVersion),
               "cannot read the client library's maker");
    nlohmann::ordered_json lServers = nlohmann::ordered_json::array();
    for (size_t lIndex = 0; lIndex < aNames.size(); ++lIndex)
    {
        if (!aNames[lIndex].empty())
        {
            // JSON can hold every character, so names are whole here. The table replaces what does not show.
            lServers.push_back({{"index", lIndex}, {"name", aNames[lIndex]}});
        }
    }
    const nlohmann::ordered_json lReport = {
        {"manufacturer", lManufacturer.data()}, {"version", lVersion}, {"servers", lServers}};
    return JsonLine(lReport);
}

} // namespace KySerialTool
