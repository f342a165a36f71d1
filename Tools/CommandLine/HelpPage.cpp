#include "CommandLine/HelpPage.h"

#include "CommandLine/Explain.h"
#include "CommandLine/PlainText.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <vector>

namespace KyCommandLine
{

namespace
{

constexpr size_t cColumn = 23; // where descriptions begin

bool IsShown(const CLI::Option& aOption)
{
    return !aOption.get_group().empty();
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& aCommand, bool aPositional)
{
    return aCommand.get_options([aPositional](const CLI::Option* aOption)
                                { return aOption->get_positional() == aPositional; });
}

/// "  title   text, wrapped".
std::string Entry(const std::string& aTitle, const std::string& aText)
{
    std::string lText = "  " + aTitle;
    // A title that is too long for its column gets a line of its own.
    if (lText.size() + 2 > cColumn)
    {
        lText += '\n' + std::string(cColumn, ' ');
    }
    else
    {
        lText.resize(cColumn, ' ');
    }
    return lText + Wrapped(aText, HelpPage::cWidth, cColumn) + '\n';
}

std::string ValueOf(const CLI::Option& aOption)
{
    // A flag has no value; the parser writes a type for it all the same when it has a default.
    return aOption.get_items_expected_max() == 0 ? "" : aOption.get_type_name();
}

/// Options by group in the order of the groups, those without a group of their own first.
std::string OptionLists(const CLI::App& aCommand)
{
    std::string lText;
    std::vector<std::string> lGroups = aCommand.get_groups();
    // The parser lists groups in the order in which they were made, so the common ones may come last.
    std::stable_partition(lGroups.begin(), lGroups.end(),
                          [](const auto& aGroup) { return aGroup == "Options"; });
    for (const std::string& lGroup : lGroups)
    {
        std::string lEntries;
        std::string lLast; // the help, which everybody knows
        for (const CLI::Option* const lOption : OptionsOf(aCommand, false))
        {
            // A hidden option works and is not listed; it has an empty group.
            if (lOption->get_group() == lGroup && IsShown(*lOption))
            {
                std::string& lPlace = lOption == aCommand.get_help_ptr() ? lLast : lEntries;
                lPlace += Entry(OptionTitle(*lOption), lOption->get_description());
            }
        }
        lEntries += lLast;
        if (!lEntries.empty())
        {
            lText.append("\n").append(lGroup).append(":\n").append(lEntries);
        }
    }
    return lText;
}

nlohmann::ordered_json OptionJson(const CLI::Option& aOption)
{
    std::vector<std::string> lNames;
    for (const std::string& lName : aOption.get_snames())
    {
        lNames.push_back('-' + lName);
    }
    for (const std::string& lName : aOption.get_lnames())
    {
        lNames.push_back("--" + lName);
    }
    return {{"names", lNames},
            {"value", ValueOf(aOption)},
            {"required", aOption.get_required()},
            {"group", aOption.get_group()},
            {"help", aOption.get_description()}};
}

nlohmann::ordered_json Describe(const CLI::App& aCommand)
{
    nlohmann::ordered_json lOptions = nlohmann::ordered_json::array();
    nlohmann::ordered_json lArguments = nlohmann::ordered_json::array();
    nlohmann::ordered_json lCommands = nlohmann::ordered_json::array();
    for (const CLI::Option* const lOption : OptionsOf(aCommand, false))
    {
        if (IsShown(*lOption))
        {
            lOptions.push_back(OptionJson(*lOption));
        }
    }
    for (const CLI::Option* const lOption : OptionsOf(aCommand, true))
    {
        lArguments.push_back({{"value", lOption->get_name(true)},
                              {"required", lOption->get_required()},
                              {"help", lOption->get_description()}});
    }
    for (const CLI::App* const lCommand : aCommand.get_subcommands([](const CLI::App*) { return true; }))
    {
        lCommands.push_back(Describe(*lCommand));
    }
    return {{"name", FullName(aCommand)},
            {"description", aCommand.get_description()},
            {"notes", aCommand.get_footer()},
            {"syntax", Syntax(aCommand)},
            {"options", lOptions},
            {"arguments", lArguments},
            {"commands", lCommands}};
}

} // namespace

std::string OptionTitle(const CLI::Option& aOption)
{
    std::string lTitle;
    for (const std::string& lName : aOption.get_snames())
    {
        lTitle += '-' + lName;
    }
    for (const std::string& lName : aOption.get_lnames())
    {
        lTitle += (lTitle.empty() ? "--" : ", --") + lName;
    }
    const std::string lValue = ValueOf(aOption);
    return lTitle + (lValue.empty() ? "" : ' ' + lValue);
}

std::string Syntax(const CLI::App& aCommand)
{
    std::string lRequired;
    std::string lArguments;
    bool lOptional = false;
    for (const CLI::Option* const lOption : OptionsOf(aCommand, false))
    {
        // Options that must be given are in the line by name, the others as one word.
        lOptional = lOptional || (!lOption->get_required() && IsShown(*lOption));
        if (lOption->get_required())
        {
            lRequired += "--" + lOption->get_lnames().front() + ' ' + ValueOf(*lOption) + ' ';
        }
    }
    for (const CLI::Option* const lOption : OptionsOf(aCommand, true))
    {
        const std::string lName =
            lOption->get_name(true) + (lOption->get_items_expected_max() > 1 ? "..." : "");
        lArguments += ' ' + (lOption->get_required() ? lName : '[' + lName + ']');
    }
    const bool lCommands = !CommandChoices(aCommand).empty();
    return lRequired + (lOptional ? "[OPTIONS]" : "") + lArguments + (lCommands ? " COMMAND" : "");
}

std::string Description(const CLI::App& aProgram)
{
    return Describe(aProgram).dump(1) + '\n';
}

std::string HelpPage::make_help(const CLI::App* aCommand, std::string /*aName*/,
                                CLI::AppFormatMode /*aMode*/) const
{
    std::string lText = Wrapped("Usage: " + FullName(*aCommand) + ' ' + Syntax(*aCommand), cWidth, 0) + '\n' +
                        Wrapped(aCommand->get_description(), cWidth) + '\n';
    std::string lArguments;
    for (const CLI::Option* const lOption : OptionsOf(*aCommand, true))
    {
        lArguments += Entry(lOption->get_name(true), lOption->get_description());
    }
    lText += lArguments.empty() ? "" : '\n' + lArguments;
    std::string lCommands;
    for (const CLI::App* const lCommand : aCommand->get_subcommands([](const CLI::App*) { return true; }))
    {
        lCommands += Entry(lCommand->get_name(), lCommand->get_description());
    }
    lText += lCommands.empty() ? "" : "\nCommands:\n" + lCommands;
    lText += OptionLists(*aCommand);
    const std::string lNotes = aCommand->get_footer();
    return lText + (lNotes.empty() ? "" : '\n' + Wrapped(lNotes, cWidth) + '\n');
}

} // namespace KyCommandLine
