#pragma once

#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// What serves a port.
enum class PortEngine
{
    None, ///< The device does not offer the port.
    RegisterUart,
    RegisterBulk,
    Features
};

/// What a device offers at one port.
struct PortFinding
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    bool mSupported = false;
    PortEngine mEngine = PortEngine::None;
    std::vector<std::string> mProtocols{}; ///< Of "UART", "USRT", "I2C", "SPI".
    std::string mMode{};                   ///< The protocol that a bulk port runs now; empty when unknown.
};

/// Asks the device about all its ports. A device that does not answer offers none.
std::vector<PortFinding> SurveyPorts(IKyDeviceAdapter& aAdapter);

/// "register UART", "register bulk", "features", "none".
const char* EngineText(PortEngine aEngine);

} // namespace KySerialTool
