#pragma once

#include <cstdint>
#include <string>

namespace KyPlatform
{

/// The part of the machine that named objects belong to.
///
/// Windows: the logon session; services are in session 0. Linux: the user, session 0 is root. Objects of a
/// session are files in a folder that only its user can enter; whom he lets in (by the folder's mode) may
/// also open what is in it, so that a server run by root is found by everyone it lets in.
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

    /// Why the calling process cannot make named objects in its own session.
    /// \return A sentence in English; empty: nothing is known that would be in the way.
    /// Throws std::bad_alloc only.
    static std::string GetObstacle();
};

} // namespace KyPlatform
