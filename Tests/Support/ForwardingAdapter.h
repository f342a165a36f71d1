#pragma once

#include "KySerial/IKyDeviceAdapter.h"
#include "Support/AdapterSlots.h"

#include <functional>

namespace KyTest
{

/// Hands every call on to another adapter. A derived class changes calls of all slots in Do() and Ask(), or those of
/// one slot by its function.
class ForwardingAdapter : public IKyDeviceAdapter
{
public:
    explicit ForwardingAdapter(IKyDeviceAdapter& aInner) : mInner(aInner) {}
    virtual ~ForwardingAdapter() = default;
    ForwardingAdapter(const ForwardingAdapter&) = delete;
    ForwardingAdapter& operator=(const ForwardingAdapter&) = delete;

    void Reserved0() override {}
    void Reserved3() override {}
    void Reserved12() override {}
    void Reserved13() override {}
    void Reserved23() override {}
    bool IsIntegerFeatureAvailable(const KyString& aName) override
    {
        return Ask(Slot::IsIntegerFeatureAvailable, [&] { return mInner.IsIntegerFeatureAvailable(aName); });
    }
    bool IsFeatureAvailable(const KyString& aName) override
    {
        return Ask(Slot::IsFeatureAvailable, [&] { return mInner.IsFeatureAvailable(aName); });
    }
    bool IsRegisterFeatureAvailable(const KyString& aName) override
    {
        return Ask(Slot::IsRegisterFeatureAvailable,
                   [&] { return mInner.IsRegisterFeatureAvailable(aName); });
    }
    bool IsFeatureReadable(const KyString& aName) override
    {
        return Ask(Slot::IsFeatureReadable, [&] { return mInner.IsFeatureReadable(aName); });
    }
    bool IsFeatureWritable(const KyString& aName) override
    {
        return Ask(Slot::IsFeatureWritable, [&] { return mInner.IsFeatureWritable(aName); });
    }
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override
    {
        return Ask(Slot::IsEnumEntryAvailable, [&] { return mInner.IsEnumEntryAvailable(aName, aEntry); });
    }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        return Do(Slot::GetIntegerValue, [&] { return mInner.GetIntegerValue(aName, aValue); });
    }
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override
    {
        return Do(Slot::GetEnumEntries, [&] { return mInner.GetEnumEntries(aName, aEntries); });
    }
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override
    {
        return Do(Slot::GetFeatureAsString, [&] { return mInner.GetFeatureAsString(aName, aValue); });
    }
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override
    {
        return Do(Slot::SetFeatureFromString, [&] { return mInner.SetFeatureFromString(aName, aValue); });
    }
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override
    {
        return Do(Slot::GetStringValue, [&] { return mInner.GetStringValue(aName, aValue); });
    }
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override
    {
        return Do(Slot::GetRegisterLength, [&] { return mInner.GetRegisterLength(aName, aLength); });
    }
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override
    {
        return Do(Slot::GetRegisterData, [&] { return mInner.GetRegisterData(aName, aBuffer, aLength); });
    }
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override
    {
        return Do(Slot::SetRegisterData, [&] { return mInner.SetRegisterData(aName, aBuffer, aLength); });
    }
    KyResult RegisterFeatureInterest(const KyString& aName) override
    {
        return Do(Slot::RegisterFeatureInterest, [&] { return mInner.RegisterFeatureInterest(aName); });
    }
    KyResult UnregisterFeatureInterest(const KyString& aName) override
    {
        return Do(Slot::UnregisterFeatureInterest, [&] { return mInner.UnregisterFeatureInterest(aName); });
    }
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        return Do(Slot::WriteRegister, [&] { return mInner.WriteRegister(aAddress, aValue); });
    }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        return Do(Slot::ReadRegister, [&] { return mInner.ReadRegister(aAddress, aValue); });
    }
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override
    {
        return Do(Slot::WriteMemory, [&] { return mInner.WriteMemory(aBuffer, aAddress, aLength); });
    }
    KyResult PostWrite(uint32_t aMilliseconds) override
    {
        return Do(Slot::PostWrite, [&] { return mInner.PostWrite(aMilliseconds); });
    }
    bool IsConnected() override
    {
        return Ask(Slot::IsConnected, [&] { return mInner.IsConnected(); });
    }
    bool IsKorvoVideoInterface() override
    {
        return Ask(Slot::IsKorvoVideoInterface, [&] { return mInner.IsKorvoVideoInterface(); });
    }
    bool IsGigEVision() override
    {
        return Ask(Slot::IsGigEVision, [&] { return mInner.IsGigEVision(); });
    }
    bool IsAlternateTransport() override
    {
        return Ask(Slot::IsAlternateTransport, [&] { return mInner.IsAlternateTransport(); });
    }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        return Do(Slot::RegisterEventSink, [&] { return mInner.RegisterEventSink(aSink); });
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        return Do(Slot::UnregisterEventSink, [&] { return mInner.UnregisterEventSink(aSink); });
    }

protected:
    /// \param aCall  Makes the call at the other adapter.
    virtual KyResult Do(Slot /*aSlot*/, const std::function<KyResult()>& aCall) { return aCall(); }
    virtual bool Ask(Slot /*aSlot*/, const std::function<bool()>& aCall) { return aCall(); }

    IKyDeviceAdapter& mInner;
};

} // namespace KyTest
