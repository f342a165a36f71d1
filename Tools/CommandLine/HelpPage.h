#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace KyCommandLine
{

/// A command's help in lines of at most 80 characters: usage, what it does, options, commands, notes and examples.
class HelpPage : public CLI::FormatterBase
{
public:
    static constexpr size_t cWidth = 80;

    std::string make_help(const CLI::App* aCommand, std::string aName,
                          CLI::AppFormatMode aMode) const override;
};

/// "-p, --port PORT", "ADDRESS", "[LAST]".
std::string OptionTitle(const CLI::Option& aOption);

/// The command's syntax without its name: "--port PORT [OPTIONS] ADDRESS [REGISTER]".
std::string Syntax(const CLI::App& aCommand);

/// A program's commands and options as one JSON object: what manual pages and completion are made of.
/// {"name", "description", "notes", "syntax", "options": [{"names", "value", "required", "group", "help"}],
/// "arguments": [{"value", "required", "help"}], "commands": [...]}; options of a hidden group are left out.
std::string Description(const CLI::App& aProgram);

} // namespace KyCommandLine
