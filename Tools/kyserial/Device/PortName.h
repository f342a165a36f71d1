#pragma once

#include <KySerial/KySerialTypes.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string>

namespace KySerialTool
{

/// All ports of a device in the order of their values.
inline constexpr std::array cPorts = {
    KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0, KyDeviceSerialBulk1, KyDeviceSerialBulk2,
    KyDeviceSerialBulk3, KyDeviceSerialBulk4, KyDeviceSerialBulk5, KyDeviceSerialBulk6, KyDeviceSerialBulk7};

/// The port that a user names "uart0", "bulk7" and so on, exactly so; nothing for any other text.
std::optional<KyDeviceSerial> ParsePortName(const std::string& aText);

/// The name of a port, "none" for a value without a port.
std::string PortName(KyDeviceSerial aPort);

/// Whether the port is one of the bulk ports.
bool IsBulk(KyDeviceSerial aPort);

/// Number of a bulk port as feature names have it, 0 to 7. \param aPort  IsBulk().
size_t BulkIndex(KyDeviceSerial aPort);

} // namespace KySerialTool
