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

} // namespace KyPlatform
