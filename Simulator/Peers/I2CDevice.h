#pragma once

#include "Simulator/Time/Scheduler.h"

#include <cstdint>

namespace KySimulator
{

/// A slave on an I2C bus. The bus calls one function at a time; a device keeps whatever else uses it apart.
/// It must not call the camera.
class I2CDevice
{
public:
    virtual ~I2CDevice() = default;

    /// A start or repeated start with the device's address. \return Whether the device acknowledges.
    virtual bool OnAddressed(bool aRead, Time aNow) = 0;
    /// A byte written to the device. \return Whether the device acknowledges.
    virtual bool OnWrite(uint8_t aByte, Time aNow) = 0;
    /// A byte read from the device.
    virtual uint8_t OnRead(Time aNow) = 0;
    /// A stop, after the device was addressed.
    virtual void OnStop(Time aNow) = 0;

protected:
    I2CDevice() = default;
    I2CDevice(const I2CDevice&) = default;
    I2CDevice& operator=(const I2CDevice&) = default;
};

} // namespace KySimulator
