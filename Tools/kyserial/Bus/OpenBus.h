#pragma once

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"

#include <string>

namespace KySerialTool
{

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
