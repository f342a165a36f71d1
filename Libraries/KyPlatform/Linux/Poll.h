#pragma once

#include "KyPlatform/Deadline.h"

#include <poll.h>

namespace KyPlatform
{

/// poll() that goes on after signals. \return As poll(), 0 when the time is over.
int PollUntil(pollfd* aPolls, nfds_t aCount, const Deadline& aDeadline) noexcept;

} // namespace KyPlatform
