#pragma once

#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <KyBase/KyString.h>
#include <KySerial/IKyDeviceAdapter.h>
#include <KySerial/KySerialTypes.h>

#include <string>
#include <vector>

namespace KySerialTool
{

/// Makes the device's features speak of one bulk port, and the port run a protocol, for the life of the
/// object.
///
/// "BulkMode" is that of the port that "BulkSelector" names. The library asks for the former and never
/// touches the latter, so a program that goes from port to port selects first. A device without these
/// features is left alone.
class BulkPortScope
{
public:
    /// Selects the port. A UART is no bulk port: nothing happens then and later.
    BulkPortScope(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort);
    /// Puts mode and selector back. What goes wrong here is not reported: the device is as it was, or gone.
    ~BulkPortScope();
    BulkPortScope(const BulkPortScope&) = delete;
    BulkPortScope& operator=(const BulkPortScope&) = delete;

    /// The protocol that the port runs: "UART", "USRT", "I2C", "SPI"; empty when the device does not report it.
    std::string GetMode();

    /// The protocols that the device offers on the port, in the device's order.
    std::vector<std::string> GetOfferedModes();

    /// Has the port run the first of these protocols, unless it runs one of them already. Does nothing when
    /// the device does not report what the port runs. Throws OperationError when the device refuses.
    void UseOneOf(const std::vector<std::string>& aModes);

private:
    IKyDeviceAdapter& mAdapter;
    const KyDeviceSerial mPort;
    KyString mFormerSelector;
    KyString mFormerMode;
    bool mSelected = false;
    bool mRestores = false; // the selector
};

/// Opens a bus after it has made its bulk port run the protocol. Throws OperationError when either fails.
/// \param aProtocol  "I2C" or "SPI".
template<typename Bus>
void OpenBus(Bus& aBus, BulkPortScope& aScope, IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort,
             const std::string& aProtocol)
{
    aScope.UseOneOf({aProtocol});
    const KyResult lOpened = aBus.Open(&aAdapter, aPort);
    if (!lOpened.IsOK() && aBus.IsOpened())
    {
        static_cast<void>(aBus.Close()); // a refused step may have left the port claimed
    }
    Check(lOpened, "cannot open " + PortName(aPort) + " as " + aProtocol + " bus");
}

} // namespace KySerialTool
