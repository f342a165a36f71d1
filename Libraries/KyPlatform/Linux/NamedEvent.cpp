#include "KyPlatform/NamedEvent.h"

#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/SystemCalls.h"
#include "KyPlatform/ProcessorOffer.h"

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
    uint32_t mWord;
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

/// Sleeps while the word is aWord.
/// \param aTime  Milliseconds, no more than a sleeper may go without a look.
/// \return 0 or the error that ended it.
int Sleep(void* aObject, uint32_t aWord, uint32_t aTime)
{
    const timespec lTime{0, static_cast<long>(aTime) * 1000000};
    return gSystem.mFutex(GetAddress(aObject), FUTEX_WAIT, aWord, &lTime) == 0 ? 0 : errno;
}

/// Milliseconds until aUntil, rounded up, at most aLongest.
uint32_t GetLeft(Clock::time_point aUntil, uint32_t aLongest)
{
    const auto lLeft = std::chrono::ceil<std::chrono::milliseconds>(aUntil - Clock::now()).count();
    return static_cast<uint32_t>(std::clamp<int64_t>(lLeft, 0, aLongest));
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
    // The clock is left alone until a sleep has ended for nothing: reading it costs as much as all the rest.
    const bool lEndless = aTimeout == cInfinite;
    const bool lOneSleep = aTimeout <= cLookAgain;
    auto lUntil =
        lEndless || lOneSleep ? Clock::time_point() : Clock::now() + std::chrono::milliseconds(aTimeout);
    const uint32_t lFirst = lNow & cCount;
    uint32_t lTime = std::min(aTimeout, cLookAgain);
    // A count that has moved says that the event was set meanwhile, whatever it is now.
    const auto lIsOver = [&] { return (lNow & cSet) != 0 || (lNow & cCount) != lFirst; };
    const auto lLook = [&]
    {
        lNow = lWord.load();
        return lIsOver();
    };
    if (ProcessorOffer(mOffers).Make(lLook))
    {
        return WaitResult::Done;
    }
    while (!lIsOver())
    {
        if (lTime == 0)
        {
            return WaitResult::TimedOut;
        }
        if (!lWord.compare_exchange_strong(lNow, lNow | cSleepers))
        {
            continue;
        }
        const int lError = Sleep(mObject, lNow | cSleepers, lTime);
        if (lError != 0 && lError != EAGAIN && lError != EINTR && lError != ETIMEDOUT)
        {
            return WaitResult::Failed;
        }
        if (lLook())
        {
            break;
        }
        if (lOneSleep && lUntil == Clock::time_point())
        {
            lUntil = Clock::now() + std::chrono::milliseconds(lError == ETIMEDOUT ? 0 : aTimeout);
        }
        lTime = lEndless ? cLookAgain : GetLeft(lUntil, cLookAgain);
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
