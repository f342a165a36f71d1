#include "Support/ScriptedAdapter.h"

#include "Support/AllocationPause.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace KyTest
{

namespace
{

int64_t MakeMac()
{
    static std::atomic<int64_t> sNext{0x020000000001};
    return sNext++;
}

bool IsDue(int& aCountdown)
{
    return aCountdown > 0 && --aCountdown == 0;
}

} // namespace

std::string ToText(const uint8_t* aData, size_t aLength)
{
    std::string lText = "[";
    for (size_t lIndex = 0; lIndex < aLength; ++lIndex)
    {
        char lByte[4];
        static_cast<void>(std::snprintf(lByte, sizeof lByte, lIndex == 0 ? "%02x" : " %02x", aData[lIndex]));
        lText += lByte;
    }
    return lText + "]";
}

std::string ToHex(uint32_t aValue)
{
    char lText[16];
    static_cast<void>(std::snprintf(lText, sizeof lText, "0x%x", static_cast<unsigned>(aValue)));
    return lText;
}

ScriptedAdapter::ScriptedAdapter()
{
    for (const Slot lSlot : {Slot::IsConnected, Slot::IsKorvoVideoInterface, Slot::IsGigEVision})
    {
        SetAnswer(lSlot, true);
    }
    const int64_t lMac = MakeMac();
    SetInteger("GevMACAddress", lMac);
    SetText("DeviceVendorName", "Vendor");
    SetText("DeviceSerialNumber", std::to_string(lMac));
    SetRegister(0xB838, 0);
    SetRegister(0xB84C, 0);
    SetRegister(0xB850, 0);
    SetRegister(0xB898, 0x000010C0);
    SetRegister(0xB8FC, 0x80000002);
    SetRegister(0xB954, 0);
    SetRegister(0xB95C, 3);
    for (int lBulk = 0; lBulk < 8; ++lBulk)
    {
        const std::string lIndex = std::to_string(lBulk);
        SetContent("Bulk" + lIndex + "DownstreamData", Bytes(1024));
        SetContent("EventBulk" + lIndex + "UpstreamDataBuffer", Bytes(1024));
        SetInteger("EventBulk" + lIndex + "UpstreamDataLength", 0);
        SetAvailable(Slot::IsIntegerFeatureAvailable, "EventBulk" + lIndex + "UpstreamDataLength", true);
        for (const std::string& lName :
             {"Bulk" + lIndex + "DownstreamData", "EventBulk" + lIndex + "UpstreamDataBuffer"})
        {
            SetAvailable(Slot::IsRegisterFeatureAvailable, lName, true);
        }
    }
    for (const char* lEntry : {"UART", "USRT", "I2C", "SPI"})
    {
        SetEntry("BulkMode", lEntry, true);
    }
    SetText("EventSelector", "Other");
    SetText("EventNotification", "Off");
    SetAvailable(Slot::IsFeatureAvailable, "EventSelector", true);
    SetAvailable(Slot::IsFeatureAvailable, "EventNotification", true);
}

void ScriptedAdapter::SetAnswer(Slot aSlot, bool aAnswer)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mAnswers[static_cast<size_t>(aSlot)] = aAnswer;
}

void ScriptedAdapter::SetAvailable(Slot aSlot, const std::string& aName, bool aAvailable)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mAvailable[{aSlot, aName}] = aAvailable;
}

void ScriptedAdapter::SetEntry(const std::string& aName, const std::string& aEntry, bool aAvailable)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mAvailable[{Slot::IsEnumEntryAvailable, aName + ", " + aEntry}] = aAvailable;
    if (aAvailable)
    {
        mEntries[aName].push_back(aEntry);
    }
    else
    {
        std::erase(mEntries[aName], aEntry);
    }
}

void ScriptedAdapter::SetRegister(uint32_t aAddress, uint32_t aValue)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mRegisters[aAddress] = aValue;
}

uint32_t ScriptedAdapter::GetRegister(uint32_t aAddress)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mRegisters[aAddress];
}

void ScriptedAdapter::SetInteger(const std::string& aName, int64_t aValue)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mIntegers[aName] = aValue;
}

void ScriptedAdapter::SetText(const std::string& aName, const std::string& aText)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mTexts[aName] = aText;
}

std::string ScriptedAdapter::GetText(const std::string& aName)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mTexts[aName];
}

void ScriptedAdapter::SetContent(const std::string& aName, const Bytes& aContent)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mContents[aName] = aContent;
    mLengths[aName] = static_cast<int64_t>(aContent.size());
}

Bytes ScriptedAdapter::GetContent(const std::string& aName)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mContents[aName];
}

void ScriptedAdapter::SetLength(const std::string& aName, int64_t aLength)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mLengths[aName] = aLength;
}

void ScriptedAdapter::Fail(Slot aSlot, const KyResult& aResult)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSlotRefusals[aSlot] = {0, aResult};
}

void ScriptedAdapter::Fail(Slot aSlot, const std::string& aName, const KyResult& aResult)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mNameRefusals[{aSlot, aName}] = aResult;
}

void ScriptedAdapter::FailCall(int aNumber, const KyResult& aResult)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mRefusal = {aNumber, aResult};
}

void ScriptedAdapter::FailCall(Slot aSlot, int aNumber, const KyResult& aResult)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mSlotRefusals[aSlot] = {aNumber, aResult};
}

void ScriptedAdapter::DisconnectAtCall(int aNumber)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mDisconnect = aNumber;
}

void ScriptedAdapter::StopFailing()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mRefusal.mCountdown = -1;
    mDisconnect = -1;
    mSlotRefusals.clear();
    mNameRefusals.clear();
}

void ScriptedAdapter::OnCall(Slot aSlot, std::function<void()> aHook)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mHooks[aSlot] = std::move(aHook);
}

void ScriptedAdapter::OnEveryCall(std::function<void()> aHook)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mEveryHook = std::move(aHook);
}

Calls ScriptedAdapter::TakeCalls()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return std::exchange(mCalls, {});
}

int ScriptedAdapter::GetCallCount()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    int lSum = 0;
    for (const int lCount : mCounts)
    {
        lSum += lCount;
    }
    return lSum;
}

int ScriptedAdapter::GetCallCount(Slot aSlot)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mCounts[static_cast<size_t>(aSlot)];
}

void ScriptedAdapter::ClearCounts()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mCounts.fill(0);
}

void ScriptedAdapter::SetRecording(bool aRecording)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mRecording = aRecording;
}

std::vector<IKyDeviceEventSink*> ScriptedAdapter::GetSinks()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mSinks;
}

int ScriptedAdapter::GetInterest(const std::string& aName)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mInterests[aName];
}

void ScriptedAdapter::SendEvent(uint16_t aEventID, const Bytes& aData)
{
    SendEvent(aEventID, aData.data(), static_cast<uint32_t>(aData.size()));
}

void ScriptedAdapter::SendEvent(uint16_t aEventID, const void* aData, uint32_t aDataLength)
{
    CallSinks([&](IKyDeviceEventSink* aSink) { aSink->NotifyEvent(aEventID, 0, 0, 0, aData, aDataLength); });
}

void ScriptedAdapter::Invalidate(const std::string& aName)
{
    const KyString lName(aName.c_str());
    CallSinks([&](IKyDeviceEventSink* aSink) { aSink->NotifyFeatureInvalidated(&lName); });
}

void ScriptedAdapter::CallSinks(const std::function<void(IKyDeviceEventSink*)>& aNotify)
{
    const std::lock_guard<std::recursive_mutex> lDispatch(mDispatch);
    for (IKyDeviceEventSink* lSink : GetSinks())
    {
        aNotify(lSink);
    }
}

KyResult ScriptedAdapter::Enter(Slot aSlot, const std::string& aFirst, const std::string& aRest)
{
    std::function<void()> lHook;
    std::function<void()> lEveryHook;
    KyResult lResult;
    {
        const std::lock_guard<std::mutex> lLock(mMutex);
        ++mCounts[static_cast<size_t>(aSlot)];
        if (mRecording)
        {
            std::string lCall = GetSlotName(aSlot);
            if (aSlot < Slot::IsConnected) // the later ones' arguments are pointers
            {
                lCall += "(" + aFirst + (aRest.empty() ? "" : ", " + aRest) + ")";
            }
            mCalls.push_back(lCall);
        }
        lResult = GetVerdict(aSlot, aFirst);
        lHook = mHooks[aSlot];
        lEveryHook = mEveryHook;
    }
    for (const auto& lRun : {lEveryHook, lHook})
    {
        if (lRun)
        {
            lRun();
        }
    }
    return lResult;
}

KyResult ScriptedAdapter::GetVerdict(Slot aSlot, const std::string& aFirst)
{
    KyResult lResult;
    if (IsDue(mDisconnect))
    {
        mAnswers[static_cast<size_t>(Slot::IsConnected)] = false;
        for (int lSlot = 0; lSlot < static_cast<int>(Slot::Count); ++lSlot)
        {
            mSlotRefusals[static_cast<Slot>(lSlot)] = {0, KyResult(KyResult::NO_CONNECTION, "gone")};
        }
    }
    const auto lName = mNameRefusals.find({aSlot, aFirst});
    if (lName != mNameRefusals.end())
    {
        lResult = lName->second;
    }
    const auto lSlot = mSlotRefusals.find(aSlot);
    if (lSlot != mSlotRefusals.end())
    {
        const bool lEvery = lSlot->second.mCountdown == 0;
        if (lEvery || IsDue(lSlot->second.mCountdown))
        {
            lSlot->second.mCountdown = lEvery ? 0 : -1;
            lResult = lSlot->second.mResult;
        }
    }
    if (IsDue(mRefusal.mCountdown))
    {
        lResult = mRefusal.mResult;
    }
    return lResult;
}

bool ScriptedAdapter::Ask(Slot aSlot)
{
    const AllocationPause lPause;
    const bool lRefused = !Enter(aSlot).IsOK();
    const std::lock_guard<std::mutex> lLock(mMutex);
    return !lRefused && mAnswers[static_cast<size_t>(aSlot)];
}

bool ScriptedAdapter::Ask(Slot aSlot, const KyString& aName, const KyString& aEntry)
{
    const AllocationPause lPause;
    const std::string lEntry = aEntry.GetAscii();
    const bool lRefused = !Enter(aSlot, aName.GetAscii(), lEntry).IsOK();
    const std::lock_guard<std::mutex> lLock(mMutex);
    const auto lFound = mAvailable.find({aSlot, aName.GetAscii() + (lEntry.empty() ? "" : ", " + lEntry)});
    return !lRefused && lFound != mAvailable.end() && lFound->second;
}

KyResult ScriptedAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::GetIntegerValue, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    // A failing adapter may leave any value; one that looks valid reveals code that uses it.
    aValue = lResult.IsOK() ? mIntegers[aName.GetAscii()] : 3;
    return lResult;
}

KyResult ScriptedAdapter::GetEnumEntries(const KyString& aName, KyStringList& aEntries)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::GetEnumEntries, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    aEntries.Clear();
    for (const std::string& lEntry : mEntries[aName.GetAscii()])
    {
        aEntries.Add(lEntry.c_str());
    }
    return lResult;
}

KyResult ScriptedAdapter::GetFeatureAsString(const KyString& aName, KyString& aValue)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::GetFeatureAsString, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    aValue = lResult.IsOK() ? KyString(mTexts[aName.GetAscii()].c_str()) : KyString("garbage");
    return lResult;
}

KyResult ScriptedAdapter::SetFeatureFromString(const KyString& aName, const KyString& aValue)
{
    const AllocationPause lPause;
    KyResult lResult =
        Enter(Slot::SetFeatureFromString, aName.GetAscii(), "\"" + std::string(aValue.GetAscii()) + "\"");
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (lResult.IsOK())
    {
        mTexts[aName.GetAscii()] = aValue.GetAscii();
    }
    return lResult;
}

KyResult ScriptedAdapter::GetStringValue(const KyString& aName, KyString& aValue)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::GetStringValue, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    aValue = lResult.IsOK() ? KyString(mTexts[aName.GetAscii()].c_str()) : KyString("garbage");
    return lResult;
}

KyResult ScriptedAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::GetRegisterLength, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    aLength = lResult.IsOK() ? mLengths[aName.GetAscii()] : 64;
    return lResult;
}

KyResult ScriptedAdapter::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    const AllocationPause lPause;
    KyResult lResult =
        Enter(Slot::GetRegisterData, aName.GetAscii(), std::to_string(static_cast<long long>(aLength)));
    const std::lock_guard<std::mutex> lLock(mMutex);
    const Bytes& lContent = mContents[aName.GetAscii()];
    if (lResult.IsOK() && aLength > 0)
    {
        // The whole room is written, so that a buffer shorter than its announced length is found out.
        const size_t lCopy = std::min(lContent.size(), static_cast<size_t>(aLength));
        std::copy_n(lContent.begin(), lCopy, aBuffer);
        std::memset(aBuffer + lCopy, 0xEE, static_cast<size_t>(aLength) - lCopy);
    }
    return lResult;
}

KyResult ScriptedAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    const AllocationPause lPause;
    KyResult lResult =
        Enter(Slot::SetRegisterData, aName.GetAscii(), ToText(aBuffer, static_cast<size_t>(aLength)));
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (lResult.IsOK())
    {
        mContents[aName.GetAscii()].assign(aBuffer, aBuffer + aLength);
    }
    return lResult;
}

KyResult ScriptedAdapter::RegisterFeatureInterest(const KyString& aName)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::RegisterFeatureInterest, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    mInterests[aName.GetAscii()] += lResult.IsOK() ? 1 : 0;
    return lResult;
}

KyResult ScriptedAdapter::UnregisterFeatureInterest(const KyString& aName)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::UnregisterFeatureInterest, aName.GetAscii());
    const std::lock_guard<std::mutex> lLock(mMutex);
    mInterests[aName.GetAscii()] -= lResult.IsOK() ? 1 : 0;
    return lResult;
}

KyResult ScriptedAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::WriteRegister, ToHex(aAddress), ToHex(aValue));
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (lResult.IsOK())
    {
        mRegisters[aAddress] = aValue;
    }
    return lResult;
}

KyResult ScriptedAdapter::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::ReadRegister, ToHex(aAddress));
    const std::lock_guard<std::mutex> lLock(mMutex);
    aValue = lResult.IsOK() ? mRegisters[aAddress] : 0xFFFFFFFF;
    return lResult;
}

KyResult ScriptedAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    const AllocationPause lPause;
    return Enter(Slot::WriteMemory, ToHex(aAddress), ToText(aBuffer, aLength));
}

KyResult ScriptedAdapter::PostWrite(uint32_t aMilliseconds)
{
    const AllocationPause lPause;
    return Enter(Slot::PostWrite, std::to_string(aMilliseconds));
}

KyResult ScriptedAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::RegisterEventSink);
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (lResult.IsOK())
    {
        mSinks.push_back(aSink);
    }
    return lResult;
}

KyResult ScriptedAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    const AllocationPause lPause;
    KyResult lResult = Enter(Slot::UnregisterEventSink);
    const std::lock_guard<std::recursive_mutex> lDispatch(mDispatch);
    const std::lock_guard<std::mutex> lLock(mMutex);
    if (lResult.IsOK())
    {
        std::erase(mSinks, aSink);
    }
    return lResult;
}

} // namespace KyTest
