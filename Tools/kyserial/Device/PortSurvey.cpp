#include "kyserial/Device/PortSurvey.h"

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"

#include <KySerial/DeviceProtocol.h>
#include <KySerial/KyDeviceI2CBus.h>
#include <KySerial/KyDeviceSPIBus.h>
#include <KySerial/KyDeviceSerialPort.h>

#include <algorithm>

namespace KySerialTool
{

namespace
{

/// Whether the library drives bulk port 0 through registers. It prefers them, and its answer to IsSupported()
/// does not distinguish the UARTs from the features, so the device's capability register has to.
bool HasBulkRegisters(IKyDeviceAdapter& aAdapter)
{
    uint32_t lCapabilities = 0;
    return aAdapter.IsKorvoVideoInterface() && aAdapter.IsGigEVision() &&
           aAdapter.ReadRegister(KyDeviceProtocol::cFunctionCapabilities, lCapabilities).IsOK() &&
           (lCapabilities & KyDeviceProtocol::cImplemented) != 0 &&
           (lCapabilities & KyDeviceProtocol::cUartCountMask) != 0;
}

bool Contains(const std::vector<std::string>& aTexts, const char* aText)
{
    return std::find(aTexts.begin(), aTexts.end(), aText) != aTexts.end();
}

/// UART and USRT by the device's features, I2C and SPI by the library's buses.
std::vector<std::string> BulkProtocols(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort, PortEngine aEngine,
                                       const std::vector<std::string>& aOffered)
{
    std::vector<std::string> lProtocols;
    for (const char* const lProtocol : {"UART", "USRT"})
    {
        // A bulk port with registers runs both, whether or not there are features to say so.
        if (aEngine == PortEngine::RegisterBulk || Contains(aOffered, lProtocol))
        {
            lProtocols.emplace_back(lProtocol);
        }
    }
    if (KyDeviceI2CBus::IsSupported(&aAdapter, aPort))
    {
        lProtocols.emplace_back("I2C");
    }
    if (KyDeviceSPIBus::IsSupported(&aAdapter, aPort))
    {
        lProtocols.emplace_back("SPI");
    }
    return lProtocols;
}

PortFinding SurveyBulkPort(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
{
    // Selects the port while it is looked at: the mode and its entries are those of the selected port.
    BulkPortScope lScope(aAdapter, aPort);
    PortFinding lFinding{aPort};
    lFinding.mSupported = KyDeviceSerialPort::IsSupported(&aAdapter, aPort);
    if (lFinding.mSupported)
    {
        const bool lRegisters = aPort == KyDeviceSerialBulk0 && HasBulkRegisters(aAdapter);
        lFinding.mEngine = lRegisters ? PortEngine::RegisterBulk : PortEngine::Features;
        lFinding.mProtocols = BulkProtocols(aAdapter, aPort, lFinding.mEngine, lScope.GetOfferedModes());
        lFinding.mMode = lScope.GetMode();
    }
    return lFinding;
}

PortFinding SurveyUart(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort)
{
    PortFinding lFinding{aPort};
    lFinding.mSupported = KyDeviceSerialPort::IsSupported(&aAdapter, aPort);
    if (lFinding.mSupported)
    {
        lFinding.mEngine = PortEngine::RegisterUart;
        // Not asked for: a UART runs this protocol only, and devices have no feature that says so.
        lFinding.mProtocols = {"UART"};
        lFinding.mMode = "UART";
    }
    return lFinding;
}

} // namespace

std::vector<PortFinding> SurveyPorts(IKyDeviceAdapter& aAdapter)
{
    std::vector<PortFinding> lFindings;
    lFindings.reserve(cPorts.size());
    for (const KyDeviceSerial lPort : cPorts)
    {
        lFindings.push_back(IsBulk(lPort) ? SurveyBulkPort(aAdapter, lPort) : SurveyUart(aAdapter, lPort));
    }
    return lFindings;
}

const char* EngineText(PortEngine aEngine)
{
    switch (aEngine)
    {
    case PortEngine::RegisterUart:
        return "register UART";
    case PortEngine::RegisterBulk:
        return "register bulk";
    case PortEngine::Features:
        return "features";
    default:
        return "none";
    }
}

} // namespace KySerialTool
