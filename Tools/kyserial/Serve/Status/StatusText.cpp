#include "kyserial/Serve/Status/StatusText.h"

#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"
#include "kyserial/Text/Output.h"

#include <nlohmann/json.hpp>

#include <functional>

namespace KySerialTool
{

namespace
{

using Json = nlohmann::ordered_json;

Json LedgerJson(const BridgeLedger& aLedger)
{
    return {{"taken", aLedger.mTaken},
            {"delivered", aLedger.mDelivered},
            {"lost", aLedger.GetLost()},
            {"on_the_way", aLedger.GetOnTheWay()}};
}

Json PortJson(const ServedPortStatus& aPort)
{
    Json lPort = {{"port", aPort.mPort},
                  {"host", aPort.mHost},
                  {"runs", aPort.mRuns},
                  {"error", aPort.mError},
                  {"terminal", aPort.mTerminal},
                  {"line", aPort.mLine},
                  {"baud_rate", aPort.mCounts.mBaudRate},
                  {"last_traffic", aPort.mLastTraffic},
                  {"reconnections", aPort.mCounts.mReconnections},
                  {"to_device", LedgerJson(aPort.mCounts.mLedgerToDevice)},
                  {"from_device", LedgerJson(aPort.mCounts.mLedgerFromDevice)}};
    // Host sides of other kinds lack the field, which differs from having no client now.
    if (aPort.mTcp.has_value())
    {
        lPort["clients"] = {{"now", aPort.mTcp->mClients},
                            {"accepted", aPort.mTcp->mAccepted},
                            {"turned_away", aPort.mTcp->mTurnedAway},
                            {"accept_failures", aPort.mTcp->mFailures},
                            {"disconnected", aPort.mTcp->mDisconnected},
                            {"faults", aPort.mTcp->mFaults}};
    }
    return lPort;
}

/// A text between the quotes of a label.
std::string Label(const std::string& aText)
{
    std::string lText;
    for (const char lCharacter : aText)
    {
        // The text format of metrics escapes these three characters and no other.
        const bool lEscapes = lCharacter == '"' || lCharacter == '\\';
        lText += lEscapes             ? std::string("\\") + lCharacter
                 : lCharacter == '\n' ? std::string("\\n")
                                      : std::string(1, lCharacter);
    }
    return lText;
}

/// One metric of all devices or ports.
class Metric
{
public:
    /// \param aOpen  OpenMetrics, where the family of a counter has a name without "_total"; the older text format otherwise.
    Metric(const std::string& aName, const char* aType, const char* aHelp, bool aOpen)
        : mSample(aName + (aType == std::string("counter") ? "_total{" : "{"))
    {
        const std::string lFamily = aOpen ? aName : mSample.substr(0, mSample.size() - 1);
        mText = "# HELP " + lFamily + ' ' + aHelp + "\n# TYPE " + lFamily + ' ' + aType + '\n';
    }
    void Add(const std::string& aLabels, uint64_t aValue)
    {
        mText += mSample + aLabels + "} " + std::to_string(aValue) + '\n';
    }
    const std::string& Text() const { return mText; }

private:
    const std::string mSample;
    std::string mText{};
};

} // namespace

std::string StatusJson(const std::string& aName, const std::vector<ServedDeviceStatus>& aDevices)
{
    Json lDevices = Json::array();
    for (const ServedDeviceStatus& lDevice : aDevices)
    {
        Json lPorts = Json::array();
        for (const ServedPortStatus& lPort : lDevice.mPorts)
        {
            lPorts.push_back(PortJson(lPort));
        }
        lDevices.push_back({{"name", lDevice.mName},
                            {"device", lDevice.mDevice},
                            {"connected", lDevice.mConnected},
                            {"standby", lDevice.mStandby},
                            {"generation", lDevice.mGeneration},
                            {"error", lDevice.mError},
                            {"ports", std::move(lPorts)}});
    }
    const Json lStatus = {{"name", aName}, {"devices", std::move(lDevices)}};
    // Names and reasons come from files and systems: text that is no UTF-8 must not cost the whole answer.
    return lStatus.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

std::string StatusMetrics(const std::vector<ServedDeviceStatus>& aDevices, bool aOpen)
{
    Metric lConnected("kyserial_device_connected", "gauge", "Whether the device is there.", aOpen);
    Metric lStandby("kyserial_device_standby", "gauge", "Whether another application controls the device.",
                    aOpen);
    Metric lRuns("kyserial_port_running", "gauge", "Whether the port is relayed.", aOpen);
    Metric lRate("kyserial_port_line_rate", "gauge",
                 "Bits per second of the device port; 0: it does not say.", aOpen);
    Metric lLast("kyserial_port_last_traffic_timestamp_seconds", "gauge",
                 "When a byte passed last; 0: never.", aOpen);
    Metric lBack("kyserial_port_reconnections", "counter", "How often the device was away and came back.",
                 aOpen);
    Metric lClients("kyserial_port_clients", "gauge", "Clients over TCP.", aOpen);
    Metric lAway("kyserial_port_turned_away_clients", "counter", "Clients for which there was no place.",
                 aOpen);
    Metric lFailures("kyserial_port_accept_failures", "counter",
                     "Tries to take a client for which the system had no socket.", aOpen);
    Metric lDelivered("kyserial_port_delivered_bytes", "counter", "Bytes that the other side has.", aOpen);
    Metric lLost("kyserial_port_lost_bytes", "counter", "Bytes that nobody has got.", aOpen);
    for (const ServedDeviceStatus& lDevice : aDevices)
    {
        const std::string lWho = "device=\"" + Label(lDevice.mName) + '"';
        lConnected.Add(lWho, lDevice.mConnected ? 1 : 0);
        lStandby.Add(lWho, lDevice.mStandby ? 1 : 0);
        for (const ServedPortStatus& lPort : lDevice.mPorts)
        {
            const std::string lWhich = lWho + ",port=\"" + Label(lPort.mPort) + '"';
            lRuns.Add(lWhich, lPort.mRuns ? 1 : 0);
            lRate.Add(lWhich, lPort.mCounts.mBaudRate);
            lLast.Add(lWhich, static_cast<uint64_t>(lPort.mLastTraffic));
            lBack.Add(lWhich, lPort.mCounts.mReconnections);
            lClients.Add(lWhich, lPort.mTcp.has_value() ? lPort.mTcp->mClients : 0);
            lAway.Add(lWhich, lPort.mTcp.has_value() ? lPort.mTcp->mTurnedAway : 0);
            lFailures.Add(lWhich, lPort.mTcp.has_value() ? lPort.mTcp->mFailures : 0);
            for (const auto& [lWay, lLedger] : {std::pair("to_device", &lPort.mCounts.mLedgerToDevice),
                                                std::pair("from_device", &lPort.mCounts.mLedgerFromDevice)})
            {
                const std::string lLabels = lWhich + ",way=\"" + lWay + '"';
                lDelivered.Add(lLabels, lLedger->mDelivered);
                lLost.Add(lLabels, lLedger->GetLost());
            }
        }
    }
    std::string lText;
    for (const Metric* const lMetric : {&lConnected, &lStandby, &lRuns, &lRate, &lLast, &lBack, &lClients,
                                        &lAway, &lFailures, &lDelivered, &lLost})
    {
        lText += lMetric->Text();
    }
    // OpenMetrics ends with this line, so that a collector notices an answer that was cut off.
    return lText + (aOpen ? "# EOF\n" : "");
}

std::string TrafficJson(const std::vector<TrafficBlock>& aBlocks, uint64_t aNext)
{
    Json lBlocks = Json::array();
    for (const TrafficBlock& lBlock : aBlocks)
    {
        // In hexadecimal: a text of JSON is UTF-8, and a port's bytes are anything.
        lBlocks.push_back({{"start", lBlock.mStart},
                           {"time", lBlock.mTime},
                           {"to_device", lBlock.mToDevice},
                           {"hex", HexBytes(reinterpret_cast<const uint8_t*>(lBlock.mBytes.data()),
                                            lBlock.mBytes.size())}});
    }
    const Json lTraffic = {{"next", aNext}, {"blocks", std::move(lBlocks)}};
    return lTraffic.dump() + '\n';
}

std::string StatusTable(const std::string& aJson)
{
    Table lTable(
        {"DEVICE", "PORT", "HOST", "STATE", "CLIENTS", "RATE", "TO DEVICE", "LOST", "FROM DEVICE", "LOST"});
    try
    {
        const Json lStatus = Json::parse(aJson);
        for (const Json& lDevice : lStatus.at("devices"))
        {
            // The reason first: that of a standby says more than "away".
            const std::string lError = lDevice.at("error").get<std::string>();
            const std::string lState = !lError.empty()                       ? lError
                                       : lDevice.at("connected").get<bool>() ? "connected"
                                                                             : "away";
            lTable.Add(
                {lDevice.at("name").get<std::string>(), "", lDevice.at("device").get<std::string>(), lState});
            for (const Json& lPort : lDevice.at("ports"))
            {
                const auto lNumber = [](const Json& aNumber)
                { return std::to_string(aNumber.get<uint64_t>()); };
                lTable.Add({"", lPort.at("port").get<std::string>(), lPort.at("host").get<std::string>(),
                            lPort.at("runs").get<bool>() ? "runs" : lPort.at("error").get<std::string>(),
                            lPort.contains("clients") ? lNumber(lPort.at("clients").at("now")) : "-",
                            lNumber(lPort.at("baud_rate")), lNumber(lPort.at("to_device").at("delivered")),
                            lNumber(lPort.at("to_device").at("lost")),
                            lNumber(lPort.at("from_device").at("delivered")),
                            lNumber(lPort.at("from_device").at("lost"))});
            }
        }
    }
    // Any program may listen at the port that was asked.
    catch (const Json::exception&)
    {
        throw OperationError("the answer is not that of a service");
    }
    return lTable.Text();
}

} // namespace KySerialTool
