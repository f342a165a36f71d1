#include "kyserial/Serve/StatusServer.h"

#include "kyserial/Serve/Listen.h"
#include "kyserial/Text/Failure.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include <atomic>
#include <chrono>
#include <future>
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

constexpr std::chrono::seconds cPatience(5);
constexpr uint32_t cMostBytes = 8192;
constexpr int cMostSessions = 32;

/// Whether a request means this server. A page elsewhere may have given this computer a name of its own; that name is refused.
bool IsOwnHost(std::string aHost, const std::string& aAddress)
{
    const size_t lColon = aHost.rfind(':');
    if (lColon != std::string::npos && aHost.find(']', lColon) == std::string::npos)
    {
        aHost.erase(lColon);
    }
    return aHost == "localhost" || aHost == "127.0.0.1" || aHost == "[::1]" || aHost == aAddress ||
           aHost == '[' + aAddress + ']';
}

} // namespace

class StatusServer::State : public std::enable_shared_from_this<State>
{
public:
    State(std::string aAddress, Source aSource, Asio::io_context& aContext)
        : mAddress(std::move(aAddress)), mSource(std::move(aSource)), mContext(aContext), mAcceptor(aContext)
    {
    }

    void Open(uint16_t aPort)
    {
        mPort = Listen(mAcceptor, mAddress, aPort);
        Asio::post(mContext, [lThis = shared_from_this()] { lThis->Accept(); });
    }

    void Close()
    {
        std::promise<void> lDone;
        Asio::post(mContext,
                   [&]
                   {
                       Error lIgnored;
                       mAcceptor.close(lIgnored);
                       mContext.stop(); // sessions that wait for their client end here
                       lDone.set_value();
                   });
        lDone.get_future().wait();
    }

    std::atomic<uint16_t> mPort{0};

private:
    struct Session
    {
        explicit Session(tcp::socket aSocket) : mStream(std::move(aSocket)) {}
        Beast::tcp_stream mStream;
        Beast::flat_buffer mBuffer{cMostBytes};
        std::optional<Http::request_parser<Http::string_body>> mParser{std::in_place};
        Http::response<Http::string_body> mResponse{};
    };

    void Accept()
    {
        mAcceptor.async_accept(
            [lThis = shared_from_this()](const Error& aError, tcp::socket aSocket)
            {
                if (!lThis->mAcceptor.is_open())
                {
                    return;
                }
                if (!aError && lThis->mSessions < cMostSessions)
                {
                    lThis->Serve(std::move(aSocket));
                }
                lThis->Accept();
            });
    }

    void Serve(tcp::socket aSocket)
    {
        // The count goes down with the last handler of the session.
        ++mSessions;
        const std::shared_ptr<Session> lSession(new Session(std::move(aSocket)),
                                                [lThis = shared_from_this()](Session* aEnded)
                                                {
                                                    --lThis->mSessions;
                                                    delete aEnded;
                                                });
        lSession->mParser->body_limit(cMostBytes);
        lSession->mParser->header_limit(cMostBytes);
        lSession->mStream.expires_after(cPatience);
        Http::async_read(lSession->mStream, lSession->mBuffer, *lSession->mParser,
                         [lThis = shared_from_this(), lSession](const Error& aError, size_t)
                         {
                             if (!aError)
                             {
                                 lThis->Reply(lSession);
                             }
                         });
    }

    void Reply(const std::shared_ptr<Session>& aSession)
    {
        const auto& lRequest = aSession->mParser->get();
        auto& lResponse = aSession->mResponse;
        const std::string lHost(lRequest[Http::field::host]);
        const std::string lOrigin(lRequest[Http::field::origin]);
        const bool lIsForeign =
            !IsOwnHost(lHost, mAddress) || (!lOrigin.empty() && lOrigin != "http://" + lHost);
        const Answer lAnswer = lIsForeign || lRequest.method() != Http::verb::get
                                   ? Answer()
                                   : mSource(std::string(lRequest.target()));
        lResponse.result(lIsForeign                             ? Http::status::forbidden
                         : lRequest.method() != Http::verb::get ? Http::status::method_not_allowed
                         : lAnswer.mKind.empty()                ? Http::status::not_found
                                                                : Http::status::ok);
        lResponse.set(Http::field::content_type, lAnswer.mKind.empty() ? "text/plain" : lAnswer.mKind);
        lResponse.set(Http::field::cache_control, "no-store");
        lResponse.set("X-Content-Type-Options", "nosniff");
        lResponse.keep_alive(false);
        lResponse.body() = lAnswer.mText;
        lResponse.prepare_payload();
        aSession->mStream.expires_after(cPatience);
        Http::async_write(aSession->mStream, lResponse,
                          [aSession](const Error&, size_t)
                          {
                              Error lIgnored;
                              aSession->mStream.socket().shutdown(tcp::socket::shutdown_send, lIgnored);
                          });
    }

    const std::string mAddress;
    const Source mSource;
    Asio::io_context& mContext;
    tcp::acceptor mAcceptor;
    std::atomic<int> mSessions{0};
};

StatusServer::StatusServer(const std::string& aAddress, uint16_t aPort, Source aSource)
    : mThis(std::make_shared<State>(aAddress, std::move(aSource), mNetwork.Use()))
{
    mThis->Open(aPort);
}

StatusServer::~StatusServer()
{
    mThis->Close();
}

uint16_t StatusServer::GetPort() const
{
    return mThis->mPort;
}

std::string AskStatus(const std::string& aAddress, uint16_t aPort, const std::string& aPath)
{
    const std::string lWhere = aAddress + ':' + std::to_string(aPort);
    Asio::io_context lContext;
    Error lError;
    Beast::tcp_stream lStream(lContext);
    const auto lAddress = Asio::ip::make_address(aAddress, lError);
    Beast::flat_buffer lBuffer;
    Http::response_parser<Http::string_body> lParser;
    lParser.body_limit(64U << 20);
    if (!lError)
    {
        lStream.connect({lAddress, aPort}, lError);
    }
    if (!lError)
    {
        Http::request<Http::empty_body> lRequest(Http::verb::get, aPath, 11);
        lRequest.set(Http::field::host, lWhere);
        Http::write(lStream, lRequest, lError);
    }
    if (!lError)
    {
        Http::read(lStream, lBuffer, lParser, lError);
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
