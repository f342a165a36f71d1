#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/I2CDevice.h"

#include <array>
#include <cstdint>

namespace KySimulator
{

/// An I2C temperature sensor of the usual kind, at address 0x48.
///
/// The first byte of a write is the pointer (bits 0 and 1): 0 temperature, 1 configuration, 2 hysteresis (75
/// degrees at the start), 3 over-temperature limit (80 degrees). Temperatures are 9-bit two's complement half
/// degrees in the upper bits of two bytes, high byte first; the configuration is one byte. Reads repeat the
/// register for as long as the master goes on; writes beyond the register are acknowledged and dropped, like
/// writes to the temperature.
class TemperatureSensor : public I2CDevice
{
public:
    static constexpr uint8_t cAddress = 0x48;

    /// 25 degrees.
    TemperatureSensor();

    bool OnAddressed(bool aRead, Time aNow) override;
    bool OnWrite(uint8_t aByte, Time aNow) override;
    uint8_t OnRead(Time aNow) override;
    void OnStop(Time aNow) override;

    /// Sets what is measured, in half degrees Celsius; kept within -110 (-55 degrees) and 250 (125 degrees).
    void SetHalfDegrees(int32_t aHalfDegrees);

    /// Register content for tests; two bytes, the configuration in the lower one.
    uint16_t GetRegister(uint8_t aPointer) const;

private:
    mutable Lock mLock;
    std::array<uint16_t, 4> mRegisters JX_GUARDED_BY(mLock);
    uint8_t mPointer JX_GUARDED_BY(mLock) = 0;
    bool mExpectPointer JX_GUARDED_BY(mLock) = false;
    uint32_t mPosition JX_GUARDED_BY(mLock) = 0;
};

} // namespace KySimulator
