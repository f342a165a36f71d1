#pragma once

#include "kyserial/Bus/FlashMemory.h"

namespace KySerialTool
{

/// A serial flash memory that its identification names.
struct FlashChip
{
    FlashMemory::Identity mIdentity{};
    const char* mName = "";
    size_t mSize = 0; ///< Bytes. Some makers' third byte of the identity is no power of two.
};

/// The chip with this identity; null for one that is not in the table.
const FlashChip* FindFlashChip(const FlashMemory::Identity& aIdentity);

} // namespace KySerialTool
