#pragma once

#include <JxUtilsLib/Condition.h>
#include <KySerial/IKyDeviceEventSink.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace KyGigE
{

/// The sinks of an adapter and the features that somebody has interest in.
///
/// Threads: Call() on the adapter's event thread only; the rest from any, sinks included. No lock is held
/// while a sink is called.
class EventSinks
{
public:
    /// \return False when the sink was there already.
    bool Add(IKyDeviceEventSink* aSink);
    /// No call into the sink runs when this returns, except the one it is called from.
    /// \return False when the sink was not there.
    bool Remove(IKyDeviceEventSink* aSink);

    void AddInterest(const std::string& aName);
    /// \return False without a registered interest.
    bool RemoveInterest(const std::string& aName);
    bool HasInterest(const std::string& aName);
    /// The names that somebody has interest in.
    std::vector<std::string> GetInterests();
    /// Whether there is any; cheap, for the way of each event.
    bool HasInterests() const { return mInterestCount != 0; }

    /// Calls aCall for each sink, unless it is removed meanwhile.
    void Call(const std::function<void(IKyDeviceEventSink&)>& aCall);

private:
    bool BeginCall(IKyDeviceEventSink* aSink);
    void EndCall();

    JxUtilsLib::Mutex mLock;
    JxUtilsLib::Condition mEnded;
    std::vector<IKyDeviceEventSink*> mSinks JX_GUARDED_BY(mLock);
    std::map<std::string, uint32_t> mInterests JX_GUARDED_BY(mLock);
    IKyDeviceEventSink* mCurrent JX_GUARDED_BY(mLock) = nullptr;
    std::thread::id mThread JX_GUARDED_BY(mLock);
    uint64_t mCalls JX_GUARDED_BY(mLock) = 0; // ended ones
    std::atomic<size_t> mInterestCount = 0;
};

} // namespace KyGigE
