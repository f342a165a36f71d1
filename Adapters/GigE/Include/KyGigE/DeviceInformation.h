#pragma once

#include <KyGigE/Export.h>

#include <cstdint>
#include <string>

namespace KyGigE
{

/// What a device says about itself.
struct DeviceInformation
{
    uint64_t mMac = 0;     ///< Its lower 48 bits.
    uint32_t mAddress = 0; ///< IPv4, the one that it uses now; the first number in the upper byte.
    uint32_t mMask = 0;
    uint32_t mGateway = 0;
    std::string mVendor;
    std::string mModel;
    std::string mVersion;
    std::string mInformation; ///< The maker's own words.
    std::string mSerialNumber;
    std::string mUserName;
};

/// "00:11:22:33:44:55", the lower 48 bits.
KYGIGE_API std::string MacText(uint64_t aMac);

} // namespace KyGigE
