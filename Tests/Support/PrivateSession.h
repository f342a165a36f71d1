#pragma once

#include <cstdint>
#include <string>

/// Gives this process named objects of its own: what has a fixed name, as the registry has, would else be
/// shared by every test that runs on the machine. One at a time; made before the first object and destroyed
/// after the last.
class PrivateSession
{
public:
    PrivateSession();
    ~PrivateSession();
    PrivateSession(const PrivateSession&) = delete;
    PrivateSession& operator=(const PrivateSession&) = delete;

    /// Makes this process look as if it ran in session aNumber; at first it is in session 40.
    static void SetOwnNumber(uint32_t aNumber);

    /// From now on its numbers are users of one group that the administrator has named, with the session
    /// aService as the service's. Windows lets the processes of this session in anyway.
    void Share(uint32_t aService = cFirstNumber);

    static constexpr uint32_t cFirstNumber = 40;

private:
    const std::string mToken;
    std::string mFolder;
    std::string mSettings;
};
