#pragma once

#include <KySerial/IKyDeviceAdapter.h>

namespace KySerialTool
{

/// An adapter that hands every call on to another one; a base for those that look at some of them.
class ForwardingAdapter : public IKyDeviceAdapter
{
public:
    /// \param aTarget  Must outlive the object.
    explicit ForwardingAdapter(IKyDeviceAdapter& aTarget) : mTarget(aTarget) {}
    virtual ~ForwardingAdapter() = default;
    ForwardingAdapter(const ForwardingAdapter&) = delete;
    ForwardingAdapter& operator=(const ForwardingAdapter&) = delete;

    void Reserved0() override { mTarget.Reserved0(); }
    bool IsIntegerFeatureAvailable(const KyString& aName) override
    {
        return mTarget.IsIntegerFeatureAvailable(aName);
    }
    bool IsFeatureAvailable(const KyString& aName) override { return mTarget.IsFeatureAvailable(aName); }
    void Reserved3() override { mTarget.Reserved3(); }
    bool IsRegisterFeatureAvailable(const KyString& aName) override
    {
        return mTarget.IsRegisterFeatureAvailable(aName);
    }
    bool IsFeatureReadable(const KyString& aName) override { return mTarget.IsFeatureReadable(aName); }
    bool IsFeatureWritable(const KyString& aName) override { return mTarget.IsFeatureWritable(aName); }
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override
    {
        return mTarget.IsEnumEntryAvailable(aName, aEntry);
    }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        return mTarget.GetIntegerValue(aName, aValue);
    }
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override
    {
        return mTarget.GetEnumEntries(aName, aEntries);
    }
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override
    {
        return mTarget.GetFeatureAsString(aName, aValue);
    }
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override
    {
        return mTarget.SetFeatureFromString(aName, aValue);
    }
    void Reserved12() override { mTarget.Reserved12(); }
    void Reserved13() override { mTarget.Reserved13(); }
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override
    {
        return mTarget.GetStringValue(aName, aValue);
    }
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override
    {
        return mTarget.GetRegisterLength(aName, aLength);
    }
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override
    {
        return mTarget.GetRegisterData(aName, aBuffer, aLength);
    }
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override
    {
        return mTarget.SetRegisterData(aName, aBuffer, aLength);
    }
    KyResult RegisterFeatureInterest(const KyString& aName) override
    {
        return mTarget.RegisterFeatureInterest(aName);
    }
    KyResult UnregisterFeatureInterest(const KyString& aName) override
    {
        return mTarget.UnregisterFeatureInterest(aName);
    }
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override
    {
        return mTarget.WriteRegister(aAddress, aValue);
    }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        return mTarget.ReadRegister(aAddress, aValue);
    }
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override
    {
        return mTarget.WriteMemory(aBuffer, aAddress, aLength);
    }
    void Reserved23() override { mTarget.Reserved23(); }
    KyResult PostWrite(uint32_t aMilliseconds) override { return mTarget.PostWrite(aMilliseconds); }
    bool IsConnected() override { return mTarget.IsConnected(); }
    bool IsKorvoVideoInterface() override { return mTarget.IsKorvoVideoInterface(); }
    bool IsGigEVision() override { return mTarget.IsGigEVision(); }
    bool IsAlternateTransport() override { return mTarget.IsAlternateTransport(); }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        return mTarget.RegisterEventSink(aSink);
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override
    {
        return mTarget.UnregisterEventSink(aSink);
    }

protected:
    IKyDeviceAdapter& GetTarget() const { return mTarget; }

private:
    IKyDeviceAdapter& mTarget;
};

} // namespace KySerialTool
