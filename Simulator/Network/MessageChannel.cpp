#include "Simulator/Network/MessageChannel.h"

#include <utility>

namespace KySimulator
{

MessageChannel::MessageChannel(SendFunction aSend, std::function<void()> aWake, const NetworkForms& aForms)
    : mSend(std::move(aSend)), mWake(std::move(aWake)), mForms(aForms)
{
}

void MessageChannel::Configure(const ChannelSettings& aSettings)
{
    // Events that wait were raised for the application before; another one must not get them.
    const bool lNew = !(aSettings.mPeer == mSettings.mPeer);
    mSettings = aSettings;
    if (lNew)
    {
        mFlight.reset();
        LockScope lScope(mLock);
        mOpen = !(aSettings.mPeer == KyGvcp::Endpoint());
        mCounters.mDropped += mQueue.size();
        mQueue.clear();
    }
}

void MessageChannel::OnDeviceEvent(const DeviceEvent& aEvent)
{
    {
        LockScope lScope(mLock);
        // An application that does not acknowledge fills the queue. The newest events are dropped then, and
        // counted.
        if (!mOpen || mQueue.size() >= cQueue)
        {
            ++mCounters.mDropped;
            return;
        }
        mQueue.push_back(aEvent);
    }
    mWake();
}

size_t MessageChannel::SizeOf(const DeviceEvent& aEvent) const
{
    return (mForms.mLongEventIds ? KyGvcp::cExtendedEventItemSize : KyGvcp::cEventItemSize) +
           aEvent.mData.size();
}

// The events of the next packet: the oldest one, and those after it that fit and are sent with the same command.
// Empty when no event waits.
std::vector<DeviceEvent> MessageChannel::TakeEvents()
{
    std::vector<DeviceEvent> lEvents;
    LockScope lScope(mLock);
    size_t lSize = 0;
    // The first one is taken whatever its size is: Launch() drops and counts what no packet can hold.
    while (!mQueue.empty() &&
           (lEvents.empty() || (lEvents.size() < mForms.mEventsPerPacket &&
                                lSize + SizeOf(mQueue.front()) <= KyGvcp::cMaxPayload &&
                                lEvents.front().mData.empty() == mQueue.front().mData.empty())))
    {
        lSize += SizeOf(mQueue.front());
        lEvents.push_back(std::move(mQueue.front()));
        mQueue.pop_front();
    }
    return lEvents;
}

uint16_t MessageChannel::NextRequest()
{
    mRequestID =
        mRequestID == UINT16_MAX ? uint16_t{1} : static_cast<uint16_t>(mRequestID + 1); // 0 is not used
    return mRequestID;
}

uint64_t MessageChannel::NextBlock()
{
    const uint64_t lLast = mForms.mLongEventIds ? UINT64_MAX : UINT16_MAX;
    mBlockID = mBlockID == lLast ? 1 : mBlockID + 1; // 0 is not used
    return mBlockID;
}

void MessageChannel::Launch(const std::vector<DeviceEvent>& aEvents, Time aNow)
{
    // A time-out of 0 means "no acknowledge": events are sent once, without a wait.
    const unsigned lFlags = (mSettings.mTimeout != 0 ? KyGvcp::cAcknowledgeWanted : 0U) |
                            (mForms.mLongEventIds ? KyGvcp::cExtendedID : 0U);
    const uint16_t lCode = aEvents.front().mData.empty() ? KyGvcp::cEvent : KyGvcp::cEventData;
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(lCode, static_cast<uint8_t>(lFlags), NextRequest());
    for (const DeviceEvent& lEvent : aEvents)
    {
        const auto lTicks = static_cast<uint64_t>((lEvent.mTimestamp - mSettings.mTimestampStart).count());
        KyGvcp::AddEvent(lPacket, lEvent.mId, NextBlock(), lTicks, lEvent.mData);
    }
    {
        LockScope lScope(mLock);
        (lPacket.IsGood() ? mCounters.mSent : mCounters.mDropped) += aEvents.size();
    }
    // An event that no packet can hold is dropped, and counted as such.
    if (!lPacket.IsGood())
    {
        return;
    }
    if (mSettings.mTimeout != 0)
    {
        const Time lDue = aNow + std::chrono::milliseconds(mSettings.mTimeout);
        mFlight = Flight{lPacket, lCode, mRequestID, lDue, mSettings.mRetries, aEvents.size()};
    }
    mSend(mSettings.mPeer, lPacket.GetBytes());
}

void MessageChannel::Repeat(Time aNow)
{
    // The last repetition has its time-out too; then the packet counts as lost, and the next one follows.
    const bool lAgain = mFlight->mLeft > 0;
    {
        LockScope lScope(mLock);
        mCounters.mRepeated += lAgain ? 1 : 0;
        mCounters.mLost += lAgain ? 0 : mFlight->mEvents;
    }
    if (!lAgain)
    {
        mFlight.reset();
        return;
    }
    --mFlight->mLeft;
    mFlight->mDue = aNow + std::chrono::milliseconds(mSettings.mTimeout);
    mSend(mSettings.mPeer, mFlight->mPacket.GetBytes());
}

void MessageChannel::Step(Time aNow)
{
    if (mFlight.has_value() && mFlight->mDue <= aNow)
    {
        Repeat(aNow);
    }
    // One packet at a time waits for its acknowledge, so events stay in order. Without acknowledges all leave at
    // once.
    while (!mFlight.has_value())
    {
        const std::vector<DeviceEvent> lEvents = TakeEvents();
        if (lEvents.empty())
        {
            return;
        }
        Launch(lEvents, aNow);
    }
}

void MessageChannel::HandleAcknowledge(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket)
{
    const auto lAcknowledge = KyGvcp::ParseAcknowledge(aPacket);
    // Anybody can send to this port: only the application's answer to this very packet counts.
    if (lAcknowledge.has_value() && mFlight.has_value() && aFrom == mSettings.mPeer &&
        lAcknowledge->mCode == mFlight->mCode + 1 && lAcknowledge->mRequestID == mFlight->mRequestID)
    {
        const uint64_t lEvents = mFlight->mEvents;
        mFlight.reset();
        LockScope lScope(mLock);
        mCounters.mAcknowledged += lEvents;
    }
}

MessageChannel::Counters MessageChannel::GetCounters()
{
    LockScope lScope(mLock);
    return mCounters;
}

} // namespace KySimulator
