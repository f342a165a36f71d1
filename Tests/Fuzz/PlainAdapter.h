#pragma once

#include "KySerial/DeviceProtocol.h"
#include "KySerial/IKyDeviceAdapter.h"

#include <algorithm>
#include <map>
#include <vector>

namespace KyTest
{

/// An adapter that keeps no record and takes no lock: for targets that run a million times a second.
///
/// A connected GigE Vision device of the maker; registers hold what is written to them, features are there
/// but empty. Targets override what their device does. One thread.
class PlainAdapter : public IKyDeviceAdapter
{
public:
    PlainAdapter() = default;
    virtual ~PlainAdapter() = default;
    PlainAdapter(const PlainAdapter&) = delete;
    PlainAdapter& operator=(const PlainAdapter&) = delete;

    /// Tells the sinks of an event.
    void Send(uint16_t aEventID, const void* aData, uint32_t aSize)
    {
        for (IKyDeviceEventSink* lSink : std::vector<IKyDeviceEventSink*>(mSinks))
        {
            lSink->NotifyEvent(aEventID, 0, 0, 0, aData, aSize);
        }
    }

    /// Tells the sinks that a feature has changed.
    void Invalidate(const KyString* aName)
    {
        for (IKyDeviceEventSink* lSink : std::vector<IKyDeviceEventSink*>(mSinks))
        {
            lSink->NotifyFeatureInvalidated(aName);
        }
    }

    std::map<uint32_t, uint32_t> mRegisters;
    std::vector<IKyDeviceEventSink*> mSinks;

    void Reserved0() override {}
    bool IsIntegerFeatureAvailable(const KyString& /*aName*/) override { return true; }
    bool IsFeatureAvailable(const KyString& /*aName*/) override { return true; }
    void Reserved3() override {}
    bool IsRegisterFeatureAvailable(const KyString& /*aName*/) override { return true; }
    bool IsFeatureReadable(const KyString& /*aName*/) override { return true; }
    bool IsFeatureWritable(const KyString& /*aName*/) override { return true; }
    bool IsEnumEntryAvailable(const KyString& /*aName*/, const KyString& /*aEntry*/) override { return true; }
    KyResult GetIntegerValue(const KyString& /*aName*/, int64_t& aValue) override
    {
        aValue = 1;
        return KyResult(KyResult::OK);
    }
    KyResult GetEnumEntries(const KyString& /*aName*/, KyStringList& aEntries) override
    {
        aEntries.Clear();
        return KyResult(KyResult::OK);
    }
    KyResult GetFeatureAsString(const KyString& /*aName*/, KyString& aValue) override
    {
        aValue = KyString();
        return KyResult(KyResult::OK);
    }
    KyResult SetFeatureFromString(const KyString& /*aName*/, const KyString& /*aValue*/) override
    {
        return KyResult(KyResult::OK);
    }
    void Reserved12() override {}
    void Reserved13() override {}
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override
    {
        return GetFeatureAsString(aName, aValue);
    }
    KyResult GetRegisterLength(const KyString& /*aName*/, int64_t& aLength) override
    {
        aLength = 0;
        return KyResult(KyResult::OK);
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        std::fill_n(aBuffer, aLength, uint8_t{0});
        return KyResult(KyResult::OK);
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* /*aBuffer*/,
                             int64_t /*aLength*/) override
    {
        return KyResult(KyResult::OK);
    }
    KyResult RegisterFeatureInterest(const KyString& /*aName*/) override { return KyResult(KyResult::OK); }
    KyResult UnregisterFeatureInterest(const KyString& /*aName*/) override { return KyResult(KyResult::OK); }
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        mRegisters[aAddress] = aValue;
        return KyResult(KyResult::OK);
    }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        aValue = mRegisters[aAddress];
        return KyResult(KyResult::OK);
    }
    KyResult WriteMemory(const uint8_t* /*aBuffer*/, uint32_t /*aAddress*/, uint32_t /*aLength*/) override
    {
        return KyResult(KyResult::OK);
    }
    void Reserved23() override {}
    KyResult PostWrite(uint32_t /*aMilliseconds*/) override { return KyResult(KyResult::OK); }
    bool IsConnected() override { return true; }
    bool IsKorvoVideoInterface() override { return true; }
    bool IsGigEVision() override { return true; }
    bool IsAlternateTransport() override { return false; }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSinks.push_back(aSink);
        return KyResult(KyResult::OK);
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSinks.erase(std::remove(mSinks.begin(), mSinks.end(), aSink), mSinks.end());
        return KyResult(KyResult::OK);
    }
};

} // namespace KyTest
