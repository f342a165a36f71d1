#pragma once

#include "Simulator/Camera/CameraState.h"
#include "Simulator/Camera/Lock.h"
#include "Simulator/Ports/OutputQueue.h"

#include <memory>
#include <utility>

namespace KySimulator
{

/// A camera's state, with the lock that guards it, the clock, and the queue to the listeners. Timers and lines hold
/// it weakly.
class CameraCore : public std::enable_shared_from_this<CameraCore>
{
public:
    CameraCore(const CameraConfiguration& aConfiguration, std::shared_ptr<Scheduler> aScheduler);
    CameraCore(const CameraCore&) = delete;
    CameraCore& operator=(const CameraCore&) = delete;

    /// Does something with the state at the present moment, and then everything that has become due.
    template<typename Work>
    auto With(const Work& aWork)
    {
        if constexpr (std::is_void_v<decltype(aWork(std::declval<CameraState&>()))>)
        {
            {
                LockScope lScope(mLock);
                mState.Step(mScheduler->Now());
                aWork(mState);
                Settle();
            }
            mOutputQueue.Drain();
        }
        else
        {
            auto lResult = [&]
            {
                LockScope lScope(mLock);
                mState.Step(mScheduler->Now());
                auto lValue = aWork(mState);
                Settle();
                return lValue;
            }();
            mOutputQueue.Drain();
            return lResult;
        }
    }

    const CameraConfiguration& GetConfiguration() const { return mConfiguration; }
    const FeatureTable& GetFeatures() const { return mFeatures; }
    Scheduler& GetScheduler() const { return *mScheduler; }
    OutputQueue& GetOutputQueue() { return mOutputQueue; }
    void Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer);

private:
    /// Does what an access has made due, queues the events for the listeners and sets the next timer.
    void Settle() JX_REQUIRES(mLock);
    void OnTimer();

    const CameraConfiguration mConfiguration;
    const FeatureTable mFeatures;
    const std::shared_ptr<Scheduler> mScheduler;
    OutputQueue mOutputQueue;
    Lock mLock;
    CameraState mState JX_GUARDED_BY(mLock);
    Time mOrdered JX_GUARDED_BY(mLock) = cNever;
};

} // namespace KySimulator
