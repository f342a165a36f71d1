#pragma once

#include <winsock2.h>

#include <ws2tcpip.h>

namespace KyGvcp
{

/// Makes the system's sockets usable, from the first call on until the process ends: others may still be open when static objects
/// go. \return False: it refused.
bool StartSockets();

/// Keeps the library that this code is in loaded until the process ends: for threads that nobody waits for.
void StayLoaded();

} // namespace KyGvcp
