#pragma once

#include "KyPlatform/Deadline.h"

#include <cstdint>
#include <string>

namespace KyToolPlatform
{

/// What a service says to the system's service manager, where that asks for it.
///
/// Linux: systemd, which gives the variables NOTIFY_SOCKET and WATCHDOG_USEC. They are taken out of the environment, so that no
/// other program that is started speaks for this one. Windows: the service control manager, in a process that
/// SystemService::Run() has made a service; it asks for no signs of life.
///
/// Threads: one; one object per process.
class ServiceNotice
{
public:
    ServiceNotice();
    ServiceNotice(const ServiceNotice&) = delete;
    ServiceNotice& operator=(const ServiceNotice&) = delete;

    /// The service works from now on.
    void Ready();
    /// The service has begun to end.
    void Stopping();
    /// The service does what it should. To be called more often than twice a second; says it when it is due.
    void Alive();

private:
    void Send(const std::string& aText) const;

    std::string mSocket{};               // empty: nobody asks
    uint64_t mInterval = 0;              // microseconds between two signs of life; 0: none are wanted
    KyPlatform::Deadline mSignOfLife{0}; // over: the next one is due
};

} // namespace KyToolPlatform
