#include "KyPlatform/Session.h"

namespace KyPlatform
{

std::string Session::GetPrefix(uint32_t aNumber)
{
    return "Session\\" + std::to_string(aNumber) + "\\";
}

} // namespace KyPlatform
