#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace KySerialTool
{

/// What became of every byte of one way: taken = delivered + lost + on the way.
struct BridgeLedger
{
    uint64_t mTaken = 0;     ///< Bytes from the side that sends.
    uint64_t mDelivered = 0; ///< Bytes that the other side has.

    // Lost bytes, by reason.
    uint64_t mAway = 0;    ///< To the device, while it was away.
    uint64_t mOverrun = 0; ///< From the device, faster than the host takes them.
    uint64_t mCleared =
        0; ///< Waiting when the device port was opened anew, or when a client had them dropped.
    uint64_t mRefused = 0; ///< By the other side.
    uint64_t mUnread =
        0; ///< From the device, for a user of a pseudo terminal who was not there, or did not read.
    uint64_t mStopped = 0; ///< On their way when the bridge ended.

    uint64_t GetLost() const { return mAway + mOverrun + mCleared + mRefused + mUnread + mStopped; }
    uint64_t GetOnTheWay() const { return mTaken - mDelivered - GetLost(); }
};

/// What a bridge has done so far.
struct BridgeCounts
{
    uint64_t mToDevice = 0;
    uint64_t mFromDevice = 0;
    uint64_t mUnread = 0; ///< Bytes from the device that no user of the pseudo terminal has read.
    uint32_t mBaudRate = 0;
    bool mConnected = true;
    uint64_t mReconnections = 0; ///< How often it was away and came back.
    BridgeLedger mLedgerToDevice{};
    BridgeLedger mLedgerFromDevice{};
};

/// What was lost of each way and why, as a sentence; empty when nothing was.
std::string LossText(const BridgeCounts& aCounts);

/// Makes reports out of a bridge's counts: rates between two of them, or since the beginning.
class BridgeStatistics
{
public:
    using Clock = std::chrono::steady_clock;

    /// \param aPort, aHost  The two sides, as reports name them.
    BridgeStatistics(std::string aPort, std::string aHost, Clock::time_point aBegin);

    /// One line for a terminal, with the rates since the last report.
    std::string Line(const BridgeCounts& aCounts, Clock::time_point aNow);

    /// One JSON object with a line end.
    /// \param aFinal  The rates are those of the whole time, and "final" is true.
    std::string Json(const BridgeCounts& aCounts, Clock::time_point aNow, bool aFinal);

private:
    struct Rates
    {
        double mToDevice;
        double mFromDevice;
    };

    Rates Advance(const BridgeCounts& aCounts, Clock::time_point aNow, bool aWhole);

    const std::string mPort;
    const std::string mHost;
    const Clock::time_point mBegin;
    Clock::time_point mLast;
    BridgeCounts mLastCounts{};
};

} // namespace KySerialTool
