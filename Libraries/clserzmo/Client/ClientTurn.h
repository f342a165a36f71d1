#pragma once

#include "JxUtilsLib/Condition.h"
#include "KyPlatform/Deadline.h"

#include <atomic>

namespace KySerialLib
{

/// Lets one thread after the other do something that takes long.
class ClientTurn
{
public:
    /// Waits for the turn.
    /// \param aStop  Once true, ends the wait, at most cLookAgain milliseconds later.
    /// \return Whether the caller has the turn.
    bool Take(const KyPlatform::Deadline& aDeadline, const std::atomic<bool>& aStop);
    void GiveBack();

    static constexpr uint32_t cLookAgain = 50;

private:
    JxUtilsLib::Mutex mMutex;
    JxUtilsLib::Condition mFree;
    bool mTaken JX_GUARDED_BY(mMutex) = false;
};

/// A turn from construction to destruction, if it came in time.
class ClientTurnScope
{
public:
    ClientTurnScope(ClientTurn& aTurn, const KyPlatform::Deadline& aDeadline, const std::atomic<bool>& aStop)
        : mTurn(aTurn), mIsMine(aTurn.Take(aDeadline, aStop))
    {
    }
    ~ClientTurnScope()
    {
        if (mIsMine)
        {
            mTurn.GiveBack();
        }
    }
    ClientTurnScope(const ClientTurnScope&) = delete;
    ClientTurnScope& operator=(const ClientTurnScope&) = delete;

    bool IsMine() const { return mIsMine; }

private:
    ClientTurn& mTurn;
    const bool mIsMine;
};

} // namespace KySerialLib
