#include "Simulator/Camera/CameraConfiguration.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <atomic>

namespace KySimulator
{

bool BulkPortConfiguration::Offers(Protocol aProtocol) const
{
    switch (aProtocol)
    {
    case Protocol::Usrt:
        return mUsrt;
    case Protocol::Uart:
        return mUart;
    case Protocol::I2C:
        return mI2C;
    case Protocol::Spi:
        return mSpi;
    }
    return false; // a configuration word can hold numbers that are no protocol
}

size_t CameraConfiguration::FirstFeaturePort() const
{
    const auto lFirst =
        std::find_if(mBulk.begin(), mBulk.end(), [](const auto& aBulk) { return aBulk.mFeatures; });
    return static_cast<size_t>(lFirst - mBulk.begin());
}

CameraConfiguration Completed(CameraConfiguration aConfiguration)
{
    static std::atomic<uint32_t> sCameras{0};
    constexpr uint64_t cLocallyAdministered = 0x020000000000U;

    const uint32_t lNumber = ++sCameras;
    if (aConfiguration.mMacAddress == 0)
    {
        aConfiguration.mMacAddress = cLocallyAdministered + lNumber;
    }
    if (aConfiguration.mSerialNumber.empty())
    {
        const std::string lDigits = std::to_string(lNumber % 100000000U);
        aConfiguration.mSerialNumber = "SIM" + std::string(8 - lDigits.size(), '0') + lDigits;
    }
    aConfiguration.mMacAddress &= 0xFFFFFFFFFFFFU;
    aConfiguration.mUartCount = std::min(aConfiguration.mUartCount, static_cast<uint32_t>(cUartCount));
    aConfiguration.mUpstreamLength = std::max(aConfiguration.mUpstreamLength, 1U);
    aConfiguration.mUartReceiveFifo = std::max(aConfiguration.mUartReceiveFifo, 1U);
    aConfiguration.mBulkReceiveFifo = std::max(aConfiguration.mBulkReceiveFifo, 1U);
    if (aConfiguration.mBulkInterruptEvent != KyDeviceProtocol::cInterruptEvent)
    {
        aConfiguration.mBulkInterruptEvent = KyDeviceProtocol::cBulkInterruptEvent;
    }
    return aConfiguration;
}

} // namespace KySimulator
