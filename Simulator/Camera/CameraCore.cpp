#include "Simulator/Camera/CameraCore.h"

namespace KySimulator
{

namespace
{

/// The peer's end of a port. It holds the camera weakly: a peer may outlive its camera, and the camera owns the
/// peer.
class CameraLine final : public SerialLine
{
public:
    CameraLine(std::weak_ptr<CameraCore> aCore, Port aPort) : mCore(std::move(aCore)), mPort(aPort) {}

    void Send(const uint8_t* aData, size_t aSize, Time aDelay) override
    {
        if (const std::shared_ptr<CameraCore> lCore = mCore.lock())
        {
            // The line is passed along, so that the camera can refuse bytes of a line that it has replaced
            // meanwhile.
            lCore->With([&](CameraState& aState) { aState.ArriveFrom(this, mPort, aData, aSize, aDelay); });
        }
    }

    Time Now() const override
    {
        const std::shared_ptr<CameraCore> lCore = mCore.lock();
        return lCore != nullptr ? lCore->GetScheduler().Now() : Time(0);
    }

private:
    const std::weak_ptr<CameraCore> mCore;
    const Port mPort;
};

} // namespace

CameraCore::CameraCore(const CameraConfiguration& aConfiguration, std::shared_ptr<Scheduler> aScheduler)
    : mConfiguration(aConfiguration)
    , mFeatures(MakeFeatureTable(aConfiguration))
    , mScheduler(std::move(aScheduler))
    , mState(aConfiguration)
{
}

void CameraCore::Settle()
{
    mState.Step(mScheduler->Now()); // on lines without time an access makes something due at once
    // Posted under the lock, so that events are queued in the order of their causes. Listeners are called later,
    // without the lock.
    mOutputQueue.Post(mState.TakeOutputs());
    const Time lNext = mState.NextDue();
    // An order cannot be taken back. So a new one is placed only when something is due earlier than the earliest
    // order; a later order stays and finds less to do.
    if (lNext < mOrdered)
    {
        mOrdered = lNext;
        mScheduler->At(lNext,
                       [lWeak = weak_from_this()]
                       {
                           if (const std::shared_ptr<CameraCore> lCore = lWeak.lock())
                           {
                               lCore->OnTimer();
                           }
                       });
    }
}

void CameraCore::OnTimer()
{
    {
        LockScope lScope(mLock);
        // An older, later order may fire while the earliest one is still to come. That one must stay noted, or it
        // would be placed again.
        if (mScheduler->Now() >= mOrdered)
        {
            mOrdered = cNever;
        }
        mState.Step(mScheduler->Now());
        Settle();
    }
    mOutputQueue.Drain();
}

void CameraCore::Plug(Port aPort, std::shared_ptr<SerialPeer> aPeer)
{
    std::shared_ptr<SerialLine> lLine;
    if (aPeer != nullptr)
    {
        lLine = std::make_shared<CameraLine>(weak_from_this(), aPort);
    }
    With(
        [&](CameraState& aState)
        {
            // A port that this camera does not have is no error: the same equipment fits every configuration.
            if (aState.Find(aPort) != nullptr)
            {
                aState.Plug(aPort, aPeer, lLine);
            }
        });
}

} // namespace KySimulator
