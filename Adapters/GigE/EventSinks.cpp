#include "Adapters/GigE/EventSinks.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>

namespace KyGigE
{

using JxUtilsLib::LockScope;

bool EventSinks::Add(IKyDeviceEventSink* aSink)
{
    const LockScope lScope(mLock);
    if (std::find(mSinks.begin(), mSinks.end(), aSink) != mSinks.end())
    {
        return false;
    }
    mSinks.push_back(aSink);
    return true;
}

bool EventSinks::Remove(IKyDeviceEventSink* aSink)
{
    const LockScope lScope(mLock);
    const auto lSink = std::find(mSinks.begin(), mSinks.end(), aSink);
    const bool lFound = lSink != mSinks.end();
    if (lFound)
    {
        mSinks.erase(lSink);
    }
    // The wait also covers a sink that another thread has just removed: each caller may destroy the sink after this
    // call. From inside the sink's own call there is no wait: that call would wait for its own return.
    const uint64_t lCalls = mCalls;
    while (mCurrent != nullptr && mCurrent == aSink && mCalls == lCalls &&
           mThread != std::this_thread::get_id())
    {
        mEnded.Wait(mLock);
    }
    return lFound;
}

void EventSinks::AddInterest(const std::string& aName)
{
    const LockScope lScope(mLock);
    // A count for each name: two ports may be interested in one feature, and withdraw one after the other.
    ++mInterests[aName];
    mInterestCount = mInterests.size();
}

bool EventSinks::RemoveInterest(const std::string& aName)
{
    const LockScope lScope(mLock);
    const auto lInterest = mInterests.find(aName);
    if (lInterest == mInterests.end())
    {
        return false;
    }
    if (--lInterest->second == 0)
    {
        mInterests.erase(lInterest);
        mInterestCount = mInterests.size();
    }
    return true;
}

bool EventSinks::HasInterest(const std::string& aName)
{
    const LockScope lScope(mLock);
    return mInterests.count(aName) != 0;
}

std::vector<std::string> EventSinks::GetInterests()
{
    const LockScope lScope(mLock);
    std::vector<std::string> lNames;
    lNames.reserve(mInterests.size());
    for (const auto& [lName, lCount] : mInterests)
    {
        lNames.push_back(lName);
    }
    return lNames;
}

bool EventSinks::BeginCall(IKyDeviceEventSink* aSink)
{
    const LockScope lScope(mLock);
    // A sink that was removed since the copy was made is not called: the object may be gone.
    if (std::find(mSinks.begin(), mSinks.end(), aSink) == mSinks.end())
    {
        return false;
    }
    mCurrent = aSink;
    mThread = std::this_thread::get_id();
    return true;
}

void EventSinks::EndCall()
{
    const LockScope lScope(mLock);
    mCurrent = nullptr;
    ++mCalls;
    mEnded.NotifyAll();
}

void EventSinks::Call(const std::function<void(IKyDeviceEventSink&)>& aCall)
{
    std::vector<IKyDeviceEventSink*> lSinks;
    {
        const LockScope lScope(mLock);
        // A copy: sinks register and remove sinks, themselves too, while they are called.
        lSinks = mSinks;
    }
    for (IKyDeviceEventSink* const lSink : lSinks)
    {
        if (BeginCall(lSink))
        {
            try
            {
                aCall(*lSink);
            }
            catch (...)
            {
                EndCall(); // otherwise a thread that removes this sink waits for ever
                throw;
            }
            EndCall();
        }
    }
}

} // namespace KyGigE
