#include "KyGvcp/UdpSocket.h"

#include "KyGvcp/SystemAddress.h"
#include "KyPlatform/Deadline.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace KyGvcp
{

namespace
{

/// Descriptors are ints here; other systems' handles are wider.
int ToDescriptor(intptr_t aHandle)
{
    return static_cast<int>(aHandle);
}

using KyPlatform::Deadline;

constexpr size_t cFewSockets = 8; // waited for without memory from the heap
constexpr size_t cReadyBits = 32;
constexpr int cReceiveBuffer = 1 << 20; // events of a second in which nobody looked

timespec ToTimespec(SocketTime aTime)
{
    const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(aTime);
    return {static_cast<time_t>(lSeconds.count()), static_cast<long>((aTime - lSeconds).count())};
}

/// poll() to the nanosecond, going on after signals. \return As poll().
int PollFor(pollfd* aPolls, size_t aCount, SocketTime aTimeout)
{
    const Deadline lEnd(aTimeout);
    SocketTime lLeft = aTimeout;
    for (;;)
    {
        const timespec lTime = ToTimespec(lLeft);
        const int lReady =
            ppoll(aPolls, static_cast<nfds_t>(aCount), lEnd.IsEndless() ? nullptr : &lTime, nullptr);
        if (lReady >= 0 || errno != EINTR)
        {
            return lReady;
        }
        lLeft = lEnd.GetTimeLeft();
    }
}

/// 0: the system does not say it.
uint32_t MtuOf(const char* aInterface)
{
    ifreq lRequest{};
    std::strncpy(lRequest.ifr_name, aInterface, sizeof(lRequest.ifr_name) - 1);
    const int lSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool lKnown = lSocket >= 0 && ioctl(lSocket, SIOCGIFMTU, &lRequest) == 0;
    if (lSocket >= 0)
    {
        close(lSocket);
    }
    return lKnown ? static_cast<uint32_t>(lRequest.ifr_mtu) : 0;
}

SocketResult SendResult(ssize_t aSent)
{
    if (aSent >= 0)
    {
        return SocketResult::Done;
    }
    // A full queue loses the datagram, as the network may. Senders repeat what is not answered.
    const bool lLost = errno == EAGAIN || errno == ENOBUFS;
    return lLost ? SocketResult::Done : errno == ECONNREFUSED ? SocketResult::Refused : SocketResult::Failed;
}

} // namespace

std::vector<Interface> ListInterfaces()
{
    std::vector<Interface> lInterfaces;
    ifaddrs* lList = nullptr;
    if (getifaddrs(&lList) != 0)
    {
        return lInterfaces;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> lOwner(lList,
                                                                  &freeifaddrs); // also without memory below
    for (const ifaddrs* lNext = lList; lNext != nullptr; lNext = lNext->ifa_next)
    {
        const bool lUsable = lNext->ifa_addr != nullptr && lNext->ifa_addr->sa_family == AF_INET &&
                             lNext->ifa_netmask != nullptr && (lNext->ifa_flags & IFF_UP) != 0;
        if (lUsable)
        {
            const auto* const lAddress = reinterpret_cast<const sockaddr_in*>(lNext->ifa_addr);
            const auto* const lMask = reinterpret_cast<const sockaddr_in*>(lNext->ifa_netmask);
            lInterfaces.push_back({lNext->ifa_name, ntohl(lAddress->sin_addr.s_addr),
                                   ntohl(lMask->sin_addr.s_addr), (lNext->ifa_flags & IFF_LOOPBACK) != 0,
                                   if_nametoindex(lNext->ifa_name), MtuOf(lNext->ifa_name)});
        }
    }
    return lInterfaces;
}

Waker::Waker() : mHandle(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

Waker::~Waker()
{
    for (const intptr_t lHandle : {mHandle, mTimer})
    {
        if (lHandle >= 0)
        {
            close(ToDescriptor(lHandle));
        }
    }
}

bool Waker::EndBy(Clock::time_point aWhen)
{
    if (mTimer < 0)
    {
        mTimer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    }
    // A later moment leaves the timer as it is: one wait ends too early and sets it anew.
    if (aWhen < mDue)
    {
        // Zero would stop it. This clock is the one that the standard library's steady clock shows.
        const itimerspec lTime{{}, ToTimespec(std::max(aWhen.time_since_epoch(), SocketTime(1)))};
        const bool lSet = timerfd_settime(ToDescriptor(mTimer), TFD_TIMER_ABSTIME, &lTime, nullptr) == 0;
        mDue = lSet ? aWhen : mDue;
        return lSet;
    }
    return mTimer >= 0;
}

void Waker::Wake()
{
    const uint64_t lOne = 1;
    // Ignored: a full counter is set already, and without a handle nobody waits for it.
    static_cast<void>(!write(ToDescriptor(mHandle), &lOne, sizeof lOne));
}

UdpSocket::~UdpSocket()
{
    Close();
}

bool UdpSocket::AddressHearsBroadcasts()
{
    return false;
}

bool UdpSocket::ReportsRefusals()
{
    return true;
}

bool UdpSocket::Fail(const char* aWhat)
{
    mError = std::string(aWhat) + ": " + std::system_category().message(errno);
    return false;
}

namespace
{

/// Binds to the interface, which chooses both ways. Systems that leave that to the administrator still let
/// everybody choose where packets leave.
bool ChooseInterface(int aHandle, uint32_t aInterface)
{
    const int lIndex = static_cast<int>(aInterface);
    const uint32_t lOrdered = htonl(aInterface);
    return setsockopt(aHandle, SOL_SOCKET, SO_BINDTOIFINDEX, &lIndex, sizeof lIndex) == 0 ||
           setsockopt(aHandle, IPPROTO_IP, IP_UNICAST_IF, &lOrdered, sizeof lOrdered) == 0;
}

} // namespace

bool UdpSocket::Open(const Endpoint& aLocal, bool aShared, uint32_t aInterface)
{
    Close();
    mHandle = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    mReceiveTime = {};
    if (mHandle < 0)
    {
        return Fail("no socket");
    }
    const int lOne = 1;
    // Ignored: the system's own size does too, for a shorter while.
    static_cast<void>(
        setsockopt(ToDescriptor(mHandle), SOL_SOCKET, SO_RCVBUF, &cReceiveBuffer, sizeof cReceiveBuffer));
    const sockaddr_in lAddress = ToSystem(aLocal);
    if ((aShared && setsockopt(ToDescriptor(mHandle), SOL_SOCKET, SO_REUSEADDR, &lOne, sizeof lOne) != 0) ||
        (aInterface != 0 && !ChooseInterface(ToDescriptor(mHandle), aInterface)) ||
        bind(ToDescriptor(mHandle), Generic(lAddress), sizeof lAddress) != 0)
    {
        // The reason is kept first, because Close() may change the system's last error.
        Fail(EndpointText(aLocal).c_str());
        Close();
        return false;
    }
    return true;
}

bool UdpSocket::Connect(const Endpoint& aPeer)
{
    const sockaddr_in lAddress = ToSystem(aPeer);
    return connect(ToDescriptor(mHandle), Generic(lAddress), sizeof lAddress) == 0 ||
           Fail(EndpointText(aPeer).c_str());
}

void UdpSocket::Close()
{
    const intptr_t lHandle = std::exchange(mHandle, -1);
    if (lHandle >= 0)
    {
        close(ToDescriptor(lHandle));
    }
}

bool UdpSocket::AllowBroadcast()
{
    const int lOne = 1;
    return setsockopt(ToDescriptor(mHandle), SOL_SOCKET, SO_BROADCAST, &lOne, sizeof lOne) == 0 ||
           Fail("broadcast");
}

Endpoint UdpSocket::GetLocal() const
{
    sockaddr_in lAddress{};
    socklen_t lSize = sizeof lAddress;
    return getsockname(ToDescriptor(mHandle), Generic(lAddress), &lSize) == 0 ? FromSystem(lAddress)
                                                                              : Endpoint();
}

SocketResult UdpSocket::Send(std::span<const uint8_t> aData)
{
    return SendResult(send(ToDescriptor(mHandle), aData.data(), aData.size(), MSG_NOSIGNAL | MSG_DONTWAIT));
}

SocketResult UdpSocket::SendTo(const Endpoint& aPeer, std::span<const uint8_t> aData)
{
    const sockaddr_in lAddress = ToSystem(aPeer);
    return SendResult(sendto(ToDescriptor(mHandle), aData.data(), aData.size(), MSG_NOSIGNAL | MSG_DONTWAIT,
                             Generic(lAddress), sizeof lAddress));
}

/// \return TimedOut: none is there, or none has come in time; or a signal.
SocketResult UdpSocket::TakeDatagram(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom, bool aBlock)
{
    sockaddr_in lAddress{};
    socklen_t lSize = sizeof lAddress;
    const ssize_t lCount =
        recvfrom(ToDescriptor(mHandle), aBuffer.data(), aBuffer.size(), aBlock ? 0 : MSG_DONTWAIT,
                 aFrom != nullptr ? Generic(lAddress) : nullptr, &lSize);
    if (lCount < 0)
    {
        const bool lNone = errno == EAGAIN || errno == EINTR;
        return lNone                   ? SocketResult::TimedOut
               : errno == ECONNREFUSED ? SocketResult::Refused
                                       : SocketResult::Failed;
    }
    aSize = static_cast<size_t>(lCount);
    if (aFrom != nullptr)
    {
        *aFrom = FromSystem(lAddress);
    }
    return SocketResult::Done;
}

SocketResult UdpSocket::Receive(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                                SocketTime aTimeout, Waker* aWaker)
{
    aSize = 0;
    if (mHandle < 0)
    {
        return SocketResult::Failed;
    }
    if (aWaker == nullptr)
    {
        return ReceiveAlone(aBuffer, aSize, aFrom, aTimeout);
    }
    const Deadline lEnd(aTimeout);
    for (;;)
    {
        UdpSocket* const lThis = this;
        const SocketResult lWaited = Wait({&lThis, 1}, lEnd.GetTimeLeft(), aWaker);
        if (lWaited != SocketResult::Done)
        {
            return lWaited;
        }
        const SocketResult lTaken = TakeDatagram(aBuffer, aSize, aFrom, false);
        if (lTaken != SocketResult::TimedOut)
        {
            return lTaken;
        }
        // What woke the wait may turn out to be a broken datagram, which the system drops.
    }
}

/// Sleeps in the call that receives: one call into the system where waiting and taking are two.
SocketResult UdpSocket::ReceiveAlone(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                                     SocketTime aTimeout)
{
    if (aTimeout == SocketTime(0))
    {
        return TakeDatagram(aBuffer, aSize, aFrom, false);
    }
    const Deadline lEnd(aTimeout);
    SocketTime lLeft = aTimeout;
    while (SetReceiveTime(lLeft))
    {
        const SocketResult lTaken = TakeDatagram(aBuffer, aSize, aFrom, true);
        if (lTaken != SocketResult::TimedOut)
        {
            return lTaken;
        }
        lLeft = lEnd.GetTimeLeft();
        if (lLeft == SocketTime(0)) // which the system would take for a wait without end
        {
            return SocketResult::TimedOut;
        }
    }
    return SocketResult::Failed;
}

/// In whole milliseconds, so that waits of one command after another mostly have the same.
bool UdpSocket::SetReceiveTime(SocketTime aTime)
{
    const auto lTime = std::chrono::ceil<std::chrono::milliseconds>(std::max(aTime, SocketTime(0)));
    if (lTime == mReceiveTime)
    {
        return true;
    }
    const auto lSeconds = std::chrono::duration_cast<std::chrono::seconds>(lTime);
    const timeval lSystem{static_cast<time_t>(lSeconds.count()),
                          static_cast<suseconds_t>((lTime - lSeconds).count() * 1000)};
    const bool lSet =
        setsockopt(ToDescriptor(mHandle), SOL_SOCKET, SO_RCVTIMEO, &lSystem, sizeof lSystem) == 0;
    mReceiveTime = lSet ? lTime : mReceiveTime;
    return lSet;
}

SocketResult UdpSocket::Wait(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker,
                             uint32_t* aReady)
{
    std::array<pollfd, cFewSockets + 2> lFew; // not cleared: what is used is set
    std::vector<pollfd> lMany;
    const size_t lSockets = aSockets.size();
    pollfd* lPolls = lFew.data();
    if (lSockets > cFewSockets)
    {
        lMany.resize(lSockets + 2);
        lPolls = lMany.data();
    }
    for (size_t lIndex = 0; lIndex < lSockets; ++lIndex)
    {
        lPolls[lIndex] = {ToDescriptor(aSockets[lIndex]->mHandle), POLLIN,
                          0}; // poll() passes over negative ones
    }
    pollfd& lWake = lPolls[lSockets] = {aWaker != nullptr ? ToDescriptor(aWaker->mHandle) : -1, POLLIN, 0};
    pollfd& lTimer =
        lPolls[lSockets + 1] = {aWaker != nullptr ? ToDescriptor(aWaker->mTimer) : -1, POLLIN, 0};
    uint32_t lReady = 0;
    bool lAny = false;
    bool lGood = PollFor(lPolls, lSockets + 2, aTimeout) >= 0;
    for (size_t lIndex = 0; lIndex < lSockets && lGood; ++lIndex)
    {
        lGood = (lPolls[lIndex].revents & POLLNVAL) == 0;
        lAny = lAny || lPolls[lIndex].revents != 0;
        lReady |= lPolls[lIndex].revents != 0 && lIndex < cReadyBits ? 1U << lIndex : 0U;
    }
    if (aReady != nullptr)
    {
        *aReady = lGood ? lReady : 0;
    }
    // Datagrams go before the waker, which stays set for the next wait.
    if (!lGood || lAny)
    {
        return lGood ? SocketResult::Done : SocketResult::Failed;
    }
    uint64_t lCount = 0;
    if (lTimer.revents != 0)
    {
        aWaker->mDue = Waker::Clock::time_point::max();
        static_cast<void>(
            !read(ToDescriptor(aWaker->mTimer), &lCount, sizeof lCount)); // ignored: it only sets it back
    }
    if (lWake.revents == 0)
    {
        return SocketResult::TimedOut;
    }
    static_cast<void>(!read(ToDescriptor(aWaker->mHandle), &lCount, sizeof lCount)); // ignored likewise
    return SocketResult::Woken;
}

} // namespace KyGvcp
