#include "KyPlatform/NamedSemaphore.h"

#include "KyPlatform/Windows/Obstacle.h"
#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

bool NamedSemaphore::Create(const std::string& aName, uint32_t aCount, uint32_t aMaximum) noexcept
{
    Close();
    if (aMaximum != 0 && aMaximum <= 0x7FFFFFFFU && aCount <= aMaximum)
    {
        mObject = Obstacle::Check(gSystem.mCreateSemaphore(nullptr, static_cast<LONG>(aCount),
                                                           static_cast<LONG>(aMaximum), aName.c_str()));
    }
    return mObject != nullptr;
}

bool NamedSemaphore::Open(const std::string& aName) noexcept
{
    Close();
    mObject = gSystem.mOpenSemaphore(SYNCHRONIZE | SEMAPHORE_MODIFY_STATE, FALSE, aName.c_str());
    return mObject != nullptr;
}

bool NamedSemaphore::Exists(const std::string& aName) noexcept
{
    NamedSemaphore lProbe;
    return lProbe.Open(aName) || Obstacle::IsShortage(::GetLastError());
}

bool NamedSemaphore::Close() noexcept
{
    void* const lHandle = std::exchange(mObject, nullptr);
    return lHandle == nullptr || gSystem.mCloseHandle(lHandle) != FALSE;
}

bool NamedSemaphore::TryTake() noexcept
{
    return mObject != nullptr && gSystem.mWait(mObject, 0) == WAIT_OBJECT_0;
}

bool NamedSemaphore::Release() noexcept
{
    return mObject != nullptr && gSystem.mReleaseSemaphore(mObject, 1, nullptr) != FALSE;
}

bool NamedSemaphore::IsHeldByOthers() const noexcept
{
    // When the system does not answer, the others count as alive: a living client must not lose its place.
    uint32_t lHandles = 0;
    return mObject == nullptr || !gSystem.mCountHandles(mObject, &lHandles) || lHandles != 1;
}

} // namespace KyPlatform
