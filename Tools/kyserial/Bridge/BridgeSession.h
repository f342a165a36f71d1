#pragma once

#include "kyserial/Bridge/BridgeStatistics.h"
#include "kyserial/Bridge/BridgedPort.h"
#include "kyserial/Device/DeviceSelector.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Serve/Tcp/Network.h"
#include "kyserial/Terminal/TrafficLog.h"

#include <string>

namespace KySerialTool
{

/// What "bridge" is asked to do.
struct BridgeOptions
{
    BridgeSelection mSelection{};
    bool mStatsJson = false;
    uint32_t mStatsInterval = 1000; ///< Milliseconds.
    uint32_t mDuration = 0;         ///< Seconds; 0: until it is interrupted.
    bool mQuiet = false;
};

/// A bridge from its start to its end, and what it says meanwhile.
class BridgeSession final
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

    void Watch();
    void Report(Clock::time_point aNow, bool aFinal);
    void FlushQuietLog();
    void FollowDevice();
    void Note(const std::string& aText);
    std::string GetPortName() const;

    Context& mContext;
    const BridgeOptions& mOptions;
    TrafficLog& mLog;
    const Clock::time_point mBegin;
    Network mNetwork{};
    BridgedPort mPort;
    uint64_t mLoggedBytes = 0;
    size_t mLineLength = 0; // of the line that the terminal shows
    BridgeStatistics mStatistics;
};

} // namespace KySerialTool
