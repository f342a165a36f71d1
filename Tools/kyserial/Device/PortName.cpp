#include "kyserial/Device/PortName.h"

#include <algorithm>

namespace KySerialTool
{

std::optional<KyDeviceSerial> ParsePortName(const std::string& aText)
{
    const auto lPort = std::find_if(cPorts.begin(), cPorts.end(),
                                    [&](KyDeviceSerial aPort) { return PortName(aPort) == aText; });
    return lPort != cPorts.end() ? std::optional(*lPort) : std::nullopt;
}

std::string PortName(KyDeviceSerial aPort)
{
    if (aPort < KyDeviceSerialUart0 || aPort > KyDeviceSerialBulk7)
    {
        return "none";
    }
    return IsBulk(aPort) ? "bulk" + std::to_string(BulkIndex(aPort)) : "uart" + std::to_string(aPort);
}

bool IsBulk(KyDeviceSerial aPort)
{
    return aPort >= KyDeviceSerialBulk0 && aPort <= KyDeviceSerialBulk7;
}

size_t BulkIndex(KyDeviceSerial aPort)
{
    return static_cast<size_t>(aPort - KyDeviceSerialBulk0);
}

} // namespace KySerialTool
