#pragma once

#include "KyPlatform/WaitResult.h"
#include "KyPlatform/Windows/SystemCalls.h"

#include <cstdint>

namespace KyPlatform
{

/// Waits for one object of the system.
/// \param aObject   Null fails.
/// \param aTimeout  Milliseconds; INFINITE has no end.
inline WaitResult WaitFor(HANDLE aObject, uint32_t aTimeout) noexcept
{
    switch (aObject != nullptr ? gSystem.mWait(aObject, aTimeout) : WAIT_FAILED)
    {
    case WAIT_OBJECT_0:
        return WaitResult::Done;
    case WAIT_ABANDONED: // locks only
        return WaitResult::OwnerDied;
    case WAIT_TIMEOUT:
        return WaitResult::TimedOut;
    default:
        return WaitResult::Failed;
    }
}

} // namespace KyPlatform
