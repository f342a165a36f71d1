#pragma once

#include "kyserial/Serve/Tcp/Telnet.h"

#include <KySerial/IKySerialBridgeHost.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace KySerialTool
{

struct TcpClient;

/// What waits for the bridge, in the order in which clients have sent it: bytes, and requests for other line settings.
///
/// Threads: the caller locks.
class ClientQueue
{
public:
    /// A request, and the answer that is due.
    struct Request
    {
        std::weak_ptr<TcpClient> mClient{}; ///< Who gets the answer; nobody: none is due.
        ComPortCommand mCommand{};
        uint32_t mAsked = 0;
        KySerialBridgeRequest mRequest{};
    };

    bool IsEmpty() const { return mItems.empty(); }
    /// Whether so much waits that clients are not read any more.
    bool IsFull() const { return mBytes >= cMostBytes || mItems.size() >= cMostItems; }

    void Add(const std::string& aBytes);
    void Add(const Request& aRequest) { mItems.push_back({{}, aRequest}); }

    /// Takes what comes first: a request, or bytes, as many as there is room for. The queue must not be empty.
    /// \param aRequest  Receives the request; nothing when there are bytes.
    /// \return Number of bytes.
    uint32_t Take(uint8_t* aBuffer, uint32_t aSize, std::optional<Request>& aRequest);

    /// Drops the bytes; requests stay. \return Number of bytes.
    uint64_t DropBytes();
    /// Drops everything. \return Number of bytes.
    uint64_t Clear();

private:
    static constexpr size_t cMostBytes = 16384;
    static constexpr size_t cMostItems = 64;

    struct Item
    {
        std::string mBytes{};
        std::optional<Request> mRequest{};
    };

    std::deque<Item> mItems{};
    size_t mBytes = 0;
};

} // namespace KySerialTool
