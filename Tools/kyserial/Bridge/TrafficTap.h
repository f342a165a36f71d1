#pragma once

#include "kyserial/Bridge/ForwardingAdapter.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <KySerial/KySerialTypes.h>

#include <string>

namespace KySerialTool
{

/// Stands between the library and a device, and logs the bytes of one serial port as they cross the border:
/// what the device has taken, and what it has reported.
///
/// A bridge moves its bytes inside the library, so that a program sees them nowhere else for all kinds of
/// host sides, and here they have the times of the device.
class TrafficTap final : public ForwardingAdapter, private IKyDeviceEventSink
{
public:
    /// Listens from now on. Device and log must outlive the object.
    TrafficTap(IKyDeviceAdapter& aDevice, KyDeviceSerial aPort, TrafficLog& aLog);
    ~TrafficTap() override;

    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;

private:
    void NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override;
    void NotifyFeatureInvalidated(const KyString* aName) override;

    const KyDeviceSerial mPort;
    const std::string mDownstreamFeature; // empty for a UART, like the next
    const std::string mUpstreamFeature;
    TrafficLog& mLog;
};

} // namespace KySerialTool
