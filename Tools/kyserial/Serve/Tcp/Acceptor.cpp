#include "kyserial/Serve/Tcp/Acceptor.h"

#include "kyserial/Serve/Tcp/Persist.h"
#include "kyserial/Text/Failure.h"

#include <KyPlatform/HostSerialPort.h>
#include <boost/asio/post.hpp>

#include <chrono>
#include <new>
#include <utility>

namespace KySerialTool
{

namespace
{

constexpr std::chrono::milliseconds cAcceptPause(100);

} // namespace

using boost::asio::ip::tcp;

Acceptor::Acceptor(boost::asio::io_context& aContext, Take aTake)
    : mAcceptor(aContext), mPause(aContext), mTake(std::move(aTake))
{
}

uint16_t Acceptor::Open(const std::string& aAddress, uint16_t aPort)
{
    Error lError;
    const tcp::endpoint lEndpoint(boost::asio::ip::make_address(aAddress, lError), aPort);
    const auto lTry = [&](auto&& aStep)
    {
        if (!lError)
        {
            aStep();
        }
    };
    lTry([&] { mAcceptor.open(lEndpoint.protocol(), lError); });
    // Where ports have paths this takes a port of connections that have ended; elsewhere it lets two programs listen.
    const bool lReuses = KyPlatform::HostSerialPort::IsPath("/");
    lTry([&] { mAcceptor.set_option(tcp::acceptor::reuse_address(lReuses), lError); });
    lTry([&] { mAcceptor.bind(lEndpoint, lError); });
    lTry([&] { mAcceptor.listen(boost::asio::socket_base::max_listen_connections, lError); });
    if (lError)
    {
        mTake = nullptr;
        throw OperationError("cannot listen at " + aAddress + ':' + std::to_string(aPort) + ": " +
                             lError.message());
    }
    const uint16_t lPort = mAcceptor.local_endpoint(lError).port();
    boost::asio::post(mAcceptor.get_executor(),
                      [lThis = shared_from_this()] { Persist([&] { lThis->Accept(); }); });
    return lPort;
}

void Acceptor::Close()
{
    Error lIgnored;
    mAcceptor.close(lIgnored);
    mPause.cancel();
    mTake = nullptr; // which may own this object's owner
}

/// One wait for a connection. The network's library drops a wait whose connection finds no memory, without a word: then the next one begins.
class Acceptor::Wait
{
public:
    explicit Wait(std::shared_ptr<Acceptor> aAcceptor) : mAcceptor(std::move(aAcceptor)) {}
    Wait(Wait&&) = default;
    ~Wait()
    {
        if (mAcceptor != nullptr && std::exchange(mAcceptor->mIsWaiting, false))
        {
            Persist([this] { mAcceptor->Accept(); });
        }
    }

    /// The connection is there.
    std::shared_ptr<Acceptor> End()
    {
        mAcceptor->mIsWaiting = false;
        return std::move(mAcceptor);
    }

private:
    std::shared_ptr<Acceptor> mAcceptor;
};

void Acceptor::Accept()
{
    if (!mAcceptor.is_open())
    {
        return;
    }
    mAcceptor.async_accept(
        [lWait = Wait(shared_from_this())](const Error& aError, tcp::socket aSocket) mutable
        {
            const std::shared_ptr<Acceptor> lThis = lWait.End();
            if (!lThis->mAcceptor.is_open())
            {
                return;
            }
            bool lHasMemory = true;
            try
            {
                if (!aError)
                {
                    lThis->mTake(std::move(aSocket));
                }
            }
            catch (const std::bad_alloc&) // this connection ends, and others may come
            {
                lHasMemory = false;
            }
            Persist(
                [&]
                {
                    if (aError) // of a system that has no more sockets: the connection stays in its queue
                    {
                        lThis->Pause(aError.message());
                    }
                    else if (!lHasMemory)
                    {
                        lThis->Pause("there is not enough memory");
                    }
                    else
                    {
                        lThis->Accept();
                    }
                });
        });
    mIsWaiting = true; // last: a wait that could not begin is its caller's to repeat
}

// A new try at once would fail as well, and keep a processor and the network's thread busy.
void Acceptor::Pause(const std::string& aWhy)
{
    mPause.expires_after(cAcceptPause);
    mPause.async_wait(
        [lThis = shared_from_this()](const Error& aError)
        {
            if (!aError)
            {
                Persist([&] { lThis->Accept(); });
            }
        });
    mNews.Add("no client can be taken: " + aWhy + "; trying again");
    ++mFailures;
}

} // namespace KySerialTool
