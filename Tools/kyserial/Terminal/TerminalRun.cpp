#include "kyserial/Terminal/TerminalRun.h"

#include "CommandLine/PlainText.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <optional>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

} // namespace

void PrintNote(const TerminalOptions& aOptions, const std::string& aText)
{
    if (!aOptions.mQuiet)
    {
        PrintNote(aText);
    }
}

namespace
{

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
std::string RunSession(TermSession& aSession, TrafficLog& aLog, const std::string& aPortName)
{
    try
    {
        // A script must not take an input that was cut short for one that went out whole.
        if (aSession.Run() == TermSession::End::Interrupted)
        {
            return "interrupted before the end of the input";
        }
    }
    catch (const OperationError& lError)
    {
        return aPortName + ": " + lError.what();
    }
    aLog.Flush();
    // A log that broke is a failure even when the session went well: the user relies on the file.
    const std::string lFailure = aLog.GetFailure();
    return lFailure.empty() ? lFailure : "--log: " + lFailure;
}

void ParseQuietTime(const std::string& aText, TermSettings& aSettings)
{
    constexpr uint32_t cMaximum = 3600000;
    const std::optional<uint64_t> lTime = ParseNumber(aText, cMaximum);
    // A word and not a number: no time means for ever.
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

} // namespace

CLI::Option* AddTerminalOptions(CLI::App& aCommand, TerminalOptions& aOptions)
{
    TermSettings& lSettings = aOptions.mSettings;
    aCommand.add_flag("--echo", lSettings.mEcho, "Show what is typed (local echo)");
    AddChoice(aCommand, "--eol-send", "asis|cr|lf|crlf", ParseLineEnd, "What line ends of the input become",
              lSettings.mSendEnd);
    AddChoice(aCommand, "--eol-show", "asis|cr|lf|crlf", ParseLineEnd, "What line ends from the port become",
              lSettings.mScreen.mLineEnd);
    AddChoice(aCommand, "--timestamps", "none|utc|elapsed|step", ParseTimeStamps,
              "Time, or seconds, before each line", lSettings.mScreen.mTimeStamps);
    aCommand.add_flag("--hex", lSettings.mScreen.mHex, "Show what comes as a hexadecimal dump");
    aCommand.add_flag("--hex-input", lSettings.mHexInput, "The input is hexadecimal digits, two a byte");
    aCommand.add_option("--send", lSettings.mFile, "Send FILE, then the input")->type_name("FILE");
    aCommand
        .add_option("--log", aOptions.mLogFile, "Add the traffic to FILE, as text, or pcapng by its ending")
        ->type_name("FILE");
    CLI::Option* const lReconnect =
        aCommand.add_flag("--reconnect", aOptions.mReconnect, "Wait for the port whenever it is away");
    aCommand.add_flag("--status", lSettings.mStatus, "Port and counts in the last row of the terminal");
    aCommand
        .add_option_function<std::string>(
            "--escape", [&lSettings](const std::string& aText) { ParseEscape(aText, lSettings); },
            "Key before commands: ^], Ctrl-] (default), 0x1d or none")
        ->type_name("KEY");
    aCommand
        .add_option_function<std::string>(
            "--quiet-time", [&lSettings](const std::string& aText) { ParseQuietTime(aText, lSettings); },
            "End MS milliseconds after the last byte (300), or never")
        ->type_name("MS");
    aCommand.add_flag("-q,--quiet", aOptions.mQuiet, "No byte counts and no notes on the error output");
    return lReconnect;
}

void PrepareSession(Context& aContext, const std::string& aLogFile, TrafficLog& aLog)
{
    // A log that cannot be written, or a system that does not report Ctrl-C, is found before the device is
    // opened, which may take seconds.
    const std::string lFault = aLogFile.empty() ? std::string() : aLog.Open(aLogFile);
    if (!lFault.empty())
    {
        throw OperationError("--log: " + lFault);
    }
    if (!aContext.mConsole.WatchInterrupts())
    {
        throw OperationError("cannot watch for Ctrl-C");
    }
}

std::unique_ptr<BytePort> OpenPort(const ReconnectingPort::Opener& aOpen, TerminalOptions& aOptions,
                                   TrafficLog& aLog, const std::string& aPortName, const std::string& aPeer)
{
    if (!aOptions.mReconnect)
    {
        std::unique_ptr<BytePort> lPort;
        // Without --reconnect a port that cannot be opened is the end, with its reason.
        aOpen(lPort);
        return lPort;
    }
    aOptions.mSettings.mBusyLimit = UINT32_MAX; // a port that is away looks busy, for as long as it takes
    const auto lNote = [&aOptions, &aLog, aPortName](const std::string& aText)
    {
        // The log gets the text alone. On the error output a name's own control characters would reach the
        // terminal.
        aLog.AddNote(aText);
        PrintNote(aOptions, KyCommandLine::Escaped(aPortName) + ": " + aText);
    };
    return std::make_unique<ReconnectingPort>(aOpen, lNote, aPeer);
}

std::string RunTerminal(Context& aContext, const TerminalOptions& aOptions, BytePort& aPort, TrafficLog& aLog,
                        const std::string& aPortName, const std::string& aTitle)
{
    TermSettings lSettings = aOptions.mSettings;
    // A person wants to see the bytes before a pause; a file should have whole lines.
    lSettings.mScreen.mPartialLines = Console::IsOutputTerminal();
    lSettings.mTitle = aTitle;
    std::string lFailure;
    uint64_t lSent = 0;
    uint64_t lReceived = 0;
    uint64_t lDropped = 0;
    {
        // The terminal has its own mode back before the counts are printed, so their lines end where they should.
        const RawModeScope lRaw(aContext.mConsole);
        lSettings.mInteractive = lRaw.IsRaw();
        if (lRaw.IsRaw())
        {
            const std::string lEscape = lSettings.mEscape.Text();
            PrintNote(aOptions, KyCommandLine::Escaped(aTitle) +
                                    (lEscape == "none"
                                         ? ""
                                         : "; " + lEscape + " ? shows the keys, " + lEscape + " q leaves"));
        }
        TermSession lSession(aContext.mConsole, aPort, aLog, lSettings,
                             [&aOptions](const std::string& aText) { PrintNote(aOptions, aText); });
        // The counts are taken and said whatever has ended the session: the user wants to know what went out.
        lFailure = RunSession(lSession, aLog, aPortName);
        lSent = lSession.GetSent();
        lReceived = lSession.GetReceived();
        lDropped = lSession.GetDropped();
    }
    PrintNote(aOptions, "sent " + std::to_string(lSent) + " bytes, received " + std::to_string(lReceived) +
                            " bytes" +
                            (lDropped > 0 ? "; " + std::to_string(lDropped) + " bytes were not sent" : ""));
    return lFailure;
}

} // namespace KySerialTool
