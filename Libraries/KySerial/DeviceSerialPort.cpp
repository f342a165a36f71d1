#include "DeviceSerialPort.h"

namespace KySerialLib
{

DeviceSerialPort::DeviceSerialPort() = default;
DeviceSerialPort::~DeviceSerialPort() = default;

} // namespace KySerialLib
