#pragma once

#include "Simulator/Camera/Lock.h"
#include "Simulator/Peers/SerialPeer.h"

#include <memory>

namespace KySimulator
{

/// Sends everything back: the plug with receive and transmit joined. Any thread.
class LoopbackPeer : public SerialPeer
{
public:
    /// \param aDelay  Time between a byte's end and its way back.
    explicit LoopbackPeer(Time aDelay = Time(0));

    void OnPlugged(const std::shared_ptr<SerialLine>& aLine) override;
    void OnReceived(const uint8_t* aData, size_t aSize) override;
    void OnUnplugged() override;

private:
    const Time mDelay;
    Lock mLock;
    std::shared_ptr<SerialLine> mLine JX_GUARDED_BY(mLock);
};

} // namespace KySimulator
