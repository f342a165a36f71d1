// UDP sockets of a network that is in this process's own memory, in place of the system's: a thousand times
// faster, and nothing is late or lost. What has not been sent before a wait never comes, so no wait takes
// time. One thread.

#include "Fuzz/FuzzInput.h"
#include "KyGvcp/UdpSocket.h"

#include <memory>
#include <utility>

namespace KyGvcp
{

namespace
{

constexpr uint16_t cFirstPort = 1024;

struct Datagram
{
    Endpoint mFrom;
    std::vector<uint8_t> mBytes;
};

struct Place
{
    bool mIsOpen = false;
    Endpoint mLocal;
    Endpoint mPeer; // zeros: takes from everybody
    std::vector<Datagram> mWaiting;
    size_t mTaken = 0; // of those
};

// Never shrinks: sockets come and go in every run, and what they hold is used again.
std::vector<std::unique_ptr<Place>> gPlaces;
uint16_t gLastPort = cFirstPort;

Place& At(intptr_t aHandle)
{
    KY_REQUIRE(aHandle >= 0 && gPlaces[static_cast<size_t>(aHandle)]->mIsOpen);
    return *gPlaces[static_cast<size_t>(aHandle)];
}

Place* FindBound(const Endpoint& aLocal)
{
    for (const std::unique_ptr<Place>& lPlace : gPlaces)
    {
        if (lPlace->mIsOpen && lPlace->mLocal == aLocal)
        {
            return lPlace.get();
        }
    }
    return nullptr;
}

int FindUnused()
{
    size_t lIndex = 0;
    while (lIndex < gPlaces.size() && gPlaces[lIndex]->mIsOpen)
    {
        ++lIndex;
    }
    if (lIndex == gPlaces.size())
    {
        gPlaces.push_back(std::make_unique<Place>());
    }
    return static_cast<int>(lIndex);
}

} // namespace

UdpSocket::~UdpSocket()
{
    Close();
}

bool UdpSocket::Open(const Endpoint& aLocal, bool /*aShared*/, uint32_t /*aInterface*/)
{
    Close();
    Endpoint lLocal = aLocal;
    while (lLocal.mPort == 0 || FindBound(lLocal) != nullptr)
    {
        gLastPort = gLastPort == UINT16_MAX ? cFirstPort : static_cast<uint16_t>(gLastPort + 1);
        lLocal.mPort = gLastPort;
    }
    mHandle = FindUnused();
    Place& lPlace = *gPlaces[static_cast<size_t>(mHandle)];
    lPlace.mIsOpen = true;
    lPlace.mLocal = lLocal;
    lPlace.mPeer = {};
    lPlace.mWaiting.clear();
    lPlace.mTaken = 0;
    return true;
}

bool UdpSocket::Connect(const Endpoint& aPeer)
{
    At(mHandle).mPeer = aPeer;
    return true;
}

void UdpSocket::Close()
{
    const intptr_t lHandle = std::exchange(mHandle, -1);
    if (lHandle >= 0)
    {
        At(lHandle).mIsOpen = false;
    }
}

Endpoint UdpSocket::GetLocal() const
{
    return mHandle >= 0 ? At(mHandle).mLocal : Endpoint();
}

SocketResult UdpSocket::Send(std::span<const uint8_t> aData)
{
    return SendTo(At(mHandle).mPeer, aData);
}

SocketResult UdpSocket::SendTo(const Endpoint& aPeer, std::span<const uint8_t> aData)
{
    const Endpoint lFrom = At(mHandle).mLocal;
    Place* const lPlace = FindBound(aPeer);
    if (lPlace != nullptr && (lPlace->mPeer == Endpoint() || lPlace->mPeer == lFrom))
    {
        lPlace->mWaiting.push_back({lFrom, {aData.begin(), aData.end()}});
    }
    return SocketResult::Done;
}

SocketResult UdpSocket::Receive(std::span<uint8_t> aBuffer, size_t& aSize, Endpoint* aFrom,
                                SocketTime aTimeout, Waker* /*aWaker*/)
{
    aSize = 0;
    Place& lPlace = At(mHandle);
    if (lPlace.mTaken == lPlace.mWaiting.size())
    {
        KY_REQUIRE(aTimeout >= SocketTime(0)); // would never end
        lPlace.mWaiting.clear();
        lPlace.mTaken = 0;
        return SocketResult::TimedOut;
    }
    const Datagram& lDatagram = lPlace.mWaiting[lPlace.mTaken++];
    aSize = std::min(aBuffer.size(), lDatagram.mBytes.size());
    std::copy_n(lDatagram.mBytes.begin(), aSize, aBuffer.begin());
    if (aFrom != nullptr)
    {
        *aFrom = lDatagram.mFrom;
    }
    return SocketResult::Done;
}

bool UdpSocket::AddressHearsBroadcasts()
{
    return false;
}

bool UdpSocket::ReportsRefusals()
{
    return true;
}

} // namespace KyGvcp
