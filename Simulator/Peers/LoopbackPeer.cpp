#include "Simulator/Peers/LoopbackPeer.h"

namespace KySimulator
{

LoopbackPeer::LoopbackPeer(Time aDelay) : mDelay(aDelay) {}

void LoopbackPeer::OnPlugged(const std::shared_ptr<SerialLine>& aLine)
{
    LockScope lScope(mLock);
    mLine = aLine;
}

void LoopbackPeer::OnReceived(const uint8_t* aData, size_t aSize)
{
    // The line is used without the lock: sending calls the camera, which may unplug this peer meanwhile.
    std::shared_ptr<SerialLine> lLine;
    {
        LockScope lScope(mLock);
        lLine = mLine;
    }
    if (lLine != nullptr)
    {
        lLine->Send(aData, aSize, mDelay);
    }
}

void LoopbackPeer::OnUnplugged()
{
    LockScope lScope(mLock);
    mLine.reset();
}

} // namespace KySimulator
