#pragma once

#include <Simulator/Camera/Lock.h>

#include <KySerial/IKyDeviceEventSink.h>

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Keeps what an adapter reports, and runs a callback of the test in between.
class RecordingSink : public IKyDeviceEventSink
{
public:
    struct Event
    {
        uint16_t mId;
        uint64_t mTimestamp;
        std::vector<uint8_t> mData;
        std::thread::id mThread;
    };

    /// Called at the end of each notification, without a lock.
    std::function<void(uint16_t)> mOnEvent;
    std::function<void(const std::string&)> mOnFeature;

    void NotifyEvent(uint16_t aEventID, uint16_t /*aChannel*/, uint64_t /*aBlockID*/, uint64_t aTimestamp,
                     const void* aData, uint32_t aDataLength) override
    {
        const auto* const lData = static_cast<const uint8_t*>(aData);
        {
            KySimulator::LockScope lScope(mLock);
            mEvents.push_back(
                {aEventID, aTimestamp, {lData, lData + aDataLength}, std::this_thread::get_id()});
        }
        if (mOnEvent)
        {
            mOnEvent(aEventID);
        }
    }

    void NotifyFeatureInvalidated(const KyString* aName) override
    {
        const std::string lName = aName->GetAscii();
        {
            KySimulator::LockScope lScope(mLock);
            mFeatures.push_back(lName);
        }
        if (mOnFeature)
        {
            mOnFeature(lName);
        }
    }

    std::vector<Event> TakeEvents()
    {
        KySimulator::LockScope lScope(mLock);
        return std::exchange(mEvents, {});
    }

    std::vector<std::string> TakeFeatures()
    {
        KySimulator::LockScope lScope(mLock);
        return std::exchange(mFeatures, {});
    }

private:
    KySimulator::Lock mLock;
    std::vector<Event> mEvents JX_GUARDED_BY(mLock);
    std::vector<std::string> mFeatures JX_GUARDED_BY(mLock);
};
