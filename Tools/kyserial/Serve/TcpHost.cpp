#include "kyserial/Serve/TcpHost.h"

#include "kyserial/Serve/Acceptor.h"
#include "kyserial/Serve/Telnet.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <deque>
#include <future>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

namespace KySerialTool
{

namespace
{

namespace Asio = boost::asio;
using Asio::ip::tcp;
using Error = boost::system::error_code;
using Lock = std::unique_lock<std::mutex>;

constexpr size_t cPiece = 4096;            // that is read from a client at once
constexpr size_t cMostFromClients = 16384; // bytes that wait for the device
constexpr size_t cMostRequests = 64;
constexpr std::chrono::seconds cPatience(1); // with a client that holds up others
constexpr uint8_t cModemState = 0xB0;        // CTS, DSR and carrier: a camera is there and can take bytes

std::string OneByte(uint32_t aValue)
{
    return std::string(1, static_cast<char>(aValue));
}

std::string FourBytes(uint32_t aValue)
{
    std::string lText;
    for (int lShift = 24; lShift >= 0; lShift -= 8)
    {
        lText += static_cast<char>(aValue >> lShift & 0xFF);
    }
    return lText;
}

/// Parity as RFC 2217 numbers it.
constexpr std::array cParities = {std::pair(KyParityNone, 1U), std::pair(KyParityOdd, 2U),
                                  std::pair(KyParityEven, 3U)};

} // namespace

/// What sockets and bridge share. Sockets are used on the network's thread only, the rest under mMutex.
class TcpHost::State : public std::enable_shared_from_this<State>
{
public:
    State(const TcpSettings& aSettings, Asio::io_context& aContext) : mSettings(aSettings), mContext(aContext)
    {
    }

    void Open();
    void Close();
    ReadEnd Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead, KySerialBridgeRequest& aRequest);
    uint32_t Write(const uint8_t* aData, uint32_t aSize);
    void EndTransfers() noexcept;
    void NotifySettings(const KySerialPortConfiguration& aSettings);
    bool Insert(const std::string& aBytes);
    TcpCounts GetCounts() const;
    std::vector<std::string> TakeNews();

    uint16_t mPort = 0;

private:
    struct Client final : Telnet::Sink
    {
        Client(State& aState, tcp::socket aSocket)
            : mState(aState), mSocket(std::move(aSocket)), mIdle(aState.mContext)
        {
        }
        void TakeBytes(const uint8_t* aBytes, size_t aCount) override
        {
            mState.TakeBytes(*this, aBytes, aCount);
        }
        void TakeCommand(ComPortCommand aCommand, const std::string& aValue) override
        {
            mState.TakeCommand(*this, aCommand, aValue);
        }

        State& mState;
        tcp::socket mSocket;
        Asio::steady_timer mIdle;
        Telnet mTelnet{};
        std::array<uint8_t, cPiece> mPiece{};
        bool mReading = false;
        bool mPaused = false; // its own wish: flow control
        bool mHeld = false;   // not read, because bytes wait for the device
        std::string mWaiting{};
        std::string mSending{};
        size_t mWaitingBytes = 0; // of the device, in mWaiting
        size_t mSendingBytes = 0;
        uint8_t mControls = 0x03; // DTR and RTS, which are kept for the client: a camera has no such lines
    };
    using ClientPtr = std::shared_ptr<Client>;

    /// What waits for the bridge, in order: bytes, or a request and the answer that is due.
    struct Item
    {
        std::string mBytes{};
        std::weak_ptr<Client> mClient{};
        std::optional<ComPortCommand> mCommand{};
        uint32_t mAsked = 0;
        KySerialBridgeRequest mRequest{};
    };

    void Admit(tcp::socket aSocket);
    void Receive(const ClientPtr& aClient);
    void Flush(const ClientPtr& aClient);
    void FlushAll();
    void Watch(const ClientPtr& aClient);
    void Remove(const ClientPtr& aClient, bool aByUs);
    void TakeBytes(Client& aClient, const uint8_t* aBytes, size_t aCount);
    void Queue(const std::string& aBytes);
    void TakeCommand(Client& aClient, ComPortCommand aCommand, const std::string& aValue);
    void TakeControl(Client& aClient, uint32_t aValue);
    void Purge(Client& aClient, uint32_t aWhat);
    void Ask(Client& aClient, ComPortCommand aCommand, uint32_t aValue,
             const KySerialBridgeRequest& aRequest);
    void Say(Client& aClient, ComPortCommand aCommand, const std::string& aValue);
    std::string SettingText(ComPortCommand aCommand, uint32_t aAsked) const;
    bool IsWriter(const Client& aClient) const;
    bool IsFull() const { return mBytesFromClients >= cMostFromClients || mItems.size() >= cMostRequests; }
    size_t Waiting(const Client& aClient) const { return aClient.mWaiting.size() + aClient.mSending.size(); }

    const TcpSettings mSettings;
    Asio::io_context& mContext;
    std::shared_ptr<Acceptor> mAcceptor{};
    News mFull{};
    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    std::list<ClientPtr> mClients; // in the order of their coming
    std::deque<Item> mItems;
    size_t mBytesFromClients = 0;
    std::optional<Item> mAnswer; // that NotifySettings() gives
    KySerialPortConfiguration mLine{};
    TcpCounts mCounts{};
    bool mEnded = false;
    bool mClosed = false;
    bool mFlushing = false;
};

void TcpHost::State::Open()
{
    mAcceptor = std::make_shared<Acceptor>(mContext, [lThis = shared_from_this()](tcp::socket aSocket)
                                           { lThis->Admit(std::move(aSocket)); });
    mPort = mAcceptor->Open(mSettings.mAddress, mSettings.mPort);
}

void TcpHost::State::Admit(tcp::socket aSocket)
{
    Error lIgnored; // a connection that takes no option works without
    aSocket.set_option(tcp::no_delay(true), lIgnored);
    aSocket.set_option(Asio::socket_base::keep_alive(true), lIgnored);
    ClientPtr lClient;
    {
        const Lock lLock(mMutex);
        const size_t lMost = mSettings.mClients == TcpClients::One ? 1 : mSettings.mMostClients;
        if (mClients.size() >= lMost)
        {
            ++mCounts.mTurnedAway;
            mFull.Add("a client is turned away: " + std::to_string(mClients.size()) +
                      (lMost == 1 ? " is" : " are") + " there, and no more are allowed");
            return; // which closes it
        }
        lClient = std::make_shared<Client>(*this, std::move(aSocket));
        mClients.push_back(lClient);
        ++mCounts.mAccepted;
        lClient->mWaiting = mSettings.mTelnet ? Telnet::Greeting() : std::string();
    }
    Flush(lClient);
    Watch(lClient);
    Receive(lClient);
}

void TcpHost::State::Watch(const ClientPtr& aClient)
{
    if (mSettings.mIdle == 0)
    {
        return;
    }
    aClient->mIdle.expires_after(std::chrono::seconds(mSettings.mIdle)); // ends the wait before
    aClient->mIdle.async_wait(
        [lThis = shared_from_this(), aClient](const Error& aError)
        {
            if (!aError)
            {
                lThis->Remove(aClient, true);
            }
        });
}

void TcpHost::State::Receive(const ClientPtr& aClient)
{
    if (aClient->mReading || !aClient->mSocket.is_open())
    {
        return;
    }
    {
        const Lock lLock(mMutex);
        aClient->mHeld = IsFull() && IsWriter(*aClient);
        if (aClient->mHeld)
        {
            return; // Read() goes on with it
        }
    }
    aClient->mReading = true;
    aClient->mSocket.async_read_some(Asio::buffer(aClient->mPiece),
                                     [lThis = shared_from_this(), aClient](const Error& aError, size_t aCount)
                                     {
                                         aClient->mReading = false;
                                         if (aError)
                                         {
                                             lThis->Remove(aClient, false);
                                             return;
                                         }
                                         lThis->Watch(aClient);
                                         if (lThis->mSettings.mTelnet)
                                         {
                                             const uint64_t lFaults = aClient->mTelnet.GetFaults();
                                             std::string lReply;
                                             aClient->mTelnet.Receive(aClient->mPiece.data(), aCount,
                                                                      *aClient, lReply);
                                             const Lock lLock(lThis->mMutex);
                                             aClient->mWaiting += lReply;
                                             lThis->mCounts.mFaults += aClient->mTelnet.GetFaults() - lFaults;
                                         }
                                         else
                                         {
                                             lThis->TakeBytes(*aClient, aClient->mPiece.data(), aCount);
                                         }
                                         lThis->Flush(aClient);
                                         lThis->Receive(aClient);
                                     });
}

// One write at a time; what comes meanwhile follows in the next.
void TcpHost::State::Flush(const ClientPtr& aClient)
{
    bool lIsTooMuch = false;
    {
        const Lock lLock(mMutex);
        lIsTooMuch = aClient->mWaiting.size() > mSettings.mMostWaiting * 2 + cMostFromClients;
        if (!lIsTooMuch && (!aClient->mSending.empty() || aClient->mWaiting.empty() || aClient->mPaused ||
                            !aClient->mSocket.is_open()))
        {
            return;
        }
        if (!lIsTooMuch)
        {
            aClient->mSending.swap(aClient->mWaiting);
            aClient->mSendingBytes = std::exchange(aClient->mWaitingBytes, 0);
        }
    }
    if (lIsTooMuch) // answers to a client that asks and does not read
    {
        Remove(aClient, true);
        return;
    }
    Asio::async_write(aClient->mSocket, Asio::buffer(aClient->mSending),
                      [lThis = shared_from_this(), aClient](const Error& aError, size_t aWritten)
                      {
                          {
                              const Lock lLock(lThis->mMutex);
                              aClient->mSending.erase(0, aWritten);
                              aClient->mSendingBytes -= std::min(aClient->mSendingBytes, aWritten);
                              lThis->mChanged.notify_all();
                          }
                          if (aError)
                          {
                              lThis->Remove(aClient, false);
                              return;
                          }
                          lThis->Watch(aClient);
                          lThis->Flush(aClient);
                      });
}

void TcpHost::State::FlushAll()
{
    std::list<ClientPtr> lClients;
    {
        const Lock lLock(mMutex);
        mFlushing = false;
        lClients = mClients;
    }
    for (const ClientPtr& lClient : lClients)
    {
        Flush(lClient);
        if (lClient->mHeld)
        {
            Receive(lClient);
        }
    }
}

void TcpHost::State::Remove(const ClientPtr& aClient, bool aByUs)
{
    const Lock lLock(mMutex);
    const auto lPlace = std::find(mClients.begin(), mClients.end(), aClient);
    if (lPlace == mClients.end())
    {
        return;
    }
    mClients.erase(lPlace);
    mCounts.mDisconnected += aByUs ? 1 : 0;
    if (mClients.empty()) // else another one has the bytes
    {
        (mClosed ? mCounts.mStoppedToUser : mCounts.mUnread) +=
            aClient->mWaitingBytes + aClient->mSendingBytes;
    }
    Error lIgnored; // of a connection that is gone already
    aClient->mIdle.cancel();
    aClient->mSocket.close(lIgnored);
    mChanged.notify_all();
    if (!mClients.empty() && mClients.front()->mHeld)
    {
        Asio::post(mContext, [lThis = shared_from_this()] { lThis->FlushAll(); });
    }
}

bool TcpHost::State::IsWriter(const Client& aClient) const
{
    return mSettings.mClients != TcpClients::ReadOnly && !mClients.empty() &&
           mClients.front().get() == &aClient;
}

void TcpHost::State::TakeBytes(Client& aClient, const uint8_t* aBytes, size_t aCount)
{
    const Lock lLock(mMutex);
    mCounts.mTaken += aCount;
    if (!IsWriter(aClient))
    {
        mCounts.mNotAllowed += aCount;
        return;
    }
    Queue({reinterpret_cast<const char*>(aBytes), aCount});
}

// Under mMutex.
void TcpHost::State::Queue(const std::string& aBytes)
{
    if (!mItems.empty() && !mItems.back().mCommand.has_value())
    {
        mItems.back().mBytes += aBytes;
    }
    else
    {
        mItems.push_back({aBytes});
    }
    mBytesFromClients += aBytes.size();
    mChanged.notify_all();
}

bool TcpHost::State::Insert(const std::string& aBytes)
{
    const Lock lLock(mMutex);
    if (mEnded || IsFull())
    {
        return false;
    }
    mCounts.mTaken += aBytes.size();
    if (!aBytes.empty())
    {
        Queue(aBytes);
    }
    return true;
}

void TcpHost::State::Say(Client& aClient, ComPortCommand aCommand, const std::string& aValue)
{
    aClient.mWaiting += Telnet::Answer(aCommand, aValue);
}

// A request of a client that may only read is answered with what is, and changes nothing.
void TcpHost::State::Ask(Client& aClient, ComPortCommand aCommand, uint32_t aValue,
                         const KySerialBridgeRequest& aRequest)
{
    if (!IsWriter(aClient))
    {
        Say(aClient, aCommand, SettingText(aCommand, 0));
        return;
    }
    mItems.push_back({{}, mClients.front(), aCommand, aValue, aRequest});
    mChanged.notify_all();
}

// What a camera lacks is answered with the value that is in effect, as the standard wants it.
void TcpHost::State::TakeCommand(Client& aClient, ComPortCommand aCommand, const std::string& aValue)
{
    const Lock lLock(mMutex);
    const size_t lWanted = aCommand == ComPortCommand::SetBaudRate ? 4 : 1;
    uint32_t lValue = 0;
    for (size_t lIndex = 0; lIndex < std::min(lWanted, aValue.size()); ++lIndex)
    {
        lValue = lValue << 8 | static_cast<uint8_t>(aValue[lIndex]);
    }
    const bool lHasValue = aCommand != ComPortCommand::Signature && aCommand != ComPortCommand::Suspend &&
                           aCommand != ComPortCommand::Resume;
    if (lHasValue && aValue.size() < lWanted)
    {
        ++mCounts.mFaults;
        return;
    }
    KySerialBridgeRequest lRequest;
    switch (aCommand)
    {
    case ComPortCommand::Signature:
        if (aValue.empty())
        {
            Say(aClient, aCommand, "kyserial");
        }
        break;
    case ComPortCommand::SetBaudRate:
        lRequest.mBaudRate = lValue;
        Ask(aClient, aCommand, lValue, lRequest);
        break;
    case ComPortCommand::SetParity:
        for (const auto& [lParity, lNumber] : cParities)
        {
            lRequest.mSetsParity = lRequest.mSetsParity || lNumber == lValue;
            lRequest.mParity = lNumber == lValue ? lParity : lRequest.mParity;
        }
        Ask(aClient, aCommand, lValue, lRequest);
        break;
    case ComPortCommand::SetStopSize:
        lRequest.mStopBits = lValue <= 2 ? lValue : 0;
        Ask(aClient, aCommand, lValue, lRequest);
        break;
    case ComPortCommand::SetDataSize:
        Say(aClient, aCommand, OneByte(8));
        break;
    case ComPortCommand::SetControl:
        TakeControl(aClient, lValue);
        break;
    case ComPortCommand::PurgeData:
        Purge(aClient, lValue);
        break;
    case ComPortCommand::Suspend:
    case ComPortCommand::Resume:
        aClient.mPaused = aCommand == ComPortCommand::Suspend;
        break;
    case ComPortCommand::SetLineStateMask:
        Say(aClient, aCommand, OneByte(lValue));
        break;
    case ComPortCommand::SetModemStateMask:
        Say(aClient, aCommand, OneByte(lValue));
        Say(aClient, ComPortCommand::NotifyModemState, OneByte(cModemState & lValue));
        break;
    case ComPortCommand::NotifyLineState:
    case ComPortCommand::NotifyModemState:
        break; // of the server
    }
}

// No flow control, and no break. DTR and RTS are what the client has made them: nothing depends on them.
void TcpHost::State::TakeControl(Client& aClient, uint32_t aValue)
{
    const auto lLine = [&](uint32_t aQuestion, uint8_t aBit)
    {
        if (aValue != aQuestion)
        {
            aClient.mControls = static_cast<uint8_t>(aValue == aQuestion + 1 ? aClient.mControls | aBit
                                                                             : aClient.mControls & ~aBit);
        }
        return (aClient.mControls & aBit) != 0 ? aQuestion + 1 : aQuestion + 2;
    };
    uint32_t lAnswer = 1; // no flow control of what goes out
    if (aValue >= 4 && aValue <= 6)
    {
        lAnswer = 6; // no break
    }
    else if (aValue >= 7 && aValue <= 9)
    {
        lAnswer = lLine(7, 1);
    }
    else if (aValue >= 10 && aValue <= 12)
    {
        lAnswer = lLine(10, 2);
    }
    else if (aValue >= 13 && aValue <= 16)
    {
        lAnswer = 14; // no flow control of what comes in
    }
    Say(aClient, ComPortCommand::SetControl, OneByte(lAnswer));
    if (aValue == 7 || aValue == 10)
    {
        return;
    }
    Say(aClient, ComPortCommand::NotifyModemState, OneByte(cModemState));
}

void TcpHost::State::Purge(Client& aClient, uint32_t aWhat)
{
    if (!IsWriter(aClient) || aWhat < 1 || aWhat > 3)
    {
        Say(aClient, ComPortCommand::PurgeData, OneByte(aWhat));
        return;
    }
    if ((aWhat & 1) != 0) // from the device
    {
        KySerialBridgeRequest lRequest;
        lRequest.mClearsReceived = true;
        mItems.push_back({{}, {}, ComPortCommand::PurgeData, aWhat, lRequest});
    }
    if ((aWhat & 2) != 0) // to the device
    {
        for (Item& lItem : mItems)
        {
            mCounts.mPurged += lItem.mBytes.size();
            lItem.mBytes.clear();
        }
        mBytesFromClients = 0;
        std::erase_if(mItems, [](const Item& aItem) { return !aItem.mCommand.has_value(); });
    }
    Say(aClient, ComPortCommand::PurgeData, OneByte(aWhat));
    mChanged.notify_all();
}

std::string TcpHost::State::SettingText(ComPortCommand aCommand, uint32_t aAsked) const
{
    if (aCommand == ComPortCommand::SetBaudRate)
    {
        return FourBytes(mLine.mBaudRate != 0 ? mLine.mBaudRate : aAsked); // 0: the device does not say
    }
    if (aCommand == ComPortCommand::SetStopSize)
    {
        return OneByte(mLine.mStopBits != 0 ? mLine.mStopBits : 1);
    }
    for (const auto& [lParity, lNumber] : cParities)
    {
        if (lParity == mLine.mParity)
        {
            return OneByte(lNumber);
        }
    }
    return OneByte(1);
}

IKySerialBridgeHost::ReadEnd TcpHost::State::Read(uint8_t* aBuffer, uint32_t aSize, uint32_t& aRead,
                                                  KySerialBridgeRequest& aRequest)
{
    Lock lLock(mMutex);
    mChanged.wait(lLock, [this] { return mEnded || !mItems.empty(); });
    if (mEnded)
    {
        return ReadEnd::Nothing;
    }
    Item& lItem = mItems.front();
    const bool lIsRequest = lItem.mCommand.has_value();
    if (lIsRequest)
    {
        aRequest = lItem.mRequest;
        mAnswer = std::move(lItem);
        mItems.pop_front();
    }
    else
    {
        aRead = static_cast<uint32_t>(lItem.mBytes.copy(reinterpret_cast<char*>(aBuffer), aSize));
        lItem.mBytes.erase(0, aRead);
        mBytesFromClients -= aRead;
        if (lItem.mBytes.empty())
        {
            mItems.pop_front();
        }
    }
    if (!mClients.empty() && mClients.front()->mHeld && !IsFull())
    {
        Asio::post(mContext, [lThis = shared_from_this()] { lThis->FlushAll(); });
    }
    return lIsRequest ? ReadEnd::Request : ReadEnd::Bytes;
}

// A client that is alone may hold the bridge up; what the device sends meanwhile waits in its port. Among several
// one that takes nothing for a while has to go.
uint32_t TcpHost::State::Write(const uint8_t* aData, uint32_t aSize)
{
    Lock lLock(mMutex);
    const auto lIsFull = [this](const ClientPtr& aClient)
    { return Waiting(*aClient) >= mSettings.mMostWaiting; };
    const auto lHasRoom = [&] { return mEnded || std::none_of(mClients.begin(), mClients.end(), lIsFull); };
    const auto lMayGoOn = [&] { return mClients.size() > 1 || lHasRoom(); };
    mChanged.wait(lLock, lMayGoOn);
    static_cast<void>(mChanged.wait_for(lLock, cPatience, lHasRoom)); // ignored: the loop looks at each
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
    for (const ClientPtr& lClient : mClients)
    {
        if (lIsFull(lClient)) // also one that has become the only one meanwhile
        {
            Asio::post(mContext, [lThis = shared_from_this(), lClient] { lThis->Remove(lClient, true); });
            continue;
        }
        lTaken = true;
        lClient->mWaiting += lBytes;
        lClient->mWaitingBytes += aSize;
    }
    mCounts.mUnread += lTaken ? 0 : aSize; // as of a serial port that no program has open
    if (lTaken && !std::exchange(mFlushing, true))
    {
        Asio::post(mContext, [lThis = shared_from_this()] { lThis->FlushAll(); });
    }
    return aSize;
}

void TcpHost::State::NotifySettings(const KySerialPortConfiguration& aSettings)
{
    const Lock lLock(mMutex);
    mLine = aSettings;
    if (!mAnswer.has_value())
    {
        return;
    }
    const Item lItem = *std::move(mAnswer);
    mAnswer.reset();
    const ClientPtr lClient = lItem.mClient.lock();
    if (lClient != nullptr)
    {
        Say(*lClient, *lItem.mCommand, SettingText(*lItem.mCommand, lItem.mAsked));
        Asio::post(mContext, [lThis = shared_from_this(), lClient] { lThis->Flush(lClient); });
    }
}

void TcpHost::State::EndTransfers() noexcept
{
    const Lock lLock(mMutex);
    mEnded = true;
    mChanged.notify_all();
}

void TcpHost::State::Close()
{
    EndTransfers();
    std::promise<void> lDone;
    Asio::post(mContext,
               [&]
               {
                   mAcceptor->Close();
                   std::list<ClientPtr> lClients;
                   {
                       const Lock lLock(mMutex);
                       mClosed = true;
                       lClients = mClients;
                       mCounts.mLeft += std::exchange(mBytesFromClients, 0);
                       mItems.clear();
                   }
                   for (const ClientPtr& lClient : lClients)
                   {
                       Remove(lClient, false);
                   }
                   lDone.set_value();
               });
    lDone.get_future().wait();
}

TcpCounts TcpHost::State::GetCounts() const
{
    const Lock lLock(mMutex);
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
    return mThis->mPort;
}

} // namespace KySerialTool
