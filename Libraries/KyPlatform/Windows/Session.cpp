#include "KyPlatform/Session.h"

#include "KyPlatform/Windows/SystemCalls.h"

namespace KyPlatform
{

bool Session::GetOwnNumber(uint32_t& aNumber) noexcept
{
    DWORD lNumber = 0;
    const bool lDone = gSystem.mGetSession(::GetCurrentProcessId(), &lNumber) != FALSE;
    aNumber = lDone ? lNumber : 0;
    return lDone;
}

std::string Session::GetObstacle()
{
    return {}; // the kernel keeps the sessions apart
}

} // namespace KyPlatform
