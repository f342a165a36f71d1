#include "kyserial/Serve/Tcp/TcpHostState.h"

#include <JxUtilsLib/LockScope.h>
#include <KyPlatform/Deadline.h>
#include <boost/asio/post.hpp>

#include <algorithm>
#include <utility>

namespace KySerialTool
{

namespace
{

using boost::asio::ip::tcp;
using JxUtilsLib::LockScope;

constexpr uint32_t cPatience = 1000; // ms, with a client that holds up others

} // namespace

std::string HostText(const std::string& aAddress, uint16_t aPort)
{
    // An IPv6 address needs brackets: its own colons would run into that of the port.
    const bool lIsIpv6 = aAddress.find(':') != std::string::npos;
    return (lIsIpv6 ? '[' + aAddress + ']' : aAddress) + ':' + std::to_string(aPort);
}

void TcpHost::State::Open()
{
    // Not in the constructor: the function holds this object by a shared pointer, which does not exist there.
    mAcceptor = std::make_shared<Acceptor>(mContext, [lThis = shared_from_this()](tcp::socket aSocket)
                                           { lThis->Admit(std::move(aSocket)); });
    mPort = mAcceptor->Open(mSettings.mAddress, mSettings.mPort);
}

void TcpHost::State::Close()
{
    EndTransfers();
    mClosing.Run(mContext, shared_from_this(),
                 [this] { CloseAll(); }); // the sockets belong to the network's thread
    const LockScope lScope(mMutex);
    while (mSends > 0) // the system says how much of them has left
    {
        mHasRoom.Wait(mMutex);
    }
}

bool TcpHost::State::Insert(const std::string& aBytes)
{
    const LockScope lScope(mMutex);
    // The whole text or nothing, so that a text that was refused can be sent again.
    if (mEnded || mQueue.IsFull())
    {
        return false;
    }
    if (!aBytes.empty())
    {
        mQueue.Add(aBytes);
        mCounts.mTaken += aBytes.size(); // after it, which may find no memory
        mForDevice.NotifyAll();
    }
    return true;
}

IKySerialBridgeHost::ReadEnd TcpHost::State::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead,
                                                  KySerialBridgeRequest& aRequest)
{
    const LockScope lScope(mMutex);
    while (!mEnded && mQueue.IsEmpty())
    {
        mForDevice.Wait(mMutex);
    }
    // What still waits is not handed out any more: CloseAll() counts it as left.
    if (mEnded)
    {
        return ReadEnd::Nothing;
    }
    std::optional<ClientQueue::Request> lRequest;
    const uint32_t lBytes = mQueue.Take(aBuffer, aSize, lRequest);
    if (!mClients.empty() && mClients.front()->mHeld && !mQueue.IsFull())
    {
        // The client that writes was not read while the queue was full.
        PostFlush();
    }
    if (lRequest.has_value())
    {
        aRequest = lRequest->mRequest;
        mAnswer = std::move(lRequest);
        return ReadEnd::Request;
    }
    aRead = lBytes;
    return ReadEnd::Bytes;
}

bool TcpHost::State::HasRoom() const
{
    return mEnded || std::none_of(mClients.begin(), mClients.end(),
                                  [this](const ClientPtr& aClient) { return IsBehind(*aClient); });
}

// A client that is alone may hold the bridge up; what the device sends meanwhile waits in its port. Among several
// one that takes nothing for a while has to go.
void TcpHost::State::WaitForRoom()
{
    while (mClients.size() <= 1 && !HasRoom())
    {
        mHasRoom.Wait(mMutex);
    }
    const KyPlatform::Deadline lEnd(cPatience);
    for (uint32_t lLeft = cPatience; lLeft > 0 && !HasRoom(); lLeft = lEnd.GetRemaining())
    {
        mHasRoom.WaitFor(mMutex, lLeft);
    }
}

uint32_t TcpHost::State::Write(const uint8_t* aData, uint32_t aSize)
{
    const LockScope lScope(mMutex);
    WaitForRoom();
    if (mEnded)
    {
        return 0;
    }
    std::string lBytes;
    if (mSettings.mTelnet)
    {
        Telnet::Encode(aData, aSize, lBytes);
    }
    else
    {
        lBytes.assign(reinterpret_cast<const char*>(aData), aSize);
    }
    bool lTaken = false;
    bool lWaits = false;
    for (const ClientPtr& lClient : mClients)
    {
        if (IsBehind(*lClient)) // also one that has become the only one meanwhile
        {
            boost::asio::post(mContext,
                              [lThis = shared_from_this(), lClient] { lThis->Remove(lClient, true); });
            continue;
        }
        lTaken = true;
        lClient->mOutput.AddBytes(lBytes, aSize);
        lWaits = !SendAtOnce(*lClient) || lWaits;
    }
    mCounts.mUnread += lTaken ? 0 : aSize; // as of a serial port that no program has open
    if (lWaits)
    {
        PostFlush();
    }
    return aSize;
}

void TcpHost::State::NotifySettings(const KySerialPortConfiguration& aSettings)
{
    const LockScope lScope(mMutex);
    mLine = aSettings;
    const std::optional<ClientQueue::Request> lAnswer = std::exchange(mAnswer, std::nullopt);
    const ClientPtr lClient = lAnswer.has_value() ? lAnswer->mClient.lock() : nullptr;
    // No answer is due for the settings of a start, or to a client that has gone meanwhile.
    if (lClient != nullptr)
    {
        lClient->mOutput.AddAnswer(LineAnswer(lAnswer->mCommand, mLine, lAnswer->mAsked));
        PostFlush();
    }
}

void TcpHost::State::EndTransfers() noexcept
{
    const LockScope lScope(mMutex);
    mEnded = true;
    mForDevice.NotifyAll();
    mHasRoom.NotifyAll();
}

TcpCounts TcpHost::State::GetCounts() const
{
    const LockScope lScope(mMutex);
    TcpCounts lCounts = mCounts;
    lCounts.mClients = static_cast<uint32_t>(mClients.size());
    lCounts.mFailures = mAcceptor->GetFailures();
    return lCounts;
}

std::vector<std::string> TcpHost::State::TakeNews()
{
    std::vector<std::string> lNews{mAcceptor->TakeNews(), mFull.Take()};
    std::erase(lNews, "");
    return lNews;
}

TcpHost::TcpHost(const TcpSettings& aSettings, Network& aNetwork)
    : mThis(std::make_shared<State>(aSettings, aNetwork.Use()))
{
    mThis->Open();
}

TcpHost::~TcpHost()
{
    Close();
}

void TcpHost::Close()
{
    mThis->Close();
}

IKySerialBridgeHost::ReadEnd TcpHost::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead,
                                           KySerialBridgeRequest& aRequest)
{
    return mThis->Read(aBuffer, aSize, aRead, aRequest);
}

uint32_t TcpHost::Write(const uint8_t* aData, uint32_t aSize)
{
    return mThis->Write(aData, aSize);
}

void TcpHost::EndTransfers() noexcept
{
    mThis->EndTransfers();
}

void TcpHost::NotifySettings(const KySerialPortConfiguration& aSettings)
{
    mThis->NotifySettings(aSettings);
}

bool TcpHost::Insert(const std::string& aBytes)
{
    return mThis->Insert(aBytes);
}

TcpCounts TcpHost::GetCounts() const
{
    return mThis->GetCounts();
}

std::vector<std::string> TcpHost::TakeNews()
{
    return mThis->TakeNews();
}

uint16_t TcpHost::GetPort() const
{
    return mThis->GetPort();
}

} // namespace KySerialTool
