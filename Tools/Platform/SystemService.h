#pragma once

#include <functional>
#include <string>
#include <vector>

namespace KyToolPlatform
{

/// This program as a service that the system's service manager knows by a name, starts and stops.
///
/// Windows: the service control manager. Linux: there is nothing of the kind; units of systemd start programs that know nothing of
/// it.
class SystemService
{
public:
    SystemService() = delete;

    /// Whether the system has such services.
    static bool IsSupported() noexcept;

    /// Makes this program, with these arguments, a service that starts with the system, as the user LocalService, and again a second
    /// after it has failed. It does not start yet.
    /// \return Why it is refused; empty: it is installed.
    static std::string Install(const std::string& aName, const std::string& aDescription,
                               const std::vector<std::string>& aArguments);

    /// Asks the service to end when it runs, and removes it. Blocks until it has ended, 30 s at most.
    /// \return Why it is refused; empty: it is removed.
    static std::string Remove(const std::string& aName);

    /// Is the service, from the first to the last line of aBody, which runs on another thread. Once per process.
    ///
    /// ServiceNotice says there when the service works; HangUp hears of the manager's request to read the configuration anew.
    /// \param aBody  Returns the exit status; may throw nothing.
    /// \param aStop  Asks aBody to end; any thread.
    /// \return Why there is no service, as in a process that the manager has not started; empty: aBody has run.
    static std::string Run(const std::function<int()>& aBody, const std::function<void()>& aStop);
};

} // namespace KyToolPlatform
