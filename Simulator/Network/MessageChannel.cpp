#include "Simulator/Network/MessageChannel.h"

#include <utility>

namespace KySimulator
{

MessageChannel::MessageChannel(SendFunction aSend, std::function<void()> aWake)
    : mSend(std::move(aSend)), mWake(std::move(aWake))
{
}

void MessageChannel::Configure(const ChannelSettings& aSettings)
{
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
        if (!mOpen || mQueue.size() >= cQueue)
        {
            ++mCounters.mDropped;
            return;
        }
        mQueue.push_back(aEvent);
    }
    mWake();
}

bool MessageChannel::TakeEvent(DeviceEvent& aEvent)
{
    LockScope lScope(mLock);
    if (mQueue.empty())
    {
        return false;
    }
    aEvent = std::move(mQueue.front());
    mQueue.pop_front();
    return true;
}

uint16_t MessageChannel::Next(uint16_t& aNumber)
{
    aNumber = aNumber == UINT16_MAX ? uint16_t{1} : static_cast<uint16_t>(aNumber + 1); // 0 is not used
    return aNumber;
}

void MessageChannel::Launch(const DeviceEvent& aEvent, Time aNow)
{
    const uint8_t lFlags = mSettings.mTimeout != 0 ? KyGvcp::cAcknowledgeWanted : 0;
    KyGvcp::Packet lPacket = KyGvcp::Packet::Command(KyGvcp::cEventData, lFlags, Next(mRequestID));
    const auto lTicks = static_cast<uint64_t>((aEvent.mTimestamp - mSettings.mTimestampStart).count());
    KyGvcp::AddEvent(lPacket, aEvent.mId, Next(mBlockID), lTicks, aEvent.mData);
    {
        LockScope lScope(mLock);
        ++(lPacket.IsGood() ? mCounters.mSent : mCounters.mDropped);
    }
    if (!lPacket.IsGood())
    {
        return;
    }
    if (mSettings.mTimeout != 0)
    {
        const Time lDue = aNow + std::chrono::milliseconds(mSettings.mTimeout);
        mFlight = Flight{lPacket, mRequestID, lDue, mSettings.mRetries};
    }
    mSend(mSettings.mPeer, lPacket.GetBytes());
}

void MessageChannel::Repeat(Time aNow)
{
    const bool lAgain = mFlight->mLeft > 0;
    {
        LockScope lScope(mLock);
        ++(lAgain ? mCounters.mRepeated : mCounters.mLost);
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
    DeviceEvent lEvent;
    while (!mFlight.has_value() && TakeEvent(lEvent))
    {
        Launch(lEvent, aNow);
    }
}

void MessageChannel::HandleAcknowledge(const KyGvcp::Endpoint& aFrom, KyGvcp::Bytes aPacket)
{
    const auto lAcknowledge = KyGvcp::ParseAcknowledge(aPacket);
    if (lAcknowledge.has_value() && mFlight.has_value() && aFrom == mSettings.mPeer &&
        lAcknowledge->mCode == KyGvcp::cEventDataAck && lAcknowledge->mRequestID == mFlight->mRequestID)
    {
        mFlight.reset();
        LockScope lScope(mLock);
        ++mCounters.mAcknowledged;
    }
}

MessageChannel::Counters MessageChannel::GetCounters()
{
    LockScope lScope(mLock);
    return mCounters;
}

} // namespace KySimulator
