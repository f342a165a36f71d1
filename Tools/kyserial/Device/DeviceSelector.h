#pragma once

#include "kyserial/Device/Device.h"
#include "kyserial/Device/SimulatedCamera.h"

#include <CommandLine/ParserNames.h>
#include <Platform/Console.h>

#include <memory>
#include <string>

namespace KySerialTool
{

/// Which device a command talks to.
struct DeviceSelection
{
    std::string
        mName{}; ///< As the command line gives it; empty: not given. OpenDevice() makes it a device's text.
    SimulatorOptions mSimulator;
};

/// Adds --device and the options of the simulated camera to a command. \return --device.
CLI::Option* AddDeviceOptions(CLI::App& aCommand, DeviceSelection& aSelection);

/// Lets the help of a command list the options of the simulated camera, if its command line asks for them with
/// --device sim or --help-sim. A user with a camera has no use for them.
void ShowSimulatorOptions(CLI::App& aCommand);

/// What a command does with a device.
enum class DeviceAccess
{
    Control,       ///< Writes to it, which one application at a time may.
    ControlIfFree, ///< The same, and only reads while another application controls it.
    Read           ///< Only reads, also beside an application that controls the device.
};

/// Finds and connects the device. Throws UsageError when none is given, and OperationError when no device has the
/// name or the connection fails. A device of the network that keeps its clients
/// waiting is given up when aConsole is interrupted: at once while it is being connected, and 0.8 s later
/// when it is in use, so that there is time to set it back.
std::unique_ptr<Device> OpenDevice(DeviceSelection& aSelection, const KyToolPlatform::Console& aConsole,
                                   DeviceAccess aAccess);

/// Throws OperationError unless the device is there and has been since its connection had that number: what
/// it was asked meanwhile may have had no answer.
void CheckConnection(Device& aDevice, uint64_t aGeneration);

} // namespace KySerialTool
