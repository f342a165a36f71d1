#include "kyserial/Serve/Tcp/ClientQueue.h"

#include <utility>

namespace KySerialTool
{

void ClientQueue::Add(const std::string& aBytes)
{
    // Neighbouring bytes become one item. A request keeps its place between the bytes before it and those
    // after it.
    if (!mItems.empty() && !mItems.back().mRequest.has_value())
    {
        mItems.back().mBytes += aBytes;
    }
    else
    {
        mItems.push_back({aBytes, {}});
    }
    mBytes += aBytes.size();
}

uint32_t ClientQueue::Take(uint8_t* aBuffer, uint32_t aSize, std::optional<Request>& aRequest)
{
    Item& lItem = mItems.front();
    aRequest = std::exchange(lItem.mRequest, std::nullopt);
    const auto lTaken =
        static_cast<uint32_t>(lItem.mBytes.copy(reinterpret_cast<char*>(aBuffer), aSize)); // 0 of a request
    lItem.mBytes.erase(0, lTaken);
    mBytes -= lTaken;
    if (lItem.mBytes.empty())
    {
        mItems.pop_front();
    }
    return lTaken;
}

// Requests stay: a client waits for the answer to each.
uint64_t ClientQueue::DropBytes()
{
    std::erase_if(mItems, [](const Item& aItem) { return !aItem.mRequest.has_value(); });
    return std::exchange(mBytes, 0);
}

uint64_t ClientQueue::Clear()
{
    mItems.clear();
    return std::exchange(mBytes, 0);
}

} // namespace KySerialTool
