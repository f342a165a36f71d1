#include "Simulator/Ports/DownstreamMessage.h"

#include <KySerial/DeviceProtocol.h>

namespace KySimulator
{

using namespace KyDeviceProtocol;

namespace
{

uint32_t Word(const uint8_t* aData, bool aBigEndian)
{
    uint32_t lWord = 0;
    for (uint32_t lIndex = 0; lIndex < 4; ++lIndex)
    {
        const uint32_t lShift = 8 * (aBigEndian ? 3 - lIndex : lIndex);
        lWord |= static_cast<uint32_t>(aData[lIndex]) << lShift;
    }
    return lWord;
}

/// Whether a header's length fits what was written.
bool Fits(const uint8_t* aData, size_t aSize, bool aBigEndian)
{
    // Features are written in whole words, so a message may be longer than its length says, and never shorter.
    return aData != nullptr && aSize >= cMessageHeader && aSize % 4 == 0 &&
           Word(aData + 4, aBigEndian) <= aSize - cMessageHeader;
}

} // namespace

std::optional<SerialMessage> ParseSerialMessage(const uint8_t* aData, size_t aSize, bool aBigEndian)
{
    if (!Fits(aData, aSize, aBigEndian))
    {
        return std::nullopt;
    }
    const uint32_t lFlags = Word(aData, aBigEndian);
    if ((lFlags & ~(cMessageFast | cMessageStop | cMessageThird | cMessageTransfer)) != 0)
    {
        return std::nullopt; // a header in the wrong byte order has other bits set, and ends here
    }
    SerialMessage lMessage;
    lMessage.mFlags.mFast = (lFlags & cMessageFast) != 0;
    lMessage.mFlags.mStop = (lFlags & cMessageStop) != 0;
    lMessage.mFlags.mThird = (lFlags & cMessageThird) != 0;
    lMessage.mFlags.mTransfer = (lFlags & cMessageTransfer) != 0;
    lMessage.mData.assign(aData + cMessageHeader, aData + cMessageHeader + Word(aData + 4, aBigEndian));
    return lMessage;
}

std::optional<SpiMessage> ParseSpiMessage(const uint8_t* aData, size_t aSize, bool aBigEndian)
{
    // SPI messages have no flags. A first word that is not zero belongs to a message of another mode.
    if (!Fits(aData, aSize, aBigEndian) || Word(aData, aBigEndian) != 0)
    {
        return std::nullopt;
    }
    const size_t lLength = Word(aData + 4, aBigEndian);
    // The control bytes count as data in the header's length.
    if (lLength < cSpiControl)
    {
        return std::nullopt;
    }
    const size_t lData = lLength - cSpiControl;
    const size_t lWrite = aData[8];
    const size_t lRead = aData[9];
    const size_t lSimultaneous = aData[10];
    const bool lIsSimultaneous = lSimultaneous != 0;
    // The sizes say what goes over the bus; data that they do not cover has no meaning.
    if ((lIsSimultaneous && (lWrite != 0 || lRead != 0)) || lWrite + lSimultaneous != lData || aData[11] > 1)
    {
        return std::nullopt;
    }
    SpiMessage lMessage;
    lMessage.mReadSize = lRead;
    lMessage.mSimultaneous = lIsSimultaneous;
    lMessage.mFinal = aData[11] == 1;
    lMessage.mData.assign(aData + cSpiMessageHeader, aData + cSpiMessageHeader + lData);
    return lMessage;
}

} // namespace KySimulator
