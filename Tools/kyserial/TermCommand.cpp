#include "kyserial/TermCommand.h"

#include "kyserial/DevicePort.h"
#include "kyserial/Failure.h"
#include "kyserial/Number.h"
#include "kyserial/PortName.h"
#include "kyserial/TermSession.h"

#include <cstdio>
#include <memory>

namespace KySerialTool
{

namespace
{

using KyPlatform::Console;

struct TermOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    TermSettings mSettings{};
    std::string mLogFile{};
    bool mQuiet = false;
};

void PrintNote(const TermOptions& aOptions, const std::string& aText)
{
    if (!aOptions.mQuiet)
    {
        std::fputs((aText + '\n').c_str(), stderr);
        std::fflush(stderr);
    }
}

/// Raw mode for the life of the object, when the input is a terminal.
class RawModeScope
{
public:
    explicit RawModeScope(Console& aConsole) : mConsole(aConsole), mRaw(aConsole.EnterRawMode()) {}
    ~RawModeScope() { mConsole.LeaveRawMode(); }
    RawModeScope(const RawModeScope&) = delete;
    RawModeScope& operator=(const RawModeScope&) = delete;

    bool IsRaw() const { return mRaw; }

private:
    Console& mConsole;
    const bool mRaw;
};

/// The session and what its end means. \return What went wrong; empty when nothing did.
std::string RunSession(TermSession& aSession, TrafficLog& aLog, const TermOptions& aOptions)
{
    try
    {
        if (aSession.Run() == TermSession::End::Interrupted)
        {
            return "interrupted before the end of the input";
        }
    }
    catch (const OperationError& lError)
    {
        return PortName(aOptions.mPort) + ": " + lError.what();
    }
    aLog.Flush();
    return aLog.HasFailed() ? "--log: cannot write " + aOptions.mLogFile : std::string();
}

std::string RunOnPort(Context& aContext, const TermOptions& aOptions, DevicePort& aPort, TrafficLog& aLog)
{
    TermSettings lSettings = aOptions.mSettings;
    lSettings.mPartialLines = Console::IsOutputTerminal();
    std::string lFailure;
    uint64_t lSent = 0;
    uint64_t lReceived = 0;
    {
        const RawModeScope lRaw(aContext.mConsole);
        lSettings.mInteractive = lRaw.IsRaw();
        if (lRaw.IsRaw())
        {
            PrintNote(aOptions, PortName(aOptions.mPort) + " of " + aContext.mCommon.mDevice.mName + "; " +
                                    lSettings.mEscape.Text() + " leaves");
        }
        TermSession lSession(aContext.mConsole, aPort, aLog, lSettings);
        lFailure = RunSession(lSession, aLog, aOptions);
        lSent = lSession.GetSent();
        lReceived = lSession.GetReceived();
    }
    PrintNote(aOptions,
              "sent " + std::to_string(lSent) + " bytes, received " + std::to_string(lReceived) + " bytes");
    return lFailure;
}

ExitCode RunTerm(Context& aContext, const TermOptions& aOptions)
{
    TrafficLog lLog;
    if (!aOptions.mLogFile.empty() && !lLog.Open(aOptions.mLogFile))
    {
        throw OperationError("--log: cannot write " + aOptions.mLogFile);
    }
    if (!aContext.mConsole.WatchInterrupts())
    {
        throw OperationError("cannot watch for Ctrl-C");
    }
    const std::unique_ptr<Device> lDevice = OpenDevice(aContext.mCommon.mDevice);
    DevicePort lPort(lDevice->GetAdapter(), aOptions.mPort);
    const std::string lFailure = RunOnPort(aContext, aOptions, lPort, lLog);
    const KyResult lClosed = lPort.Close();
    if (!lFailure.empty())
    {
        throw OperationError(lFailure);
    }
    Check(lClosed, "cannot close " + PortName(aOptions.mPort));
    return ExitCode::Ok;
}

void ParseQuietTime(const std::string& aText, TermSettings& aSettings)
{
    constexpr uint32_t cMaximum = 3600000;
    const std::optional<uint64_t> lTime = ParseNumber(aText, cMaximum);
    aSettings.mForever = aText == "never";
    if (!lTime.has_value() && !aSettings.mForever)
    {
        throw CLI::ValidationError("--quiet-time", '"' + aText + "\" is no time; use 0 to " +
                                                       std::to_string(cMaximum) + " milliseconds, or never");
    }
    aSettings.mQuietTime = static_cast<uint32_t>(lTime.value_or(0));
}

void ParseEscape(const std::string& aText, TermSettings& aSettings)
{
    const std::optional<EscapeKey> lKey = EscapeKey::Parse(aText);
    if (!lKey.has_value())
    {
        throw CLI::ValidationError("--escape", '"' + aText +
                                                   "\" is no key; use ^] or Ctrl-] (@, A to Z, [, \\, ], "
                                                   "^ and _ likewise), 0x00 to 0xff, or none");
    }
    aSettings.mEscape = *lKey;
}

void AddTermOptions(CLI::App& aCommand, TermOptions& aOptions)
{
    AddPortOption(aCommand, PortKind::Any, aOptions.mPort);
    aCommand
        .add_option_function<std::string>(
            "--escape", [&aOptions](const std::string& aText) { ParseEscape(aText, aOptions.mSettings); },
            "Key that leaves when the input is a terminal: ^], Ctrl-], 0x1d or none; Ctrl-] by default")
        ->type_name("KEY");
    aCommand
        .add_option_function<std::string>(
            "--quiet-time",
            [&aOptions](const std::string& aText) { ParseQuietTime(aText, aOptions.mSettings); },
            "After the end of the input, end when nothing has come for MS milliseconds (300 by default), or "
            "never")
        ->type_name("MS");
    aCommand.add_flag("--hex", aOptions.mSettings.mHex, "Show what comes as a hexadecimal dump");
    aCommand
        .add_option("--log", aOptions.mLogFile,
                    "Add what goes over the port to FILE: time (UTC), > sent or < received, bytes")
        ->type_name("FILE");
    aCommand.add_flag("-q,--quiet", aOptions.mQuiet, "No byte counts and no notes on the error output");
}

} // namespace

void AddTermCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand(
        "term", "Connect the standard input and output to a serial port of the device");
    const auto lOptions = std::make_shared<TermOptions>();
    AddTermOptions(lCommand, *lOptions);
    AddCommonOptions(lCommand, aContext.mCommon);
    lCommand.footer(
        "When the input is a terminal, every key goes to the port, Ctrl-C too, until the escape key.\n"
        "Otherwise the command ends after the end of the input and a quiet time.\n"
        "A bulk port that runs I2C or SPI runs UART meanwhile.\n\n"
        "Example: printf 'STATUS?\\r\\n' | kyserial term --port uart0");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunTerm(aRunning, *lOptions); }; });
}

} // namespace KySerialTool
