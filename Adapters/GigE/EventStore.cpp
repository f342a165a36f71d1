#include "Adapters/GigE/EventStore.h"

#include <JxUtilsLib/LockScope.h>

#include <algorithm>
#include <array>
#include <span>

namespace KyGigE
{

using JxUtilsLib::LockScope;

namespace
{

constexpr uint32_t cNoEvent = 0x10000; // beyond any identifier

} // namespace

void EventStore::Begin(uint16_t aEventID, const uint8_t* aItem, size_t aSize, size_t aHeader)
{
    const LockScope lScope(mLock);
    mItems[aEventID].assign(aItem, aItem + aSize);
    mHeader = static_cast<uint8_t>(aHeader);
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

bool EventStore::IsDelivering(uint16_t aEventID)
{
    const LockScope lScope(mLock);
    return mDelivers && mThread == std::this_thread::get_id() && mDelivered == aEventID;
}

void EventStore::Read(uint16_t aEventID, uint32_t aOffset, uint8_t* aBuffer, uint64_t aSize)
{
    std::fill_n(aBuffer, aSize, static_cast<uint8_t>(0));
    const LockScope lScope(mLock);
    const auto lItem = mItems.find(aEventID);
    // While an event is delivered the event thread sees the bytes of that event only. A port looks at its feature
    // at every event and would take the bytes of an earlier one again. Other threads see the last bytes of each
    // event.
    const bool lHidden = mDelivers && mThread == std::this_thread::get_id() && mDelivered != aEventID;
    // An event without data: the size in its header is that of the header alone.
    const std::array<uint8_t, 4> lEmpty = {0, mHeader, static_cast<uint8_t>(aEventID >> 8U),
                                           static_cast<uint8_t>(aEventID)};
    const std::span<const uint8_t> lBytes = lItem == mItems.end() || lHidden
                                                ? std::span<const uint8_t>(lEmpty)
                                                : std::span<const uint8_t>(lItem->second);
    if (aOffset < lBytes.size())
    {
        const auto lRest = lBytes.subspan(aOffset);
        std::copy_n(lRest.begin(), std::min<uint64_t>(aSize, lRest.size()), aBuffer);
    }
}

} // namespace KyGigE
