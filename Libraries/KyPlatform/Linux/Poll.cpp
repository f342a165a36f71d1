#include "KyPlatform/Linux/Poll.h"

#include "KyPlatform/Linux/SystemCalls.h"

#include <cerrno>
#include <climits>

namespace KyPlatform
{

int PollUntil(pollfd* aPolls, nfds_t aCount, const Deadline& aDeadline) noexcept
{
    for (;;)
    {
        const int lTime = aDeadline.IsEndless() ? -1 : static_cast<int>(aDeadline.GetRemaining(INT_MAX));
        const int lReady = gSystem.mPoll(aPolls, aCount, lTime);
        // A signal ends the call, and not the wait: the rest of the time is waited for.
        if (lReady >= 0 || errno != EINTR)
        {
            return lReady;
        }
    }
}

} // namespace KyPlatform
