#include "Platform/SystemService.h"

namespace KyToolPlatform
{

namespace
{

const char* const cNone = "the system has no such services";

} // namespace

bool SystemService::IsSupported() noexcept
{
    return false;
}

std::string SystemService::Install(const std::string& /*aName*/, const std::string& /*aDescription*/,
                                   const std::vector<std::string>& /*aArguments*/)
{
    return cNone;
}

std::string SystemService::Remove(const std::string& /*aName*/)
{
    return cNone;
}

std::string SystemService::Run(const std::function<int()>& /*aBody*/, const std::function<void()>& /*aStop*/)
{
    return cNone;
}

} // namespace KyToolPlatform
