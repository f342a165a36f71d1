#pragma once

#include "kyserial/Device/DevicePort.h"
#include "kyserial/Device/ReconnectingPort.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Terminal/TermSession.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <CommandLine/ParserNames.h>

#include <memory>
#include <string>

namespace KySerialTool
{

/// What every command that is a terminal takes.
struct TerminalOptions
{
    TermSettings mSettings{};
    std::string mLogFile{};
    bool mReconnect = false;
    bool mQuiet = false;
};

/// Adds what the terminal does with bytes, keys and files. \return --reconnect.
CLI::Option* AddTerminalOptions(CLI::App& aCommand, TerminalOptions& aOptions);

/// A line on the error output, unless the user wants none.
void PrintNote(const TerminalOptions& aOptions, const std::string& aText);

/// Opens the file of --log, unless the name is empty, and has Ctrl-C end the session. Throws OperationError
/// when either fails. To be called before anything is connected.
void PrepareSession(Context& aContext, const std::string& aLogFile, TrafficLog& aLog);

/// Opens the port of a session; with --reconnect it is waited for, now and whenever it is away.
/// \param aOptions  Have to live as long as the port, and so has aLog. With --reconnect input that is no terminal
///                  waits, too.
/// \param aPeer     What has the port, for the notes: "the device".
std::unique_ptr<BytePort> OpenPort(const ReconnectingPort::Opener& aOpen, TerminalOptions& aOptions,
                                   TrafficLog& aLog, const std::string& aPortName, const std::string& aPeer);

/// A terminal session on an open port: raw keys when the input is a terminal, and notes on the error output.
/// \param aPortName  For error texts, "uart0".
/// \param aTitle     For the note of an interactive session, "uart0 of sim".
/// \return What went wrong; empty when nothing did.
std::string RunTerminal(Context& aContext, const TerminalOptions& aOptions, BytePort& aPort, TrafficLog& aLog,
                        const std::string& aPortName, const std::string& aTitle);

} // namespace KySerialTool
