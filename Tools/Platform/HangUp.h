#pragma once

namespace KyToolPlatform
{

/// The system's request to read the configuration anew, for the life of the object. One at a time.
///
/// Linux: SIGHUP, which does not end the process meanwhile. Windows: the service control
/// manager's "paramchange", in a process that SystemService::Run() has made a service.
class HangUp
{
public:
    HangUp() noexcept;
    ~HangUp();
    HangUp(const HangUp&) = delete;
    HangUp& operator=(const HangUp&) = delete;

    /// Whether the request came since the last call.
    bool Take() noexcept;
};

} // namespace KyToolPlatform
