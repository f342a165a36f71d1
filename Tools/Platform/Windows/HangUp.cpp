#include "Platform/HangUp.h"

namespace KyToolPlatform
{

HangUp::HangUp() noexcept = default;

HangUp::~HangUp() = default;

bool HangUp::Take() noexcept
{
    return false;
}

} // namespace KyToolPlatform
