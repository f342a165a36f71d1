#pragma once

#include "kyserial/Device/BytePort.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace KySerialTool
{

/// A thread that passes on what a port receives.
class PortReceiver
{
public:
    /// What the thread calls; both on the thread, one call at a time.
    struct Callbacks
    {
        /// Bytes, or none when nothing has come for a moment. \return False when they cannot be passed on.
        std::function<bool(const std::vector<uint8_t>&)> mTake;
        /// The thread has ended by itself; GetFailure() says why.
        std::function<void()> mFailed;
    };

    /// Starts the thread. Port and log must outlive the object.
    PortReceiver(BytePort& aPort, TrafficLog& aLog, Callbacks aCallbacks);
    /// Stop().
    ~PortReceiver();
    PortReceiver(const PortReceiver&) = delete;
    PortReceiver& operator=(const PortReceiver&) = delete;

    /// Passes on what has come so far and ends the thread.
    void Stop();

    /// Bytes received so far. Any thread.
    uint64_t GetReceived() const { return mReceived; }
    /// Tick count of the last byte; 0 before the first. Any thread.
    uint64_t GetLastTime() const { return mLastTime; }
    /// Why the thread ended by itself; empty when it did not. Any thread.
    std::string GetFailure() const;

private:
    void Run();
    bool PassOn(const std::vector<uint8_t>& aBytes);
    void Fail(const std::string& aReason);

    BytePort& mPort;
    TrafficLog& mLog;
    const Callbacks mCallbacks;
    std::atomic<bool> mStop{false};
    std::atomic<uint64_t> mReceived{0};
    std::atomic<uint64_t> mLastTime{0};
    mutable JxUtilsLib::Mutex mLock;
    std::string mFailure JX_GUARDED_BY(mLock);
    std::thread mThread; // last: it uses the others
};

} // namespace KySerialTool
