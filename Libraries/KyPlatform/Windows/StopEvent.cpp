#include "KyPlatform/StopEvent.h"

#include "KyPlatform/Windows/SystemCalls.h"
#include "KyPlatform/Windows/WaitFor.h"

namespace KyPlatform
{

bool StopEvent::Create() noexcept
{
    Close();
    mObject = gSystem.mMakeEvent(nullptr, TRUE, FALSE, nullptr);
    return mObject != nullptr;
}

void StopEvent::Close() noexcept
{
    void* const lHandle = std::exchange(mObject, nullptr);
    if (lHandle != nullptr)
    {
        static_cast<void>(gSystem.mCloseHandle(lHandle)); // ignored: there is nothing left to undo
    }
}

bool StopEvent::Set() noexcept
{
    return mObject != nullptr && gSystem.mSetEvent(mObject) != FALSE;
}

WaitResult StopEvent::Wait(uint32_t aTimeout) noexcept
{
    return WaitFor(mObject, aTimeout);
}

} // namespace KyPlatform
