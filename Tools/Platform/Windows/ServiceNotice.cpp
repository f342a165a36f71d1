#include "Platform/ServiceNotice.h"

#include "Platform/Windows/ServiceControl.h"

namespace KyToolPlatform
{

ServiceNotice::ServiceNotice() = default;

void ServiceNotice::Ready()
{
    ServiceControl::Report(SERVICE_RUNNING);
}

void ServiceNotice::Stopping()
{
    ServiceControl::Report(SERVICE_STOP_PENDING);
}

void ServiceNotice::Alive() {}

void ServiceNotice::Send(const std::string& /*aText*/) const {}

} // namespace KyToolPlatform
