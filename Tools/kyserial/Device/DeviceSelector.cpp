#include "kyserial/Device/DeviceSelector.h"

#include "kyserial/Device/DeviceName.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"

#include <CLI/CLI.hpp>

namespace KySerialTool
{

namespace
{

const char* const cHidden = ""; // the parser's group of options that the help leaves out
const char* const cSimulatorGroup = "Simulated camera";
const char* const cSimulatorHelp = "--help-sim";

class SimulatedDevice : public Device
{
public:
    explicit SimulatedDevice(const SimulatorOptions& aOptions) : mCamera(aOptions) {}

    IKyDeviceAdapter& GetAdapter() override { return mCamera.GetAdapter(); }
    uint64_t GetGeneration() override { return mCamera.GetGeneration(); }
    std::vector<FeatureFinding> ReadFeatures() override
    {
        std::vector<FeatureFinding> lFindings;
        for (const auto& [lText, lKind] : mCamera.GetFeatures())
        {
            const KyString lName(lText.c_str(), lText.size());
            const bool lReadable = GetAdapter().IsFeatureReadable(lName);
            lFindings.push_back({{lText, "", lKind, "Beginner", ""},
                                 AccessText(lReadable, GetAdapter().IsFeatureWritable(lName)),
                                 // A register is a block of bytes, which has no text.
                                 lReadable && lKind != "Register" ? ValueOf(lName) : "",
                                 lKind == "Enumeration" ? EntriesOf(lName) : std::vector<std::string>()});
        }
        return lFindings;
    }

private:
    std::string ValueOf(const KyString& aName)
    {
        KyString lValue;
        return GetAdapter().GetFeatureAsString(aName, lValue).IsOK() ? TextOf(lValue) : std::string();
    }

    /// What an enumeration can be set to; nothing for other kinds.
    std::vector<std::string> EntriesOf(const KyString& aName)
    {
        KyStringList lList;
        std::vector<std::string> lEntries;
        if (GetAdapter().GetEnumEntries(aName, lList).IsOK())
        {
            for (const KyString* lEntry = lList.GetFirst(); lEntry != nullptr; lEntry = lList.GetNext())
            {
                lEntries.push_back(TextOf(*lEntry));
            }
        }
        return lEntries;
    }

    static std::string TextOf(const KyString& aText) { return {aText.GetAscii(), aText.GetLength()}; }

    SimulatedCamera mCamera;
};

} // namespace

CLI::Option* AddDeviceOptions(CLI::App& aCommand, DeviceSelection& aSelection)
{
    const auto lCheck = [&aSelection](const std::string& aText)
    {
        const std::string lError = CheckDeviceName(aText);
        if (!lError.empty())
        {
            throw CLI::ValidationError("--device", lError);
        }
        aSelection.mName = aText;
    };
    CLI::Option* const lDevice = aCommand
                                     .add_option_function<std::string>(
                                         "-d,--device", lCheck,
                                         "Device: gev://ADDRESS, one of the names that 'kyserial devices' "
                                         "lists, an alias, or sim, the simulated camera")
                                     ->type_name("DEVICE");
    aCommand.add_flag_callback(
        cSimulatorHelp, [] { throw CLI::CallForHelp(); }, "This help with the simulated camera's options");
    SimulatorOptions& lSimulator = aSelection.mSimulator;
    aCommand.add_flag("--sim-fast", lSimulator.mFast, "Lines take no time")->group(cHidden);
    aCommand
        .add_flag("--sim-no-uart-registers", lSimulator.mFeaturesOnly,
                  "No UARTs, and bulk port 0 is driven through features")
        ->group(cHidden);
    aCommand
        .add_option("--sim-state", lSimulator.mStateFile,
                    "File that keeps the contents of the memories on the buses between runs")
        ->type_name("FILE")
        ->group(cHidden);
    AddNumberOption(aCommand, "--sim-cut", UINT32_MAX, "accesses",
                    "Cut the connection with the Nth access to the device (0: never)", lSimulator.mCutAfter)
        ->group(cHidden);
    AddNumberOption(aCommand, "--sim-back", 3600000, "milliseconds",
                    "The camera is back N milliseconds after the cut, as after power-up (0: it stays away)",
                    lSimulator.mBackAfter)
        ->group(cHidden);
    return lDevice;
}

void ShowSimulatorOptions(CLI::App& aCommand)
{
    const CLI::Option* const lDevice = aCommand.get_option_no_throw("--device");
    // Most users have a camera: the simulated one's options are in the help only where it is asked for.
    if (lDevice == nullptr || (aCommand.get_option(cSimulatorHelp)->empty() &&
                               lDevice->results() != std::vector<std::string>{"sim"}))
    {
        return;
    }
    for (CLI::Option* const lOption : aCommand.get_options())
    {
        if (!lOption->get_lnames().empty() && lOption->get_lnames().front().rfind("sim-", 0) == 0)
        {
            lOption->group(cSimulatorGroup);
        }
    }
}

std::unique_ptr<Device> OpenDevice(DeviceSelection& aSelection, const KyToolPlatform::Console& aConsole,
                                   DeviceAccess aAccess)
{
    // The name is put back as it was resolved: reports and messages name the device that is used.
    aSelection.mName = ChooseDevice(aSelection.mName);
    if (aSelection.mName == "sim")
    {
        return std::make_unique<SimulatedDevice>(aSelection.mSimulator);
    }
    // A name that says no address is looked for on the network, which takes a second.
    if (!IsDeviceText(aSelection.mName))
    {
        aSelection.mName = MatchDevice(aSelection.mName, FindNetworkDevices({}));
    }
    const std::string lError =
        CheckNetworkDevice(aSelection.mName); // of the environment or the configuration file
    if (!lError.empty())
    {
        throw UsageError(lError);
    }
    return OpenNetworkDevice(aSelection.mName, aConsole, aAccess);
}

void CheckConnection(Device& aDevice, uint64_t aGeneration)
{
    // A device that was away and is back again has answered some of the questions only.
    if (!aDevice.GetAdapter().IsConnected() || aDevice.GetGeneration() != aGeneration)
    {
        throw OperationError("the connection to the device was lost");
    }
}

} // namespace KySerialTool
