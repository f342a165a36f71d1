#pragma once

#include "kyserial/Serve/Tcp/Network.h"
#include "kyserial/Serve/Web/WebRequest.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// Answers requests over HTTP.
///
/// A request has to name this machine as its host and, if it names an origin, this server as that, so that a page of
/// another one cannot ask in a browser's name; it has five seconds and 8 KiB. A connection carries one request; 32 at a
/// time are served.
class WebServer
{
public:
    struct Request
    {
        bool mIsPost = false;   ///< It wants something changed, or sent; it only asks otherwise.
        bool mHasToken = false; ///< It knows the server's token. Without one of the server nobody does.
        WebTarget mTarget{};
        std::string mAccept{}; ///< The kinds of content that it wants.
        std::string mBody{};
    };
    struct Answer
    {
        unsigned mStatus = 404;
        std::string mKind{"text/plain"};
        std::string mText{};
    };
    using Source = std::function<Answer(const Request& aRequest)>; ///< On the server's thread.

    /// Listens. Throws OperationError when the address cannot be used.
    /// \param aToken  What the header X-KySerial-Token of a request has to be; empty: no request has the token.
    WebServer(const std::string& aAddress, uint16_t aPort, const std::string& aToken, Source aSource);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    /// The port, also when a free one was asked for.
    uint16_t GetPort() const;

    /// Why no connection can be taken, once for each time that this begins; else empty. Any thread.
    std::string TakeNews();

private:
    class State;
    Network mNetwork{}; // of its own: a question that waits for a device holds no port up
    std::shared_ptr<State> mThis;
};

/// Asks a service. Throws OperationError when it cannot be reached, does not know the path, or has not answered in time.
/// \param aLimit  For the connection, the question and the whole answer together.
std::string AskStatus(const std::string& aAddress, uint16_t aPort, const std::string& aPath,
                      std::chrono::milliseconds aLimit = std::chrono::seconds(5));

} // namespace KySerialTool
