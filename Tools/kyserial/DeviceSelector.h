#pragma once

#include "kyserial/SimulatedCamera.h"

#include <CLI/CLI.hpp>
#include <KySerial/IKyDeviceAdapter.h>

#include <memory>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Which device a command talks to.
struct DeviceSelection
{
    std::string mName = "sim"; ///< Accepted by CheckDeviceName().
    SimulatorOptions mSimulator;
};

/// A feature of a device, as its description lists it.
struct DeviceFeature
{
    std::string mName;
    std::string mCategory;
    std::string mKind; ///< "Integer", "Float", "Boolean", "Enumeration", "String", "Register", "Command".
    std::string mVisibility;
    std::string mToolTip;
};

/// A connected device; ends with the object.
class Device
{
public:
    virtual ~Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    /// The way to the device; lives as long as this object.
    virtual IKyDeviceAdapter& GetAdapter() = 0;
    /// Its features, those that cannot be used now included.
    virtual std::vector<DeviceFeature> ListFeatures() = 0;

protected:
    Device() = default;
};

/// Adds --device and the options of the simulated camera to a command.
void AddDeviceOptions(CLI::App& aCommand, DeviceSelection& aSelection);

/// The one place that knows what device texts there are. \return Why aName is none of them; empty when it is
/// one.
std::string CheckDeviceName(const std::string& aName);

/// Connects the device. Throws OperationError when that fails.
std::unique_ptr<Device> OpenDevice(const DeviceSelection& aSelection);

} // namespace KySerialTool
