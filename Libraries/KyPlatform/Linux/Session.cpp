#include "KyPlatform/Session.h"

#include "KyPlatform/Linux/SystemCalls.h"

namespace KyPlatform
{

bool Session::GetOwnNumber(uint32_t& aNumber) noexcept
{
    // What a process may open is decided by its effective user.
    aNumber = gSystem.mGetUser();
    return true;
}

} // namespace KyPlatform
