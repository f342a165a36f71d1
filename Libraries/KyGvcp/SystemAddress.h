#pragma once

#include "KyGvcp/Endpoint.h"
#include "SystemSockets.h" // Linux/ or Windows/

namespace KyGvcp
{

/// An address as the system's calls take it.
inline sockaddr_in ToSystem(const Endpoint& aEndpoint)
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(aEndpoint.mAddress);
    lAddress.sin_port = htons(aEndpoint.mPort);
    return lAddress;
}

inline Endpoint FromSystem(const sockaddr_in& aAddress)
{
    return {ntohl(aAddress.sin_addr.s_addr), ntohs(aAddress.sin_port)};
}

inline const sockaddr* Generic(const sockaddr_in& aAddress)
{
    return reinterpret_cast<const sockaddr*>(&aAddress);
}

inline sockaddr* Generic(sockaddr_in& aAddress)
{
    return reinterpret_cast<sockaddr*>(&aAddress);
}

} // namespace KyGvcp
