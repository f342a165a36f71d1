#include "DeviceSerialPort.h"

namespace KySerialLib
{

DeviceSerialPort::DeviceSerialPort() = default;
DeviceSerialPort::~DeviceSerialPort() = default;

bool DeviceSerialPort::IsOpened()
{
    return mDevice != nullptr;
}

} // namespace KySerialLib
