#include "kyserial/Serve/ServeCommand.h"

#include "kyserial/Serve/ServeConfiguration.h"
#include "kyserial/Serve/Service.h"
#include "kyserial/Serve/StatusServer.h"
#include "kyserial/Serve/StatusText.h"
#include "kyserial/Text/Failure.h"

#include <memory>

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
};

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
    const auto lPlace = std::make_shared<HostSelection>();
    const auto lJson = std::make_shared<bool>(false);
    lPlace->mTcp.mPort = 4217;
    lCommand
        .add_option_function<std::string>(
            "PLACE",
            [lPlace](const std::string& aText)
            {
                const std::string lWrong = TakeHostName(HostKind::Tcp, aText, *lPlace);
                if (!lWrong.empty())
                {
                    throw CLI::ValidationError("PLACE", lWrong);
                }
            },
            "[ADDRESS:]PORT that the service's configuration gives as web (127.0.0.1:4217 unless given)")
        ->type_name("");
    lCommand.add_flag("--json", *lJson, "One JSON object instead of a table");
    lCommand.callback(
        [&aContext, lPlace, lJson]
        {
            aContext.mAction = [lPlace, lJson](Context& aRunning)
            {
                const std::string lStatus = AskStatus(lPlace->mTcp.mAddress, lPlace->mTcp.mPort, "/status");
                Print(aRunning, *lJson ? lStatus : StatusTable(lStatus));
                return ExitCode::Ok;
            };
        });
}

} // namespace KySerialTool
