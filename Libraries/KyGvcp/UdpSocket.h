#pragma once

#include "KyGvcp/Endpoint.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace KyGvcp
{

/// An address of this computer.
struct Interface
{
    std::string mName; ///< "eth0"
    uint32_t mAddress = 0;
    uint32_t mMask = 0;
    bool mLoopback = false;
    uint32_t mIndex = 0; ///< The system's number of it; several addresses of one interface share it.
    uint32_t mMtu = 0; ///< Bytes of the largest packet, its headers included; 0: the system does not say it.
};

/// The IPv4 addresses of interfaces that are up; empty when the system does not list them.
std::vector<Interface> ListInterfaces();

/// Ends one wait of a socket from another thread. Setting it before the wait ends that one at once; setting
/// it twice ends one wait. For one waiting thread at a time.
class Waker
{
public:
    /// Not a Deadline: the simulated camera counts its own time on this clock, and its moments are on it.
    using Clock = std::chrono::steady_clock;

    Waker();
    ~Waker();
    Waker(const Waker&) = delete;
    Waker& operator=(const Waker&) = delete;

    /// False: the system refused it; waits end by themselves only.
    bool IsValid() const { return mHandle >= 0; }
    /// Any thread; does not block.
    void Wake();

    /// Ends a wait at a moment or earlier, as its time-out does. For waits that most often end before: a
    /// moment that moves on costs nothing until it has come, where a time-out is set up for each wait. The
    /// waiting thread only. \return False: the system refused; waits need a time-out.
    bool EndBy(Clock::time_point aWhen);

private:
    friend class UdpSocket;
    intptr_t mHandle;
    intptr_t mTimer = -1;                              // Linux: what ends a wait at mDue
    Clock::time_point mDue = Clock::time_point::max(); // max: no moment is set
};

/// How an operation of a socket ended.
enum class SocketResult
{
    Done,
    TimedOut,
    Woken,   ///< By the waker.
    Refused, ///< Nobody listens where this socket is connected to; see UdpSocket::ReportsRefusals().
    Failed   ///< The system refused, or the socket is closed.
};

/// A wait's longest time, as KyPlatform::Deadline takes it; negative: no end.
using SocketTime = std::chrono::nanoseconds;
constexpr SocketTime cForever{-1};

/// A UDP socket. One thread may send while another receives; opening and closing is for one thread alone.
class UdpSocket
{
public:
    UdpSocket() = default;
    ~UdpSocket();
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    /// Opens a socket bound to aLocal; port 0 lets the system choose. Closes first.
    /// \param aShared  Others may be bound to the same, if they share too: each gets what is broadcast.
    /// \param aInterface  Interface::mIndex: everything leaves there, whatever the routes say, and, where the
    ///                     system can see to it, comes from there. 0: the routes decide.
    /// \return False: the system refused (GetError()); the socket is closed.
    bool Open(const Endpoint& aLocal, bool aShared = false, uint32_t aInterface = 0);
    /// Takes and sends to aPeer only, from now on. \return False: refused; GetError().
    bool Connect(const Endpoint& aPeer);
    void Close();
    bool IsOpen() const { return mHandle >= 0; }

    /// Whether a socket that is bound to an address gets what is broadcast on the network of that address. If
    /// not, only sockets without an address do, and those that are bound to cBroadcastAddress.
    static bool AddressHearsBroadcasts();
    /// Whether the system reports a peer without a listener. Windows would do so for every datagram that went
    /// to such a port, whoever the socket talks to now, so there it is switched off, and waits time out.
    static bool ReportsRefusals();
    /// Allows sending to cBroadcastAddress. \return False: refused; GetError().
    bool AllowBroadcast();
    /// What it is bound to; zeros when closed.
    Endpoint GetLocal() const;
    /// The system's words for the last failure of Open(), Connect() or AllowBroadcast().
    const std::string& GetError() const { return mError; }

    /// Sends one datagram. Send() wants a connected socket. Does not block: what does not fit the system's
    /// queues is lost, as datagrams are. \return Done, Refused or Failed.
    SocketResult Send(std::span<const uint8_t> aData);
    SocketResult SendTo(const Endpoint& aPeer, std::span<const uint8_t> aData);

    /// Waits for one datagram. Without a waker the wait may end some milliseconds late.
    /// \param aBuffer  A longer datagram is cut.
    /// \param aSize    Receives its size, as cut; 0 unless Done.
    /// \param aFrom    Receives the sender; may be null. Touched when Done only.
    /// \param aTimeout 0 only looks.
    /// \param aWaker   Ends the wait; may be null. A datagram that is there goes before it.
    SocketResult Receive(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom, SocketTime aTimeout,
                         Waker* aWaker = nullptr);

    /// Waits until one of some sockets has something, a refusal included.
    /// \param aSockets  Not null; closed ones are passed over. Any number; few are quickest.
    /// \param aReady    Receives a bit for each of the first 32 that has something, the lowest for the first;
    ///                  may be null. 0 unless Done.
    /// \return Done, TimedOut (also at the waker's moment), Woken or Failed.
    static SocketResult Wait(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker,
                             uint32_t* aReady = nullptr);

private:
    // Each system's source has what it needs of these.
    SocketResult TakeDatagram(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom, bool aBlock);
    SocketResult ReceiveAlone(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                              SocketTime aTimeout);
    bool SetReceiveTime(SocketTime aTime);
    static SocketResult WaitForGroup(std::span<UdpSocket* const> aSockets, SocketTime aTimeout,
                                     Waker* aWaker);
    static SocketResult WaitForMany(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker);
    bool Fail(const char* aWhat);

    intptr_t mHandle = -1;
    std::chrono::milliseconds mReceiveTime{0}; // Linux: after which it ends a wait in receiving; 0: never
    intptr_t mArrival = -1;                    // Windows: the event of datagrams that arrive
    Endpoint mPeer{};                          // Windows: what the socket is connected to; zeros: nothing
    uint32_t mRoute = 0;                       // Windows: own address on the way there
    bool mMayHave = false;                     // Windows: that event has come and nothing was received since
    std::string mError;
};

} // namespace KyGvcp
