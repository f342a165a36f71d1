#pragma once

#include "KyBase/KyString.h"

#include <cstdint>

namespace OmUtilsLib::Network
{

/// A 48-bit Ethernet (MAC) address.
class EthernetAddress
{
public:
    /// \param aValue  The address in bits 0 to 47, first byte on the wire in bits 40 to 47. Bits 48 to 63 are
    ///                not part of an address and are ignored.
    explicit EthernetAddress(uint64_t aValue) noexcept;

    /// The address as text: six pairs of lower-case hexadecimal digits with colons, "00:11:1c:01:02:03".
    KyString GetString() const noexcept;

    /// The value, bits 48 to 63 zero.
    uint64_t GetValue() const noexcept { return mValue; }

private:
    uint64_t mValue;
};

} // namespace OmUtilsLib::Network
