#include "OmUtilsLib/Network/EthernetAddress.h"

#include <cstdio>

namespace OmUtilsLib::Network
{

EthernetAddress::EthernetAddress(uint64_t aValue) noexcept : mValue(aValue & 0xFFFFFFFFFFFFULL) {}

KyString EthernetAddress::GetString() const noexcept
{
    const auto lByte = [this](int aShift) { return static_cast<unsigned>((mValue >> aShift) & 0xFFU); };
    char lText[18];
    std::snprintf(lText, sizeof(lText), "%02x:%02x:%02x:%02x:%02x:%02x", lByte(40), lByte(32), lByte(24),
                  lByte(16), lByte(8), lByte(0));
    return KyString(lText);
}

} // namespace OmUtilsLib::Network
