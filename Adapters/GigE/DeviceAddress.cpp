#include "Adapters/GigE/DeviceAddress.h"

#include <cstdlib>

namespace KyGigE
{

namespace
{

const char* const cScheme = "gev://";
const char* const cInterface = "interface=";
constexpr uint16_t cStandardPort = 3956;

/// Digits only, not more than aLimit.
bool ParseNumber(const std::string& aText, uint32_t aLimit, uint32_t& aNumber)
{
    if (aText.empty() || aText.size() > 5 || aText.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    aNumber = static_cast<uint32_t>(std::strtoul(aText.c_str(), nullptr, 10));
    return aNumber <= aLimit;
}

} // namespace

bool ParseIPv4(const std::string& aText, uint32_t& aAddress)
{
    uint32_t lAddress = 0;
    size_t lBegin = 0;
    for (int lByte = 0; lByte < 4; ++lByte)
    {
        const size_t lEnd = lByte < 3 ? aText.find('.', lBegin) : aText.size();
        uint32_t lNumber = 0;
        if (lEnd == std::string::npos || lEnd - lBegin > 3 ||
            !ParseNumber(aText.substr(lBegin, lEnd - lBegin), 255, lNumber))
        {
            return false;
        }
        lAddress = lAddress << 8U | lNumber;
        lBegin = lEnd + 1;
    }
    aAddress = lAddress;
    return true;
}

std::string IPv4Text(uint32_t aAddress)
{
    std::string lText;
    for (unsigned lByte = 0; lByte < 4; ++lByte)
    {
        lText += (lByte == 0 ? "" : ".") + std::to_string(aAddress >> (24U - 8U * lByte) & 0xFFU);
    }
    return lText;
}

std::string ParseDeviceAddress(const std::string& aText, DeviceAddress& aAddress)
{
    const std::string lForm = "; use gev://ADDRESS[:PORT][?interface=ADDRESS]";
    if (aText.rfind(cScheme, 0) != 0)
    {
        return '"' + aText + "\" is no address of a GigE Vision device" + lForm;
    }
    DeviceAddress lAddress;
    std::string lHost = aText.substr(std::string(cScheme).size());
    const size_t lQuery = lHost.find('?');
    if (lQuery != std::string::npos)
    {
        const std::string lOption = lHost.substr(lQuery + 1);
        lHost.resize(lQuery);
        lAddress.mInterface = lOption.rfind(cInterface, 0) == 0
                                  ? lOption.substr(std::string(cInterface).size())
                                  : std::string();
        if (lAddress.mInterface.empty())
        {
            return '"' + lOption + "\" is no option of a device's address" + lForm;
        }
    }
    const size_t lColon = lHost.find(':');
    if (lColon != std::string::npos)
    {
        uint32_t lPort = 0;
        if (!ParseNumber(lHost.substr(lColon + 1), UINT16_MAX, lPort) || lPort == 0)
        {
            return '"' + lHost.substr(lColon + 1) + "\" is no UDP port; use 1 to 65535";
        }
        lAddress.mPort = static_cast<uint16_t>(lPort);
        lHost.resize(lColon);
    }
    uint32_t lNumber = 0;
    if (!ParseIPv4(lHost, lNumber))
    {
        return '"' + lHost + "\" is no IPv4 address" + lForm;
    }
    lAddress.mAddress = IPv4Text(lNumber);
    aAddress = lAddress;
    return {};
}

std::string DeviceAddressText(const DeviceAddress& aAddress)
{
    std::string lText = cScheme + aAddress.mAddress;
    if (aAddress.mPort != cStandardPort)
    {
        lText += ':' + std::to_string(aAddress.mPort);
    }
    return aAddress.mInterface.empty() ? lText : lText + '?' + cInterface + aAddress.mInterface;
}

} // namespace KyGigE
