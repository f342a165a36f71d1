#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KyGvcp
{

/// An IPv4 address, its first byte the highest, and a UDP port.
struct Endpoint
{
    uint32_t mAddress = 0;
    uint16_t mPort = 0;

    bool operator==(const Endpoint& aOther) const
    {
        return mAddress == aOther.mAddress && mPort == aOther.mPort;
    }
};

constexpr uint32_t cLoopback = 0x7F000001U;
constexpr uint32_t cBroadcast = 0xFFFFFFFFU;

/// What became of a datagram.
enum class SocketResult
{
    Done,
    TimedOut,
    Refused, ///< The other host says that nobody listens there.
    Failed
};

/// A UDP socket.
///
/// Threads: one sends and one receives at the same time; the rest by one thread while nobody does.
class UdpSocket
{
public:
    UdpSocket() = default;
    ~UdpSocket() { Close(); }
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    /// Opens a socket of its own; closes the former. \param aLocal  Address 0: all; port 0: a free one.
    bool Open(const Endpoint& aLocal);
    /// Fixes the other side: only its datagrams are received, and its refusals are heard.
    bool Connect(const Endpoint& aPeer);
    /// Allows broadcasts.
    bool AllowBroadcast();
    void Close();
    bool IsOpen() const { return mSocket >= 0; }

    /// The socket's own address and port; zeros when it is closed.
    Endpoint GetLocal() const;

    /// Sends a datagram to the connected side.
    SocketResult Send(const uint8_t* aData, size_t aSize);
    /// Sends a datagram.
    SocketResult SendTo(const Endpoint& aPeer, const uint8_t* aData, size_t aSize);
    /// Receives a datagram; what does not fit is cut off.
    /// \param aTimeout  Milliseconds; 0 only looks.
    SocketResult Receive(uint8_t* aBuffer, size_t aCapacity, size_t& aSize, Endpoint& aFrom,
                         uint32_t aTimeout);

private:
    int mSocket = -1;
};

/// An address of this host.
struct Interface
{
    std::string mName;
    uint32_t mAddress = 0;
    uint32_t mMask = 0;
    bool mLoopback = false;
};

/// The IPv4 addresses of the host's interfaces that are up.
std::vector<Interface> GetInterfaces();

} // namespace KyGvcp
