#include "kyserial/Commands/Commands.h"

#include "kyserial/Bridge/BridgeSession.h"
#include "kyserial/Bridge/HostSide.h"
#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Terminal/TerminalRun.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <CLI/CLI.hpp>
#include <Platform/PseudoTerminal.h>

#include <algorithm>
#include <array>
#include <memory>

namespace KySerialTool
{

namespace
{

/// Camera Link clients choose the rate themselves, from five, and the rest of the line is fixed.
void CheckClserLine(const LineSelection& aLine)
{
    static constexpr std::array<uint32_t, 5> cRates = {9600, 19200, 38400, 57600, 115200};
    if (aLine.mParity.has_value() || aLine.mBits.has_value() || aLine.mStopBits.has_value())
    {
        throw UsageError("--clser: Camera Link is 8N1; --parity, --bits and --stop do not belong here");
    }
    if (aLine.mBaudRate.has_value() &&
        std::find(cRates.begin(), cRates.end(), *aLine.mBaudRate) == cRates.end())
    {
        throw UsageError("--clser: Camera Link does not have " + std::to_string(*aLine.mBaudRate) +
                         " bit/s; use --baud 9600, 19200, 38400, 57600 or 115200");
    }
}

ExitCode RunBridge(Context& aContext, const BridgeOptions& aOptions)
{
    const BridgeSelection& lSelection = aOptions.mSelection;
    CheckHostSelection(lSelection.mHost);
    // All that is wrong with the command is reported before the device is opened, which may take seconds.
    if (lSelection.mHost.mKind == HostKind::Clser)
    {
        CheckClserLine(lSelection.mLine);
    }
    if (lSelection.mHost.mKind != HostKind::Tty && lSelection.mHost.mKind != HostKind::Com &&
        lSelection.mLine.mBits.value_or(8) != 8)
    {
        throw UsageError("--bits: belongs to --tty and --com; elsewhere characters have 8 bits");
    }
    TrafficLog lLog;
    PrepareSession(aContext, lSelection.mLogFile, lLog);
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext);
    {
        // On a camera with a port selector the line's features belong to the selected port. The scope selects the
        // bridge's one and ends after the bridge.
        const BulkPortScope lScope(lDevice->GetAdapter(), lSelection.mPort);
        BridgeSession lSession(aContext, aOptions, *lDevice, lLog);
        lSession.Run();
    }
    lLog.Flush();
    // A log that could not be written fails the command, after a bridge that has done its work.
    if (const std::string lFailure = lLog.GetFailure(); !lFailure.empty())
    {
        throw OperationError("--log: " + lFailure);
    }
    return ExitCode::Ok;
}

void ParseInterval(const std::string& aText, uint32_t& aInterval)
{
    constexpr uint32_t cSmallest = 100;
    constexpr uint32_t cLargest = 3600000;
    const std::optional<uint64_t> lTime = ParseNumber(aText, cLargest);
    if (lTime.value_or(0) < cSmallest)
    {
        throw CLI::ValidationError("--stats-interval", '"' + aText + "\" does not fit; use " +
                                                           std::to_string(cSmallest) + " to " +
                                                           std::to_string(cLargest) + " milliseconds");
    }
    aInterval = static_cast<uint32_t>(*lTime);
}

void AddBridgeOptions(CLI::App& aCommand, BridgeOptions& aOptions)
{
    AddPortOption(aCommand, PortKind::Any, aOptions.mSelection.mPort);
    AddHostOptions(aCommand, aOptions.mSelection.mHost);
    AddLineOptions(aCommand, aOptions.mSelection.mLine);
    aCommand.add_flag("--reconnect", aOptions.mSelection.mReconnect,
                      "Go on when the device was away and is back");
    aCommand.add_flag("--stats-json", aOptions.mStatsJson,
                      "Statistics on the standard output, a JSON object a line");
    aCommand
        .add_option_function<std::string>(
            "--stats-interval",
            [&aOptions](const std::string& aText) { ParseInterval(aText, aOptions.mStatsInterval); },
            "Milliseconds between two statistics (1000)")
        ->type_name("MS");
    AddNumberOption(aCommand, "--duration", 86400000, "seconds", "End after N seconds (0: never)",
                    aOptions.mDuration);
    aCommand
        .add_option("--log", aOptions.mSelection.mLogFile,
                    "Add the traffic to FILE, as text, or pcapng by its ending")
        ->type_name("FILE");
    aCommand.add_flag("-q,--quiet", aOptions.mQuiet, "No statistics and no notes on the error output");
}

} // namespace

void AddBridgeCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand(
        "bridge", "Make a serial port of the device a serial port of the host, until interrupted");
    const auto lOptions = std::make_shared<BridgeOptions>();
    AddBridgeOptions(lCommand, *lOptions);
    AddCommonOptions(lCommand, aContext.mCommon);
    const std::string lHost =
        KyToolPlatform::PseudoTerminal::IsSupported() ? "--pty /tmp/lens" : "--com COM5"; // of the example
    lCommand.footer(
        "Ctrl-C, or a request to end, ends the bridge with status 0; the device's port has its former "
        "settings then. With --clser the clients choose the rate; --baud offers them this one only.\n\n"
        "Examples:\n"
        "  kyserial bridge --device sim --port uart0 " +
        lHost +
        " --baud 115200\n"
        "  kyserial bridge --device gev://192.168.1.20 --port bulk0 --clser Lens");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunBridge(aRunning, *lOptions); }; });
}

} // namespace KySerialTool
