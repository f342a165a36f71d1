#pragma once

#include "kyserial/Bridge/ForwardingAdapter.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KySerial/KySerialTypes.h>

#include <atomic>
#include <cstdint>
#include <functional>
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
    /// The number of the device's connection: another one means that the device was away meanwhile, however
    /// short, and has lost what was set up in it.
    using Generation = std::function<uint64_t()>;

    /// Forwards everything until SetPatient(). \param aTarget  Must outlive the object.
    /// \param aGeneration  Any thread; empty for a device whose absences show.
    PatientAdapter(IKyDeviceAdapter& aTarget, KyDeviceSerial aPort, Generation aGeneration = {});

    /// From now on a device that is away does not show, or shows again.
    void SetPatient(bool aPatient) { mPatient = aPatient; }

    /// Whether the device is really there.
    bool IsTargetConnected() const { return GetTarget().IsConnected(); }

    /// Whether the device is there and has been since the port was set up.
    bool IsTargetSame() const;

    /// Whether what is sent is dropped: since a transfer has found the device away, or SetAway(true). Goes on
    /// when the device is back, which has other settings then, until SetAway(false).
    bool IsAway() const { return mAway; }
    void SetAway(bool aAway);
    /// To be called before the port is set up in a device that is back: SetAway(false) is about that device,
    /// and one that has gone again meanwhile is away.
    void BeginRecovery();

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
    bool FindsAway();
    uint64_t TargetGeneration() const { return mTargetGeneration ? mTargetGeneration() : 0; }
    bool IsDownstream(const KyString& aName) const;

    const KyDeviceSerial mPort;
    const std::string mDownstreamFeature; // empty for a UART
    const bool mBigEndian;
    const Generation mTargetGeneration;
    std::atomic<uint64_t> mGeneration; // that the port is set up in
    uint64_t mRecovered;               // that it is being set up in
    std::atomic<bool> mPatient{false};
    std::atomic<bool> mAway{false};
    std::atomic<uint64_t> mLost{0};
    std::atomic<int64_t> mDownstreamLength{0}; // as the device said last
    JxUtilsLib::Mutex mLock;
    std::vector<IKyDeviceEventSink*> mSinks JX_GUARDED_BY(mLock);
};

} // namespace KySerialTool
