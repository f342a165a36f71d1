#pragma once

#include "IRegisterSerialPort.h"
#include "RefCounted.h"

namespace KySerialLib
{

/// SPI transfers on a bulk port: hands them to a feature-driven engine built for SPI, and reads what they
/// brought from its receive buffer.
///
/// No engine -- Open() --> engine, open or not as its own Open() said -- Close() --> engine, closed.
/// Threads: one caller at a time.
class DeviceSPIBus : public RefCounted
{
public:
    DeviceSPIBus();
    /// Closes an open engine.
    ~DeviceSPIBus();

    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);
    KyResult Close();
    bool IsOpened();
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    KyResult BurstRead(uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead, uint32_t aTimeout);
    KyResult BurstWriteAndRead(const uint8_t* aBuffer, uint32_t aWriteSize, uint32_t aReadSize,
                               bool aSimultaneous, bool aFinal);

private:
    [[nodiscard]] KyResult CheckEngine(const char* aFunction, int aLine) const;

    std::unique_ptr<IRegisterSerialPort> mBulk;
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;
};

} // namespace KySerialLib
