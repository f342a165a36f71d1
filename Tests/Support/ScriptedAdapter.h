#pragma once

#include "Support/AdapterSlots.h"
#include "Support/NullAdapter.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace KyTest
{

using Bytes = std::vector<uint8_t>;
using Calls = std::vector<std::string>;

/// An adapter whose device is a script: every answer can be set, every call is written down, any call can be
/// made to fail.
///
/// Starts as a connected GigE Vision device of the maker with two UARTs, a register-driven bulk port 0 (UART,
/// 115200 bit/s) that can run I2C, and the features of eight bulk ports that offer UART, USRT, I2C and SPI;
/// with a MAC address and a serial number that no other adapter of the process has.
///
/// A call is written down as "WriteRegister(0xb84c, 0x41)": addresses, register values and bytes in
/// hexadecimal, the rest in decimal, no parentheses without arguments. Then the hook runs, then the effect
/// takes place. A refused call has no effect; a refused question is answered with false.
///
/// Any thread may do anything at any time. Calls into the sinks are serialised, as a real adapter does it.
class ScriptedAdapter final : public NullAdapter
{
public:
    ScriptedAdapter();

    // The device.

    /// The answer of IsConnected(), IsKorvoVideoInterface(), IsGigEVision() or IsAlternateTransport().
    void SetAnswer(Slot aSlot, bool aAnswer);
    /// The answer of a question about one feature.
    void SetAvailable(Slot aSlot, const std::string& aName, bool aAvailable);
    /// Whether an enumeration offers an entry.
    void SetEntry(const std::string& aName, const std::string& aEntry, bool aAvailable);
    void SetRegister(uint32_t aAddress, uint32_t aValue);
    uint32_t GetRegister(uint32_t aAddress);
    void SetInteger(const std::string& aName, int64_t aValue);
    /// The text of a string or enumeration feature.
    void SetText(const std::string& aName, const std::string& aText);
    std::string GetText(const std::string& aName);
    /// Content and length of a register feature.
    void SetContent(const std::string& aName, const Bytes& aContent);
    Bytes GetContent(const std::string& aName);
    /// The length that the device claims; the content stays.
    void SetLength(const std::string& aName, int64_t aLength);

    // Refusals.

    /// Refuses every later call of a slot.
    void Fail(Slot aSlot, const KyResult& aResult = KyResult(0x7777, "scripted"));
    /// Refuses every later call of a slot with this first argument: a feature name, or an address as
    /// "0xb838".
    void Fail(Slot aSlot, const std::string& aName, const KyResult& aResult = KyResult(0x7777, "scripted"));
    /// Refuses one call: the n-th from now, counted from 1, of all slots.
    void FailCall(int aNumber, const KyResult& aResult = KyResult(0x7777, "scripted"));
    /// Refuses one call: the n-th from now, counted from 1, of one slot.
    void FailCall(Slot aSlot, int aNumber, const KyResult& aResult = KyResult(0x7777, "scripted"));
    /// From the n-th call from now on, the device is gone.
    void DisconnectAtCall(int aNumber);
    /// No more refusals; the device stays as it is.
    void StopFailing();

    // Hooks. They run without any lock, on the calling thread.

    void OnCall(Slot aSlot, std::function<void()> aHook);
    void OnEveryCall(std::function<void()> aHook);

    // The record.

    /// The calls so far; forgets them.
    Calls TakeCalls();
    /// Calls since construction or the last ClearCounts().
    int GetCallCount();
    int GetCallCount(Slot aSlot);
    void ClearCounts();
    /// Whether calls are written down; they are counted anyway.
    void SetRecording(bool aRecording);
    /// The sinks in the order of their registration, one entry for each.
    std::vector<IKyDeviceEventSink*> GetSinks();
    /// RegisterFeatureInterest() calls less UnregisterFeatureInterest() calls.
    int GetInterest(const std::string& aName);

    // The device speaks: on the calling thread, to every registered sink.

    void SendEvent(uint16_t aEventID, const Bytes& aData);
    void SendEvent(uint16_t aEventID, const void* aData, uint32_t aDataLength);
    void Invalidate(const std::string& aName);

    // IKyDeviceAdapter.

    void Reserved0() override { static_cast<void>(Enter(Slot::Reserved0)); }
    bool IsIntegerFeatureAvailable(const KyString& aName) override
    {
        return Ask(Slot::IsIntegerFeatureAvailable, aName);
    }
    bool IsFeatureAvailable(const KyString& aName) override { return Ask(Slot::IsFeatureAvailable, aName); }
    void Reserved3() override { static_cast<void>(Enter(Slot::Reserved3)); }
    bool IsRegisterFeatureAvailable(const KyString& aName) override
    {
        return Ask(Slot::IsRegisterFeatureAvailable, aName);
    }
    bool IsFeatureReadable(const KyString& aName) override { return Ask(Slot::IsFeatureReadable, aName); }
    bool IsFeatureWritable(const KyString& aName) override { return Ask(Slot::IsFeatureWritable, aName); }
    bool IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry) override
    {
        return Ask(Slot::IsEnumEntryAvailable, aName, aEntry);
    }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override;
    KyResult GetEnumEntries(const KyString& aName, KyStringList& aEntries) override;
    KyResult GetFeatureAsString(const KyString& aName, KyString& aValue) override;
    KyResult SetFeatureFromString(const KyString& aName, const KyString& aValue) override;
    void Reserved12() override { static_cast<void>(Enter(Slot::Reserved12)); }
    void Reserved13() override { static_cast<void>(Enter(Slot::Reserved13)); }
    KyResult GetStringValue(const KyString& aName, KyString& aValue) override;
    KyResult GetRegisterLength(const KyString& aName, int64_t& aLength) override;
    KyResult GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength) override;
    KyResult SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength) override;
    KyResult RegisterFeatureInterest(const KyString& aName) override;
    KyResult UnregisterFeatureInterest(const KyString& aName) override;
    KyResult WriteRegister(uint32_t aAddress, uint32_t aValue) override;
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override;
    KyResult WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength) override;
    void Reserved23() override { static_cast<void>(Enter(Slot::Reserved23)); }
    KyResult PostWrite(uint32_t aMilliseconds) override;
    bool IsConnected() override { return Ask(Slot::IsConnected); }
    bool IsKorvoVideoInterface() override { return Ask(Slot::IsKorvoVideoInterface); }
    bool IsGigEVision() override { return Ask(Slot::IsGigEVision); }
    bool IsAlternateTransport() override { return Ask(Slot::IsAlternateTransport); }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override;
    KyResult UnregisterEventSink(IKyDeviceEventSink* aSink) override;

private:
    using Key = std::pair<Slot, std::string>;
    struct Refusal
    {
        int mCountdown; // refuses the call at which it becomes 0; one that starts at 0 refuses every call
        KyResult mResult;
    };

    KyResult Enter(Slot aSlot, const std::string& aFirst = {}, const std::string& aRest = {});
    KyResult GetVerdict(Slot aSlot, const std::string& aFirst);
    bool Ask(Slot aSlot);
    bool Ask(Slot aSlot, const KyString& aName, const KyString& aEntry = {});
    void CallSinks(const std::function<void(IKyDeviceEventSink*)>& aNotify);

    std::mutex mMutex;
    std::recursive_mutex mDispatch; // held while sinks run: they end before UnregisterEventSink() returns
    std::map<Key, bool> mAvailable;
    std::array<bool, static_cast<size_t>(Slot::Count)> mAnswers{};
    std::map<uint32_t, uint32_t> mRegisters;
    std::map<std::string, int64_t> mIntegers;
    std::map<std::string, std::string> mTexts;
    std::map<std::string, Bytes> mContents;
    std::map<std::string, int64_t> mLengths;
    std::map<std::string, std::vector<std::string>> mEntries;
    std::map<Slot, Refusal> mSlotRefusals;
    std::map<Key, KyResult> mNameRefusals;
    Refusal mRefusal{-1, {}};
    int mDisconnect = -1;
    std::map<Slot, std::function<void()>> mHooks;
    std::function<void()> mEveryHook;
    Calls mCalls;
    std::array<int, static_cast<size_t>(Slot::Count)> mCounts{};
    bool mRecording = true;
    std::vector<IKyDeviceEventSink*> mSinks;
    std::map<std::string, int> mInterests;
};

/// "[a0 01 02]".
std::string ToText(const uint8_t* aData, size_t aLength);

/// "0xb838".
std::string ToHex(uint32_t aValue);

} // namespace KyTest
