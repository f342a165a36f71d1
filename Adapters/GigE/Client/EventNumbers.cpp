#include "Adapters/GigE/Client/EventNumbers.h"

namespace KyGigE
{

bool EventNumbers::Fits(uint64_t aNumber, unsigned aBits)
{
    const uint64_t lMask = aBits >= 64 ? UINT64_MAX : (uint64_t{1} << aBits) - 1;
    // Distances on the circle of the counter, which has 16 or 64 bits and wraps.
    const uint64_t lForward = (aNumber - mLast) & lMask;
    const uint64_t lBackward = (mLast - aNumber) & lMask;
    const bool lNear = lForward <= cReach || lBackward <= cReach;
    // Doubted once only: a device that has leaped sends the event again, and is believed then.
    if (mInRow >= cSure && !lNear && !(mDoubts && mDoubted == aNumber))
    {
        mDoubts = true;
        mDoubted = aNumber;
        return false;
    }
    mDoubts = false;
    const bool lCounts = lForward == 1 || (lForward == 2 && aNumber == 1); // 0 may be left out
    // Before the counter is known, and after a leap that was believed, the number counts anew from here.
    if (mInRow < cSure || !lNear)
    {
        mInRow = lCounts ? mInRow + 1 : 0;
        mLast = aNumber;
    }
    // A number from before is that of an event that comes late, and moves nothing back.
    else if (lForward <= cReach)
    {
        mLast = aNumber;
    }
    return true;
}

} // namespace KyGigE
