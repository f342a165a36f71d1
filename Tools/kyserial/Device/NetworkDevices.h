#pragma once

#include "kyserial/Device/DeviceSelector.h"

#include <memory>
#include <string>
#include <vector>

namespace KySerialTool
{

// Devices that are reached over a network. Network/ and NoNetwork/ have it, the latter for systems and builds
// without.

/// Whether a device's text is meant for here.
bool IsNetworkDevice(const std::string& aName);

/// \return Why aName is no device of a network; empty when it is one.
std::string CheckNetworkDevice(const std::string& aName);

/// Connects it. Throws OperationError when that fails.
std::unique_ptr<Device> OpenNetworkDevice(const std::string& aName, const KyPlatform::Console& aConsole,
                                          DeviceAccess aAccess);

/// Where devices are looked for.
struct NetworkSearch
{
    std::string mAddress;   ///< One device; empty: all that answer a broadcast.
    std::string mInterface; ///< Own address or name of a network interface; empty: all.
    uint32_t mPort = 3956;
    uint32_t mTime = 1000; ///< Milliseconds.
};

/// A device that answered.
struct NetworkFinding
{
    std::string mDevice; ///< What --device takes.
    std::string mAddress;
    uint32_t mPort = 0;
    std::string mMac;
    std::string mVendor;
    std::string mModel;
    std::string mVersion;
    std::string mSerialNumber;
    std::string mUserName;
    std::string mInterface;
};

/// Looks for devices. Throws OperationError when it cannot.
std::vector<NetworkFinding> FindNetworkDevices(const NetworkSearch& aSearch);

} // namespace KySerialTool
