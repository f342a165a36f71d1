#pragma once

#include <cstdint>
#include <string>

namespace KyPlatform
{

/// The part of the machine that named objects belong to.
///
/// Windows: the logon session; services are in session 0. Linux: the user, session 0 is root. Objects of a
/// session are files in a folder that only its user can enter. A process opens nothing of another session,
/// unless the administrator has named a group that both users are in (see Docs/security.md).
class Session
{
public:
    Session() = delete;

    /// Prefix of the names of the calling process's own session.
    static constexpr char cLocalPrefix[] = "Local\\";

    /// \param aNumber  Receives the number of the calling process's session; 0 on failure.
    /// \return False: the system refused.
    static bool GetOwnNumber(uint32_t& aNumber) noexcept;

    /// Prefix of the names of session aNumber, "Session\<number>\"; it may also be the caller's own.
    static std::string GetPrefix(uint32_t aNumber);

    /// The session of the service whose objects this process may use, when it is one that a search over small
    /// numbers does not find. Linux: the user that the administrator has named beside the group.
    /// \param aNumber  Receives its number; unchanged on failure.
    /// \return False: the setting names no service user. Always on Windows, where services are in session 0.
    static bool GetService(uint32_t& aNumber) noexcept;

    /// Why the calling thread could not open or make named objects since ForgetObstacle(), or what would keep
    /// the process from making any in its own session: the first reason, with the system's words.
    /// \return A sentence in English; empty: nothing is known that was or would be in the way.
    /// Throws std::bad_alloc only.
    static std::string GetObstacle();

    /// Whether no later try can make a named object in the own session either: Linux, when its folder belongs to
    /// somebody else, or is no folder. Always false on Windows.
    static bool IsShutOut() noexcept;

    /// Begins a new account of what is in the way of the calling thread.
    static void ForgetObstacle() noexcept;
};

} // namespace KyPlatform
