#include "Platform/ServiceNotice.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace KyToolPlatform
{

namespace
{

std::string TakeVariable(const char* aName)
{
    const char* const lText = std::getenv(aName); // NOLINT(concurrency-mt-unsafe): no other thread changes it
    std::string lValue = lText != nullptr ? lText : "";
    // Programs that this one starts must not speak for the service.
    ::unsetenv(aName); // NOLINT(concurrency-mt-unsafe)
    return lValue;
}

} // namespace

ServiceNotice::ServiceNotice() : mSocket(TakeVariable("NOTIFY_SOCKET"))
{
    const std::string lInterval = TakeVariable("WATCHDOG_USEC");
    const std::string lProcess = TakeVariable("WATCHDOG_PID"); // empty: any
    if (lProcess.empty() || lProcess == std::to_string(::getpid()))
    {
        // Twice as often as the manager asks for, so that one late notice does not end the service.
        mInterval = std::strtoull(lInterval.c_str(), nullptr, 10) / 2;
    }
}

// A datagram to a socket that a path names, or, with '@' first, a name of the kernel's. The manager may be gone; the service
// works without it.
void ServiceNotice::Send(const std::string& aText) const
{
    sockaddr_un lAddress{};
    if (mSocket.empty() || mSocket.size() >= sizeof lAddress.sun_path)
    {
        return;
    }
    lAddress.sun_family = AF_UNIX;
    std::memcpy(lAddress.sun_path, mSocket.data(), mSocket.size());
    lAddress.sun_path[0] = mSocket[0] == '@' ? '\0' : mSocket[0];
    const int lSocket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (lSocket >= 0)
    {
        static_cast<void>(::sendto(lSocket, aText.data(), aText.size(), MSG_NOSIGNAL,
                                   reinterpret_cast<const sockaddr*>(&lAddress),
                                   static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + mSocket.size())));
        static_cast<void>(::close(lSocket)); // ignored: nothing waits in it
    }
}

void ServiceNotice::Ready()
{
    Send("READY=1");
}

void ServiceNotice::Stopping()
{
    Send("STOPPING=1");
}

void ServiceNotice::Alive()
{
    if (mInterval != 0 && mSignOfLife.IsOver())
    {
        Send("WATCHDOG=1");
        mSignOfLife = KyPlatform::Deadline(std::chrono::microseconds(mInterval));
    }
}

} // namespace KyToolPlatform
