#include "KyPlatform/WordWait.h"

#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
              std::atomic<uint32_t>::is_always_lock_free);
static_assert(cInfinite == INFINITE);

namespace
{

void* ToAddress(const std::atomic<uint32_t>* aWord) noexcept
{
    return const_cast<std::atomic<uint32_t>*>(aWord);
}

} // namespace

void WordWait::Sleep(const std::atomic<uint32_t>& aWord, uint32_t aValue, uint32_t aTimeout) noexcept
{
    // Whatever ended it, the caller looks at the word.
    static_cast<void>(::WaitOnAddress(ToAddress(&aWord), &aValue, sizeof aValue, aTimeout));
}

void WordWait::WakeOne(const std::atomic<uint32_t>* aWord) noexcept
{
    ::WakeByAddressSingle(ToAddress(aWord));
}

void WordWait::WakeAll(const std::atomic<uint32_t>* aWord) noexcept
{
    ::WakeByAddressAll(ToAddress(aWord));
}

} // namespace KyPlatform
