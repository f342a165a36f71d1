#pragma once

#include "KySerial/DeviceProtocol.h"
#include "Support/NullAdapter.h"

#include <map>
#include <vector>

namespace KyTest
{

/// A null adapter whose registers hold what is written to them, and which notifies its sinks. For targets that run
/// a million times a second; they override what their device does. One thread.
class PlainAdapter : public NullAdapter
{
public:
    /// Notifies the sinks of an event.
    void Send(uint16_t aEventID, const void* aData, uint32_t aSize)
    {
        for (IKyDeviceEventSink* lSink : std::vector<IKyDeviceEventSink*>(mSinks))
        {
            lSink->NotifyEvent(aEventID, 0, 0, 0, aData, aSize);
        }
    }

    /// Notifies the sinks that a feature has changed.
    void Invalidate(const KyString* aName)
    {
        for (IKyDeviceEventSink* lSink : std::vector<IKyDeviceEventSink*>(mSinks))
        {
            lSink->NotifyFeatureInvalidated(aName);
        }
    }

    std::map<uint32_t, uint32_t> mRegisters;
    std::vector<IKyDeviceEventSink*> mSinks;

    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        mRegisters[aAddress] = aValue;
        return KyResult();
    }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        aValue = mRegisters[aAddress];
        return KyResult();
    }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSinks.push_back(aSink);
        return KyResult();
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        std::erase(mSinks, aSink);
        return KyResult();
    }
};

} // namespace KyTest
