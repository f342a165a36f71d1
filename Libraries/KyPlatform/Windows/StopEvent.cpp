#include "KyPlatform/StopEvent.h"

#include "KyPlatform/Windows/SystemCalls.h"

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
    switch (mObject != nullptr ? gSystem.mWait(mObject, aTimeout) : WAIT_FAILED)
    {
    case WAIT_OBJECT_0:
        return WaitResult::Done;
    case WAIT_TIMEOUT:
        return WaitResult::TimedOut;
    default:
        return WaitResult::Failed;
    }
}

} // namespace KyPlatform
