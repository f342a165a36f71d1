#include "kyserial/Serve/Tcp/Persist.h"
#include "kyserial/Serve/Tcp/TcpHostState.h"

#include <JxUtilsLib/LockScope.h>
#include <boost/asio/post.hpp>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <new>
#include <utility>

namespace KySerialTool
{

namespace Asio = boost::asio;
using Asio::ip::tcp;
using JxUtilsLib::LockScope;
using Error = boost::system::error_code;

namespace
{

constexpr size_t cMostAnswers = 16384; // bytes beside those of the device

// What the system still has to send is given up first: one that waits for the client to read would keep the connection open.
void Disconnect(TcpClient& aClient)
{
    Error lIgnored; // of a connection that is gone already
    aClient.mIdle.cancel();
    aClient.mSocket.cancel(lIgnored);
    aClient.mSocket.shutdown(tcp::socket::shutdown_both, lIgnored);
    aClient.mSocket.close(lIgnored);
}

} // namespace

/// Hears what a telnet client says.
class TcpHost::State::Hearer final : public Telnet::Sink
{
public:
    Hearer(State& aState, const ClientPtr& aClient) : mState(aState), mClient(aClient) {}
    void TakeBytes(const uint8_t* aBytes, size_t aCount) override
    {
        mState.TakeBytes(*mClient, aBytes, aCount);
    }
    void TakeCommand(ComPortCommand aCommand, const std::string& aValue) override
    {
        mState.TakeCommand(mClient, aCommand, aValue);
    }

private:
    State& mState;
    const ClientPtr& mClient;
};

void TcpHost::State::Admit(tcp::socket aSocket)
{
    Error lIgnored; // a connection that takes no option works without
    // Single bytes of a line leave at once, and a client that has died without a word is found.
    aSocket.set_option(tcp::no_delay(true), lIgnored);
    aSocket.set_option(Asio::socket_base::keep_alive(true), lIgnored);
    Error lError;
    // Only a socket that never waits may be used on the bridge's thread.
    aSocket.non_blocking(true, lError);
    const auto lClient = std::make_shared<TcpClient>(mContext, std::move(aSocket), mSettings.mTelnet);
    lClient->mNeverBlocks = !lError;
    if (!Enter(lClient))
    {
        return; // which closes it
    }
    WorkFor(lClient,
            [&]
            {
                Flush(lClient);
                Watch(lClient);
                Receive(lClient);
            });
}

// A connection for which there is no memory ends: it would keep its place, and nothing would go on with it.
template<typename Work>
void TcpHost::State::WorkFor(const ClientPtr& aClient, const Work& aWork)
{
    try
    {
        aWork();
    }
    catch (const std::bad_alloc&)
    {
        Remove(aClient, true);
    }
}

bool TcpHost::State::Enter(const ClientPtr& aClient)
{
    const LockScope lScope(mMutex);
    const size_t lMost = mSettings.mClients == TcpClients::One ? 1 : mSettings.mMostClients;
    if (mClients.size() >= lMost)
    {
        ++mCounts.mTurnedAway;
        mFull.Add("a client is turned away: " + std::to_string(mClients.size()) +
                  (lMost == 1 ? " is" : " are") + " there, and no more are allowed");
        return false;
    }
    // Before the others know the client: no byte of the device may come before the greeting.
    aClient->mOutput.AddAnswer(mSettings.mTelnet ? Telnet::Greeting() : std::string());
    mClients.push_back(aClient);
    ++mCounts.mAccepted;
    return true;
}

void TcpHost::State::Watch(const ClientPtr& aClient)
{
    // Without a limit a silent client stays: its camera may have nothing to say for long.
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
        const LockScope lScope(mMutex);
        aClient->mHeld = mQueue.IsFull() && IsWriter(*aClient);
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
                                         lThis->WorkFor(aClient,
                                                        [&]
                                                        {
                                                            lThis->Watch(aClient);
                                                            lThis->TakePiece(aClient, aCount);
                                                            lThis->Flush(aClient);
                                                            lThis->Receive(aClient);
                                                        });
                                     });
}

void TcpHost::State::TakePiece(const ClientPtr& aClient, size_t aCount)
{
    if (!mSettings.mTelnet)
    {
        TakeBytes(*aClient, aClient->mPiece.data(), aCount);
        return;
    }
    const uint64_t lFaults = aClient->mTelnet.GetFaults();
    std::string lReply;
    Hearer lHearer(*this, aClient);
    aClient->mTelnet.Receive(aClient->mPiece.data(), aCount, lHearer, lReply);
    // Only now: what the hearer calls takes the lock itself.
    const LockScope lScope(mMutex);
    aClient->mOutput.AddAnswer(lReply);
    mCounts.mFaults += aClient->mTelnet.GetFaults() - lFaults;
}

void TcpHost::State::TakeBytes(TcpClient& aClient, const uint8_t* aBytes, size_t aCount)
{
    const LockScope lScope(mMutex);
    if (!IsWriter(aClient))
    {
        mCounts.mTaken += aCount;
        mCounts.mNotAllowed += aCount;
        return;
    }
    mQueue.Add({reinterpret_cast<const char*>(aBytes), aCount});
    mCounts.mTaken += aCount; // after it, which may find no memory
    mForDevice.NotifyAll();
}

bool TcpHost::State::IsWriter(const TcpClient& aClient) const
{
    // The client that has been there longest is at the front of the list, and it is the one that writes.
    return mSettings.mClients != TcpClients::ReadOnly && !mClients.empty() &&
           mClients.front().get() == &aClient;
}

void TcpHost::State::Flush(const ClientPtr& aClient)
{
    if (!aClient->mSocket.is_open()) // what it has not got is counted
    {
        return;
    }
    bool lIsTooMuch = false;
    {
        const LockScope lScope(mMutex);
        lIsTooMuch = aClient->mOutput.GetWaiting() > mSettings.mMostWaiting * 2 + cMostAnswers;
        ClientOutput& lOutput = aClient->mOutput;
        if (!lIsTooMuch &&
            (aClient->mSends || (lOutput.GetSending().empty() && (aClient->mPaused || !lOutput.Begin()))))
        {
            return;
        }
        if (!lIsTooMuch)
        {
            aClient->mSends = true;
            ++mSends;
        }
    }
    if (lIsTooMuch) // answers to a client that asks and does not read
    {
        Remove(aClient, true);
        return;
    }
    Send(aClient);
}

// One write at a time, and each piece that has left counts at once; what comes meanwhile follows in the next.
void TcpHost::State::Send(const ClientPtr& aClient)
{
    aClient->mSocket.async_write_some(
        Asio::buffer(aClient->mOutput.GetSending()),
        [lThis = shared_from_this(), aClient](const Error& aError, size_t aWritten)
        {
            lThis->CountSent(*aClient, aWritten);
            if (aError)
            {
                lThis->Remove(aClient, false);
                return;
            }
            lThis->WorkFor(aClient,
                           [&]
                           {
                               lThis->Watch(aClient);
                               lThis->Flush(aClient);
                           });
        });
}

// On the bridge's thread, when nothing is before it: to wake the network's thread for each piece costs more than the call. A port that
// ends silent connections leaves it to that thread, whose timer begins anew with each piece.
// \return Whether nothing is left to send.
bool TcpHost::State::SendAtOnce(TcpClient& aClient)
{
    if (!aClient.mNeverBlocks || mSettings.mIdle != 0 || aClient.mSends || aClient.mPaused)
    {
        return false;
    }
    ClientOutput& lOutput = aClient.mOutput;
    if (lOutput.GetSending().empty() && !lOutput.Begin())
    {
        return true;
    }
    Error lError; // of a connection that is gone too: the network's thread finds it
    lOutput.Sent(aClient.mSocket.send(Asio::buffer(lOutput.GetSending()), 0, lError));
    return lOutput.GetSize() == 0;
}

void TcpHost::State::CountSent(TcpClient& aClient, size_t aCount)
{
    const LockScope lScope(mMutex);
    aClient.mSends = false;
    --mSends;
    aClient.mOutput.Sent(aCount);
    // The client was removed during this write. What it has not got is known only now.
    if (aClient.mLeftOver != nullptr)
    {
        mCounts.*aClient.mLeftOver += aClient.mOutput.GetBytes();
    }
    mHasRoom.NotifyAll();
}

void TcpHost::State::FlushAll()
{
    std::list<ClientPtr> lClients;
    std::list<ClientPtr> lHeld;
    {
        const LockScope lScope(mMutex);
        mFlushing = false;
        // Copies: the calls below take the lock themselves, and may remove clients from the list.
        lClients = mClients;
        std::copy_if(mClients.begin(), mClients.end(), std::back_inserter(lHeld),
                     [](const ClientPtr& aClient) { return aClient->mHeld; });
    }
    for (const ClientPtr& lClient : lClients)
    {
        WorkFor(lClient, [&] { Flush(lClient); });
    }
    for (const ClientPtr& lClient : lHeld)
    {
        WorkFor(lClient, [&] { Receive(lClient); });
    }
}

void TcpHost::State::PostFlush()
{
    if (!mFlushing)
    {
        Asio::post(mContext, [lThis = shared_from_this()] { Persist([&] { lThis->FlushAll(); }); });
        mFlushing = true; // after it: without the memory for it a later one is needed
    }
}

void TcpHost::State::Remove(const ClientPtr& aClient, bool aByUs)
{
    const LockScope lScope(mMutex);
    const auto lPlace = std::find(mClients.begin(), mClients.end(), aClient);
    // Several handlers of one client may find it gone; the first of them has removed it.
    if (lPlace == mClients.end())
    {
        return;
    }
    mClients.erase(lPlace);
    mCounts.mDisconnected += aByUs ? 1 : 0;
    if (mClients.empty()) // else another one has the bytes
    {
        aClient->mLeftOver = mClosed ? &TcpCounts::mStoppedToUser : &TcpCounts::mUnread;
        if (!aClient->mSends) // else CountSent() knows how much is left
        {
            mCounts.*aClient->mLeftOver += aClient->mOutput.GetBytes();
        }
    }
    Disconnect(*aClient);
    mHasRoom.NotifyAll();
    if (!mClosed && !mClients.empty() && mClients.front()->mHeld) // it writes from now on
    {
        PostFlush();
    }
}

void TcpHost::State::CloseAll()
{
    mAcceptor->Close();
    ClientPtr lClient;
    const auto lNext = [&] // one at a time: a list of them would need memory
    {
        const LockScope lScope(mMutex);
        mClosed = true;
        lClient = mClients.empty() ? nullptr : mClients.front();
        mCounts.mLeft += mQueue.Clear();
        return lClient != nullptr;
    };
    while (lNext())
    {
        Remove(lClient, false);
    }
}

} // namespace KySerialTool
