#pragma once

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace KyGvcp
{

/// Makes the system's sockets usable. \return False: it refused.
inline bool StartSockets()
{
    return true;
}

/// Keeps the library that this code is in loaded until the process ends: for threads that nobody waits for.
void StayLoaded();

} // namespace KyGvcp
