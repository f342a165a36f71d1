#pragma once

#include "KySerial/IKyDeviceAdapter.h"

#include <algorithm>

namespace KyTest
{

/// A connected GigE Vision device of the maker that has every feature, each empty, and accepts every call without an
/// effect. Keeps no record and takes no lock. Other adapters override what their device does.
class NullAdapter : public IKyDeviceAdapter
{
public:
    NullAdapter() = default;
    virtual ~NullAdapter() = default;
    NullAdapter(const NullAdapter&) = delete;
    NullAdapter& operator=(const NullAdapter&) = delete;

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
        return KyResult();
    }
    KyResult GetEnumEntries(const KyString& /*aName*/, KyStringList& aEntries) override
    {
        aEntries.Clear();
        return KyResult();
    }
    KyResult GetFeatureAsString(const KyString& /*aName*/, KyString& aValue) override
    {
        aValue = KyString();
        return KyResult();
    }
    KyResult SetFeatureFromString(const KyString& /*aName*/, const KyString& /*aValue*/) override
    {
        return KyResult();
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
        return KyResult();
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* aBuffer, int64_t aLength) override
    {
        std::fill_n(aBuffer, aLength, uint8_t{0});
        return KyResult();
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* /*aBuffer*/,
                             int64_t /*aLength*/) override
    {
        return KyResult();
    }
    KyResult RegisterFeatureInterest(const KyString& /*aName*/) override { return KyResult(); }
    KyResult UnregisterFeatureInterest(const KyString& /*aName*/) override { return KyResult(); }
    KyResult WriteRegister(uint32_t /*aAddress*/, uint32_t /*aValue*/) override { return KyResult(); }
    KyResult ReadRegister(uint32_t /*aAddress*/, uint32_t& aValue) override
    {
        aValue = 0;
        return KyResult();
    }
    KyResult WriteMemory(const uint8_t* /*aBuffer*/, uint32_t /*aAddress*/, uint32_t /*aLength*/) override
    {
        return KyResult();
    }
    void Reserved23() override {}
    KyResult PostWrite(uint32_t /*aMilliseconds*/) override { return KyResult(); }
    bool IsConnected() override { return true; }
    bool IsKorvoVideoInterface() override { return true; }
    bool IsGigEVision() override { return true; }
    bool IsAlternateTransport() override { return false; }
    KyResult RegisterEventSink(IKyDeviceEventSink* /*aSink*/) override { return KyResult(); }
    KyResult UnregisterEventSink(IKyDeviceEventSink* /*aSink*/) override { return KyResult(); }
};

} // namespace KyTest
