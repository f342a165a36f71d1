#pragma once

#include "kyserial/SimulatedCamera.h"

#include <CLI/CLI.hpp>
#include <KySerial/IKyDeviceAdapter.h>

#include <memory>
#include <string>

namespace KySerialTool
{

/// Which device a command talks to.
struct DeviceSelection
{
    std::string mName = "sim"; ///< Accepted by CheckDeviceName().
    SimulatorOptions mSimulator;
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
