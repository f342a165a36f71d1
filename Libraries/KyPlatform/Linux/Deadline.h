#pragma once

#include "KyPlatform/WaitResult.h"

#include <cstdint>
#include <poll.h>

namespace KyPlatform
{

/// The end of a wait, on a clock that nobody sets.
class Deadline
{
public:
    /// \param aTimeout  Milliseconds from now; cInfinite has no end.
    explicit Deadline(uint64_t aTimeout) noexcept;

    /// Milliseconds left as poll() takes them: 0 when over, -1 without end, rounded up.
    int GetRemaining() const noexcept;

private:
    uint64_t mEnd; // nanoseconds; all bits set: never
};

/// poll() that goes on after signals. \return As poll(), 0 when the time is over.
int PollUntil(pollfd* aPolls, nfds_t aCount, const Deadline& aDeadline) noexcept;

} // namespace KyPlatform
