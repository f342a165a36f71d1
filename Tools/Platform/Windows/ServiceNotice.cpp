#include "Platform/ServiceNotice.h"

namespace KyToolPlatform
{

ServiceNotice::ServiceNotice() = default;

void ServiceNotice::Ready() {}

void ServiceNotice::Stopping() {}

void ServiceNotice::Alive() {}

void ServiceNotice::Send(const std::string& /*aText*/) const {}

} // namespace KyToolPlatform
