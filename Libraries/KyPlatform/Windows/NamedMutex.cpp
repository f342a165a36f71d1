#include "KyPlatform/NamedMutex.h"

#include "KyPlatform/Windows/Obstacle.h"
#include "KyPlatform/Windows/SystemCalls.h"
#include "KyPlatform/Windows/WaitFor.h"

namespace KyPlatform
{

bool NamedMutex::Create(const std::string& aName) noexcept
{
    Close();
    mObject = Obstacle::Check(gSystem.mCreateMutex(nullptr, FALSE, aName.c_str()));
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
    return WaitFor(mObject, aTimeout);
}

bool NamedMutex::Release() noexcept
{
    return mObject != nullptr && gSystem.mReleaseMutex(mObject) != FALSE;
}

} // namespace KyPlatform
