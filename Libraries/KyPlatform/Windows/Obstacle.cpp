#include "KyPlatform/Windows/Obstacle.h"

#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

namespace
{

thread_local uint32_t tFirst = 0;

} // namespace

void* Obstacle::Check(void* aHandle) noexcept
{
    const DWORD lError = ::GetLastError();
    if (aHandle == nullptr && tFirst == 0)
    {
        tFirst = lError;
    }
    return aHandle;
}

void Obstacle::Forget() noexcept
{
    tFirst = 0;
}

uint32_t Obstacle::Get() noexcept
{
    return tFirst;
}

} // namespace KyPlatform
