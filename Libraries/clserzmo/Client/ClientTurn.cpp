#include "ClientTurn.h"

namespace KySerialLib
{

bool ClientTurn::Take(const KyPlatform::Deadline& aDeadline, const std::atomic<bool>& aStop)
{
    std::unique_lock<std::mutex> lLock(mMutex);
    while (mTaken)
    {
        const uint32_t lLeft = aDeadline.GetRemaining();
        if (aStop || lLeft == 0)
        {
            return false;
        }
        const auto lUntil =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(std::min(lLeft, cLookAgain));
        mFree.wait_until(lLock, lUntil);
    }
    mTaken = true;
    return true;
}

void ClientTurn::GiveBack()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mTaken = false;
    mFree.notify_one();
}

} // namespace KySerialLib
