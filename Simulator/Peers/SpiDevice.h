#pragma once

#include "Simulator/Time/Scheduler.h"

#include <cstdint>

namespace KySimulator
{

/// A slave on an SPI bus. The bus calls one function at a time; it must not call the camera.
class SpiDevice
{
public:
    virtual ~SpiDevice() = default;

    /// Chip select becomes active.
    virtual void OnSelect(Time aNow) = 0;
    /// Eight clocks: takes a byte and gives one.
    virtual uint8_t OnExchange(uint8_t aByte, Time aNow) = 0;
    /// Chip select is released.
    virtual void OnRelease(Time aNow) = 0;

protected:
    SpiDevice() = default;
    SpiDevice(const SpiDevice&) = default;
    SpiDevice& operator=(const SpiDevice&) = default;
};

} // namespace KySimulator
