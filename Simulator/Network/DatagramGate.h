#pragma once

#include "KyGvcp/Protocol.h"
#include "KyGvcp/UdpSocket.h"
#include "Simulator/Network/NetworkFaults.h"

#include <functional>
#include <map>
#include <vector>

namespace KySimulator
{

/// Through here goes every datagram of a network camera; some get lost, doubled or late on demand. One
/// thread at a time.
class DatagramGate
{
public:
    /// Has to do with a datagram what it is for.
    using Handler = std::function<void(DatagramKind, const KyGvcp::Endpoint&, KyGvcp::Bytes)>;

    struct Counters
    {
        uint64_t mDropped = 0;
        uint64_t mDoubled = 0;
        uint64_t mDelayed = 0;
        uint64_t mLate = 0; ///< Came once more.
    };

    /// \param aFaults  Outlives this object.
    DatagramGate(NetworkFaults& aFaults, Handler aHandler);

    /// Hands a datagram on, or does not.
    void Pass(DatagramKind aKind, const KyGvcp::Endpoint& aPeer, KyGvcp::Bytes aData, Time aNow);
    /// Hands on what has been late enough.
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
