#pragma once

#include "KySerial/IKyDeviceAdapter.h"
#include "KySerial/KySerialTypes.h"
#include "SerialPort.h"

namespace KySerialLib
{

/// A port engine: a receive side that can be opened on a port of a device.
class DeviceSerialPort : public SerialPort
{
public:
    DeviceSerialPort();
    ~DeviceSerialPort() override;

    /// Claims the port and starts receiving; see the engines.
    virtual KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort) = 0;
};

} // namespace KySerialLib
