#include "KyPlatform/NamedEvent.h"

#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <linux/futex.h>

namespace KyPlatform
{

namespace
{

constexpr char cKind[] = ".event";
constexpr uint32_t cMark = 0x3145794BU; // "KyE1"

/// The word: bit 0 set, bit 1 somebody may be asleep, the rest counts how often it was set.
constexpr uint32_t cSet = 1;
constexpr uint32_t cSleepers = 2;
constexpr uint32_t cOneMore = 4;
constexpr uint32_t cCount = ~(cSet | cSleepers);

struct Record
{
    uint32_t mMark;
    alignas(64) uint32_t mWord;
};

bool FillRecord(void* aBase, const void* /*aContext*/)
{
    static_cast<Record*>(aBase)->mMark = cMark;
    return true;
}

uint32_t* GetAddress(void* aObject)
{
    return &static_cast<Record*>(static_cast<NamedFile*>(aObject)->GetBase())->mWord;
}

std::atomic_ref<uint32_t> GetWord(void* aObject)
{
    return std::atomic_ref<uint32_t>(*GetAddress(aObject));
}

using Clock = std::chrono::steady_clock;

/// Sleeps while the word is aWord, at most until aUntil and never longer than a sleeper may go without a
/// look. \return False: aUntil has passed, or the system refused.
bool Sleep(void* aObject, uint32_t aWord, bool aEndless, Clock::time_point aUntil)
{
    auto lLeft = std::chrono::nanoseconds(std::chrono::milliseconds(NamedEvent::cLookAgain));
    if (!aEndless)
    {
        lLeft = std::min(lLeft, std::chrono::duration_cast<std::chrono::nanoseconds>(aUntil - Clock::now()));
        if (lLeft.count() <= 0)
        {
            return false;
        }
    }
    const timespec lTime{lLeft.count() / 1000000000, lLeft.count() % 1000000000};
    return gSystem.mFutex(GetAddress(aObject), FUTEX_WAIT, aWord, &lTime) == 0 || errno == EAGAIN ||
           errno == EINTR || errno == ETIMEDOUT;
}

} // namespace

bool NamedEvent::Create(const std::string& aName) noexcept
{
    Close();
    mObject = CreateRecord(aName, cKind, sizeof(Record), cMark, &FillRecord, nullptr);
    return mObject != nullptr;
}

bool NamedEvent::Open(const std::string& aName) noexcept
{
    Close();
    mObject = OpenRecord(aName, cKind, sizeof(Record), cMark);
    return mObject != nullptr;
}

bool NamedEvent::Close() noexcept
{
    auto* const lFile = static_cast<NamedFile*>(std::exchange(mObject, nullptr));
    const bool lDone = lFile == nullptr || lFile->Close();
    delete lFile;
    return lDone;
}

bool NamedEvent::Set() noexcept
{
    bool lWake = false;
    return Raise(lWake) && (!lWake || Wake());
}

bool NamedEvent::Raise(bool& aWake) noexcept
{
    aWake = false;
    if (mObject == nullptr)
    {
        return false;
    }
    const std::atomic_ref<uint32_t> lWord = GetWord(mObject);
    uint32_t lOld = lWord.load();
    while ((lOld & cSet) == 0 && !lWord.compare_exchange_weak(lOld, ((lOld & cCount) + cOneMore) | cSet))
    {
    }
    aWake = (lOld & (cSet | cSleepers)) == cSleepers;
    return true;
}

bool NamedEvent::Wake() noexcept
{
    return mObject != nullptr && gSystem.mFutex(GetAddress(mObject), FUTEX_WAKE, INT_MAX, nullptr) >= 0;
}

bool NamedEvent::Reset() noexcept
{
    if (mObject == nullptr)
    {
        return false;
    }
    const std::atomic_ref<uint32_t> lWord = GetWord(mObject);
    uint32_t lOld = lWord.load();
    while ((lOld & cSet) != 0 && !lWord.compare_exchange_weak(lOld, lOld & cCount))
    {
    }
    return true;
}

WaitResult NamedEvent::Wait(uint32_t aTimeout) noexcept
{
    if (mObject == nullptr)
    {
        return WaitResult::Failed;
    }
    const std::atomic_ref<uint32_t> lWord = GetWord(mObject);
    uint32_t lNow = lWord.load();
    if ((lNow & cSet) != 0)
    {
        return WaitResult::Done;
    }
    if (aTimeout == 0)
    {
        return WaitResult::TimedOut;
    }
    const bool lEndless = aTimeout == cInfinite;
    const Clock::time_point lUntil =
        lEndless ? Clock::time_point() : Clock::now() + std::chrono::milliseconds(aTimeout);
    const uint32_t lFirst = lNow & cCount;
    // A count that moved says that the event was set meanwhile, whatever it is now.
    while ((lNow & cSet) == 0 && (lNow & cCount) == lFirst)
    {
        const uint32_t lAsleep = lNow | cSleepers;
        if (!lWord.compare_exchange_strong(lNow, lAsleep))
        {
            continue;
        }
        if (!Sleep(mObject, lAsleep, lEndless, lUntil))
        {
            lNow = lWord.load();
            return (lNow & cSet) != 0 || (lNow & cCount) != lFirst ? WaitResult::Done : WaitResult::TimedOut;
        }
        lNow = lWord.load();
    }
    return WaitResult::Done;
}

WaitResult NamedEvent::WaitThenLock(NamedMutex& aMutex, uint32_t aTimeout, uint32_t aLockTimeout) noexcept
{
    const WaitResult lResult = aMutex.IsValid() ? Wait(aTimeout) : WaitResult::Failed;
    if (lResult != WaitResult::Done)
    {
        return lResult;
    }
    const WaitResult lLock = aMutex.Wait(aLockTimeout);
    return IsOwned(lLock) ? lLock : WaitResult::Failed;
}

} // namespace KyPlatform
