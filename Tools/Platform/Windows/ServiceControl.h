#pragma once

#include <windows.h>

namespace KyToolPlatform
{

/// The process's connection to the service control manager. Nothing happens in a process that is no service.
///
/// Threads: any.
class ServiceControl
{
public:
    ServiceControl() = delete;

    /// Whether the manager has started this process as a service.
    static bool IsService() noexcept;

    /// Reports a state, SERVICE_RUNNING for example. A stopped service reports no more.
    /// \param aExitCode  Of SERVICE_STOPPED; 0: it has ended as it should.
    static void Report(DWORD aState, DWORD aExitCode = 0) noexcept;

    /// Whether the manager has asked to read the configuration anew since the last call.
    static bool TakeReload() noexcept;
};

} // namespace KyToolPlatform
