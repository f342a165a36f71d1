#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace KySerialTool
{

/// What a bridge has done so far.
struct BridgeCounts
{
    uint64_t mToDevice = 0;
    uint64_t mFromDevice = 0;
    uint64_t mUnread = 0; ///< Bytes from the device that no user of the pseudo terminal was there for.
    uint32_t mBaudRate = 0;
    bool mConnected = true;
};

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
