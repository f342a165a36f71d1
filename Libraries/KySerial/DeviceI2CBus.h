#pragma once

#include "BulkWithI2C.h"
#include "RefCounted.h"

namespace KySerialLib
{

/// I2C master on a bulk port: builds the bytes of a transaction, sets the engine's I2C flags, sends, and
/// reads the answer back from the engine's receive buffer.
///
/// No engine -- Open() --> engine, open or not as its own Open() said -- Close() --> engine, closed.
/// Threads: one caller at a time; the flags live in the engine.
class DeviceI2CBus : public RefCounted
{
public:
    DeviceI2CBus();
    /// Closes an open engine.
    ~DeviceI2CBus();

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
    [[nodiscard]] KyResult CheckEngine(const char* aFunction, int aLine) const;
    void SetFlags(bool aFastMode, bool aStop);

    std::unique_ptr<BulkWithI2C> mBulk;
    const std::unique_ptr<JxUtilsLib::Logger> mLogger;
};

} // namespace KySerialLib
