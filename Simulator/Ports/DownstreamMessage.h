#pragma once

#include "Simulator/Peers/I2CBusPeer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace KySimulator
{

/// A message from a downstream feature to a port in UART, USRT or I2C mode.
struct SerialMessage
{
    I2CFlags mFlags;
    std::vector<uint8_t> mData;
};

/// A message from a downstream feature to a port in SPI mode.
struct SpiMessage
{
    std::vector<uint8_t> mData;
    size_t mReadSize = 0;       ///< Bytes to read after the data; 0 when simultaneous.
    bool mSimultaneous = false; ///< The bytes that come in with the data are the answer.
    bool mFinal = false;        ///< Chip select is released afterwards.
};

/// Takes a message apart: two words, the first with the flags in its upper four bits, the second with the
/// length of the data that follows; the whole padded to a multiple of 4.
/// \param aData       May be null when aSize is 0.
/// \param aBigEndian  Byte order of the two words.
/// \return Nothing when the message does not fit its header.
std::optional<SerialMessage> ParseSerialMessage(const uint8_t* aData, size_t aSize, bool aBigEndian);

/// The same in SPI form: a word of zeros, a word with the length of what follows, four control bytes (write
/// size, read size, simultaneous size, final flag) and the data.
std::optional<SpiMessage> ParseSpiMessage(const uint8_t* aData, size_t aSize, bool aBigEndian);

} // namespace KySimulator
