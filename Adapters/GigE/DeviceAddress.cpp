#include <KyGigE/DeviceAddress.h>

#include "Adapters/GigE/TextWithMemory.h"

#include "KyGvcp/HostName.h"
#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"

#include <cstdlib>

namespace KyGigE
{

namespace
{

const char* const cScheme = "gev://";
const char* const cInterface = "interface=";

/// Digits only, not more than aLimit.
bool ParseNumber(const std::string& aText, uint32_t aLimit, uint32_t& aNumber)
{
    // Five digits fit any port. The conversion below would also take blanks, signs and numbers without end.
    if (aText.empty() || aText.size() > 5 || aText.find_first_not_of("0123456789") != std::string::npos)
    {
        return false;
    }
    aNumber = static_cast<uint32_t>(std::strtoul(aText.c_str(), nullptr, 10));
    return aNumber <= aLimit;
}

} // namespace

std::string ParseDeviceAddress(const std::string& aText, DeviceAddress& aAddress)
{
    return TextWithMemory(
        cOutOfMemory,
        [&]() -> std::string
        {
            const std::string lForm = "; use gev://ADDRESS-OR-HOST[:PORT][?interface=ADDRESS]";
            if (aText.rfind(cScheme, 0) != 0)
            {
                return '"' + aText + "\" is no address of a GigE Vision device" + lForm;
            }
            DeviceAddress lAddress;
            std::string lHost = aText.substr(std::string(cScheme).size());
            // Taken apart from the end, since an interface's name may have a colon: "eth0:1".
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
            if (!KyGvcp::ParseAddress(lHost) && !KyGvcp::IsHostName(lHost))
            {
                return '"' + lHost + "\" is no IPv4 address and no name of a host" + lForm;
            }
            lAddress.mAddress = lHost;
            aAddress = lAddress;
            return {};
        });
}

std::string DeviceAddressText(const DeviceAddress& aAddress)
{
    return TextWithMemory("",
                          [&]() -> std::string
                          {
                              std::string lText = cScheme + aAddress.mAddress;
                              // The usual port and the usual interface are left out, so that texts of one device
                              // are equal.
                              if (aAddress.mPort != KyGvcp::cControlPort)
                              {
                                  lText += ':' + std::to_string(aAddress.mPort);
                              }
                              return aAddress.mInterface.empty()
                                         ? lText
                                         : lText + '?' + cInterface + aAddress.mInterface;
                          });
}

} // namespace KyGigE
