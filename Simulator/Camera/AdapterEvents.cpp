#include "Simulator/Camera/AdapterEvents.h"

#include <KySerial/DeviceProtocol.h>

#include <algorithm>
#include <utility>

namespace KySimulator
{

using namespace KyDeviceProtocol;

AdapterEvents::AdapterEvents(CameraModel& aCamera, Faults& aFaults) : mCamera(aCamera), mFaults(aFaults) {}

void AdapterEvents::Start()
{
    // The thread comes last: nothing may fail while it runs, since nobody would wait for its end.
    mCamera.AddListener(this);
    try
    {
        mThread = std::thread([this] { Run(); });
    }
    catch (...)
    {
        mCamera.RemoveListener(this);
        throw;
    }
}

void AdapterEvents::Stop()
{
    // The camera goes first: nothing is queued after this call. What the queue still holds is dropped.
    mCamera.RemoveListener(this);
    {
        LockScope lScope(mLock);
        mStop = true;
        mChanged.NotifyAll();
    }
    mThread.join();
}

void AdapterEvents::OnDeviceEvent(const DeviceEvent& aEvent)
{
    const Faults::EventFate lFate = mFaults.EnterEvent();
    for (uint32_t lCopy = 0; lCopy < lFate.mCopies; ++lCopy)
    {
        // Zero is "at once". An event without a delay costs no order at the scheduler.
        const Time lDue = lFate.mDelay > Time(0) ? mCamera.GetScheduler().Now() + lFate.mDelay : Time(0);
        Push({aEvent, lDue});
    }
}

void AdapterEvents::OnFeatureChanged(const std::string& aName)
{
    Push({FeatureChange{aName}, Time(0)});
}

void AdapterEvents::Push(Queued aQueued)
{
    const Time lDue = aQueued.mDue;
    {
        LockScope lScope(mLock);
        mQueue.push_back(std::move(aQueued));
        mChanged.NotifyAll();
    }
    // The delivery thread waits for its condition, and the camera's clock may be a manual one. So the clock itself
    // wakes the thread. The order cannot be taken back, hence the weak pointer: it outlives the adapter.
    if (lDue > Time(0))
    {
        mCamera.GetScheduler().At(lDue,
                                  [lWeak = weak_from_this()]
                                  {
                                      if (const std::shared_ptr<AdapterEvents> lThis = lWeak.lock())
                                      {
                                          LockScope lScope(lThis->mLock);
                                          lThis->mChanged.NotifyAll();
                                      }
                                  });
    }
}

bool AdapterEvents::AddSink(IKyDeviceEventSink* aSink)
{
    LockScope lScope(mLock);
    // A second registration would deliver each event twice.
    if (std::find(mSinks.begin(), mSinks.end(), aSink) != mSinks.end())
    {
        return false;
    }
    mSinks.push_back(aSink);
    return true;
}

bool AdapterEvents::RemoveSink(IKyDeviceEventSink* aSink)
{
    LockScope lScope(mLock);
    const auto lSink = std::find(mSinks.begin(), mSinks.end(), aSink);
    const bool lFound = lSink != mSinks.end();
    if (lFound)
    {
        mSinks.erase(lSink);
    }
    // The wait also covers a sink that another thread has just removed: each caller may destroy the sink after this
    // call. One finished call is enough, because a removed sink is not called again. From inside the sink's own
    // call there is no wait: that call would wait for its own return.
    const uint64_t lCalls = mCalls;
    while (mCurrent != nullptr && mCurrent == aSink && mCalls == lCalls &&
           mThreadID != std::this_thread::get_id())
    {
        mChanged.Wait(mLock);
    }
    return lFound;
}

void AdapterEvents::AddInterest(const std::string& aName)
{
    LockScope lScope(mLock);
    // A count for each name, so that each registration needs its own withdrawal.
    ++mInterests[aName];
}

bool AdapterEvents::RemoveInterest(const std::string& aName)
{
    LockScope lScope(mLock);
    const auto lInterest = mInterests.find(aName);
    if (lInterest == mInterests.end())
    {
        return false;
    }
    // Only the last withdrawal ends the interest: several ports may have registered the same feature.
    if (--lInterest->second == 0)
    {
        mInterests.erase(lInterest);
    }
    return true;
}

std::vector<uint8_t> AdapterEvents::GetUpstream(size_t aBulk)
{
    LockScope lScope(mLock);
    // A sink reads its own port's bytes at every port's event. The bytes of an earlier event would be taken twice,
    // so this thread sees bytes of the port whose event it delivers, and of no other.
    if (std::this_thread::get_id() == mThreadID && mDelivering != aBulk)
    {
        return {};
    }
    return mUpstream[aBulk];
}

void AdapterEvents::WaitUntilIdle()
{
    LockScope lScope(mLock);
    while (mBusy || !mQueue.empty())
    {
        mChanged.Wait(mLock);
    }
}

void AdapterEvents::WaitForDue(Time aDue)
{
    while (!mStop && mCamera.GetScheduler().Now() < aDue)
    {
        mChanged.Wait(mLock); // the camera's clock wakes it
    }
}

void AdapterEvents::Run()
{
    LockScope lScope(mLock);
    mThreadID = std::this_thread::get_id();
    while (!mStop)
    {
        if (mQueue.empty())
        {
            mChanged.Wait(mLock);
            continue;
        }
        // Set before the event leaves the queue: WaitUntilIdle() never sees an empty queue while an event is on its
        // way.
        mBusy = true;
        const Queued lNext = std::move(mQueue.front());
        mQueue.pop_front();
        WaitForDue(lNext.mDue);
        if (const auto* lEvent = std::get_if<DeviceEvent>(&lNext.mWhat))
        {
            Deliver(*lEvent);
        }
        else
        {
            DeliverChange(std::get<FeatureChange>(lNext.mWhat).mName);
        }
        mBusy = false;
        mChanged.NotifyAll();
    }
}

void AdapterEvents::Deliver(const DeviceEvent& aEvent)
{
    const size_t lBulk =
        aEvent.mId >= cUpstreamEvent ? static_cast<size_t>(aEvent.mId - cUpstreamEvent) : cBulkCount;
    const uint64_t lBlockID = ++mBlockID;
    // The upstream features are set before the sinks are called: a sink reads them from inside its call.
    mDelivering = lBulk;
    // An application cannot fetch anything from a camera that is cut off. The features keep what came before
    // the cut.
    if (lBulk < cBulkCount && !mFaults.IsDisconnected())
    {
        mUpstream[lBulk] = aEvent.mData;
    }
    CallSinks(
        [&](IKyDeviceEventSink& aSink)
        {
            aSink.NotifyEvent(aEvent.mId, 0, lBlockID, static_cast<uint64_t>(aEvent.mTimestamp.count()),
                              aEvent.mData.data(), static_cast<uint32_t>(aEvent.mData.size()));
        });
    // Buffer and length change together, and the library reads both inside the report of the buffer.
    if (lBulk < cBulkCount)
    {
        DeliverChange(UpstreamBufferFeature(lBulk));
        DeliverChange(UpstreamLengthFeature(lBulk));
    }
    mDelivering = cBulkCount;
}

void AdapterEvents::DeliverChange(const std::string& aName)
{
    // Sinks hear of features that somebody has registered an interest in, and of no others.
    if (mInterests.count(aName) != 0)
    {
        const KyString lName(aName.c_str());
        CallSinks([&](IKyDeviceEventSink& aSink) { aSink.NotifyFeatureInvalidated(&lName); });
    }
}

template<typename Call>
void AdapterEvents::CallSinks(const Call& aCall)
{
    // A copy: a sink may add and remove sinks from inside its call.
    const std::vector<IKyDeviceEventSink*> lSinks = mSinks;
    for (IKyDeviceEventSink* const lSink : lSinks)
    {
        // Looked at again before each sink: the call before may have removed this one, or cut the connection.
        if (mStop || mFaults.IsDisconnected() ||
            std::find(mSinks.begin(), mSinks.end(), lSink) == mSinks.end())
        {
            continue;
        }
        // The lock is given up for the call. A sink calls the adapter back, and RemoveSink() of another thread has
        // to get in to wait for the end of this call.
        mCurrent = lSink;
        mLock.Give();
        aCall(*lSink);
        mLock.Take();
        mCurrent = nullptr;
        ++mCalls;
        mChanged.NotifyAll();
    }
}

} // namespace KySimulator
