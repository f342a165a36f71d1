#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace KyCommandLine
{

/// The command that a command line names, down to "i2c get"; the program itself when it names none.
CLI::App& DeepestCommand(CLI::App& aProgram);

/// "kyserial i2c get".
std::string FullName(const CLI::App& aCommand);

/// "ports, term, i2c or spi": what may follow a command; empty when nothing may.
std::string CommandChoices(const CLI::App& aCommand);

/// The parser's complaint in one line and in the manner of these programs: what, and what would have been right.
std::string Explain(CLI::App& aProgram, const CLI::ParseError& aError);

} // namespace KyCommandLine
