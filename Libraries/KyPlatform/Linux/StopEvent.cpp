#include "KyPlatform/StopEvent.h"

#include "KyPlatform/Linux/HostHandle.h"
#include "KyPlatform/Linux/Poll.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>

namespace KyPlatform
{

bool StopEvent::Create() noexcept
{
    Close();
    mObject = ToHandle(gSystem.mMakeEvent(0, EFD_CLOEXEC | EFD_NONBLOCK));
    return mObject != nullptr;
}

void StopEvent::Close() noexcept
{
    void* const lObject = std::exchange(mObject, nullptr);
    if (lObject != nullptr)
    {
        static_cast<void>(gSystem.mClose(ToDescriptor(lObject))); // ignored: there is nothing left to undo
    }
}

bool StopEvent::Set() noexcept
{
    const uint64_t lOne = 1;
    // A counter at its limit refuses more; it is set all the same.
    return mObject != nullptr &&
           (gSystem.mWrite(ToDescriptor(mObject), &lOne, sizeof lOne) == static_cast<ssize_t>(sizeof lOne) ||
            errno == EAGAIN);
}

WaitResult StopEvent::Wait(uint32_t aTimeout) noexcept
{
    if (mObject == nullptr)
    {
        return WaitResult::Failed;
    }
    pollfd lPoll{ToDescriptor(mObject), POLLIN, 0}; // never read: what is set stays set
    const int lReady = PollUntil(&lPoll, 1, Deadline(aTimeout));
    if (lReady < 0)
    {
        return WaitResult::Failed;
    }
    return lReady > 0 ? WaitResult::Done : WaitResult::TimedOut;
}

} // namespace KyPlatform
