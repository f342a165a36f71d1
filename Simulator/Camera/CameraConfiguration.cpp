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
    // The address range that anybody may use: no real device has such an address.
    constexpr uint64_t cLocallyAdministered = 0x020000000000U;

    // Each camera of a process gets an identity of its own: the library claims ports by it.
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
    // Values that a device cannot have are pulled into its range. A FIFO or a buffer of 0 would never pass a byte.
    aConfiguration.mMacAddress &= 0xFFFFFFFFFFFFU;
    aConfiguration.mUartCount = std::min(aConfiguration.mUartCount, static_cast<uint32_t>(cUartCount));
    aConfiguration.mUpstreamLength = std::max(aConfiguration.mUpstreamLength, 1U);
    aConfiguration.mUartReceiveFifo = std::max(aConfiguration.mUartReceiveFifo, 1U);
    aConfiguration.mBulkReceiveFifo = std::max(aConfiguration.mBulkReceiveFifo, 1U);
    // Devices raise the bulk port's interrupts with one of two event numbers; the library listens to no other.
    if (aConfiguration.mBulkInterruptEvent != KyDeviceProtocol::cInterruptEvent)
    {
        aConfiguration.mBulkInterruptEvent = KyDeviceProtocol::cBulkInterruptEvent;
    }
    return aConfiguration;
}

} // namespace KySimulator
