#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"
#include "Simulator/Network/NetworkFaults.h"

#include <functional>
#include <map>
#include <vector>

namespace KySimulator
{

/// Passes every datagram of a network camera on, in both directions. On demand it loses, doubles or delays some.
/// One thread at a time.
class DatagramGate
{
public:
    /// Is called with each datagram that passes: executes a received one, or sends one.
    using Handler = std::function<void(DatagramKind, const KyGvcp::Endpoint&, KyGvcp::Bytes)>;

    struct Counters
    {
        uint64_t mDropped = 0;
        uint64_t mDoubled = 0;
        uint64_t mDelayed = 0;
        uint64_t mLate = 0; ///< Delivered late, after an earlier copy.
    };

    /// \param aFaults  Outlives this object.
    DatagramGate(NetworkFaults& aFaults, Handler aHandler);

    /// Passes a datagram on, unless the faults lose or delay it.
    void Pass(DatagramKind aKind, const KyGvcp::Endpoint& aPeer, KyGvcp::Bytes aData, Time aNow);
    /// Passes on the delayed datagrams whose time has come.
    void Step(Time aNow);
    Time NextDue() const { return mLate.empty() ? cNever : mLate.begin()->first; }

    const Counters& GetCounters() const { return mCounters; }

private:
    struct Late
    {
        DatagramKind mKind;
        KyGvcp::Endpoint mPeer;
        std::vector<uint8_t> mData;
    };

    NetworkFaults& mFaults;
    const Handler mHandler;
    std::multimap<Time, Late> mLate;
    Counters mCounters;
};

} // namespace KySimulator
