#include "KyPlatform/Session.h"

#include "KyPlatform/Windows/Obstacle.h"
#include "KyPlatform/Windows/SystemCalls.h"

#include <system_error>

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
    // The kernel keeps the sessions apart, so that only a call that makes something has a reason to fail.
    const uint32_t lError = Obstacle::Get();
    return lError == 0
               ? std::string()
               : "The system refused an object: " + std::system_category().message(static_cast<int>(lError)) +
                     '.';
}

bool Session::IsShutOut() noexcept
{
    return false;
}

void Session::ForgetObstacle() noexcept
{
    Obstacle::Forget();
}

bool Session::GetService(uint32_t& /*aNumber*/) noexcept
{
    return false;
}

} // namespace KyPlatform
