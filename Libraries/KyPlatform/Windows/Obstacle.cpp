#include "KyPlatform/Windows/Obstacle.h"

#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

namespace
{

thread_local uint32_t gFirst = 0;

} // namespace

void* Obstacle::Check(void* aHandle) noexcept
{
    const DWORD lError = ::GetLastError();
    if (aHandle == nullptr && gFirst == 0)
    {
        gFirst = lError;
    }
    return aHandle;
}

void Obstacle::Forget() noexcept
{
    gFirst = 0;
}

uint32_t Obstacle::Get() noexcept
{
    return gFirst;
}

bool Obstacle::IsShortage(uint32_t aError) noexcept
{
    switch (aError)
    {
    case ERROR_TOO_MANY_OPEN_FILES:
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_NO_SYSTEM_RESOURCES:
    case ERROR_NOT_ENOUGH_QUOTA:
    case ERROR_COMMITMENT_LIMIT:
        return true;
    default:
        return false;
    }
}

} // namespace KyPlatform
