#pragma once

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Terminal/TermSession.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <CLI/CLI.hpp>

#include <string>

namespace KySerialTool
{

/// What every command that is a terminal takes.
struct TerminalOptions
{
    TermSettings mSettings{};
    std::string mLogFile{};
    bool mQuiet = false;
};

/// Adds what the terminal does with bytes, keys and files.
void AddTerminalOptions(CLI::App& aCommand, TerminalOptions& aOptions);

/// A line on the error output, unless the user wants none.
void PrintNote(const TerminalOptions& aOptions, const std::string& aText);

/// Opens the file of --log, unless the name is empty, and has Ctrl-C end the session. Throws OperationError
/// when either fails. To be called before anything is connected.
void PrepareSession(Context& aContext, const std::string& aLogFile, TrafficLog& aLog);

/// A terminal session on an open port: raw keys when the input is a terminal, and notes on the error output.
/// \param aPortName  For error texts, "uart0".
/// \param aTitle     For the note of an interactive session, "uart0 of sim".
/// \return What went wrong; empty when nothing did.
std::string RunTerminal(Context& aContext, const TerminalOptions& aOptions, BytePort& aPort, TrafficLog& aLog,
                        const std::string& aPortName, const std::string& aTitle);

} // namespace KySerialTool
