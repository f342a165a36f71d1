#include "kyserial/Bridge/BridgeStatistics.h"

#include "kyserial/Terminal/TrafficLog.h"

#include "kyserial/Text/Json.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

namespace KySerialTool
{

namespace
{

/// With three decimals: the times behind a rate are not more exact than that.
double Rounded(double aNumber)
{
    return std::round(aNumber * 1000) / 1000;
}

double Seconds(BridgeStatistics::Clock::duration aTime)
{
    return std::chrono::duration<double>(aTime).count();
}

using Reasons = std::vector<std::pair<const char*, uint64_t>>;

Reasons ReasonsToDevice(const BridgeLedger& aLedger)
{
    return {{"away", aLedger.mAway},
            {"cleared", aLedger.mCleared},
            {"refused", aLedger.mRefused},
            {"stopped", aLedger.mStopped}};
}

Reasons ReasonsFromDevice(const BridgeLedger& aLedger)
{
    return {{"overrun", aLedger.mOverrun},
            {"cleared", aLedger.mCleared},
            {"refused", aLedger.mRefused},
            {"unread", aLedger.mUnread},
            {"stopped", aLedger.mStopped}};
}

/// The ledger's part of a report on one way.
nlohmann::ordered_json WayJson(uint64_t aBytes, double aRate, const BridgeLedger& aLedger,
                               const Reasons& aReasons)
{
    // Every reason has its field, also one that has lost nothing: scripts find the same fields in each
    // report.
    nlohmann::ordered_json lLost = nlohmann::ordered_json::object();
    for (const auto& [lReason, lBytes] : aReasons)
    {
        lLost[lReason] = lBytes;
    }
    return {{"bytes", aBytes},          {"bytes_per_second", Rounded(aRate)},
            {"taken", aLedger.mTaken},  {"delivered", aLedger.mDelivered},
            {"lost", std::move(lLost)}, {"on_the_way", aLedger.GetOnTheWay()}};
}

/// "12 bytes to the device (10 refused, 2 stopped)"; empty when none is lost.
std::string LossText(const char* aWay, const BridgeLedger& aLedger, const Reasons& aReasons)
{
    std::string lReasons;
    for (const auto& [lReason, lBytes] : aReasons)
    {
        // A person wants to see what has happened. The JSON report has every reason.
        if (lBytes > 0)
        {
            lReasons += (lReasons.empty() ? "" : ", ") + std::to_string(lBytes) + ' ' + lReason;
        }
    }
    return lReasons.empty() ? ""
                            : std::to_string(aLedger.GetLost()) + " bytes " + aWay + " (" + lReasons + ')';
}

} // namespace

std::string LossText(const BridgeCounts& aCounts)
{
    const std::string lTo =
        LossText("to the device", aCounts.mLedgerToDevice, ReasonsToDevice(aCounts.mLedgerToDevice));
    const std::string lFrom =
        LossText("from the device", aCounts.mLedgerFromDevice, ReasonsFromDevice(aCounts.mLedgerFromDevice));
    if (lTo.empty() && lFrom.empty())
    {
        return {};
    }
    return "not delivered: " + lTo + (lTo.empty() || lFrom.empty() ? "" : ", ") + lFrom;
}

BridgeStatistics::BridgeStatistics(std::string aPort, std::string aHost, Clock::time_point aBegin)
    : mPort(std::move(aPort)), mHost(std::move(aHost)), mBegin(aBegin), mLast(aBegin)
{
}

BridgeStatistics::Rates BridgeStatistics::Advance(const BridgeCounts& aCounts, Clock::time_point aNow,
                                                  bool aWhole)
{
    // The final report has the rates of the whole time, the others those since the report before.
    const BridgeCounts lFrom = aWhole ? BridgeCounts() : mLastCounts;
    const double lTime = Seconds(aNow - (aWhole ? mBegin : mLast));
    // The first report comes when no time has passed yet.
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
        {"to_device", WayJson(aCounts.mToDevice, lRates.mToDevice, aCounts.mLedgerToDevice,
                              ReasonsToDevice(aCounts.mLedgerToDevice))},
        {"from_device", WayJson(aCounts.mFromDevice, lRates.mFromDevice, aCounts.mLedgerFromDevice,
                                ReasonsFromDevice(aCounts.mLedgerFromDevice))},
        {"unread_bytes", aCounts.mUnread},
        {"lost_bytes", aCounts.mLedgerToDevice.GetLost()},
        {"reconnections", aCounts.mReconnections}};
    return JsonLine(lReport);
}

} // namespace KySerialTool
