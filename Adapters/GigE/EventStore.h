#pragma once

#include <JxUtilsLib/Mutex.h>

#include <cstdint>
#include <map>
#include <thread>
#include <vector>

namespace KyGigE
{

/// The last item of each event, for the features on event ports.
///
/// While an event is delivered, the delivering thread sees that one and all others as empty: a sink asks for
/// its own port's bytes whichever port's event it hears of, and would take old ones twice. Other threads
/// see the last item of each event. An event that never came looks empty too: an item that is a header, its size
/// and the event's identifier in it, and no data. The header is as long as those of the device: 16 bytes, or 24 with long ids.
///
/// Threads: Begin() and End() by one; Read() by any.
class EventStore
{
public:
    /// Keeps an item and begins its delivery on the calling thread. \param aHeader  Bytes before its data, 16 or 24.
    void Begin(uint16_t aEventID, const uint8_t* aItem, size_t aSize, size_t aHeader);
    /// Begins something on the calling thread that is no event: all of them look empty there.
    void BeginNone();
    /// Ends the delivery.
    void End();

    /// Whether this event is being delivered on the calling thread.
    bool IsDelivering(uint16_t aEventID);

    /// Copies bytes of an event's last item; zeros beyond its end.
    void Read(uint16_t aEventID, uint32_t aOffset, uint8_t* aBuffer, uint64_t aSize);

private:
    JxUtilsLib::Mutex mLock; // a leaf
    std::map<uint16_t, std::vector<uint8_t>> mItems JX_GUARDED_BY(mLock);
    bool mDelivers JX_GUARDED_BY(mLock) = false;
    uint32_t mDelivered JX_GUARDED_BY(mLock) = 0;
    uint8_t mHeader JX_GUARDED_BY(mLock) = 16; // of the device's items
    std::thread::id mThread JX_GUARDED_BY(mLock);
};

} // namespace KyGigE
