#pragma once

#include "DeviceBus.h"

namespace KySerialLib
{

/// I2C master on a bulk port: builds the bytes of a transaction, sets the engine's I2C flags, sends, and
/// reads the answer back from the engine's receive buffer.
///
/// Threads: one caller at a time; the flags live in the engine.
class DeviceI2CBus : public DeviceBus
{
public:
    DeviceI2CBus();

    KyResult Open(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);
    KyResult Close();
    bool IsOpened();
    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort);

    KyResult MasterTransmitter(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize,
                               bool aFastMode, bool aStop);
    KyResult MasterReceiverAfterFirstByte(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize,
                                          uint32_t& aBytesRead, bool aFastMode, bool aStop);
    KyResult BurstWrite(uint8_t aSlaveAddress, const uint8_t* aBuffer, uint32_t aBufferSize, bool aFastMode);
    KyResult BurstRead(uint8_t aSlaveAddress, uint8_t* aBuffer, uint32_t aBufferSize, uint32_t& aBytesRead,
                       bool aFastMode);
    KyResult IndirectBurstWrite(uint8_t aSlaveAddress, uint8_t aOffset, const uint8_t* aBuffer,
                                uint32_t aBufferSize, bool aFastMode);
    KyResult IndirectBurstRead(uint8_t aSlaveAddress, uint8_t aOffset, uint8_t* aBuffer, uint32_t aBufferSize,
                               uint32_t& aBytesRead, bool aFastMode, bool aUseCombinedFormat);

private:
    void SetFlags(bool aFastMode, bool aStop);
};

} // namespace KySerialLib
