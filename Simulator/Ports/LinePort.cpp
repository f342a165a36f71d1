#include "Simulator/Ports/LinePort.h"

#include <algorithm>
#include <utility>

namespace KySimulator
{

LinePort::LinePort(PortHost& aHost, Port aPort, Limits aLimits) : mHost(aHost), mPort(aPort), mLimits(aLimits)
{
}

void LinePort::Inject(const uint8_t* aData, size_t aSize, Time aDelay)
{
    // One byte at a time is on the line: the first one of these follows the last one that is on its way.
    mLastArrival = std::max(mLastArrival, mHost.Now() + std::max(aDelay, Time(0)));
    const Time lByteTime = GetByteTime();
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        mLastArrival += lByteTime;
        mArriving.push_back({mLastArrival, aData[lIndex]});
    }
}

void LinePort::ArriveAt(const uint8_t* aData, size_t aSize, Time aTime)
{
    // All at once: the time on the bus is in aTime already. Bytes that were sent earlier still arrive earlier.
    mLastArrival = std::max(mLastArrival, aTime);
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        mArriving.push_back({mLastArrival, aData[lIndex]});
    }
}

void LinePort::Transmit(const uint8_t* aData, size_t aSize, bool aOnWire, Time aStart)
{
    // Bytes that join a running transmission follow its clock.
    if (mTransmit.empty())
    {
        mTransmitDue = std::max(aStart, mHost.Now()) + GetByteTime();
    }
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        mTransmit.push_back({aData[lIndex], aOnWire});
    }
}

void LinePort::Step()
{
    while (!mTransmit.empty() && mTransmitDue <= mHost.Now())
    {
        const Outgoing lByte = mTransmit.front();
        mTransmit.pop_front();
        // Counted from the nominal time, not from now: a timer that fires late does not slow the line down.
        mTransmitDue += GetByteTime();
        Send(lByte);
    }
    FlushToPeer(); // before the bytes that arrive, so that a question is reported before its answer
    while (!mArriving.empty() && mArriving.front().mTime <= mHost.Now())
    {
        const uint8_t lByte = mArriving.front().mByte;
        mArriving.pop_front();
        Receive(lByte);
    }
    HandOn();
}

void LinePort::Send(Outgoing aByte)
{
    if (aByte.mOnWire)
    {
        // The wire's record is for tests: the newest bytes, as many as the configuration keeps.
        ++mCounters.mSent;
        mToPeer.push_back(aByte.mByte);
        mWire.push_back(aByte.mByte);
        if (mWire.size() > mLimits.mWire)
        {
            mWire.pop_front();
        }
    }
    OnByteSent();
}

void LinePort::Receive(uint8_t aByte)
{
    ++mCounters.mReceived;
    if (mReceived.size() >= mLimits.mReceiveFifo)
    {
        // A step that comes late has more bytes at once than the FIFO holds. On time, each would have been handed on.
        HandOn();
    }
    if (mReceived.size() >= mLimits.mReceiveFifo)
    {
        ++mCounters.mReceiveOverflow;
        // A full FIFO drops the newest byte and reports nothing, as the device's does.
        return;
    }
    mReceived.push_back(aByte);
}

void LinePort::FlushToPeer()
{
    if (!mToPeer.empty())
    {
        mHost.DeliverToPeer(mPort, std::exchange(mToPeer, {}));
    }
}

Time LinePort::NextDue() const
{
    // Bytes in the receive FIFO order no timer: the access that enables their interrupt makes a step itself.
    const Time lTransmit = mTransmit.empty() ? cNever : mTransmitDue;
    const Time lReceive = mArriving.empty() ? cNever : mArriving.front().mTime;
    return std::min(lTransmit, lReceive);
}

std::vector<uint8_t> LinePort::TakeReceived(size_t aMaximum)
{
    const auto lEnd = mReceived.begin() + static_cast<std::ptrdiff_t>(std::min(aMaximum, mReceived.size()));
    std::vector<uint8_t> lTaken(mReceived.begin(), lEnd);
    mReceived.erase(mReceived.begin(), lEnd);
    return lTaken;
}

std::vector<uint8_t> LinePort::GetWire() const
{
    return {mWire.begin(), mWire.end()};
}

} // namespace KySimulator
