#include "kyserial/Commands/Commands.h"

#include "kyserial/Options/Options.h"
#include "kyserial/Text/Output.h"

#include "kyserial/Text/Json.h"

#include <CLI/CLI.hpp>

#include <memory>
#include <optional>

namespace KySerialTool
{

namespace
{

struct DevicesOptions
{
    NetworkSearch mSearch;
    bool mJson = false;
    std::optional<IpChange> mForced;
    std::optional<IpChange> mStored;
};

ExitCode RunDevices(Context& aContext, const DevicesOptions& aOptions)
{
    // --persistent-ip prints nothing: the device has that address only when it is switched on again.
    if (aOptions.mStored)
    {
        StoreIp(aOptions.mSearch, *aOptions.mStored);
        return ExitCode::Ok;
    }
    const std::vector<NetworkFinding> lFindings =
        // A forced address is shown as found anew: the answer proves that the device has taken it.
        aOptions.mForced ? std::vector{ForceIp(aOptions.mSearch, *aOptions.mForced)}
                         : FindNetworkDevices(aOptions.mSearch);
    // A script that reads JSON gets an empty list; a person gets a hint.
    if (lFindings.empty() && !aOptions.mJson)
    {
        PrintNote("no device has answered within " + std::to_string(aOptions.mSearch.mTime) +
                  " milliseconds; a camera behind a router hears no broadcast, --address ADDRESS asks it");
        return ExitCode::Ok;
    }
    Print(aContext, aOptions.mJson ? DevicesJson(lFindings) : DevicesTable(lFindings));
    return ExitCode::Ok;
}

CLI::Option* AddIpOption(CLI::App& aCommand, const char* aName, const char* aText,
                         std::optional<IpChange>& aChange)
{
    const auto lTake = [aName, &aChange](const std::string& aValue)
    {
        IpChange lChange;
        const std::string lError = ParseIpChange(aValue, lChange);
        if (!lError.empty())
        {
            throw CLI::ValidationError(aName, lError);
        }
        aChange = lChange;
    };
    return aCommand.add_option_function<std::string>(aName, lTake, aText)
        ->type_name("MAC=ADDRESS/MASK[/GATEWAY]");
}

} // namespace

void AddDevicesCommand(CLI::App& aProgram, Context& aContext)
{
    constexpr uint32_t cLongest = 60000;
    CLI::App& lCommand = *aProgram.add_subcommand("devices", "List the GigE Vision devices on the network");
    const auto lOptions = std::make_shared<DevicesOptions>();
    lCommand.add_flag("--json", lOptions->mJson, "One JSON object in one line instead of a table");
    lCommand
        .add_option("--address", lOptions->mSearch.mAddress,
                    "Ask this address only; broadcasts do not reach every network")
        ->type_name("ADDRESS");
    lCommand
        .add_option("--interface", lOptions->mSearch.mInterface,
                    "Look on this network interface only, given by its name or address")
        ->type_name("INTERFACE");
    AddNumberOption(lCommand, "--udp-port", UINT16_MAX, "UDP port", "UDP port that devices listen on (3956)",
                    lOptions->mSearch.mPort);
    AddNumberOption(lCommand, "--time", cLongest, "milliseconds",
                    "Wait for answers this long, in milliseconds (1000)", lOptions->mSearch.mTime);
    CLI::Option* const lForce = AddIpOption(
        lCommand, "--force-ip", "Give a device this address until it is switched off, and list the device",
        lOptions->mForced);
    AddIpOption(lCommand, "--persistent-ip",
                "Store this address in a device, which takes it when it is switched on; prints nothing",
                lOptions->mStored)
        ->excludes(lForce);
    lCommand.footer("Column DEVICE is what --device takes in the other commands. Without --address or "
                    "--interface a broadcast leaves this computer on each of its networks.\n\n"
                    "Examples:\n  kyserial devices\n"
                    "  kyserial devices --force-ip 00:11:22:33:44:55=192.168.0.7/24");
    lCommand.callback(
        [&aContext, lOptions]
        { aContext.mAction = [lOptions](Context& aRunning) { return RunDevices(aRunning, *lOptions); }; });
}

std::string DevicesTable(const std::vector<NetworkFinding>& aFindings)
{
    Table lTable({"DEVICE", "MAC", "VENDOR", "MODEL", "SERIAL", "NAME", "INTERFACE"});
    for (const NetworkFinding& lFinding : aFindings)
    {
        lTable.Add({lFinding.mDevice, lFinding.mMac, OrDash(lFinding.mVendor), OrDash(lFinding.mModel),
                    OrDash(lFinding.mSerialNumber), OrDash(lFinding.mUserName), OrDash(lFinding.mInterface)});
    }
    return lTable.Text();
}

std::string DevicesJson(const std::vector<NetworkFinding>& aFindings)
{
    nlohmann::ordered_json lDevices = nlohmann::ordered_json::array();
    for (const NetworkFinding& lFinding : aFindings)
    {
        lDevices.push_back({{"device", lFinding.mDevice},
                            {"address", lFinding.mAddress},
                            {"port", lFinding.mPort},
                            {"mac", lFinding.mMac},
                            {"vendor", lFinding.mVendor},
                            {"model", lFinding.mModel},
                            {"version", lFinding.mVersion},
                            {"serialNumber", lFinding.mSerialNumber},
                            {"userName", lFinding.mUserName},
                            {"interface", lFinding.mInterface}});
    }
    return JsonLine({{"devices", lDevices}});
}

} // namespace KySerialTool
