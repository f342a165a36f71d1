#include "kyserial/Serve/Web/WebServer.h"

#include "kyserial/Serve/Tcp/Acceptor.h"
#include "kyserial/Serve/Tcp/ReservedCall.h"
#include "kyserial/Serve/Tcp/TcpHost.h"
#include "kyserial/Text/Failure.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace KySerialTool
{

namespace
{

namespace Asio = boost::asio;
namespace Beast = boost::beast;
namespace Http = boost::beast::http;
using Asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::chrono::seconds cClientPatience(5);
constexpr uint32_t cMostBytes = 8192;
constexpr int cMostSessions = 32;

// The page takes nothing from elsewhere, and no other page can show it.
const char* const cContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

} // namespace

class WebServer::State : public std::enable_shared_from_this<State>
{
public:
    State(std::string aAddress, std::string aToken, Source aSource, Asio::io_context& aContext)
        : mAddress(std::move(aAddress))
        , mToken(std::move(aToken))
        , mSource(std::move(aSource))
        , mContext(aContext)
    {
    }

    void Open(uint16_t aPort)
    {
        mAcceptor = std::make_shared<Acceptor>(mContext, [lThis = shared_from_this()](tcp::socket aSocket)
                                               { lThis->Serve(std::move(aSocket)); });
        mPort = mAcceptor->Open(mAddress, aPort);
    }

    void Close()
    {
        mClosing.Run(mContext, shared_from_this(),
                     [this]
                     {
                         mAcceptor->Close();
                         mContext.stop(); // sessions that wait for their client end here
                     });
    }

    std::string TakeNews() { return mAcceptor->TakeNews(); }

    std::atomic<uint16_t> mPort{0};

private:
    // One of the few places for sessions.
    struct Place
    {
        explicit Place(std::shared_ptr<State> aServer) : mServer(std::move(aServer)) { ++mServer->mSessions; }
        ~Place() { --mServer->mSessions; }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;
        const std::shared_ptr<State> mServer;
    };

    struct Session
    {
        Session(std::shared_ptr<State> aServer, tcp::socket aSocket)
            : mPlace(std::move(aServer)), mStream(std::move(aSocket))
        {
        }
        Place mPlace; // free when the last handler of the session is gone
        Beast::tcp_stream mStream;
        Beast::flat_buffer mBuffer{cMostBytes};
        std::optional<Http::request_parser<Http::string_body>> mParser{std::in_place};
        Http::response<Http::string_body> mResponse{};
    };

    void Serve(tcp::socket aSocket)
    {
        // Any program that reaches the address can connect, and each session takes a socket and memory of the
        // service.
        if (mSessions >= cMostSessions)
        {
            return; // which closes it
        }
        const auto lSession = std::make_shared<Session>(shared_from_this(), std::move(aSocket));
        // Limits of size and time: a request that never ends must not keep one of the few places.
        lSession->mParser->body_limit(cMostBytes);
        lSession->mParser->header_limit(cMostBytes);
        lSession->mStream.expires_after(cClientPatience);
        Http::async_read(lSession->mStream, lSession->mBuffer, *lSession->mParser,
                         [lThis = shared_from_this(), lSession](const Error& aError, size_t)
                         {
                             if (!aError)
                             {
                                 lThis->Reply(lSession);
                             }
                         });
    }

    Answer FindAnswer(const Http::request<Http::string_body>& aRequest) const
    {
        const std::string lHost(aRequest[Http::field::host]);
        const std::string lOrigin(aRequest[Http::field::origin]);
        // A page from elsewhere can have its own name lead here; the browser then asks for that host.
        if (!IsOwnHost(lHost, mAddress) || (!lOrigin.empty() && lOrigin != "http://" + lHost))
        {
            return {403};
        }
        Request lRequest;
        lRequest.mIsPost = aRequest.method() == Http::verb::post;
        if (!lRequest.mIsPost && aRequest.method() != Http::verb::get)
        {
            return {405};
        }
        auto lTarget = ParseWebTarget(std::string(aRequest.target()));
        if (!lTarget.has_value())
        {
            return {400};
        }
        lRequest.mTarget = *std::move(lTarget);
        lRequest.mHasToken = IsSameSecret(std::string(aRequest["X-KySerial-Token"]), mToken);
        lRequest.mAccept = std::string(aRequest[Http::field::accept]);
        lRequest.mBody = aRequest.body();
        return mSource(lRequest);
    }

    void Reply(const std::shared_ptr<Session>& aSession)
    {
        auto& lResponse = aSession->mResponse;
        Answer lAnswer = FindAnswer(aSession->mParser->get());
        lResponse.result(lAnswer.mStatus);
        lResponse.set(Http::field::content_type, lAnswer.mKind);
        // An answer is about this moment, and about traffic that others need not find on a disk.
        lResponse.set(Http::field::cache_control, "no-store");
        lResponse.set("Content-Security-Policy", cContentPolicy);
        lResponse.set("X-Content-Type-Options", "nosniff");
        lResponse.set("Referrer-Policy", "no-referrer");
        lResponse.keep_alive(false); // a browser would keep several of the few places
        lResponse.body() = std::move(lAnswer.mText);
        lResponse.prepare_payload();
        aSession->mStream.expires_after(cClientPatience);
        Http::async_write(aSession->mStream, lResponse,
                          [aSession](const Error&, size_t)
                          {
                              Error lIgnored;
                              aSession->mStream.socket().shutdown(tcp::socket::shutdown_send, lIgnored);
                          });
    }

    const std::string mAddress;
    const std::string mToken;
    const Source mSource;
    Asio::io_context& mContext;
    std::shared_ptr<Acceptor> mAcceptor{};
    std::atomic<int> mSessions{0};
    ReservedCall mClosing;
};

WebServer::WebServer(const std::string& aAddress, uint16_t aPort, const std::string& aToken, Source aSource)
    : mThis(std::make_shared<State>(aAddress, aToken, std::move(aSource), mNetwork.Use()))
{
    mThis->Open(aPort);
}

WebServer::~WebServer()
{
    mThis->Close();
}

uint16_t WebServer::GetPort() const
{
    return mThis->mPort;
}

std::string WebServer::TakeNews()
{
    return mThis->TakeNews();
}

std::string AskStatus(const std::string& aAddress, uint16_t aPort, const std::string& aPath,
                      std::chrono::milliseconds aLimit)
{
    const std::string lWhere = HostText(aAddress, aPort);
    Asio::io_context lContext;
    Error lError;
    Beast::tcp_stream lStream(lContext);
    const auto lAddress = Asio::ip::make_address(aAddress, lError);
    Beast::flat_buffer lBuffer;
    Http::response_parser<Http::string_body> lParser;
    // What answers there may be no service. Its answer must not fill memory, and it may never come. The one time
    // limit is for all steps, so that an answer in small pieces does not extend it.
    lParser.body_limit(64U << 20);
    lStream.expires_after(aLimit);
    const auto lEnd = [&](const Error& aError, size_t = 0) { lError = aError; };
    const auto lTry = [&](auto&& aBegin)
    {
        if (!lError)
        {
            aBegin();
            lContext.restart();
            lContext.run(); // until lEnd has the result
        }
    };
    lTry([&] { lStream.async_connect({lAddress, aPort}, lEnd); });
    Http::request<Http::empty_body> lRequest(Http::verb::get, aPath, 11);
    lRequest.set(Http::field::host, lWhere);
    lTry([&] { Http::async_write(lStream, lRequest, lEnd); });
    lTry([&] { Http::async_read(lStream, lBuffer, lParser, lEnd); });
    if (lError == Beast::error::timeout)
    {
        throw OperationError("no service answers at " + lWhere + " within " + std::to_string(aLimit.count()) +
                             " ms");
    }
    if (lError)
    {
        throw OperationError("no service answers at " + lWhere + ": " + lError.message());
    }
    if (lParser.get().result() != Http::status::ok)
    {
        throw OperationError("the service at " + lWhere + " refuses the question");
    }
    return lParser.get().body();
}

} // namespace KySerialTool
