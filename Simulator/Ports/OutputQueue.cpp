#include "Simulator/Ports/OutputQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace KySimulator
{

namespace
{

void CallPeer(const PeerNews& aNews)
{
    // A line for a peer that was plugged in, bytes for one that hears them, neither for one that was unplugged.
    if (const auto* lLine = std::get_if<std::shared_ptr<SerialLine>>(&aNews.mWhat))
    {
        aNews.mPeer->OnPlugged(*lLine);
    }
    else if (const auto* lBytes = std::get_if<std::vector<uint8_t>>(&aNews.mWhat))
    {
        aNews.mPeer->OnReceived(lBytes->data(), lBytes->size());
    }
    else
    {
        aNews.mPeer->OnUnplugged();
    }
}

void CallListener(CameraListener& aListener, const Output& aOutput)
{
    if (const auto* lEvent = std::get_if<DeviceEvent>(&aOutput))
    {
        aListener.OnDeviceEvent(*lEvent);
    }
    else if (const auto* lChange = std::get_if<FeatureChange>(&aOutput))
    {
        aListener.OnFeatureChanged(lChange->mName);
    }
}

} // namespace

void OutputQueue::AddListener(CameraListener* aListener)
{
    LockScope lScope(mLock);
    // A second registration would deliver each event twice.
    if (aListener != nullptr &&
        std::find(mListeners.begin(), mListeners.end(), aListener) == mListeners.end())
    {
        mListeners.push_back(aListener);
    }
}

void OutputQueue::RemoveListener(CameraListener* aListener)
{
    LockScope lScope(mLock);
    mListeners.erase(std::remove(mListeners.begin(), mListeners.end(), aListener), mListeners.end());
    // The call that runs may be followed by another one of the same listener, if it was added again: one call is
    // waited for. A listener that removes itself would wait for its own return.
    const uint64_t lCalls = mCalls;
    while (aListener != nullptr && mCurrent == aListener && mCalls == lCalls &&
           mDrainer != std::this_thread::get_id())
    {
        mChanged.Wait(mLock);
    }
}

void OutputQueue::Post(std::vector<Output> aOutputs)
{
    LockScope lScope(mLock);
    // After Shut() there is nobody to deliver to, and outputs hold their peers.
    if (!mShut)
    {
        std::move(aOutputs.begin(), aOutputs.end(), std::back_inserter(mOutputs));
    }
}

void OutputQueue::Drain()
{
    LockScope lScope(mLock);
    // One thread delivers at a time, so events come in order. The thread that is at it also takes what has just
    // been posted.
    if (mDraining)
    {
        return;
    }
    mDraining = true;
    mDrainer = std::this_thread::get_id();
    // Looked at after each delivery: what a peer answers is posted meanwhile.
    while (!mOutputs.empty())
    {
        const Output lOutput = std::move(mOutputs.front());
        mOutputs.pop_front();
        Deliver(lOutput);
    }
    mDraining = false;
    mDrainer = std::thread::id();
    mChanged.NotifyAll();
}

void OutputQueue::Deliver(const Output& aOutput)
{
    if (const auto* lNews = std::get_if<PeerNews>(&aOutput))
    {
        // The lock is given up for the call: a peer that answers posts to this very queue.
        mLock.Give();
        CallPeer(*lNews);
        mLock.Take();
        return;
    }
    CallListeners(aOutput);
}

void OutputQueue::CallListeners(const Output& aOutput)
{
    const std::vector<CameraListener*> lListeners = mListeners; // calls add and remove some
    for (CameraListener* const lListener : lListeners)
    {
        if (std::find(mListeners.begin(), mListeners.end(), lListener) == mListeners.end())
        {
            continue; // removed by a call before this one
        }
        // The lock is given up for the call: listeners use the camera, whose accesses post to this queue.
        mCurrent = lListener;
        mLock.Give();
        CallListener(*lListener, aOutput);
        mLock.Take();
        mCurrent = nullptr;
        ++mCalls;
        mChanged.NotifyAll();
    }
}

void OutputQueue::WaitUntilDrained()
{
    LockScope lScope(mLock);
    // A callback that asks would wait for its own return, so the delivering thread does not wait.
    while (mDraining && mDrainer != std::this_thread::get_id())
    {
        mChanged.Wait(mLock);
    }
}

void OutputQueue::Shut()
{
    LockScope lScope(mLock);
    // The queue is emptied first, so that the running delivery ends with its present call.
    mShut = true;
    mOutputs.clear();
    mListeners.clear();
    while (mDraining && mDrainer != std::this_thread::get_id())
    {
        mChanged.Wait(mLock);
    }
}

} // namespace KySimulator
