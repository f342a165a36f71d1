#include "KyPlatform/Timers.h"

#include <sys/prctl.h>

namespace KyPlatform
{

// The system may otherwise put off the end of each wait by 50 us, to end several at once.
void TightenTimers() noexcept
{
    constexpr unsigned long cNanoseconds = 1000;
    static_cast<void>(::prctl(PR_SET_TIMERSLACK, cNanoseconds, 0UL, 0UL, 0UL));
}

} // namespace KyPlatform
