#pragma once

#include "Simulator/Camera/AdapterSlot.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Time/Scheduler.h"

#include <KyBase/KyResult.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KySimulator
{

/// A call that fails.
struct CallFault
{
    uint64_t mNth = 1;                    ///< Which of the calls from now on; 1 is the next.
    bool mRepeat = false;                 ///< That one and all after it, until Clear().
    std::optional<AdapterSlot> mSlot;     ///< Count and fail only calls of this operation.
    KyResult mResult = KyResult::FAILURE; ///< What the call returns; false where it returns a bool.
};

/// A call, as the transcript has it.
struct RecordedCall
{
    AdapterSlot mSlot = AdapterSlot::IsConnected;
    std::string
        mArguments; ///< "0xB84C, 0x41", "BulkSelector, Bulk3", "Bulk0DownstreamData, 12 bytes: 00 00 ..."
};

/// Faults between an application and its adapter, on demand. Each SimulatedDeviceAdapter has an object of its own.
/// Every function from any thread.
class Faults
{
public:
    /// What becomes of an event.
    struct EventFate
    {
        uint32_t mCopies = 1; ///< 0 loses it.
        Time mDelay{0};       ///< Comes later by this; later events wait for it.
    };

    /// Makes a call fail: it has no effect. Withdrawals of sinks and interests take effect all the same. Faults add
    /// up; when several meet one call, the first one given decides.
    void FailCall(const CallFault& aFault);
    /// Loses, doubles or delays one event; aNth counts this adapter's events from now on, 1 is the next.
    void LoseEvent(uint64_t aNth = 1);
    void DoubleEvent(uint64_t aNth = 1);
    void DelayEvent(Time aDelay, uint64_t aNth = 1);
    /// Takes all faults back that are still to come. Does not reconnect.
    void Clear();

    /// Cuts the connection: IsConnected() is false, every operation that returns a result returns
    /// NO_CONNECTION, those that return a bool return false, and events are lost. Only the withdrawals of
    /// sinks and interests still take effect.
    void Disconnect();
    /// Cuts the connection with the aNth call from now on, which already finds it cut; 1 is the next.
    void DisconnectAtCall(uint64_t aNth);
    /// Brings the connection back, or keeps it, if DisconnectAtCall() has not come to pass.
    void Reconnect();
    bool IsDisconnected() const;

    /// Calls so far, all or of one operation.
    uint64_t GetCallCount() const;
    uint64_t GetCallCount(AdapterSlot aSlot) const;
    /// Events that came from the camera so far, the lost ones included.
    uint64_t GetEventCount() const;

    /// Starts or ends the transcript; starting begins an empty one.
    void RecordCalls(bool aOn);
    bool IsRecording() const;
    /// The transcript. Calls of several threads are in the order in which they began.
    std::vector<RecordedCall> GetTranscript() const;

    /// For the adapter: counts and records a call.
    /// \return The result that the call has to give, if it must fail.
    std::optional<KyResult> EnterCall(AdapterSlot aSlot, const std::string& aArguments);
    /// For the adapter: counts an event. \return What becomes of it.
    EventFate EnterEvent();

private:
    struct EventFault
    {
        uint64_t mLeft;
        EventFate mFate;
    };

    void AddEventFault(uint64_t aNth, EventFate aFate);
    std::optional<KyResult> TakeCallFault(AdapterSlot aSlot) JX_REQUIRES(mLock);

    mutable Lock mLock;
    std::vector<CallFault> mCallFaults JX_GUARDED_BY(mLock);
    std::vector<EventFault> mEventFaults JX_GUARDED_BY(mLock);
    uint64_t mDisconnectIn JX_GUARDED_BY(mLock) = 0; // 0: not planned
    bool mDisconnected JX_GUARDED_BY(mLock) = false;
    bool mRecording JX_GUARDED_BY(mLock) = false;
    uint64_t mCalls JX_GUARDED_BY(mLock) = 0;
    uint64_t mEvents JX_GUARDED_BY(mLock) = 0;
    std::array<uint64_t, cAdapterSlots> mCallsOfSlot JX_GUARDED_BY(mLock){};
    std::vector<RecordedCall> mTranscript JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
