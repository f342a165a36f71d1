#include "Adapters/GigE/EventStore.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>

namespace KyGigE
{

using JxUtilsLib::LockScope;

namespace
{

constexpr uint32_t cNoEvent = 0x10000; // beyond any identifier

} // namespace

void EventStore::Begin(uint16_t aEventID, const uint8_t* aItem, size_t aSize)
{
    const LockScope lScope(mLock);
    mItems[aEventID].assign(aItem, aItem + aSize);
    mDelivers = true;
    mDelivered = aEventID;
    mThread = std::this_thread::get_id();
}

void EventStore::BeginNone()
{
    const LockScope lScope(mLock);
    mDelivers = true;
    mDelivered = cNoEvent;
    mThread = std::this_thread::get_id();
}

void EventStore::End()
{
    const LockScope lScope(mLock);
    mDelivers = false;
}

void EventStore::Read(uint16_t aEventID, uint32_t aOffset, uint8_t* aBuffer, uint64_t aSize)
{
    std::fill_n(aBuffer, aSize, static_cast<uint8_t>(0));
    const LockScope lScope(mLock);
    const auto lItem = mItems.find(aEventID);
    const bool lHidden = mDelivers && mThread == std::this_thread::get_id() && mDelivered != aEventID;
    if (lItem == mItems.end() || lHidden || aOffset >= lItem->second.size())
    {
        return;
    }
    const std::vector<uint8_t>& lBytes = lItem->second;
    std::copy_n(lBytes.begin() + aOffset, std::min<uint64_t>(aSize, lBytes.size() - aOffset), aBuffer);
}

} // namespace KyGigE
