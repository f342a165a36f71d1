#include "CommandLine/Explain.h"

#include "CommandLine/PlainText.h"

#include <optional>
#include <vector>

namespace KyCommandLine
{

CLI::App& DeepestCommand(CLI::App& aProgram)
{
    CLI::App* lCommand = &aProgram;
    while (!lCommand->get_subcommands().empty())
    {
        lCommand = lCommand->get_subcommands().front();
    }
    return *lCommand;
}

std::string FullName(const CLI::App& aCommand)
{
    const CLI::App* const lParent = aCommand.get_parent();
    return (lParent != nullptr ? FullName(*lParent) + ' ' : std::string()) + aCommand.get_name();
}

std::string CommandChoices(const CLI::App& aCommand)
{
    const auto lCommands = aCommand.get_subcommands([](const CLI::App*) { return true; });
    std::string lText;
    for (size_t lIndex = 0; lIndex < lCommands.size(); ++lIndex)
    {
        const bool lLast = lIndex + 1 == lCommands.size();
        lText += (lIndex == 0 ? "" : lLast ? " or " : ", ") + lCommands[lIndex]->get_name();
    }
    return lText;
}

namespace
{

/// What a word could have been at the end of this command: its options, or the commands below it.
std::vector<std::string> Candidates(const CLI::App& aCommand, const std::string& aWord)
{
    std::vector<std::string> lWords;
    // A word without a dash can only have been meant as a command, a word with one only as an option.
    if (!aWord.starts_with('-'))
    {
        for (const CLI::App* const lCommand : aCommand.get_subcommands([](const CLI::App*) { return true; }))
        {
            lWords.push_back(lCommand->get_name());
        }
        return lWords;
    }
    for (const CLI::Option* const lOption : aCommand.get_options())
    {
        for (const std::string& lName : lOption->get_lnames())
        {
            lWords.push_back("--" + lName);
        }
    }
    return lWords;
}

std::string ExplainExtra(CLI::App& aProgram, const CLI::App& aCommand)
{
    // The first word that did not fit: those after it may be its values.
    const std::vector<std::string> lExtras = aProgram.remaining(true);
    const std::string lWord = lExtras.empty() ? "" : lExtras.front();
    const std::optional<std::string> lMeant =
        Nearest(lWord.substr(0, lWord.find('=')), Candidates(aCommand, lWord));
    const std::string lChoices = CommandChoices(aCommand);
    return '"' + lWord + "\" does not belong here; " +
           (lMeant.has_value() ? "did you mean " + *lMeant + "?"
            : lChoices.empty() || lWord.starts_with('-')
                ? "'" + FullName(aCommand) + " --help' lists what does"
                : "use " + lChoices);
}

/// What follows an option's name in the parser's text, up to one of a few characters.
std::string NameIn(const std::string& aText)
{
    return aText.substr(0, aText.find_first_of(": "));
}

std::string ExplainMissing(const CLI::App& aCommand, const std::string& aText)
{
    const std::string lName = NameIn(aText);
    const CLI::Option* const lOption = aCommand.get_option_no_throw(lName);
    const std::string lType = lOption != nullptr ? lOption->get_type_name() : "";
    return lName + ": the value is missing" + (lType.empty() ? "" : "; use " + lName + ' ' + lType);
}

/// "Could not convert: --port = abc".
std::string ExplainConversion(const std::string& aText)
{
    const size_t lColon = aText.find(": ");
    const size_t lEqual = aText.find(" = ");
    // The parser gives this text and no parts. One of another form gets the general answer.
    if (lColon == std::string::npos || lEqual == std::string::npos || lEqual < lColon)
    {
        return "a value does not fit";
    }
    return aText.substr(lColon + 2, lEqual - lColon - 2) + ": \"" + aText.substr(lEqual + 3) +
           "\" does not fit";
}

} // namespace

std::string Explain(CLI::App& aProgram, const CLI::ParseError& aError)
{
    const CLI::App& lCommand = DeepestCommand(aProgram);
    std::string lText = aError.what();
    const std::string lHelp = "; see '" + FullName(lCommand) + " --help'";
    if (dynamic_cast<const CLI::ExtrasError*>(&aError) != nullptr)
    {
        return ExplainExtra(aProgram, lCommand);
    }
    if (dynamic_cast<const CLI::ValidationError*>(&aError) != nullptr)
    {
        return lText; // ours, and it says what would have been right
    }
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&aError) != nullptr)
    {
        return ExplainMissing(lCommand, lText) + lHelp;
    }
    if (dynamic_cast<const CLI::ConversionError*>(&aError) != nullptr)
    {
        return ExplainConversion(lText) + lHelp;
    }
    if (dynamic_cast<const CLI::RequiredError*>(&aError) != nullptr)
    {
        return NameIn(lText) + " is required" + lHelp;
    }
    if (dynamic_cast<const CLI::ExcludesError*>(&aError) != nullptr)
    {
        return NameIn(lText) + " and " + lText.substr(lText.rfind(' ') + 1) + " exclude each other" + lHelp;
    }
    return "the command line makes no sense" + lHelp;
}

} // namespace KyCommandLine
