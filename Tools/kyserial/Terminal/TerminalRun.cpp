#include "kyserial/Terminal/TerminalRun.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

#include <cstdio>
#include <optional>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::Console;

void PrintNote(const TerminalOptions& aOptions, const std::string& aText)
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
std::string RunSession(TermSession& aSession, TrafficLog& aLog, const TerminalOptions& aOptions,
                       const std::string& aPortName)
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
        return aPortName + ": " + lError.what();
    }
    aLog.Flush();
    return aLog.HasFailed() ? "--log: cannot write " + aOptions.mLogFile : std::string();
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

} // namespace

void AddTerminalOptions(CLI::App& aCommand, TerminalOptions& aOptions)
{
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

void PrepareSession(Context& aContext, const std::string& aLogFile, TrafficLog& aLog)
{
    if (!aLogFile.empty() && !aLog.Open(aLogFile))
    {
        throw OperationError("--log: cannot write " + aLogFile);
    }
    if (!aContext.mConsole.WatchInterrupts())
    {
        throw OperationError("cannot watch for Ctrl-C");
    }
}

std::string RunTerminal(Context& aContext, const TerminalOptions& aOptions, BytePort& aPort, TrafficLog& aLog,
                        const std::string& aPortName, const std::string& aTitle)
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
            PrintNote(aOptions, aTitle + "; " + lSettings.mEscape.Text() + " leaves");
        }
        TermSession lSession(aContext.mConsole, aPort, aLog, lSettings);
        lFailure = RunSession(lSession, aLog, aOptions, aPortName);
        lSent = lSession.GetSent();
        lReceived = lSession.GetReceived();
    }
    PrintNote(aOptions,
              "sent " + std::to_string(lSent) + " bytes, received " + std::to_string(lReceived) + " bytes");
    return lFailure;
}

} // namespace KySerialTool
