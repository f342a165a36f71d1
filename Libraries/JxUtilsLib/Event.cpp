#include "JxUtilsLib/Event.h"

#include "KyPlatform/AdaptiveSpin.h"
#include "KyPlatform/Deadline.h"
#include "KyPlatform/WordWait.h"

namespace JxUtilsLib
{

namespace
{

// This is the one class of the library that is not plain standard C++. A standard lock and condition variable
// would work. But with the Windows compiler they are kernel objects, and a wake-up through them costs several
// calls where a word costs one. std::atomic waits at a word too, but knows no time-out.

/// The word: bit 0 means set, the other bits count the waiters.
constexpr uint32_t cSet = 1;
constexpr uint32_t cOneWaiter = 2;

} // namespace

Event::Event(bool aManualReset) : mManualReset(aManualReset) {}

Event::~Event() = default;

void Event::Set() noexcept
{
    const bool lAll = mManualReset;
    // After Raise() only the address is used: a waiter may destroy the event as soon as it has seen the signal.
    if (Raise())
    {
        lAll ? KyPlatform::WordWait::WakeAll(&mWord) : KyPlatform::WordWait::WakeOne(&mWord);
    }
}

bool Event::Raise() noexcept
{
    // The bits above the flag count the waiters: without them, or on an event
    // that is set, nobody needs a wake-up.
    const uint32_t lOld = mWord.fetch_or(cSet);
    return (lOld & cSet) == 0 && lOld != 0;
}

void Event::Wake() noexcept
{
    mManualReset ? KyPlatform::WordWait::WakeAll(&mWord) : KyPlatform::WordWait::WakeOne(&mWord);
}

void Event::Reset() noexcept
{
    mWord.fetch_and(~cSet);
}

bool Event::Take() noexcept
{
    uint32_t lWord = mWord.load();
    while ((lWord & cSet) != 0)
    {
        if (mManualReset || mWord.compare_exchange_weak(lWord, lWord & ~cSet))
        {
            return true;
        }
    }
    return false;
}

bool Event::Wait_ms(uint32_t aTimeout) noexcept
{
    if (Take())
    {
        return true; // without a look at the clock, which costs as much as all the rest
    }
    if (aTimeout == 0)
    {
        return false;
    }
    const KyPlatform::Deadline lUntil(aTimeout);
    if (KyPlatform::AdaptiveSpin(mSpin, [this] { return Take(); }))
    {
        return true;
    }
    bool lSlept = false;
    uint32_t lWord = mWord.fetch_add(cOneWaiter) + cOneWaiter;
    for (;;)
    {
        // Before the first sleep all of the time counts as left, so the clock is not read for that.
        const bool lIsSet = (lWord & cSet) != 0;
        const uint32_t lLeft = lIsSet || !lSlept ? aTimeout : lUntil.GetRemaining();
        if (lIsSet || lLeft == 0)
        {
            // The waiter leaves and takes the signal in one step, so that no second one gets through with it.
            const uint32_t lTaken = lIsSet && !mManualReset ? cSet : 0;
            if (mWord.compare_exchange_weak(lWord, lWord - cOneWaiter - lTaken))
            {
                return lIsSet;
            }
            continue;
        }
        KyPlatform::WordWait::Sleep(mWord, lWord, lLeft);
        lSlept = true;
        lWord = mWord.load();
    }
}

} // namespace JxUtilsLib
