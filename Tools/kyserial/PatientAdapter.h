#pragma once

#include "kyserial/ForwardingAdapter.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KySerial/KySerialTypes.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace KySerialTool
{

/// A device that seems to be there while it is away: what is sent to one of its serial ports meanwhile is
/// taken, dropped and counted, byte by byte.
///
/// For a bridge that is to survive that. A bridge drops a whole block when the device fails, without saying
/// how much of it is lost; and its threads would wait for answers that cannot come.
class PatientAdapter final : public ForwardingAdapter
{
public:
    /// Forwards everything until SetPatient(). \param aTarget  Must outlive the object.
    PatientAdapter(IKyDeviceAdapter& aTarget, KyDeviceSerial aPort);

    /// From now on a device that is away does not show, or shows again.
    void SetPatient(bool aPatient) { mPatient = aPatient; }

    /// Whether the device is really there.
    bool IsTargetConnected() const { return GetTarget().IsConnected(); }

    /// Whether what is sent is dropped: since a transfer has found the device away, or SetAway(true). Goes on
    /// when the device is back, which has other settings then, until SetAway(false).
    bool IsAway() const { return mAway; }
    void SetAway(bool aAway) { mAway = aAway; }

    /// Lets a writer go on that waits for the device to be done. To be called when the device has gone.
    void ReleaseWriter();

    /// Bytes that were taken and dropped. Any thread.
    uint64_t GetLost() const { return mLost; }

    bool IsConnected() override;
    bool IsGigEVision() override { return mBigEndian; } // also while it cannot tell
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override;
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override;

private:
    bool IsDropped(const KyResult& aResult);
    bool IsDownstream(const KyString& aName) const;

    const KyDeviceSerial mPort;
    const std::string mDownstreamFeature; // empty for a UART
    const bool mBigEndian;
    std::atomic<bool> mPatient{false};
    std::atomic<bool> mAway{false};
    std::atomic<uint64_t> mLost{0};
    std::atomic<int64_t> mDownstreamLength{0}; // as the device said last
    JxUtilsLib::Mutex mLock;
    std::vector<IKyDeviceEventSink*> mSinks JX_GUARDED_BY(mLock);
};

} // namespace KySerialTool
