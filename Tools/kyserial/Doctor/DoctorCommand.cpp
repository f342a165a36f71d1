#include "kyserial/Doctor/DoctorCommand.h"

#include "kyserial/Device/DeviceName.h"
#include "kyserial/Doctor/DeviceChecks.h"
#include "kyserial/Doctor/NetworkChecks.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace KySerialTool
{

namespace
{

const std::vector<std::string> cDeviceChecks = {"heartbeat", "description", "ports", "events"};

void CheckSimulated(Device& aDevice, Diagnosis& aDiagnosis)
{
    aDiagnosis.Add(CheckDescription(aDevice));
    aDiagnosis.Add(CheckPorts(aDevice));
    aDiagnosis.Add(CheckEventSink(aDevice));
}

void CheckConnected(const DeviceWay& aWay, bool aBusy, Context& aContext, const std::string& aName,
                    Diagnosis& aDiagnosis)
{
    std::unique_ptr<Device> lDevice;
    try
    {
        // Another application keeps its control. A free device is controlled for a moment, since events go
        // only to the application in control.
        lDevice = OpenNetworkDevice(aName, aContext.mConsole,
                                    aBusy ? DeviceAccess::Read : DeviceAccess::ControlIfFree);
    }
    catch (const OperationError& lError)
    {
        aDiagnosis.Add({"heartbeat", Verdict::Failed, lError.what()});
        aDiagnosis.Skip({"description", "ports", "events"}, "the device cannot be connected");
        return;
    }
    // The connection comes first: the checks after it mean little on a way that loses commands.
    aDiagnosis.Add(CheckHeartbeat(*lDevice));
    aDiagnosis.Add(CheckDescription(*lDevice));
    aDiagnosis.Add(CheckPorts(*lDevice));
    aDiagnosis.Add(CheckEvents(*lDevice, aWay.mOwn ? aWay.mOwn->mAddress : 0, aBusy));
}

/// \return Why the device cannot be asked; empty when it answers.
std::string CheckWay(DeviceWay& aWay, Diagnosis& aDiagnosis)
{
    const CheckFinding lInterface = CheckInterface(aWay);
    aDiagnosis.Add(lInterface);
    // Each check needs the one before it. Those that cannot run are listed, so that a report always has the same lines.
    if (lInterface.mVerdict == Verdict::Failed)
    {
        aDiagnosis.Skip({"route", "mtu", "discovery", "firewall"}, "no interface");
        return "no interface";
    }
    const CheckFinding lRoute = CheckRoute(aWay);
    aDiagnosis.Add(lRoute);
    if (lRoute.mVerdict == Verdict::Failed)
    {
        aDiagnosis.Skip({"mtu", "discovery", "firewall"}, "no route");
        return "no route";
    }
    aDiagnosis.Add(CheckMtu(aWay));
    aDiagnosis.Add(CheckDiscovery(aWay));
    aDiagnosis.Add(CheckFirewall(aWay));
    return aWay.mFound ? "" : "the device does not answer";
}

void CheckNetwork(Context& aContext, const std::string& aName, Diagnosis& aDiagnosis)
{
    DeviceWay lWay;
    const std::string lError = KyGigE::ParseDeviceAddress(aName, lWay.mWanted);
    if (!lError.empty())
    {
        throw UsageError(lError); // of the environment or the configuration file
    }
    lWay.mInterfaces = KyGvcp::ListInterfaces();
    const std::string lObstacle = CheckWay(lWay, aDiagnosis);
    if (!lObstacle.empty())
    {
        aDiagnosis.Skip({"control"}, lObstacle);
        aDiagnosis.Skip(cDeviceChecks, lObstacle);
        return;
    }
    bool lBusy = false;
    bool lClosed = false;
    const CheckFinding lControl = CheckControl(lWay, lBusy, lClosed);
    aDiagnosis.Add(lControl);
    // Under exclusive access the device refuses reads too; other applications' control leaves them open.
    if (lClosed || lControl.mVerdict == Verdict::Failed)
    {
        aDiagnosis.Skip(cDeviceChecks, "the device does not let this application read");
        return;
    }
    CheckConnected(lWay, lBusy, aContext, aName, aDiagnosis);
}

/// Looks for the device of this name, or for the only one that answers when the name is empty. \return Its name; empty when
/// no device is found, and the findings give the reason.
std::string SearchDevice(const std::string& aName, Diagnosis& aDiagnosis)
{
    DeviceWay lWay;
    lWay.mInterfaces = KyGvcp::ListInterfaces();
    const CheckFinding lInterface = CheckInterface(lWay);
    CheckFinding lSearch{"discovery", Verdict::Failed, "",
                         "name a device by its address: kyserial doctor gev://ADDRESS"};
    try
    {
        const std::vector<NetworkFinding> lFindings = FindNetworkDevices({});
        if (!aName.empty())
        {
            return MatchDevice(aName, lFindings);
        }
        // The only device that answers is the one that is meant. Of several the user has to choose.
        if (lFindings.size() == 1)
        {
            return lFindings.front().mDevice;
        }
        lSearch.mReason = lFindings.empty() ? "no device answers a broadcast" : "several devices answer:";
        for (const NetworkFinding& lFinding : lFindings)
        {
            lSearch.mReason += ' ' + lFinding.mDevice;
        }
    }
    catch (const OperationError& lError)
    {
        lSearch.mReason = lError.what();
    }
    aDiagnosis.Add(lInterface);
    // Checks that cannot run are listed as skipped, so that each report has the same lines.
    aDiagnosis.Skip({"route", "mtu"}, "it is not known where the device is");
    aDiagnosis.Add(lSearch);
    aDiagnosis.Add(CheckFirewall(lWay));
    aDiagnosis.Skip({"control"}, "it is not known where the device is");
    aDiagnosis.Skip(cDeviceChecks, "it is not known where the device is");
    return {};
}

ExitCode RunDoctor(Context& aContext, bool aJson)
{
    Diagnosis lDiagnosis(
        [&](const CheckFinding& aFinding)
        {
            if (!aJson)
            {
                Print(aContext, FindingLine(aFinding));
            }
        });
    std::string lName = ConfiguredDevice(aContext.mCommon.mDevice.mName);
    if (lName == "sim")
    {
        aContext.mCommon.mDevice.mName = lName;
        CheckSimulated(*OpenDevice(aContext), lDiagnosis);
    }
    else
    {
        const std::string lGiven = lName;
        lName = IsDeviceText(lName) ? lName : SearchDevice(lName, lDiagnosis);
        if (!lName.empty())
        {
            CheckNetwork(aContext, lName, lDiagnosis);
        }
        // Where no device is found the report has the name that was asked for.
        lName = lName.empty() ? lGiven : lName;
    }
    if (aJson)
    {
        Print(aContext, DiagnosisJson(lName, lDiagnosis));
    }
    // A warning is a hint about a device that works, so scripts get status 0 for it.
    return lDiagnosis.GetVerdict() == Verdict::Failed ? ExitCode::Failed : ExitCode::Ok;
}

} // namespace

void AddDoctorCommand(CLI::App& aProgram, Context& aContext)
{
    CLI::App& lCommand = *aProgram.add_subcommand("doctor", "Find out why a device does not work");
    const auto lJson = std::make_shared<bool>(false);
    lCommand.add_flag("--json", *lJson, "One JSON object in one line instead of a line per check");
    CLI::Option* const lDevice = AddCommonOptions(lCommand, aContext.mCommon);
    DeviceSelection& lSelection = aContext.mCommon.mDevice;
    const auto lTake = [&lSelection](const std::string& aText)
    {
        const std::string lError = CheckDeviceName(aText);
        if (!lError.empty())
        {
            throw CLI::ValidationError("DEVICE", lError);
        }
        lSelection.mName = aText;
    };
    lCommand.add_option_function<std::string>("device", lTake, "As --device")
        ->type_name("DEVICE")
        ->excludes(lDevice);
    lCommand.footer(
        "Each line is a check: ok, warning or failed, with the reason and what to do next. Without a "
        "device the only one that answers is looked at. Another application keeps its control; a device "
        "that is free is controlled for a moment. Nothing goes to the ports.\n"
        "Exit status: 1 when a check failed.\n\n"
        "Example:\n  kyserial doctor gev://192.168.1.20");
    lCommand.callback(
        [&aContext, lJson]
        { aContext.mAction = [lJson](Context& aRunning) { return RunDoctor(aRunning, *lJson); }; });
}

} // namespace KySerialTool
