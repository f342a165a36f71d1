#pragma once

#include "kyserial/Device/DeviceSelector.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KySerialTool
{

// Devices that are reached over a network.

/// Whether a device's text is meant for here.
bool IsNetworkDevice(const std::string& aName);

/// \return Why aName is no device of a network; empty when it is one.
std::string CheckNetworkDevice(const std::string& aName);

/// The code of the error for a device that another application controls.
constexpr uint32_t cControlledByAnother = 0x8006;

/// Connects it. Throws OperationError when that fails.
std::unique_ptr<Device> OpenNetworkDevice(const std::string& aName, const KyToolPlatform::Console& aConsole,
                                          DeviceAccess aAccess);

/// Asks a device who controls it. Blocks for its answer, a second at most.
/// \return "192.168.1.10:50123"; empty: it does not say it, or nobody does.
std::string FindNetworkController(const std::string& aName);

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

/// Whether the name is one of the device: MAC address, serial number, user name, model or IPv4 address.
bool IsNameOf(const std::string& aName, const NetworkFinding& aFinding);

/// Looks for devices. Throws OperationError when it cannot.
std::vector<NetworkFinding> FindNetworkDevices(const NetworkSearch& aSearch);

/// A device, and the place in a network that it is to have.
struct IpChange
{
    uint64_t mMac = 0;
    std::string mAddress;
    std::string mMask;
    std::string mGateway; ///< Empty: none.
};

/// Takes "MAC=ADDRESS/MASK[/GATEWAY]" apart; the mask is dotted or the number of its ones.
/// \param aChange  Untouched on a failure. \return Empty; or what is wrong with the text, in words for a user.
std::string ParseIpChange(const std::string& aText, IpChange& aChange);

/// Gives a device an address until it is switched off. \return The device there. Throws OperationError when that
/// fails.
NetworkFinding ForceIp(const NetworkSearch& aSearch, const IpChange& aChange);

/// Stores an address in a device for the next time that it is switched on. Throws OperationError when that fails.
void StoreIp(const NetworkSearch& aSearch, const IpChange& aChange);

} // namespace KySerialTool
