#include "KyGvcp/UdpSocket.h"

#include "KyGvcp/SystemAddress.h"
#include "KyPlatform/Deadline.h"

#include <mswsock.h>

#include <iphlpapi.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace KyGvcp
{

namespace
{

using KyPlatform::Deadline;

constexpr size_t cReadyBits = 32;
constexpr size_t cMostSockets = MAXIMUM_WAIT_OBJECTS - 1; // beside the waker in one wait
constexpr int cReceiveBuffer = 1 << 20;                   // events of a second in which nobody looked
constexpr std::chrono::milliseconds cTurn{5};             // of a group, when there are more sockets

SOCKET ToSocket(intptr_t aHandle)
{
    return static_cast<SOCKET>(aHandle);
}

HANDLE ToEvent(intptr_t aHandle)
{
    return reinterpret_cast<HANDLE>(aHandle);
}

/// An event that one wait takes back. \return -1: the system refused.
intptr_t MakeEvent()
{
    const HANDLE lEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    return lEvent != nullptr ? reinterpret_cast<intptr_t>(lEvent) : -1;
}

template<class Value>
bool SetOption(SOCKET aSocket, int aLevel, int aOption, const Value& aValue)
{
    return setsockopt(aSocket, aLevel, aOption, reinterpret_cast<const char*>(&aValue), sizeof aValue) == 0;
}

/// Whole milliseconds, rounded up so that no wait ends early.
DWORD ToWaitTime(SocketTime aTime)
{
    constexpr std::chrono::milliseconds cLongest{INFINITE - 1U};
    return static_cast<DWORD>(std::clamp(std::chrono::ceil<std::chrono::milliseconds>(aTime),
                                         std::chrono::milliseconds(0), cLongest)
                                  .count());
}

/// A port without a listener where an earlier datagram went to. Not reported here, see Open(); where the
/// system does all the same, it has not done what it was asked to.
bool IsOldRefusal(int aError)
{
    return aError == WSAECONNREFUSED || aError == WSAECONNRESET;
}

SocketResult SendDatagram(SOCKET aSocket, std::span<const uint8_t> aData, const sockaddr_in& aPeer)
{
    constexpr int cAttempts = 2; // the second one without the refusal of an earlier datagram
    for (int lAttempt = 0; lAttempt < cAttempts; ++lAttempt)
    {
        const int lSent = sendto(aSocket, reinterpret_cast<const char*>(aData.data()),
                                 static_cast<int>(aData.size()), 0, Generic(aPeer), sizeof aPeer);
        const int lError = lSent >= 0 ? 0 : WSAGetLastError();
        if (lError == 0 || lError == WSAEWOULDBLOCK || lError == WSAENOBUFS)
        {
            return SocketResult::Done;
        }
        if (!IsOldRefusal(lError))
        {
            return SocketResult::Failed;
        }
    }
    return SocketResult::Done; // nobody listens there; a datagram that is lost
}

std::string ToUtf8(const wchar_t* aText)
{
    std::string lText;
    const int lSize = WideCharToMultiByte(CP_UTF8, 0, aText, -1, nullptr, 0, nullptr, nullptr);
    if (lSize > 1)
    {
        lText.resize(static_cast<size_t>(lSize));
        WideCharToMultiByte(CP_UTF8, 0, aText, -1, lText.data(), lSize, nullptr, nullptr);
        lText.pop_back(); // the end mark
    }
    return lText;
}

/// The system's list, in memory of its own; empty on a failure.
std::vector<uint8_t> QueryAdapters()
{
    constexpr ULONG cFlags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    constexpr int cAttempts = 5; // the list may grow between two calls
    ULONG lSize = 16384;         // what the system recommends to begin with
    std::vector<uint8_t> lList;
    for (int lAttempt = 0; lAttempt < cAttempts; ++lAttempt)
    {
        lList.resize(lSize);
        const ULONG lError = GetAdaptersAddresses(
            AF_INET, cFlags, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(lList.data()), &lSize);
        if (lError == ERROR_SUCCESS)
        {
            return lList;
        }
        if (lError != ERROR_BUFFER_OVERFLOW)
        {
            break;
        }
    }
    return {};
}

uint32_t MaskOf(unsigned aPrefix)
{
    constexpr unsigned cBits = 32;
    return aPrefix == 0 ? 0 : UINT32_MAX << (cBits - std::min(aPrefix, cBits));
}

} // namespace

std::vector<Interface> ListInterfaces()
{
    std::vector<Interface> lInterfaces;
    const std::vector<uint8_t> lList = QueryAdapters();
    const auto* lAdapter =
        lList.empty() ? nullptr : reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(lList.data());
    for (; lAdapter != nullptr; lAdapter = lAdapter->Next)
    {
        const auto* lUnicast =
            lAdapter->OperStatus == IfOperStatusUp ? lAdapter->FirstUnicastAddress : nullptr;
        for (; lUnicast != nullptr; lUnicast = lUnicast->Next)
        {
            const auto* const lAddress = reinterpret_cast<const sockaddr_in*>(lUnicast->Address.lpSockaddr);
            lInterfaces.push_back({ToUtf8(lAdapter->FriendlyName), ntohl(lAddress->sin_addr.s_addr),
                                   MaskOf(lUnicast->OnLinkPrefixLength),
                                   lAdapter->IfType == IF_TYPE_SOFTWARE_LOOPBACK, lAdapter->IfIndex,
                                   static_cast<uint32_t>(lAdapter->Mtu)});
        }
    }
    return lInterfaces;
}

Waker::Waker() : mHandle(MakeEvent()) {}

Waker::~Waker()
{
    if (IsValid())
    {
        CloseHandle(ToEvent(mHandle));
    }
}

bool Waker::EndBy(Clock::time_point aWhen)
{
    mDue = std::min(mDue, aWhen); // waits look at it
    return true;
}

void Waker::Wake()
{
    if (IsValid())
    {
        SetEvent(ToEvent(mHandle));
    }
}

UdpSocket::~UdpSocket()
{
    Close();
}

bool UdpSocket::AddressHearsBroadcasts()
{
    return true;
}

bool UdpSocket::ReportsRefusals()
{
    return false;
}

bool UdpSocket::Fail(const char* aWhat)
{
    const int lError = WSAGetLastError();
    std::array<char, 200> lText{};
    const DWORD lSize = FormatMessageA(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK, nullptr,
        static_cast<DWORD>(lError), 0, lText.data(), lText.size(), nullptr);
    std::string lReason(lText.data(), lSize);
    lReason.erase(lReason.find_last_not_of(" .\r\n") + 1);
    mError = std::string(aWhat) + ": " + (lReason.empty() ? "error " + std::to_string(lError) : lReason);
    return false;
}

namespace
{

/// Chooses where packets leave; what comes in is chosen by the address that the socket is bound to.
bool ChooseInterface(SOCKET aSocket, uint32_t aInterface)
{
    const DWORD lOrdered = htonl(aInterface);
    return SetOption(aSocket, IPPROTO_IP, IP_UNICAST_IF, lOrdered);
}

/// Without it, receiving fails once for each datagram that went to a port without a listener: a device that
/// is switched off would disturb the others.
bool SwitchRefusalsOff(SOCKET aSocket)
{
    BOOL lReport = FALSE;
    DWORD lSize = 0;
    return WSAIoctl(aSocket, SIO_UDP_CONNRESET, &lReport, sizeof lReport, nullptr, 0, &lSize, nullptr,
                    nullptr) == 0;
}

} // namespace

bool UdpSocket::Open(const Endpoint& aLocal, bool aShared, uint32_t aInterface)
{
    Close();
    const SOCKET lSocket = StartSockets() ? WSASocketW(AF_INET, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0,
                                                       WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT)
                                          : INVALID_SOCKET;
    mHandle = static_cast<intptr_t>(lSocket);
    mArrival = lSocket != INVALID_SOCKET ? MakeEvent() : -1;
    if (mArrival < 0)
    {
        Fail("no socket");
        Close();
        return false;
    }
    const BOOL lOne = TRUE;
    // Ignored: the system's own size does too, for a shorter while.
    static_cast<void>(SetOption(lSocket, SOL_SOCKET, SO_RCVBUF, cReceiveBuffer));
    const sockaddr_in lAddress = ToSystem(aLocal);
    // Without exclusive use, another program that shares could take the same port, and get what comes.
    if (!SetOption(lSocket, SOL_SOCKET, aShared ? SO_REUSEADDR : SO_EXCLUSIVEADDRUSE, lOne) ||
        !SwitchRefusalsOff(lSocket) || (aInterface != 0 && !ChooseInterface(lSocket, aInterface)) ||
        bind(lSocket, Generic(lAddress), sizeof lAddress) != 0 ||
        WSAEventSelect(lSocket, ToEvent(mArrival), FD_READ) != 0)
    {
        // The reason is kept first, because Close() may change the system's last error.
        Fail(EndpointText(aLocal).c_str());
        Close();
        return false;
    }
    return true;
}

/// The system's socket is not connected: Wine signals no more arrivals on one whose peer was gone for a moment.
/// What others send is left out in receiving. A second socket, for this moment, finds the way.
bool UdpSocket::Connect(const Endpoint& aPeer)
{
    const sockaddr_in lPeer = ToSystem(aPeer);
    sockaddr_in lLocal{};
    int lSize = sizeof lLocal;
    const SOCKET lProbe = StartSockets() ? socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP) : INVALID_SOCKET;
    const bool lFound = IsOpen() && lProbe != INVALID_SOCKET &&
                        connect(lProbe, Generic(lPeer), sizeof lPeer) == 0 &&
                        getsockname(lProbe, Generic(lLocal), &lSize) == 0;
    const bool lGood = lFound || Fail(EndpointText(aPeer).c_str());
    if (lProbe != INVALID_SOCKET)
    {
        closesocket(lProbe);
    }
    mPeer = lGood ? aPeer : Endpoint();
    mRoute = lGood ? FromSystem(lLocal).mAddress : 0;
    return lGood;
}

void UdpSocket::Close()
{
    const intptr_t lHandle = std::exchange(mHandle, -1);
    const intptr_t lArrival = std::exchange(mArrival, -1);
    mMayHave = false;
    mPeer = {};
    mRoute = 0;
    if (lHandle >= 0)
    {
        closesocket(ToSocket(lHandle));
    }
    if (lArrival >= 0)
    {
        CloseHandle(ToEvent(lArrival));
    }
}

bool UdpSocket::AllowBroadcast()
{
    const BOOL lOne = TRUE;
    return SetOption(ToSocket(mHandle), SOL_SOCKET, SO_BROADCAST, lOne) || Fail("broadcast");
}

Endpoint UdpSocket::GetLocal() const
{
    sockaddr_in lAddress{};
    int lSize = sizeof lAddress;
    Endpoint lLocal;
    if (IsOpen() && getsockname(ToSocket(mHandle), Generic(lAddress), &lSize) == 0)
    {
        // A socket that is bound to no address shows the own one on the way to
        // its peer, as a connected socket does.
        lLocal = FromSystem(lAddress);
        lLocal.mAddress = lLocal.mAddress != 0 ? lLocal.mAddress : mRoute;
    }
    return lLocal;
}

SocketResult UdpSocket::Send(std::span<const uint8_t> aData)
{
    return mPeer == Endpoint() ? SocketResult::Failed : SendTo(mPeer, aData);
}

SocketResult UdpSocket::SendTo(const Endpoint& aPeer, std::span<const uint8_t> aData)
{
    const sockaddr_in lAddress = ToSystem(aPeer);
    return IsOpen() ? SendDatagram(ToSocket(mHandle), aData, lAddress) : SocketResult::Failed;
}

/// Does not block: a socket with an event never does. \return TimedOut: none is there.
SocketResult UdpSocket::TakeDatagram(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                                     bool /*aBlock*/)
{
    constexpr int cMostForeign = 64; // then the caller looks at its time again
    mMayHave = false;                // the system signals again when more is there
    for (int lForeign = 0; lForeign < cMostForeign; ++lForeign)
    {
        sockaddr_in lAddress{};
        int lSize = sizeof lAddress;
        const int lCount = recvfrom(ToSocket(mHandle), reinterpret_cast<char*>(aBuffer.data()),
                                    static_cast<int>(aBuffer.size()), 0, Generic(lAddress), &lSize);
        const int lError = lCount >= 0 ? 0 : WSAGetLastError();
        if (lError != 0 && lError != WSAEMSGSIZE)
        {
            return lError == WSAEWOULDBLOCK || IsOldRefusal(lError) ? SocketResult::TimedOut
                                                                    : SocketResult::Failed;
        }
        const Endpoint lFrom = FromSystem(lAddress);
        if (mPeer == Endpoint() || mPeer == lFrom)
        {
            // A datagram that is longer than the buffer counts as an error here; the buffer holds its beginning.
            aSize = lError == WSAEMSGSIZE ? aBuffer.size() : static_cast<size_t>(lCount);
            if (aFrom != nullptr)
            {
                *aFrom = lFrom;
            }
            return SocketResult::Done;
        }
    }
    return SocketResult::TimedOut;
}

SocketResult UdpSocket::Receive(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                                SocketTime aTimeout, Waker* aWaker)
{
    aSize = 0;
    if (!IsOpen())
    {
        return SocketResult::Failed;
    }
    const Deadline lEnd(aTimeout);
    for (;;)
    {
        UdpSocket* const lThis = this;
        const SocketResult lWaited = Wait({&lThis, 1}, lEnd.GetTimeLeft(), aWaker);
        // Looks once more after a wait without an event, which costs nothing then.
        const bool lLook = lWaited == SocketResult::Done || lWaited == SocketResult::TimedOut;
        const SocketResult lTaken = lLook ? TakeDatagram(aBuffer, aSize, aFrom, false) : lWaited;
        if (lWaited != SocketResult::Done || lTaken != SocketResult::TimedOut)
        {
            return lTaken;
        }
        // The event may have been that of a datagram which was taken before it was waited for.
    }
}

namespace
{

/// One call that waits for some sockets and a waker. Indexes are those of its handles.
class Selection
{
public:
    void Add(intptr_t aEvent)
    {
        if (aEvent >= 0)
        {
            mHandles[mCount++] = ToEvent(aEvent);
        }
    }

    size_t GetCount() const { return mCount; }

    /// \param aFirst  Looks at this one and those after it.
    /// \return The index of the first with a signal; GetCount(): none in time. Nothing: the system refused.
    std::optional<size_t> Wait(size_t aFirst, DWORD aTime) const
    {
        // The system refuses to wait for no object at all.
        if (aFirst >= mCount)
        {
            Sleep(aFirst == 0 ? aTime : 0);
            return mCount;
        }
        const DWORD lCount = static_cast<DWORD>(mCount - aFirst);
        const DWORD lResult = WaitForMultipleObjects(lCount, mHandles.data() + aFirst, FALSE, aTime);
        if (lResult == WAIT_TIMEOUT)
        {
            return mCount;
        }
        return lResult < lCount ? std::optional<size_t>(aFirst + lResult) : std::nullopt;
    }

private:
    std::array<HANDLE, MAXIMUM_WAIT_OBJECTS> mHandles; // not cleared: what is used is set
    size_t mCount = 0;
};

} // namespace

/// At most cMostSockets. A signal is taken back by the wait that sees it, so what it said is remembered until
/// the socket is received from. Every socket is looked at, whichever is first: none keeps another waiting.
SocketResult UdpSocket::WaitForGroup(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker)
{
    Selection lSelection;
    std::array<UdpSocket*, cMostSockets> lUnknown; // whose signal is waited for
    bool lAny = false;
    for (UdpSocket* const lSocket : aSockets)
    {
        lAny = lAny || lSocket->mMayHave;
        if (lSocket->mArrival >= 0 && !lSocket->mMayHave)
        {
            lUnknown[lSelection.GetCount()] = lSocket;
            lSelection.Add(lSocket->mArrival);
        }
    }
    const size_t lSockets = lSelection.GetCount();
    if (aWaker != nullptr && !lAny) // datagrams go before it
    {
        lSelection.Add(aWaker->mHandle);
    }
    DWORD lTime = lAny ? 0 : aTimeout < SocketTime(0) ? INFINITE : ToWaitTime(aTimeout);
    for (size_t lNext = 0; lNext == 0 || lNext < lSockets; lTime = 0)
    {
        const std::optional<size_t> lSignalled = lSelection.Wait(lNext, lTime);
        if (!lSignalled)
        {
            return SocketResult::Failed;
        }
        if (*lSignalled >= lSockets)
        {
            const bool lWoken = *lSignalled < lSelection.GetCount();
            if (lWoken && lAny)
            {
                aWaker->Wake(); // for the next wait
            }
            return lAny ? SocketResult::Done : lWoken ? SocketResult::Woken : SocketResult::TimedOut;
        }
        lUnknown[*lSignalled]->mMayHave = true;
        lAny = true;
        lNext = *lSignalled + 1;
    }
    return SocketResult::Done;
}

/// More sockets than one call takes: each group has its turn.
SocketResult UdpSocket::WaitForMany(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker)
{
    const Deadline lEnd(aTimeout);
    for (;;)
    {
        // The clock is read before the groups, so that each has a last look after the end of the time.
        const bool lOver = lEnd.IsOver();
        for (size_t lFirst = 0; lFirst < aSockets.size(); lFirst += cMostSockets)
        {
            const auto lGroup = aSockets.subspan(lFirst, std::min(cMostSockets, aSockets.size() - lFirst));
            const SocketResult lResult = WaitForGroup(lGroup, lOver ? SocketTime(0) : cTurn, aWaker);
            if (lResult != SocketResult::TimedOut)
            {
                return lResult;
            }
        }
        if (lOver)
        {
            return SocketResult::TimedOut;
        }
    }
}

SocketResult UdpSocket::Wait(std::span<UdpSocket* const> aSockets, SocketTime aTimeout, Waker* aWaker,
                             uint32_t* aReady)
{
    SocketTime lTimeout = aTimeout;
    const bool lTimed = aWaker != nullptr && aWaker->mDue != Waker::Clock::time_point::max();
    if (lTimed)
    {
        const auto lLeft = std::max<SocketTime>(aWaker->mDue - Waker::Clock::now(), SocketTime(0));
        lTimeout = aTimeout < SocketTime(0) ? lLeft : std::min(lLeft, aTimeout);
    }
    const bool lFew = aSockets.size() <= cMostSockets;
    const SocketResult lResult =
        lFew ? WaitForGroup(aSockets, lTimeout, aWaker) : WaitForMany(aSockets, lTimeout, aWaker);
    // A moment that has come ends one wait only.
    if (lTimed && lResult == SocketResult::TimedOut && aWaker->mDue <= Waker::Clock::now())
    {
        aWaker->mDue = Waker::Clock::time_point::max();
    }
    if (aReady != nullptr)
    {
        *aReady = 0;
        for (size_t lIndex = 0; lIndex < std::min(aSockets.size(), cReadyBits); ++lIndex)
        {
            *aReady |= aSockets[lIndex]->mMayHave ? 1U << lIndex : 0U;
        }
    }
    return lResult;
}

} // namespace KyGvcp
