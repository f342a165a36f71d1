#pragma once

#include "kyserial/Device/NetworkDevices.h"

#include <map>
#include <string>
#include <vector>

namespace KySerialTool
{

/// What the user's configuration file says about devices.
///
///     device = "bench"                # used by commands without --device
///     [devices]
///     bench = "gev://192.168.1.20"    # --device bench
struct DeviceConfiguration
{
    std::string mDevice{}; ///< Empty without one.
    std::map<std::string, std::string> mAliases{};
};

/// "$XDG_CONFIG_HOME/kyserial/config.toml"; without that variable the file is looked for in %APPDATA%, then in
/// "$HOME/.config". Empty when none of them is set.
std::string ConfigurationFile();

/// Reads a configuration file; one that does not exist is empty. Throws UsageError with file, line and what
/// would be right.
DeviceConfiguration ReadConfiguration(const std::string& aFile);

/// As ChooseDevice(), but empty when none is given.
std::string ConfiguredDevice(const std::string& aGiven);

/// The device that a command uses: aGiven, or else the environment variable KYSERIAL_DEVICE, or else the
/// configuration's. Aliases are replaced. Throws UsageError without any: a command that erases a memory must not
/// fall back to some device.
std::string ChooseDevice(const std::string& aGiven);

/// Whether aName is the text of a device ("sim", "gev://ADDRESS"), so that no search is needed.
bool IsDeviceText(const std::string& aName);

/// What can be said against a device's name without a search. \return Empty when it may be one.
std::string CheckDeviceName(const std::string& aName);

/// The device that aName describes: its MAC address, serial number, user name or model, letter case ignored.
/// \param aFindings  The devices that answered.
/// \return What --device takes. Throws OperationError when no device or several fit; the text lists the latter.
std::string MatchDevice(const std::string& aName, const std::vector<NetworkFinding>& aFindings);

} // namespace KySerialTool
