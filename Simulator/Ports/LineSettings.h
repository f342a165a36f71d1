#pragma once

#include "Simulator/Time/Scheduler.h"

#include <cstdint>

namespace KySimulator
{

/// How characters look on a UART line; the numbers are positions in the entries of the settings' features.
struct FrameSettings
{
    uint32_t mParity = 0;   ///< 0 none, 1 even, 2 odd.
    uint32_t mStopBits = 0; ///< 0 one, 1 two.

    /// Bits on the line for one byte, start and stop included.
    uint32_t BitsPerByte() const { return 10U + (mParity != 0 ? 1U : 0U) + mStopBits; }
};

/// Time of aBits at a rate in bits per second, which is not 0.
constexpr Time TimeOfBits(uint64_t aBits, uint64_t aRate)
{
    return Time(static_cast<Time::rep>(aBits * 1000000000U / aRate));
}

/// Rate of a UART in bits per second.
/// \param aIndex    Speed index, 0 to 7.
/// \param aDivisor  Rate register; its low byte times 480 ns is a bit of the custom rate, 0 counting as 1.
uint32_t UartRate(uint32_t aIndex, uint32_t aDivisor);

} // namespace KySimulator
