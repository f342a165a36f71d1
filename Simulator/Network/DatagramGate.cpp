#include "Simulator/Network/DatagramGate.h"

#include <utility>

namespace KySimulator
{

DatagramGate::DatagramGate(NetworkFaults& aFaults, Handler aHandler)
    : mFaults(aFaults), mHandler(std::move(aHandler))
{
}

void DatagramGate::Pass(DatagramKind aKind, const KyGvcp::Endpoint& aPeer, KyGvcp::Bytes aData, Time aNow)
{
    const NetworkFaults::Fate lFate = mFaults.NextFate(aKind);
    // A datagram that is lost is not counted as delayed: it never comes.
    mCounters.mDropped += lFate.mCopies == 0 ? 1U : 0U;
    mCounters.mDoubled += lFate.mCopies == 2 ? 1U : 0U;
    mCounters.mDelayed += lFate.mDelay > Time(0) && lFate.mCopies > 0 ? 1U : 0U;
    if (lFate.mAgain > Time(0))
    {
        ++mCounters.mLate;
        // This copy comes late and in addition to the one that comes on time, as a network's repetition does.
        mLate.emplace(aNow + lFate.mAgain, Late{aKind, aPeer, {aData.begin(), aData.end()}});
    }
    for (uint32_t lCopy = 0; lCopy < lFate.mCopies; ++lCopy)
    {
        if (lFate.mDelay > Time(0))
        {
            mLate.emplace(aNow + lFate.mDelay, Late{aKind, aPeer, {aData.begin(), aData.end()}});
        }
        else
        {
            mHandler(aKind, aPeer, aData);
        }
    }
}

void DatagramGate::Step(Time aNow)
{
    while (!mLate.empty() && mLate.begin()->first <= aNow)
    {
        // Taken out before it is handled: the handler may add another late datagram.
        const Late lLate = std::move(mLate.begin()->second);
        mLate.erase(mLate.begin());
        mHandler(lLate.mKind, lLate.mPeer, lLate.mData);
    }
}

} // namespace KySimulator
