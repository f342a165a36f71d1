#include "KyPlatform/NamedEvent.h"

#include "KyPlatform/AdaptiveSpin.h"
#include "KyPlatform/Deadline.h"
#include "KyPlatform/Linux/NamedFile.h"
#include "KyPlatform/Linux/SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <linux/futex.h>
#include <optional>

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

/// Sleeps while the word is aWord.
/// \param aTime  Milliseconds, cLookAgain at most: after that a sleeper looks at the word itself.
/// \return 0 or the error that ended it.
int Sleep(void* aObject, uint32_t aWord, uint32_t aTime)
{
    const timespec lTime{0, static_cast<long>(aTime) * 1000000};
    return gSystem.mFutex(GetAddress(aObject), FUTEX_WAIT, aWord, &lTime) == 0 ? 0 : errno;
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
    // When the event was set already, the call that set it wakes the sleepers.
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
    // The count stays. It shows a sleeper that the event was set, though it is not set any more.
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
    // The clock is read only after a sleep that ended without a reason: reading it costs as much as all the rest.
    const bool lOneSleep = aTimeout <= cLookAgain;
    std::optional<Deadline> lUntil;
    if (!lOneSleep)
    {
        lUntil.emplace(aTimeout);
    }
    const uint32_t lFirst = lNow & cCount;
    uint32_t lTime = std::min(aTimeout, cLookAgain);
    // When the count has changed, the event was set meanwhile, even if it has been reset since.
    const auto lIsOver = [&] { return (lNow & cSet) != 0 || (lNow & cCount) != lFirst; };
    const auto lLook = [&]
    {
        lNow = lWord.load();
        return lIsOver();
    };
    if (AdaptiveSpin(mSpin, lLook))
    {
        return WaitResult::Done;
    }
    while (!lIsOver())
    {
        if (lTime == 0)
        {
            return WaitResult::TimedOut;
        }
        // The flag goes before the sleep: Raise() asks for a wake-up only when it finds it. A set in between
        // changes the word, and the system does not let the thread sleep then.
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
        if (!lUntil)
        {
            lUntil.emplace(lError == ETIMEDOUT ? 0 : aTimeout);
        }
        lTime = lUntil->GetRemaining(cLookAgain);
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
