#pragma once

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/Faults.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Ports/OutputQueue.h"

#include <KySerial/IKyDeviceEventSink.h>

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace KySimulator
{

/// The event side of an adapter: a queue of the camera's events, a thread that calls the sinks, and the upstream
/// features as that thread sees them.
class AdapterEvents final : public CameraListener, public std::enable_shared_from_this<AdapterEvents>
{
public:
    AdapterEvents(CameraModel& aCamera, Faults& aFaults);
    AdapterEvents(const AdapterEvents&) = delete;
    AdapterEvents& operator=(const AdapterEvents&) = delete;

    /// Starts listening and the thread; once.
    void Start();
    /// Ends both; waits for a sink's call that is running. Not from inside a sink.
    void Stop();

    void OnDeviceEvent(const DeviceEvent& aEvent) override;
    void OnFeatureChanged(const std::string& aName) override;

    /// \return False when the sink was there already.
    bool AddSink(IKyDeviceEventSink* aSink);
    /// No call into the sink runs when this returns, except the one it is called from.
    /// \return False when the sink was not there.
    bool RemoveSink(IKyDeviceEventSink* aSink);
    void AddInterest(const std::string& aName);
    /// \return False without a registered interest.
    bool RemoveInterest(const std::string& aName);

    /// The bytes of a port's upstream features for the calling thread.
    std::vector<uint8_t> GetUpstream(size_t aBulk);

    /// Waits until the queue is empty and no sink is called.
    void WaitUntilIdle();

private:
    struct Queued
    {
        std::variant<DeviceEvent, FeatureChange> mWhat;
        Time mDue;
    };

    void Run();
    void Deliver(const DeviceEvent& aEvent) JX_REQUIRES(mLock);
    void DeliverChange(const std::string& aName) JX_REQUIRES(mLock);
    template<typename Call>
    void CallSinks(const Call& aCall) JX_REQUIRES(mLock);
    void Push(Queued aQueued);
    void WaitForDue(Time aDue) JX_REQUIRES(mLock);

    CameraModel& mCamera;
    Faults& mFaults;
    std::thread mThread;
    Lock mLock;
    Condition mChanged;
    std::deque<Queued> mQueue JX_GUARDED_BY(mLock);
    std::vector<IKyDeviceEventSink*> mSinks JX_GUARDED_BY(mLock);
    std::map<std::string, uint32_t> mInterests JX_GUARDED_BY(mLock);
    std::array<std::vector<uint8_t>, cBulkCount> mUpstream JX_GUARDED_BY(mLock);
    size_t mDelivering JX_GUARDED_BY(mLock) = cBulkCount; // whose upstream event it is, if it is one
    IKyDeviceEventSink* mCurrent JX_GUARDED_BY(mLock) = nullptr;
    uint64_t mCalls JX_GUARDED_BY(mLock) = 0; // finished calls of sinks
    uint64_t mBlockID JX_GUARDED_BY(mLock) = 0;
    bool mBusy JX_GUARDED_BY(mLock) = false;
    bool mStop JX_GUARDED_BY(mLock) = false;
    std::thread::id mThreadID JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
