#pragma once

#include "DeviceBus.h"

namespace KySerialLib
{

/// SPI transfers on a bulk port: hands them to a feature-driven engine built for SPI, and reads what they
/// brought from its receive buffer.
///
/// Threads: one caller at a time.
class DeviceSPIBus : public DeviceBus
{
public:
    DeviceSPIBus();

    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);
    KyResult Close();
    bool IsOpened();
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    KyResult BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead, uint32_t aTimeout);
    KyResult BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                               bool aSimultaneous, bool aFinal);
};

} // namespace KySerialLib
