#pragma once

#include "kyserial/Doctor/Diagnosis.h"

#include <KyGigE/DeviceAddress.h>
#include <KyGigE/Discovery.h>
#include <KyGvcp/UdpSocket.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// The way from this computer to a device, as far as it is known.
struct DeviceWay
{
    std::vector<KyGvcp::Interface> mInterfaces; ///< Of this computer.
    KyGigE::DeviceAddress mWanted;              ///< The device, as it was named.
    uint32_t mDevice = 0;                       ///< Its address.
    std::optional<KyGvcp::Interface> mOwn;      ///< Where packets leave.
    bool mNeighbour = false;                    ///< No router lies between.
    std::optional<KyGigE::FoundDevice> mFound;  ///< It answers.
};

/// Whether this computer has an interface that leads somewhere, and only one to each network.
CheckFinding CheckInterface(const DeviceWay& aWay);

/// Whether and where packets to the device leave. Fills in mDevice, mOwn and mNeighbour. Blocks for the name server
/// when the device is named by its host.
CheckFinding CheckRoute(DeviceWay& aWay);

/// Whether the interface takes the protocol's largest packets.
CheckFinding CheckMtu(const DeviceWay& aWay);

/// Whether the device answers. Fills in mFound. Blocks for a second when it does not.
CheckFinding CheckDiscovery(DeviceWay& aWay);

/// Whether a broadcast, and the answers to it, get through: a firewall stops these first. Blocks for a second.
CheckFinding CheckFirewall(const DeviceWay& aWay);

/// "192.168.1.5/24 (eth0)"
std::string InterfaceText(const KyGvcp::Interface& aInterface);

} // namespace KySerialTool
