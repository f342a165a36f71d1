#include "KyPlatform/WordWait.h"

#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KyPlatform
{

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);

void WordWait::Sleep(const std::atomic<uint32_t>& aWord, uint32_t aValue, uint32_t aTimeout) noexcept
{
    const timespec lTime{static_cast<time_t>(aTimeout / 1000), static_cast<long>(aTimeout % 1000) * 1000000};
    // Whatever ended it, the caller looks at the word.
    ::syscall(SYS_futex, &aWord, FUTEX_WAIT_PRIVATE, aValue, aTimeout == cInfinite ? nullptr : &lTime,
              nullptr, 0);
}

void WordWait::WakeOne(const std::atomic<uint32_t>* aWord) noexcept
{
    ::syscall(SYS_futex, aWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void WordWait::WakeAll(const std::atomic<uint32_t>* aWord) noexcept
{
    ::syscall(SYS_futex, aWord, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace KyPlatform
