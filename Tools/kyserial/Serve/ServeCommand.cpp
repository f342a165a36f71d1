#include "kyserial/Serve/ServeCommand.h"

#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/Service.h"
#include "kyserial/Serve/Status/StatusText.h"
#include "kyserial/Serve/Web/WebServer.h"
#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>
#include <Platform/SystemService.h>

#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace KySerialTool
{

namespace
{

using KyToolPlatform::SystemService;

struct ServeOptions
{
    std::string mFile{};
    bool mCheck = false;
    bool mReload = false;
    bool mInstall = false;
    bool mRemove = false;
    bool mIsSystemService = false;
    std::string mName = "kyserial";
    std::optional<TcpSettings> mWeb{};
};

/// Adds an option, or a name without one, that takes "[ADDRESS:]PORT".
CLI::Option* AddPlace(CLI::App& aCommand, const std::string& aName,
                      const std::function<void(const TcpSettings&)>& aTake, const std::string& aDescription)
{
    const auto lTake = [aName, aTake](const std::string& aText)
    {
        HostSelection lPlace;
        const std::string lWrong = TakeHostName(HostKind::Tcp, aText, lPlace);
        if (!lWrong.empty())
        {
            throw CLI::ValidationError(aName, lWrong);
        }
        aTake(lPlace.mTcp);
    };
    return aCommand.add_option_function<std::string>(aName, lTake, aDescription);
}

/// Checks that the system has services that a program installs.
void CheckSystemService(const char* aOption)
{
    if (!SystemService::IsSupported())
    {
        throw UsageError(
            std::string(aOption) +
            ": belongs to Windows; here systemd starts the service, by its unit kyserial.service: "
            "'sudo systemctl enable --now kyserial', with CONFIG as /etc/kyserial/service.toml");
    }
}

ExitCode RunRemove(const std::string& aName)
{
    CheckSystemService("--remove-service");
    if (const std::string lRefusal = SystemService::Remove(aName); !lRefusal.empty())
    {
        throw OperationError("cannot remove the service " + aName + ": " + lRefusal);
    }
    return ExitCode::Ok;
}

// The system's services are not started in the folder of the user that installs them.
ExitCode RunInstall(const ServeOptions& aOptions, const ServeConfiguration& aConfiguration)
{
    if (aConfiguration.mLog.mFile.empty())
    {
        PrintError(aOptions.mFile + ": log: a service of Windows has no error output; name a file");
        return ExitCode::Usage;
    }
    std::error_code lError;
    const std::string lFile = std::filesystem::absolute(aOptions.mFile, lError).string();
    if (const std::string lRefusal =
            SystemService::Install(aConfiguration.mName, "Serial ports of cameras, as " + lFile + " has them",
                                   {"serve", "--as-system-service", lFile});
        !lRefusal.empty())
    {
        throw OperationError("cannot install the service " + aConfiguration.mName + ": " + lRefusal);
    }
    return ExitCode::Ok;
}

ExitCode RunServe(Context& aContext, const ServeOptions& aOptions);

// The body runs on another thread, and what it throws goes on here.
ExitCode RunAsSystemService(Context& aContext, const ServeOptions& aOptions)
{
    ServeOptions lOptions = aOptions;
    // The body is RunServe() again, which would come back here.
    lOptions.mIsSystemService = false;
    // The system starts services in a folder of its own. Files without a folder are those beside the
    // configuration.
    std::error_code lIgnored; // of a folder that cannot be entered: opening the configuration says so
    std::filesystem::current_path(std::filesystem::path(aOptions.mFile).parent_path(), lIgnored);
    std::exception_ptr lFailure;
    ExitCode lStatus = ExitCode::Failed;
    const std::string lRefusal = SystemService::Run(
        [&]
        {
            try
            {
                lStatus = RunServe(aContext, lOptions);
            }
            catch (...)
            {
                lFailure = std::current_exception();
            }
            return static_cast<int>(lStatus);
        },
        [&] { aContext.mConsole.Interrupt(); });
    if (lFailure != nullptr)
    {
        std::rethrow_exception(lFailure);
    }
    if (!lRefusal.empty())
    {
        throw OperationError("the system has not started this process as a service: " + lRefusal);
    }
    return lStatus;
}

ExitCode RunServe(Context& aContext, const ServeOptions& aOptions)
{
    if (aOptions.mIsSystemService)
    {
        return RunAsSystemService(aContext, aOptions);
    }
    // Neither of these two needs a configuration: both find the service by its name.
    if (aOptions.mRemove)
    {
        return RunRemove(aOptions.mName);
    }
    if (aOptions.mReload)
    {
        Service::AskToReload(aOptions.mName);
        return ExitCode::Ok;
    }
    if (aOptions.mInstall)
    {
        // Before the file is read: on a system without such services no fault in it matters.
        CheckSystemService("--install-service");
    }
    if (aOptions.mFile.empty())
    {
        throw UsageError("no configuration is given; use 'kyserial serve CONFIG'");
    }
    std::vector<ConfigurationFault> lFaults;
    ServeConfiguration lConfiguration = LoadServeConfiguration(aOptions.mFile, lFaults);
    for (const ConfigurationFault& lFault : lFaults)
    {
        PrintError(FaultText(aOptions.mFile, lFault));
    }
    if (!lFaults.empty())
    {
        return ExitCode::Usage;
    }
    lConfiguration.mWeb = aOptions.mWeb.has_value() ? aOptions.mWeb : lConfiguration.mWeb;
    if (aOptions.mInstall)
    {
        return RunInstall(aOptions, lConfiguration);
    }
    if (!aOptions.mCheck)
    {
        Service(aContext, aOptions.mFile, std::move(lConfiguration)).Run();
    }
    return ExitCode::Ok;
}

/// Adds what makes the program a service of the system; shown where the system has such services.
void AddSystemServiceOptions(CLI::App& aCommand, ServeOptions& aOptions)
{
    const std::string lGroup = SystemService::IsSupported() ? "Service of Windows" : "";
    aCommand
        .add_flag("--install-service", aOptions.mInstall,
                  "Have Windows start the service of CONFIG with the system; its name is that of CONFIG")
        ->group(lGroup);
    aCommand
        .add_flag("--remove-service", aOptions.mRemove,
                  "Stop that service, and have Windows start it no more")
        ->group(lGroup);
    aCommand.add_flag("--as-system-service", aOptions.mIsSystemService)->group(""); // as the system starts it
}

} // namespace

void AddServeCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand(
        "serve", "Make all ports of all devices of a configuration serial ports of the "
                 "host, until interrupted");
    const auto lOptions = std::make_shared<ServeOptions>();
    lCommand.add_option("CONFIG", lOptions->mFile, "Configuration, a TOML file")->type_name("");
    lCommand.add_flag("--check", lOptions->mCheck, "Only look for faults of CONFIG, and list all of them");
    lCommand.add_flag(
        "--reload", lOptions->mReload,
        "Have the service that runs read its configuration anew; only what has changed is touched");
    lCommand
        .add_option(
            "--name", lOptions->mName,
            "With --reload and --remove-service: the service's name, as its configuration gives it (kyserial "
            "unless given)")
        ->type_name("NAME");
    AddSystemServiceOptions(lCommand, *lOptions);
    AddPlace(
        lCommand, "--web", [lOptions](const TcpSettings& aPlace) { lOptions->mWeb = aPlace; },
        "Web page and metrics at [ADDRESS:]PORT, in place of what CONFIG gives as web")
        ->type_name("PLACE");
    AddLogOption(lCommand, aContext.mCommon);
    lCommand.footer(
        "Ctrl-C, or a request to end, ends the service with status 0; the devices' ports have their "
        "former settings then.\n"
        "SIGHUP does what --reload does.\n\n"
        "Example: kyserial serve --check service.toml && kyserial serve service.toml");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunServe(aRunning, *lOptions); }; });
}

void AddStatusCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand =
        *aProgram.add_subcommand("status", "What a service does now: its devices, ports, clients and bytes");
    const auto lPlace = std::make_shared<TcpSettings>();
    const auto lJson = std::make_shared<bool>(false);
    lPlace->mPort = 4217;
    AddPlace(
        lCommand, "PLACE", [lPlace](const TcpSettings& aPlace) { *lPlace = aPlace; },
        "[ADDRESS:]PORT that the service's configuration gives as web (127.0.0.1:4217 unless given)")
        ->type_name("");
    lCommand.add_flag("--json", *lJson, "One JSON object instead of a table");
    lCommand.callback(
        [&aContext, lPlace, lJson]
        {
            aContext.mAction = [lPlace, lJson](Context& aRunning)
            {
                const std::string lStatus = AskStatus(lPlace->mAddress, lPlace->mPort, "/status");
                Print(aRunning, *lJson ? lStatus : StatusTable(lStatus));
                return ExitCode::Ok;
            };
        });
}

} // namespace KySerialTool
