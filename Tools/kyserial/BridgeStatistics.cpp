#include "kyserial/BridgeStatistics.h"

#include "kyserial/TrafficLog.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

namespace KySerialTool
{

namespace
{

/// With three decimals: more would suggest a precision that nobody has.
double Rounded(double aNumber)
{
    return std::round(aNumber * 1000) / 1000;
}

double Seconds(BridgeStatistics::Clock::duration aTime)
{
    return std::chrono::duration<double>(aTime).count();
}

} // namespace

BridgeStatistics::BridgeStatistics(std::string aPort, std::string aHost, Clock::time_point aBegin)
    : mPort(std::move(aPort)), mHost(std::move(aHost)), mBegin(aBegin), mLast(aBegin)
{
}

BridgeStatistics::Rates BridgeStatistics::Advance(const BridgeCounts& aCounts, Clock::time_point aNow,
                                                  bool aWhole)
{
    const BridgeCounts lFrom = aWhole ? BridgeCounts() : mLastCounts;
    const double lTime = Seconds(aNow - (aWhole ? mBegin : mLast));
    const auto lRate = [lTime](uint64_t aNew, uint64_t aOld)
    { return lTime > 0 ? static_cast<double>(aNew - aOld) / lTime : 0.0; };
    mLast = aNow;
    mLastCounts = aCounts;
    return {lRate(aCounts.mToDevice, lFrom.mToDevice), lRate(aCounts.mFromDevice, lFrom.mFromDevice)};
}

std::string BridgeStatistics::Line(const BridgeCounts& aCounts, Clock::time_point aNow)
{
    const Rates lRates = Advance(aCounts, aNow, false);
    std::array<char, 160> lText{};
    std::snprintf(lText.data(), lText.size(),
                  "%s %u bit/s, to device %llu bytes %.0f/s, from device %llu bytes %.0f/s%s", mPort.c_str(),
                  static_cast<unsigned>(aCounts.mBaudRate),
                  static_cast<unsigned long long>(aCounts.mToDevice), lRates.mToDevice,
                  static_cast<unsigned long long>(aCounts.mFromDevice), lRates.mFromDevice,
                  aCounts.mConnected ? "" : ", device is gone");
    return lText.data();
}

std::string BridgeStatistics::Json(const BridgeCounts& aCounts, Clock::time_point aNow, bool aFinal)
{
    const Rates lRates = Advance(aCounts, aNow, aFinal);
    const nlohmann::ordered_json lReport = {
        {"time", TimeText(std::chrono::system_clock::now())},
        {"seconds", Rounded(Seconds(aNow - mBegin))},
        {"final", aFinal},
        {"port", mPort},
        {"host", mHost},
        {"baud_rate", aCounts.mBaudRate},
        {"connected", aCounts.mConnected},
        {"to_device", {{"bytes", aCounts.mToDevice}, {"bytes_per_second", Rounded(lRates.mToDevice)}}},
        {"from_device", {{"bytes", aCounts.mFromDevice}, {"bytes_per_second", Rounded(lRates.mFromDevice)}}},
        {"unread_bytes", aCounts.mUnread}};
    // Names of files need not be text; what is none must not end the bridge.
    return lReport.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

} // namespace KySerialTool
