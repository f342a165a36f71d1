#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace KyTest
{

/// A serial port of the host for the code under test, and what is plugged in at its other end for the test.
///
/// Linux: a pty; the port's name is a link to its terminal. Windows: two COM ports that are connected with
/// each other, named by the environment variable KYSERIAL_TEST_COM_PORTS ("COM31 COM32"). One at a time.
class HostLink
{
public:
    HostLink();
    ~HostLink();
    HostLink(const HostLink&) = delete;
    HostLink& operator=(const HostLink&) = delete;

    /// Why there is no link to test with; empty if there is one.
    static std::string GetReasonToSkip();

    /// The port's name for a bridge.
    const std::string& GetName() const { return mName; }
    /// The port's name for the system's layer.
    const std::string& GetPath() const { return mPath; }

    /// Sends to the port. \return Bytes sent; fewer when the port takes no more for a second.
    size_t Write(const std::string& aBytes);
    /// Receives from the port, for aTimeout milliseconds at most. \return What came; shorter after the time.
    std::string Read(size_t aCount, uint32_t aTimeout = 60000);

    /// The other end takes nothing any more, as a program that has stopped to read: what comes stays in the system, which
    /// has room for a few kilobytes.
    void StopReading();

    /// Pulls the other end out: the port's device vanishes.
    void Vanish();
    /// Whether a port that has vanished can come back under its name while it is open.
    static bool CanComeBack();
    /// Plugs it in again; the port's name means a new device.
    void ComeBack();

private:
    struct End;
    std::string mName;
    std::string mPath;
    std::unique_ptr<End> mEnd;
};

} // namespace KyTest
