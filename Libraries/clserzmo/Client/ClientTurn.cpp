#include "ClientTurn.h"

#include "JxUtilsLib/LockScope.h"

namespace KySerialLib
{

bool ClientTurn::Take(const KyPlatform::Deadline& aDeadline, const std::atomic<bool>& aStop)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    while (mTaken)
    {
        // Nothing wakes the waiters when aStop becomes true, so they look at it by themselves.
        const uint32_t lLeft = aDeadline.GetRemaining(cLookAgain);
        if (aStop || lLeft == 0)
        {
            return false;
        }
        mFree.WaitFor(mMutex, lLeft);
    }
    mTaken = true;
    return true;
}

void ClientTurn::GiveBack()
{
    const JxUtilsLib::LockScope lLock(mMutex);
    mTaken = false;
    mFree.NotifyAll();
}

} // namespace KySerialLib
