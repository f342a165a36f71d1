#include "kyserial/Serve/ServeCommand.h"

#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/Service.h"
#include "kyserial/Serve/Status/StatusText.h"
#include "kyserial/Serve/Web/WebServer.h"
#include "kyserial/Text/Failure.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace KySerialTool
{

namespace
{

struct ServeOptions
{
    std::string mFile{};
    bool mCheck = false;
    bool mReload = false;
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

ExitCode RunServe(Context& aContext, const ServeOptions& aOptions)
{
    if (aOptions.mReload)
    {
        Service::AskToReload(aOptions.mName);
        return ExitCode::Ok;
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
    if (!aOptions.mCheck)
    {
        Service(aContext, aOptions.mFile, std::move(lConfiguration)).Run();
    }
    return ExitCode::Ok;
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
            "With --reload: the service's name, as its configuration gives it (kyserial unless given)")
        ->type_name("NAME");
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
