#include "kyserial/Options/CommandLine.h"

#include "CommandLine/Explain.h"
#include "CommandLine/HelpPage.h"
#include "kyserial/Bus/I2CCommand.h"
#include "kyserial/Bus/SpiCommand.h"
#include "kyserial/Commands/Commands.h"
#include "kyserial/Doctor/DoctorCommand.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Serve/ServeCommand.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Version.h"

#include <CLI/CLI.hpp>

#include <exception>
#include <memory>
#include <new>
#include <string>
#include <system_error>
#include <vector>

namespace KySerialTool
{

using namespace KyCommandLine;

namespace
{

const char* const cFooter =
    "'kyserial COMMAND --help' describes a command. --device names the device; the environment variable "
    "KYSERIAL_DEVICE and the configuration file do so too.\n"
    "Exit status: 0 done, 1 something failed (the reason is on the error output), 2 the command line makes "
    "no "
    "sense.\n\n"
    "Examples:\n"
    "  kyserial devices\n"
    "  kyserial ports --device sim\n"
    "  ";
const char* const cExample = " | kyserial term --device sim --port uart0";

/// For "--describe", of which manual pages and completion are made.
class CallForDescription : public CLI::Success
{
public:
    CallForDescription() : CLI::Success("CallForDescription", "", CLI::ExitCodes::Success) {}
};

ExitCode Execute(CLI::App& aProgram, Context& aContext)
{
    if (!aContext.mAction)
    {
        const CLI::App& lCommand = DeepestCommand(aProgram);
        throw UsageError("no command after '" + FullName(lCommand) + "'; use " + CommandChoices(lCommand));
    }
    // The command runs only after the whole line was understood: a wrong option later in it must not find the
    // device touched.
    ApplyLogOptions(aContext.mCommon);
    const ExitCode lStatus = aContext.mAction(aContext);
    // The state is written when the device ends, inside the action, where nothing can be thrown any more.
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
        Print(aContext, lCommand.help());
        return ExitCode::Ok;
    }
    catch (const CallForDescription&)
    {
        Print(aContext, Description(aProgram));
        return ExitCode::Ok;
    }
    catch (const CLI::CallForVersion& lVersion)
    {
        Print(aContext, lVersion.what() + std::string("\n"));
        return ExitCode::Ok;
    }
    catch (const CLI::ParseError& lError)
    {
        // The parser's own words name its internals; users get ours.
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
        lProgram.formatter(std::make_shared<HelpPage>()); // the commands take it over
        lProgram.allow_windows_style_options(false);      // "/tmp/image" is a file, on Windows too
        lProgram.set_help_flag("-h,--help", "Show this help");
        lProgram.set_version_flag("--version", "kyserial " KYSERIAL_VERSION)->description("Show the version");
        lProgram.add_flag_callback("--describe", [] { throw CallForDescription(); })->group("");
        lProgram.footer(cFooter + std::string(StatusQuestion()) + cExample);
        AddDevicesCommand(lProgram, lContext);
        AddDoctorCommand(lProgram, lContext);
        AddFeaturesCommand(lProgram, lContext);
        AddPortsCommand(lProgram, lContext);
        AddTermCommand(lProgram, lContext);
        AddBridgeCommand(lProgram, lContext);
        AddServeCommand(lProgram, lContext);
        AddStatusCommand(lProgram, lContext);
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
