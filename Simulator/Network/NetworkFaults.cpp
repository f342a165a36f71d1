#include "Simulator/Network/NetworkFaults.h"

namespace KySimulator
{

void NetworkFaults::Delay(DatagramKind aKind, uint32_t aNth, Time aTime)
{
    At(aKind).mDelay.Set(aNth);
    At(aKind).mDelayTime = aTime;
}

void NetworkFaults::Late(DatagramKind aKind, uint32_t aNth, Time aTime)
{
    At(aKind).mLate.Set(aNth);
    At(aKind).mLateTime = aTime;
}

void NetworkFaults::SetSilent(uint32_t aNth, Time aTime)
{
    mSilent.Set(aNth);
    // The time is also announced to applications, so it is 0 when the fault is switched off.
    mSilentTime = aNth != 0 ? aTime : Time(0);
}

void NetworkFaults::SetSlow(uint32_t aNth, Time aTime)
{
    mSlow.Set(aNth);
    mSlowTime = aTime;
}

NetworkFaults::Fate NetworkFaults::NextFate(DatagramKind aKind)
{
    Rules& lRules = At(aKind);
    // Each rule counts every datagram, whatever the others make of it.
    const bool lDrop = lRules.mDrop.Take();
    const bool lDouble = lRules.mDouble.Take();
    const bool lDelay = lRules.mDelay.Take();
    const bool lLate = lRules.mLate.Take();
    // A datagram cannot be lost and doubled: the loss wins.
    return {lDrop     ? 0U
            : lDouble ? 2U
                      : 1U,
            lDelay ? lRules.mDelayTime : Time(0), lLate ? lRules.mLateTime : Time(0)};
}

} // namespace KySimulator
