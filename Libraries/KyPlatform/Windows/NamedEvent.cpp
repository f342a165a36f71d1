#include "KyPlatform/NamedEvent.h"

#include "KyPlatform/Windows/Obstacle.h"
#include "KyPlatform/Windows/SystemCalls.h"
#include "KyPlatform/Windows/WaitFor.h"

namespace KyPlatform
{

bool NamedEvent::Create(const std::string& aName) noexcept
{
    Close();
    mObject = Obstacle::Check(gSystem.mCreateEvent(nullptr, TRUE, FALSE, aName.c_str()));
    return mObject != nullptr;
}

bool NamedEvent::Open(const std::string& aName) noexcept
{
    Close();
    mObject = gSystem.mOpenEvent(SYNCHRONIZE | EVENT_MODIFY_STATE, FALSE, aName.c_str());
    return mObject != nullptr;
}

bool NamedEvent::Close() noexcept
{
    void* const lHandle = std::exchange(mObject, nullptr);
    return lHandle == nullptr || gSystem.mCloseHandle(lHandle) != FALSE;
}

bool NamedEvent::Set() noexcept
{
    return mObject != nullptr && gSystem.mSetEvent(mObject) != FALSE;
}

bool NamedEvent::Raise(bool& aWake) noexcept
{
    aWake = false;
    return Set();
}

bool NamedEvent::Wake() noexcept
{
    return mObject != nullptr;
}

bool NamedEvent::Reset() noexcept
{
    return mObject != nullptr && gSystem.mResetEvent(mObject) != FALSE;
}

WaitResult NamedEvent::Wait(uint32_t aTimeout) noexcept
{
    return WaitFor(mObject, aTimeout);
}

WaitResult NamedEvent::WaitThenLock(NamedMutex& aMutex, uint32_t aTimeout, uint32_t aLockTimeout) noexcept
{
    if (mObject == nullptr || aMutex.mObject == nullptr)
    {
        return WaitResult::Failed;
    }
    const HANDLE lBoth[] = {mObject, aMutex.mObject};
    const DWORD lResult = gSystem.mWaitForAll(2, lBoth, TRUE, aTimeout);
    if (lResult == WAIT_OBJECT_0 || lResult == WAIT_OBJECT_0 + 1)
    {
        return WaitResult::Done;
    }
    if (lResult == WAIT_ABANDONED_0 || lResult == WAIT_ABANDONED_0 + 1)
    {
        return WaitResult::OwnerDied;
    }
    // The time may have passed with the event set and the lock held by another.
    const WaitResult lEvent = lResult == WAIT_TIMEOUT ? Wait(0) : WaitResult::Failed;
    if (lEvent != WaitResult::Done)
    {
        return lEvent;
    }
    const WaitResult lLock = aMutex.Wait(aLockTimeout);
    return IsOwned(lLock) ? lLock : WaitResult::Failed;
}

} // namespace KyPlatform
