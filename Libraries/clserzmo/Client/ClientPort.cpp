#include "ClientPort.h"

#include "JxUtilsLib/LockScope.h"
#include "JxUtilsLib/Thread.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace KySerialLib
{

namespace
{

constexpr uint32_t cFifoSize = 1024;
constexpr uint32_t cPauseTime = 20; // ms between looks whether a server is back
constexpr uint32_t cRates = 0xFF;   // the bits that the standard has rates for

std::atomic_ref<uint32_t> Shared(uint32_t& aField)
{
    return std::atomic_ref<uint32_t>(aField);
}

std::string GetName(const SharedRegistryEntry& aEntry)
{
    // Another process may have left the entry without its NUL.
    const void* const lEnd = std::memchr(aEntry.mName, 0, sizeof aEntry.mName);
    return lEnd != nullptr ? std::string(aEntry.mName) : std::string(aEntry.mName, sizeof aEntry.mName);
}

} // namespace

bool ClientServer::IsAlive(const std::string& aPrefix, uint32_t aServerId)
{
    KyPlatform::NamedSemaphore lServer;
    return lServer.Open(aPrefix + "KySerialBridgeServerSemaphore" + std::to_string(aServerId));
}

bool ClientServer::IsAlive() const
{
    std::vector<ClientServer> lServers;
    static_cast<void>(GetAll(lServers)); // a failure leaves none
    for (const ClientServer& lServer : lServers)
    {
        if (lServer.mName == mName)
        {
            return true;
        }
    }
    return false;
}

bool ClientServer::GetAll(std::vector<ClientServer>& aServers)
{
    aServers.clear();
    SharedRegistry lRegistry(true);
    const std::vector<SharedRegistryEntry> lEntries = lRegistry.GetEntries();
    for (const SharedRegistryEntry& lEntry : lEntries)
    {
        // The mark alone proves nothing: it stays when a server dies while a client is attached.
        if (lEntry.mServerId != 0 && lEntry.mServerActive != 0 &&
            IsAlive(lRegistry.GetPrefix(lEntry), lEntry.mServerId))
        {
            aServers.push_back({GetName(lEntry)});
        }
    }
    return !lEntries.empty();
}

ClientPort::ClientPort() : mRegistry(true) {}

ClientPort::~ClientPort()
{
    // The place is given back last: the next client must not meet this one at the FIFOs.
    mDownFifo = nullptr;
    mUpFifo = nullptr;
    if (mSemaphore.IsValid())
    {
        SharedRegistry::ReleaseClient(mSemaphore);
    }
}

ClientResult ClientPort::Attach(const std::string& aName)
{
    if (!mRegistry.Find(aName, mEntry))
    {
        return ClientResult::Gone;
    }
    mServerId = Shared(mEntry->mServerId);
    mPrefix = mRegistry.GetPrefix(*mEntry);
    if (!mRegistry.AcquireClient(aName, mSemaphore))
    {
        // A place that cannot be had is another client's, as long as there is a server at all.
        return ClientServer::IsAlive(mPrefix, mServerId) ? ClientResult::InUse : ClientResult::Gone;
    }
    const std::string lNumber = std::to_string(mServerId);
    // The FIFOs are made when they do not exist yet: a server that is about to start finds them.
    mDownFifo = std::make_unique<SharedFifo>("KySerialBridgeDownFifo" + lNumber, mPrefix, cFifoSize, true);
    mUpFifo = std::make_unique<SharedFifo>("KySerialBridgeUpFifo" + lNumber, mPrefix, cFifoSize, true);
    if (!mDownFifo->IsValid() || !mUpFifo->IsValid())
    {
        return ClientResult::Gone;
    }
    // The rate that a former client has asked for is not this one's.
    const uint32_t lOffered = GetSupportedBaudRates();
    const uint32_t lLowest = lOffered & (~lOffered + 1);
    Shared(mEntry->mRequestedBaudRate) = lLowest != 0 ? lLowest : 1;
    return ClientResult::Done;
}

size_t ClientPort::GetPending()
{
    const JxUtilsLib::LockScope lLock(mMutex);
    return mPending.size();
}

// Adds what arrives within the time to what is pending.
void ClientPort::Fetch(uint32_t aTimeout)
{
    std::array<char, cFifoSize> lBytes;
    uint32_t lRead = 0;
    // A FIFO that another process has damaged fails at once. The pause keeps the caller from asking all the time.
    const uint64_t lStart = JxUtilsLib::Thread::GetTickCount();
    if (mUpFifo->Read(lBytes.data(), cFifoSize, lRead, aTimeout, &mClosed))
    {
        const JxUtilsLib::LockScope lLock(mMutex);
        mPending.insert(mPending.end(), lBytes.begin(), lBytes.begin() + lRead);
    }
    else if (aTimeout > 0 && JxUtilsLib::Thread::GetTickCount() == lStart)
    {
        JxUtilsLib::Thread::Sleep(std::min(aTimeout, cPauseTime));
    }
}

uint32_t ClientPort::TakePending(char* aBuffer, uint32_t aSize)
{
    const JxUtilsLib::LockScope lLock(mMutex);
    const auto lCount = static_cast<uint32_t>(std::min<size_t>(aSize, mPending.size()));
    std::copy_n(mPending.begin(), lCount, aBuffer);
    mPending.erase(mPending.begin(), mPending.begin() + lCount);
    return lCount;
}

ClientResult ClientPort::Read(char* aBuffer, uint32_t aSize, bool aWhole, uint32_t aTimeout, uint32_t& aRead)
{
    aRead = 0;
    // The time runs from before the turn, so that the wait for the turn counts too.
    const KyPlatform::Deadline lDeadline(aTimeout);
    const ClientTurnScope lTurn(mReadTurn, lDeadline, mClosed);
    while (lTurn.IsMine() && !mClosed)
    {
        const uint32_t lLeft = lDeadline.GetRemaining();
        if (GetPending() < aSize)
        {
            Fetch(lLeft);
        }
        // A flush may come between this look and the taking: then fewer bytes are there, and the read goes
        // on.
        if (GetPending() >= aSize)
        {
            aRead = TakePending(aBuffer, aSize);
            return ClientResult::Done;
        }
        if (lLeft == 0)
        {
            aRead = aWhole ? 0 : TakePending(aBuffer, aSize);
            return ClientResult::TimedOut;
        }
    }
    return mClosed ? ClientResult::Closed : ClientResult::TimedOut;
}

// \return Whether a server is there to take what is written.
bool ClientPort::WaitForServer(const KyPlatform::Deadline& aDeadline)
{
    while (!ClientServer::IsAlive(mPrefix, mServerId))
    {
        const uint32_t lLeft = aDeadline.GetRemaining();
        if (mClosed || lLeft == 0)
        {
            return false;
        }
        JxUtilsLib::Thread::Sleep(std::min(lLeft, cPauseTime));
    }
    return true;
}

ClientResult ClientPort::Write(const char* aData, uint32_t aSize, uint32_t aTimeout, uint32_t& aWritten)
{
    aWritten = 0;
    const KyPlatform::Deadline lDeadline(aTimeout);
    const ClientTurnScope lTurn(mWriteTurn, lDeadline, mClosed);
    // Without a server nothing is written: the bytes would reach a later server at an unknown time.
    if (lTurn.IsMine() && WaitForServer(lDeadline))
    {
        // The result does not count: what leaves the FIFO exactly full is stored, although the wait for the
        // reader was in vain.
        static_cast<void>(mDownFifo->Write(aData, aSize, aWritten, lDeadline.GetRemaining(), &mClosed));
        if (aWritten == aSize)
        {
            return ClientResult::Done;
        }
    }
    return mClosed ? ClientResult::Closed : ClientResult::TimedOut;
}

uint32_t ClientPort::GetAvailable()
{
    uint32_t lWaiting = 0;
    static_cast<void>(mUpFifo->GetAvailable(lWaiting)); // a failure leaves 0
    return static_cast<uint32_t>(GetPending()) + lWaiting;
}

void ClientPort::Flush()
{
    // What is there now and no more: a device that never stops sending must not hold the caller up.
    uint32_t lWaiting = 0;
    static_cast<void>(mUpFifo->GetAvailable(lWaiting)); // a failure leaves 0
    std::array<char, cFifoSize> lBytes;
    uint32_t lRead = 0;
    while (lWaiting > 0 && mUpFifo->Read(lBytes.data(), std::min(lWaiting, cFifoSize), lRead, 0, nullptr))
    {
        lWaiting -= std::min(lRead, lWaiting);
    }
    const JxUtilsLib::LockScope lLock(mMutex);
    mPending.clear();
}

uint32_t ClientPort::GetSupportedBaudRates() const
{
    return Shared(mEntry->mSupportedBaudRates) & cRates;
}

ClientResult ClientPort::SetBaudRate(uint32_t aMask)
{
    const uint32_t lOffered = GetSupportedBaudRates();
    // A rate is one bit. Callers may hand in any number.
    const bool lIsOne = aMask != 0 && (aMask & (aMask - 1)) == 0;
    if (!lIsOne || (aMask & lOffered) == 0)
    {
        return ClientResult::Unsupported;
    }
    Shared(mEntry->mRequestedBaudRate) = aMask;
    return ClientResult::Done;
}

} // namespace KySerialLib
