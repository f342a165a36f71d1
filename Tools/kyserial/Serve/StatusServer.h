#pragma once

#include "kyserial/Serve/Network.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace KySerialTool
{

/// Answers questions over HTTP: each path of a table is a text. Nothing can be changed through it.
///
/// A request has to name this machine as its host, so that a page of another one cannot ask in a browser's name; it has
/// five seconds and 8 KiB. A connection carries one request; 32 at a time are served.
class StatusServer
{
public:
    /// What a path gives: its kind of content and its content; an empty kind: there is no such path.
    struct Answer
    {
        std::string mKind{};
        std::string mText{};
    };
    using Source = std::function<Answer(const std::string& aPath)>; ///< On the server's thread.

    /// Listens. Throws OperationError when the address cannot be used.
    StatusServer(const std::string& aAddress, uint16_t aPort, Source aSource);
    ~StatusServer();
    StatusServer(const StatusServer&) = delete;
    StatusServer& operator=(const StatusServer&) = delete;

    /// The port, also when a free one was asked for.
    uint16_t GetPort() const;

private:
    class State;
    Network mNetwork{}; // of its own: a question that waits for a device holds no port up
    std::shared_ptr<State> mThis;
};

/// Asks a service. Throws OperationError when it cannot be reached, or does not know the path.
std::string AskStatus(const std::string& aAddress, uint16_t aPort, const std::string& aPath);

} // namespace KySerialTool
