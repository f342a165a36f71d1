#include "Simulator/Peers/TemperatureSensor.h"

#include <algorithm>

namespace KySimulator
{

namespace
{

constexpr uint8_t cTemperature = 0;
constexpr uint8_t cConfiguration = 1;
constexpr uint8_t cPointerBits = 0x3;
constexpr uint16_t cUsedBits = 0xFF80;

/// Half degrees in the upper nine bits.
uint16_t Encode(int32_t aHalfDegrees)
{
    return static_cast<uint16_t>(static_cast<uint32_t>(aHalfDegrees) << 7U);
}

} // namespace

TemperatureSensor::TemperatureSensor() : mRegisters{Encode(50), 0, Encode(150), Encode(160)} {}

bool TemperatureSensor::OnAddressed(bool aRead, Time /*aNow*/)
{
    LockScope lScope(mLock);
    mExpectPointer = !aRead;
    // Each transfer starts with the high byte; the pointer stays from the transfer before.
    mPosition = 0;
    return true;
}

bool TemperatureSensor::OnWrite(uint8_t aByte, Time /*aNow*/)
{
    LockScope lScope(mLock);
    if (mExpectPointer)
    {
        mExpectPointer = false;
        // The chip has four registers and looks at two bits of the pointer.
        mPointer = aByte & cPointerBits;
        return true;
    }
    // The configuration is one byte, the limits are two, the high one first; the temperature cannot be written.
    uint16_t& lRegister = mRegisters[mPointer];
    const uint32_t lPosition = mPosition++;
    if (mPointer == cConfiguration && lPosition == 0)
    {
        lRegister = aByte;
    }
    else if (mPointer > cConfiguration && lPosition == 0)
    {
        lRegister = static_cast<uint16_t>((lRegister & 0xFFU) | static_cast<uint32_t>(aByte) << 8U);
    }
    else if (mPointer > cConfiguration && lPosition == 1)
    {
        // The sensor has nine bits; the ones below read as zero, whatever was written.
        lRegister = static_cast<uint16_t>(((lRegister & 0xFF00U) | aByte) & cUsedBits);
    }
    // Acknowledged in any case: a chip takes bytes off the bus even where it has no place for them.
    return true;
}

uint8_t TemperatureSensor::OnRead(Time /*aNow*/)
{
    LockScope lScope(mLock);
    const uint16_t lRegister = mRegisters[mPointer];
    // A longer read repeats the two bytes, as the chip does.
    const bool lHigh = mPointer != cConfiguration && mPosition++ % 2 == 0;
    return static_cast<uint8_t>(lHigh ? lRegister >> 8U : lRegister & 0xFFU);
}

void TemperatureSensor::OnStop(Time /*aNow*/) {}

void TemperatureSensor::SetHalfDegrees(int32_t aHalfDegrees)
{
    LockScope lScope(mLock);
    // The range of the chip: -55 to 125 degrees.
    mRegisters[cTemperature] = Encode(std::clamp(aHalfDegrees, -110, 250));
}

uint16_t TemperatureSensor::GetRegister(uint8_t aPointer) const
{
    LockScope lScope(mLock);
    return mRegisters[aPointer & cPointerBits];
}

} // namespace KySimulator
