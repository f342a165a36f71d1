#pragma once

#include <Simulator/Ports/PortHost.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

/// The camera round a port. It writes down what the port asks of it, in order.
class FakePortHost final : public KySimulator::PortHost
{
public:
    KySimulator::Time Now() const override { return mNow; }
    uint32_t EnabledInterrupts(uint32_t aMask) const override { return mEnabled & aMask; }
    bool IsUpstreamEnabled(size_t /*aBulk*/) const override { return false; }
    void RaiseInterrupt(uint16_t aId, uint32_t aStatus, const std::vector<uint8_t>& aData) override
    {
        mLog.push_back("interrupt " + Hex(aId) + ' ' + Hex(aStatus) + Text(aData));
    }
    void RaiseUpstream(size_t /*aBulk*/, const std::vector<uint8_t>& aData) override
    {
        mLog.push_back("upstream" + Text(aData));
    }
    void DeliverToPeer(KySimulator::Port /*aPort*/, std::vector<uint8_t> aData) override
    {
        mLog.push_back("peer" + Text(aData));
    }

    /// What the port has done since the last call: "peer 41", "interrupt 9000 1".
    std::vector<std::string> TakeLog() { return std::exchange(mLog, {}); }

    KySimulator::Time mNow{0};
    uint32_t mEnabled = 0;

private:
    static std::string Hex(uint32_t aNumber)
    {
        char lText[9];
        std::snprintf(lText, sizeof lText, "%x", static_cast<unsigned>(aNumber));
        return lText;
    }
    static std::string Text(const std::vector<uint8_t>& aData)
    {
        std::string lText;
        for (const uint8_t lByte : aData)
        {
            lText += ' ' + Hex(lByte);
        }
        return lText;
    }

    std::vector<std::string> mLog;
};
