#include "kyserial/Bridge/PortProtocol.h"

#include "kyserial/Device/PortName.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

std::string BulkFeature(KyDeviceSerial aPort, const std::string& aBefore, const std::string& aBehind)
{
    return IsBulk(aPort) ? aBefore + std::to_string(BulkIndex(aPort)) + aBehind : std::string();
}

} // namespace

std::string DownstreamFeature(KyDeviceSerial aPort)
{
    return BulkFeature(aPort, "Bulk", "DownstreamData");
}

std::string UpstreamFeature(KyDeviceSerial aPort)
{
    return BulkFeature(aPort, "EventBulk", "UpstreamDataBuffer");
}

bool IsDataRegister(KyDeviceSerial aPort, uint32_t aAddress)
{
    return (aPort == KyDeviceSerialUart0 && aAddress == cUart0Data) ||
           (aPort == KyDeviceSerialUart1 && aAddress == cUart1Data);
}

int64_t MessageSize(const uint8_t* aMessage, int64_t aLength, bool aBigEndian)
{
    return aLength > cMessageHeader
               ? std::min<int64_t>(Word(aMessage + 4, aBigEndian), aLength - cMessageHeader)
               : 0;
}

uint32_t Word(const uint8_t* aBytes, bool aBigEndian)
{
    uint32_t lWord = 0;
    for (unsigned lIndex = 0; lIndex < 4; ++lIndex)
    {
        lWord |= static_cast<uint32_t>(aBytes[lIndex]) << 8U * (aBigEndian ? 3 - lIndex : lIndex);
    }
    return lWord;
}

} // namespace KySerialTool
