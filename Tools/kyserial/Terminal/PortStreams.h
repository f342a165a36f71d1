#pragma once

#include "kyserial/Device/DevicePort.h"
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
    void Relay();
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

/// Sends a session's bytes to a port and counts what goes out.
///
/// A port that is busy gets the rest when it has room again.
class PortSender
{
public:
    /// Bytes given to the library at once: at 9600 bit/s half a second, after which a request to end is
    /// noticed.
    static constexpr uint32_t cPiece = 512;
    /// Milliseconds without any progress after which a busy port counts as failed.
    static constexpr uint32_t cBusyLimit = 5000;

    /// \param aGiveUp  Asked between pieces; true ends Send() early.
    /// \param aBusyLimit  See cBusyLimit.
    PortSender(BytePort& aPort, TrafficLog& aLog, std::function<bool()> aGiveUp,
               uint32_t aBusyLimit = cBusyLimit);

    /// Sends all bytes. Throws OperationError with the number of bytes of the session that went out.
    /// \return False when it gave up on request.
    bool Send(const uint8_t* aData, size_t aSize);

    /// Bytes of the session that went out.
    uint64_t GetSent() const { return mSent; }

private:
    /// Sends one piece as far as the device takes it. \return Bytes that went out.
    uint32_t SendPiece(const uint8_t* aData, uint32_t aSize);

    BytePort& mPort;
    TrafficLog& mLog;
    const std::function<bool()> mGiveUp;
    const uint32_t mBusyLimit;
    uint64_t mSent = 0;
    uint64_t mBusySince = 0; // tick count; 0 while the port takes bytes
};

} // namespace KySerialTool
