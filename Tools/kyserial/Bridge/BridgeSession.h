#pragma once

#include "kyserial/Bridge/BridgeStatistics.h"
#include "kyserial/Bridge/HostSide.h"
#include "kyserial/Bridge/PtyRelay.h"
#include "kyserial/Device/DeviceSelector.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Terminal/TerminalLink.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <JxUtilsLib/Mutex.h>
#include <JxUtilsLib/ThreadSafety.h>
#include <KySerial/KySerialBridge.h>

#include <optional>
#include <string>
#include <vector>

namespace KySerialTool
{

/// What "bridge" is asked to do.
struct BridgeOptions
{
    KyDeviceSerial mPort = KyDeviceSerialInvalid;
    HostSelection mHost{};
    LineSelection mLine{};
    bool mStatsJson = false;
    uint32_t mStatsInterval = 1000; ///< Milliseconds.
    uint32_t mDuration = 0;         ///< Seconds; 0: until it is interrupted.
    std::string mLogFile{};
    bool mQuiet = false;
    bool mReconnect = false; ///< Goes on when a device that was away is back.
};

/// A bridge from its start to its end, and what it says meanwhile.
class BridgeSession final : private IKySerialBridgeObserver
{
public:
    /// Starts the bridge. Throws OperationError when that fails. The arguments must outlive the object.
    BridgeSession(Context& aContext, const BridgeOptions& aOptions, Device& aDevice, TrafficLog& aLog);
    /// Stops it; the device has its settings back then.
    ~BridgeSession() = default;
    BridgeSession(const BridgeSession&) = delete;
    BridgeSession& operator=(const BridgeSession&) = delete;

    /// Relays until it is interrupted, or its time is over. Throws OperationError when the device is gone.
    void Run();

private:
    using Clock = BridgeStatistics::Clock;

    /// The device has gone, or is back after that many bytes to it were lost.
    struct DeviceChange
    {
        bool mIsBack;
        uint64_t mLost;
    };

    void NotifyTraffic(KySerialBridgeWay aWay, int64_t aTime, const uint8_t* aBytes,
                       uint32_t aCount) override;
    void NotifyDeviceGone() override { AddChange({false, 0}); }
    void NotifyDeviceBack(uint64_t aLost) override { AddChange({true, aLost}); }
    void AddChange(const DeviceChange& aChange);

    void Start();
    void StartClser();
    KySerialBridgeOptions GetOptions();
    void End();
    void Watch();
    void Report(Clock::time_point aNow, bool aFinal);
    void FlushQuietLog();
    void FollowDevice();
    void Note(const std::string& aText);
    BridgeLedger GetLedgerToDevice() const;
    BridgeLedger GetLedgerFromDevice(uint64_t& aBytes) const;
    BridgeCounts GetCounts() const;

    Context& mContext;
    const BridgeOptions& mOptions;
    Device& mDevice;
    TrafficLog& mLog;
    JxUtilsLib::Mutex mLock;
    std::vector<DeviceChange> mChanges JX_GUARDED_BY(mLock); // that nobody has looked at
    // Go in the other order: nobody finds the terminal any more, then the bridge ends, then its terminal.
    std::optional<PtyRelay> mRelay{};
    KySerialBridge mBridge{};
    std::optional<TerminalLink> mLink{};
    bool mEnded = false;
    KySerialBridgeFlow mFinalToDevice{}; // once it has ended, like the next two
    KySerialBridgeFlow mFinalFromDevice{};
    uint32_t mFinalBaudRate = 0;
    bool mConnected = true;
    uint64_t mReconnections = 0;
    uint64_t mLoggedBytes = 0;
    size_t mLineLength = 0; // of the line that the terminal shows
    const Clock::time_point mBegin;
    BridgeStatistics mStatistics;
};

} // namespace KySerialTool
