#pragma once

#include "kyserial/Serve/Tcp/TcpHost.h"

#include <string>

namespace KySerialTool
{

/// What a bridge ends in on the host.
enum class HostKind
{
    None,
    Tty,    ///< A terminal device, by its path.
    Pty,    ///< A pseudo terminal, found under a link.
    Com,    ///< A COM port.
    Clser,  ///< Camera Link serial clients, under a server's name.
    Tcp,    ///< Clients over TCP, with the bytes as they are.
    Rfc2217 ///< Clients over TCP, with line settings as RFC 2217 has them.
};

/// Which one.
struct HostSelection
{
    HostKind mKind = HostKind::None;
    std::string mName{}; ///< As it was given.
    TcpSettings mTcp{};  ///< Of Tcp and Rfc2217.

    bool operator==(const HostSelection&) const = default;
};

/// Takes a name for a kind of host side: "[ADDRESS:]PORT" of TCP, "[ADDRESS]" in brackets for IPv6.
/// \param aSelection  Receives kind, name and what the name says. \return Why the name does not do; empty when it does.
std::string TakeHostName(HostKind aKind, const std::string& aName, HostSelection& aSelection);

/// Takes "tcp://[ADDRESS]:PORT", "rfc2217://[ADDRESS]:PORT", "pty:LINK", "tty:PATH", "com:COMn" or "clser:NAME".
/// \return What is wrong with it; empty when nothing is.
std::string ParseHost(const std::string& aText, HostSelection& aSelection);

/// Whether the kind is one of those that have clients over TCP.
inline bool IsTcp(HostKind aKind)
{
    return aKind == HostKind::Tcp || aKind == HostKind::Rfc2217;
}

} // namespace KySerialTool
