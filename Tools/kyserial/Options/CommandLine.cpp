#include "kyserial/Options/CommandLine.h"

#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Bus/SpiCommand.h"
#include "kyserial/Commands/Commands.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Version.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <new>
#include <string>
#include <system_error>
#include <vector>

namespace KySerialTool
{

namespace
{

const char* const cFooter = "Exit status: 0 done, 1 something failed (the reason is on the error output),\n"
                            "2 the command line makes no sense.\n\n"
                            "'kyserial COMMAND --help' describes a command.";

/// The command that was named last, down to "i2c get"; the program itself when none was.
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

/// "ports, term, i2c or spi": what may follow a command; empty when nothing may.
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

/// The parser's complaint in the manner of this program.
std::string Explain(CLI::App& aProgram, const CLI::ParseError& aError)
{
    const CLI::App& lCommand = DeepestCommand(aProgram);
    const std::string lChoices = CommandChoices(lCommand);
    std::string lText = aError.what();
    if (dynamic_cast<const CLI::ExtrasError*>(&aError) != nullptr)
    {
        const std::vector<std::string> lExtras = aProgram.remaining(true);
        return '"' + (lExtras.empty() ? "" : lExtras.front()) + "\" does not belong here; " +
               (lChoices.empty() ? "'" + FullName(lCommand) + " --help' lists what does" : "use " + lChoices);
    }
    if (dynamic_cast<const CLI::ValidationError*>(&aError) != nullptr)
    {
        return lText; // ours, and it says what would have been right
    }
    return lText + "; see '" + FullName(lCommand) + " --help'";
}

ExitCode Execute(CLI::App& aProgram, Context& aContext)
{
    if (!aContext.mAction)
    {
        const CLI::App& lCommand = DeepestCommand(aProgram);
        throw UsageError("no command after '" + FullName(lCommand) + "'; use " + CommandChoices(lCommand));
    }
    ApplyLogOptions(aContext.mCommon);
    const ExitCode lStatus = aContext.mAction(aContext);
    return *aContext.mCommon.mDevice.mSimulator.mStateIsLost ? ExitCode::Failed : lStatus;
}

ExitCode Run(CLI::App& aProgram, Context& aContext, int aCount, const char* const* aArguments)
{
    try
    {
        aProgram.parse(aCount, aArguments);
        return Execute(aProgram, aContext);
    }
    catch (const CLI::CallForHelp&)
    {
        CLI::App& lCommand = DeepestCommand(aProgram);
        ShowSimulatorOptions(lCommand);
        const CLI::App* const lParent = lCommand.get_parent();
        Print(aContext, lCommand.help(lParent != nullptr ? FullName(*lParent) : "") + '\n');
        return ExitCode::Ok;
    }
    catch (const CLI::CallForVersion& lVersion)
    {
        Print(aContext, lVersion.what() + std::string("\n"));
        return ExitCode::Ok;
    }
    catch (const CLI::ParseError& lError)
    {
        throw UsageError(Explain(aProgram, lError));
    }
}

} // namespace

ExitCode RunCommandLine(int aCount, const char* const* aArguments, KyToolPlatform::Console& aConsole)
{
    try
    {
        Context lContext{aConsole};
        CLI::App lProgram("Serial ports of a GigE Vision device, from the command line", "kyserial");
        lProgram.set_version_flag("--version", "kyserial " KYSERIAL_VERSION);
        lProgram.footer(cFooter);
        AddDevicesCommand(lProgram, lContext);
        AddFeaturesCommand(lProgram, lContext);
        AddPortsCommand(lProgram, lContext);
        AddTermCommand(lProgram, lContext);
        AddBridgeCommand(lProgram, lContext);
        AddClserCommand(lProgram, lContext);
        AddI2CCommand(lProgram, lContext);
        AddSpiCommand(lProgram, lContext);
        return Run(lProgram, lContext, aCount, aArguments);
    }
    catch (const UsageError& lError)
    {
        PrintError(lError.what());
        return ExitCode::Usage;
    }
    catch (const std::bad_alloc&)
    {
        PrintError("there is not enough memory");
        return ExitCode::Failed;
    }
    catch (const std::system_error& lError) // of a thread
    {
        PrintError("the system refuses what the program needs: " + lError.code().message());
        return ExitCode::Failed;
    }
    catch (const std::exception& lError) // OperationError
    {
        PrintError(lError.what());
        return ExitCode::Failed;
    }
}

} // namespace KySerialTool
