#include "Adapters/GigE/Gvcp/UdpSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace KyGvcp
{

namespace
{

sockaddr_in ToSystem(const Endpoint& aEndpoint)
{
    sockaddr_in lAddress{};
    lAddress.sin_family = AF_INET;
    lAddress.sin_addr.s_addr = htonl(aEndpoint.mAddress);
    lAddress.sin_port = htons(aEndpoint.mPort);
    return lAddress;
}

Endpoint FromSystem(const sockaddr_in& aAddress)
{
    return {ntohl(aAddress.sin_addr.s_addr), ntohs(aAddress.sin_port)};
}

SocketResult ResultOf(ssize_t aDone)
{
    if (aDone >= 0)
    {
        return SocketResult::Done;
    }
    return errno == ECONNREFUSED ? SocketResult::Refused : SocketResult::Failed;
}

const sockaddr* Raw(const sockaddr_in& aAddress)
{
    return reinterpret_cast<const sockaddr*>(&aAddress);
}

uint32_t AddressOf(const sockaddr* aAddress)
{
    return FromSystem(*reinterpret_cast<const sockaddr_in*>(aAddress)).mAddress;
}

} // namespace

bool UdpSocket::Open(const Endpoint& aLocal)
{
    Close();
    mSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in lLocal = ToSystem(aLocal);
    if (mSocket >= 0 && bind(mSocket, Raw(lLocal), sizeof(lLocal)) != 0)
    {
        Close();
    }
    return mSocket >= 0;
}

bool UdpSocket::Connect(const Endpoint& aPeer)
{
    const sockaddr_in lPeer = ToSystem(aPeer);
    return connect(mSocket, Raw(lPeer), sizeof(lPeer)) == 0;
}

bool UdpSocket::AllowBroadcast()
{
    const int lOn = 1;
    return setsockopt(mSocket, SOL_SOCKET, SO_BROADCAST, &lOn, sizeof(lOn)) == 0;
}

void UdpSocket::Close()
{
    if (mSocket >= 0)
    {
        close(mSocket);
        mSocket = -1;
    }
}

Endpoint UdpSocket::GetLocal() const
{
    sockaddr_in lAddress{};
    socklen_t lSize = sizeof(lAddress);
    if (getsockname(mSocket, reinterpret_cast<sockaddr*>(&lAddress), &lSize) != 0)
    {
        return {};
    }
    return FromSystem(lAddress);
}

SocketResult UdpSocket::Send(const uint8_t* aData, size_t aSize)
{
    return ResultOf(send(mSocket, aData, aSize, 0));
}

SocketResult UdpSocket::SendTo(const Endpoint& aPeer, const uint8_t* aData, size_t aSize)
{
    const sockaddr_in lPeer = ToSystem(aPeer);
    return ResultOf(sendto(mSocket, aData, aSize, 0, Raw(lPeer), sizeof(lPeer)));
}

SocketResult UdpSocket::Receive(uint8_t* aBuffer, size_t aCapacity, size_t& aSize, Endpoint& aFrom,
                                uint32_t aTimeout)
{
    aSize = 0;
    pollfd lPoll{mSocket, POLLIN, 0};
    const int lReady = poll(&lPoll, 1, static_cast<int>(aTimeout));
    if (lReady <= 0)
    {
        return lReady == 0 || errno == EINTR ? SocketResult::TimedOut : SocketResult::Failed;
    }
    sockaddr_in lFrom{};
    socklen_t lFromSize = sizeof(lFrom);
    const ssize_t lReceived =
        recvfrom(mSocket, aBuffer, aCapacity, MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&lFrom), &lFromSize);
    if (lReceived < 0 && (errno == EAGAIN || errno == EINTR))
    {
        return SocketResult::TimedOut; // a damaged datagram is taken away after it was announced
    }
    aSize = lReceived > 0 ? static_cast<size_t>(lReceived) : 0;
    aFrom = FromSystem(lFrom);
    return ResultOf(lReceived);
}

std::vector<Interface> GetInterfaces()
{
    std::vector<Interface> lInterfaces;
    ifaddrs* lFirst = nullptr;
    if (getifaddrs(&lFirst) != 0)
    {
        return lInterfaces;
    }
    for (const ifaddrs* lEntry = lFirst; lEntry != nullptr; lEntry = lEntry->ifa_next)
    {
        if (lEntry->ifa_addr != nullptr && lEntry->ifa_addr->sa_family == AF_INET &&
            (lEntry->ifa_flags & IFF_UP) != 0)
        {
            lInterfaces.push_back({lEntry->ifa_name, AddressOf(lEntry->ifa_addr),
                                   lEntry->ifa_netmask != nullptr ? AddressOf(lEntry->ifa_netmask) : 0,
                                   (lEntry->ifa_flags & IFF_LOOPBACK) != 0});
        }
    }
    freeifaddrs(lFirst);
    return lInterfaces;
}

} // namespace KyGvcp
