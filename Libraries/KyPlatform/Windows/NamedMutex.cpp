#include "KyPlatform/NamedMutex.h"

#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

bool NamedMutex::Create(const std::string& aName) noexcept
{
    Close();
    mObject = gSystem.mCreateMutex(nullptr, FALSE, aName.c_str());
    return mObject != nullptr;
}

bool NamedMutex::Open(const std::string& aName) noexcept
{
    Close();
    mObject = gSystem.mOpenMutex(MUTEX_ALL_ACCESS, FALSE, aName.c_str());
    if (mObject == nullptr)
    {
        // Enough to use the lock, and all that another session may be granted.
        mObject = gSystem.mOpenMutex(SYNCHRONIZE, FALSE, aName.c_str());
    }
    return mObject != nullptr;
}

bool NamedMutex::Close() noexcept
{
    void* const lHandle = std::exchange(mObject, nullptr);
    return lHandle == nullptr || gSystem.mCloseHandle(lHandle) != FALSE;
}

WaitResult NamedMutex::Wait(uint32_t aTimeout) noexcept
{
    static_assert(cInfinite == INFINITE);
    switch (mObject != nullptr ? gSystem.mWait(mObject, aTimeout) : WAIT_FAILED)
    {
    case WAIT_OBJECT_0:
        return WaitResult::Done;
    case WAIT_ABANDONED:
        return WaitResult::OwnerDied;
    case WAIT_TIMEOUT:
        return WaitResult::TimedOut;
    default:
        return WaitResult::Failed;
    }
}

bool NamedMutex::Release() noexcept
{
    return mObject != nullptr && gSystem.mReleaseMutex(mObject) != FALSE;
}

} // namespace KyPlatform
