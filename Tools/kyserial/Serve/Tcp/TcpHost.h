#pragma once

#include "kyserial/Serve/Tcp/Network.h"

#include <KySerial/IKySerialBridgeHost.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KySerialTool
{

/// Who may use a port that is reached over TCP.
enum class TcpClients
{
    One,     ///< One client at a time; others are turned away.
    Shared,  ///< Several read; the one that has been there longest writes.
    ReadOnly ///< Several read; what they send is dropped.
};

/// Where and how a port is offered.
struct TcpSettings
{
    std::string mAddress = "127.0.0.1"; ///< IPv4 or IPv6, as numbers.
    uint16_t mPort = 0;                 ///< 0: one that is free.
    bool mTelnet = false;               ///< RFC 2217 instead of bytes as they are.
    TcpClients mClients = TcpClients::One;
    uint32_t mIdle =
        0; ///< Seconds without a byte from or to a client after which it is disconnected; 0: never.
    size_t mMostClients = 32;
    size_t mMostWaiting = 65536; ///< Bytes that wait for a client.

    bool operator==(const TcpSettings&) const = default;
};

/// Address and port as URLs have them: "127.0.0.1:4001", "[::1]:4001".
std::string HostText(const std::string& aAddress, uint16_t aPort);

/// What has happened at such a port.
struct TcpCounts
{
    uint32_t mClients = 0;       ///< That are there now.
    uint64_t mAccepted = 0;      ///< Clients so far.
    uint64_t mTurnedAway = 0;    ///< Clients for which there was no place.
    uint64_t mFailures = 0;      ///< Tries to take a client for which the system had no socket.
    uint64_t mDisconnected = 0;  ///< Clients that did not read, or were idle.
    uint64_t mFaults = 0;        ///< Telnet that makes no sense.
    uint64_t mTaken = 0;         ///< Bytes from clients and of Insert(), those of the next three included.
    uint64_t mNotAllowed = 0;    ///< From clients that may only read.
    uint64_t mPurged = 0;        ///< Dropped because their client asked for it.
    uint64_t mLeft = 0;          ///< Not passed on when the port was closed.
    uint64_t mUnread = 0;        ///< To clients: nobody was there, or the last one left before it had them.
    uint64_t mStoppedToUser = 0; ///< To clients, when the port was closed before they had them.
};

/// A host side that clients reach over TCP, with the bytes as they are or as RFC 2217 has them.
///
/// What clients are given is bounded, whatever they do: one that does not read holds the bridge up while it is alone,
/// and is disconnected when its bytes would hold up others; one that sends faster than the device takes it is not
/// read meanwhile; a connection for which there is no place is closed at once.
///
/// Threads: any.
class TcpHost final : public IKySerialBridgeHost
{
public:
    /// Listens. Throws OperationError when the address cannot be used.
    TcpHost(const TcpSettings& aSettings, Network& aNetwork);
    /// Close().
    ~TcpHost();
    TcpHost(const TcpHost&) = delete;
    TcpHost& operator=(const TcpHost&) = delete;

    /// Disconnects all; blocks until that is done. The bridge must have ended.
    void Close();

    ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, KySerialBridgeRequest& aRequest) override;
    uint32_t Write(const uint8_t* aData, uint32_t aSize) override;
    void EndTransfers() noexcept override;
    void NotifySettings(const KySerialPortConfiguration& aSettings) override;

    /// Sends bytes to the device beside those of clients. Does not block.
    /// \return False: too many wait for the device already, or the host side has ended; none is sent.
    bool Insert(const std::string& aBytes);

    TcpCounts GetCounts() const;
    /// What has begun since the last call, and is to be in a log once: that the system has no more sockets, that clients are
    /// turned away.
    std::vector<std::string> TakeNews();
    /// The port, also when a free one was asked for.
    uint16_t GetPort() const;

private:
    class State;
    std::shared_ptr<State> mThis;
};

} // namespace KySerialTool
