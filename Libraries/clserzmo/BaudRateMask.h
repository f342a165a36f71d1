#pragma once

#include <cstdint>

/// \file
/// Baud rates as bits, the way servers and clients exchange them through the registry.

namespace KySerialLib
{

struct BaudRateBit
{
    uint32_t mBaudRate;
    uint32_t mMask;
};

/// The rates that a device port can be asked for. The standard's faster ones are not among them.
inline constexpr BaudRateBit cBaudRateBits[] = {
    {9600, 0x01}, {19200, 0x02}, {38400, 0x04}, {57600, 0x08}, {115200, 0x10}};

/// \param aMask  Receives the rate's bit; unchanged on failure.
/// \return False: the rate has none.
inline bool BaudRateToMask(uint32_t aBaudRate, uint32_t& aMask)
{
    for (const BaudRateBit& lBit : cBaudRateBits)
    {
        if (lBit.mBaudRate == aBaudRate)
        {
            aMask = lBit.mMask;
            return true;
        }
    }
    return false;
}

/// \param aBaudRate  Receives the rate of a mask of one bit; unchanged on failure.
/// \return False: no bit, several, or one without a rate.
inline bool MaskToBaudRate(uint32_t aMask, uint32_t& aBaudRate)
{
    for (const BaudRateBit& lBit : cBaudRateBits)
    {
        if (lBit.mMask == aMask)
        {
            aBaudRate = lBit.mBaudRate;
            return true;
        }
    }
    return false;
}

} // namespace KySerialLib
