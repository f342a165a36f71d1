#pragma once

#include "Simulator/Ports/Port.h"
#include "Simulator/Time/Scheduler.h"

#include <cstdint>
#include <vector>

namespace KySimulator
{

/// What a port needs of the camera round it. Everything here belongs to the camera's state: one caller at a
/// time.
class PortHost
{
public:
    /// The moment that is being worked on.
    virtual Time Now() const = 0;
    /// Those of the given interrupt bits that are enabled.
    virtual uint32_t EnabledInterrupts(uint32_t aMask) const = 0;
    /// Whether the upstream event of a bulk port is switched on.
    virtual bool IsUpstreamEnabled(size_t aBulk) const = 0;
    /// Raises an interrupt event: the status word, then aData.
    virtual void RaiseInterrupt(uint16_t aId, uint32_t aStatus, const std::vector<uint8_t>& aData) = 0;
    /// Raises a bulk port's upstream event.
    virtual void RaiseUpstream(size_t aBulk, const std::vector<uint8_t>& aData) = 0;
    /// Bytes have left on the line of a port.
    virtual void DeliverToPeer(Port aPort, std::vector<uint8_t> aData) = 0;

protected:
    PortHost() = default;
    PortHost(const PortHost&) = default;
    PortHost& operator=(const PortHost&) = default;
    ~PortHost() = default;
};

} // namespace KySimulator
