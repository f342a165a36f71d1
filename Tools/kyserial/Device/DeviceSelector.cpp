#include "kyserial/Device/DeviceSelector.h"

#include "kyserial/Device/NetworkDevices.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"

namespace KySerialTool
{

namespace
{

const char* const cSimulatorGroup = "Simulated camera";

class SimulatedDevice : public Device
{
public:
    explicit SimulatedDevice(const SimulatorOptions& aOptions) : mCamera(aOptions) {}

    IKyDeviceAdapter& GetAdapter() override { return mCamera.GetAdapter(); }
    uint64_t GetGeneration() override { return mCamera.GetGeneration(); }
    std::vector<DeviceFeature> ListFeatures() override
    {
        std::vector<DeviceFeature> lFeatures;
        for (const auto& [lName, lKind] : mCamera.GetFeatures())
        {
            lFeatures.push_back({lName, "", lKind, "Beginner", ""});
        }
        return lFeatures;
    }

private:
    SimulatedCamera mCamera;
};

} // namespace

void AddDeviceOptions(CLI::App& aCommand, DeviceSelection& aSelection)
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
    aCommand
        .add_option_function<std::string>(
            "-d,--device", lCheck,
            "Device: sim, the simulated camera (default), or gev://ADDRESS, a GigE "
            "Vision device; 'devices' lists those")
        ->type_name("DEVICE");
    SimulatorOptions& lSimulator = aSelection.mSimulator;
    aCommand.add_flag("--sim-fast", lSimulator.mFast, "Lines take no time")->group(cSimulatorGroup);
    aCommand
        .add_flag("--sim-no-uart-registers", lSimulator.mFeaturesOnly,
                  "No UARTs, and bulk port 0 is driven through features")
        ->group(cSimulatorGroup);
    aCommand
        .add_option("--sim-state", lSimulator.mStateFile,
                    "File that keeps the contents of the memories on the buses between runs")
        ->type_name("FILE")
        ->group(cSimulatorGroup);
    AddNumberOption(aCommand, "--sim-cut", UINT32_MAX, "accesses",
                    "Cut the connection with the Nth access to the device (0: never)", lSimulator.mCutAfter)
        ->group(cSimulatorGroup);
    AddNumberOption(aCommand, "--sim-back", 3600000, "milliseconds",
                    "The camera is back N milliseconds after the cut, as after power-up (0: it stays away)",
                    lSimulator.mBackAfter)
        ->group(cSimulatorGroup);
}

std::string CheckDeviceName(const std::string& aName)
{
    if (IsNetworkDevice(aName))
    {
        return CheckNetworkDevice(aName);
    }
    return aName == "sim" ? std::string()
                          : '"' + aName + "\" is no device; use sim (the simulated camera) or gev://ADDRESS";
}

std::unique_ptr<Device> OpenDevice(const DeviceSelection& aSelection, const KyPlatform::Console& aConsole,
                                   DeviceAccess aAccess)
{
    if (IsNetworkDevice(aSelection.mName))
    {
        return OpenNetworkDevice(aSelection.mName, aConsole, aAccess);
    }
    return std::make_unique<SimulatedDevice>(aSelection.mSimulator);
}

void CheckConnection(Device& aDevice, uint64_t aGeneration)
{
    if (!aDevice.GetAdapter().IsConnected() || aDevice.GetGeneration() != aGeneration)
    {
        throw OperationError("the connection to the device was lost");
    }
}

} // namespace KySerialTool
