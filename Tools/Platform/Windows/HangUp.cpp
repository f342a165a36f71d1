#include "Platform/HangUp.h"

#include "Platform/Windows/ServiceControl.h"

namespace KyToolPlatform
{

HangUp::HangUp() noexcept = default;

HangUp::~HangUp() = default;

bool HangUp::Take() noexcept
{
    return ServiceControl::TakeReload();
}

} // namespace KyToolPlatform
