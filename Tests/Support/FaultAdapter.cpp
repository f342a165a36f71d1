#include "Support/FaultAdapter.h"

#include <utility>

namespace KyTest
{

void FaultAdapter::Set(Fault aFault, int aNumber, std::function<void()> aDelay)
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mFault = aFault;
    mCountdown = aNumber;
    mReached = false;
    mCall.clear();
    mDelay = std::move(aDelay);
}

void FaultAdapter::Heal()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    mFault = Fault::None;
}

bool FaultAdapter::IsReached()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mReached;
}

std::string FaultAdapter::GetCall()
{
    const std::lock_guard<std::mutex> lLock(mMutex);
    return mCall;
}

FaultAdapter::Verdict FaultAdapter::Judge(const char* aName)
{
    std::unique_lock<std::mutex> lLock(mMutex);
    if (mFault == Fault::None || Immunity::sCount > 0)
    {
        return Verdict::Make;
    }
    --mCountdown;
    if (mCountdown == 0)
    {
        mReached = true;
        mCall = aName;
    }
    switch (mFault)
    {
    case Fault::Once:
        return mCountdown == 0 ? Verdict::Fail : Verdict::Make;
    case Fault::FromThere:
        return mCountdown <= 0 ? Verdict::Fail : Verdict::Make;
    case Fault::Disconnect:
        return mCountdown <= 0 ? Verdict::Gone : Verdict::Make;
    case Fault::Drop:
        return mCountdown == 0 ? Verdict::Pretend : Verdict::Make;
    default:
        break;
    }
    const std::function<void()> lDelay = mCountdown == 0 ? mDelay : std::function<void()>();
    lLock.unlock();
    if (lDelay)
    {
        lDelay();
    }
    return Verdict::Make;
}

template<typename Call>
KyResult FaultAdapter::Do(const char* aName, Call&& aCall)
{
    switch (Judge(aName))
    {
    case Verdict::Fail:
        return KyResult(cFailed, "spoilt");
    case Verdict::Gone:
        return KyResult(KyResult::NO_CONNECTION, "gone");
    case Verdict::Pretend:
        return KyResult(KyResult::OK);
    default:
        return aCall();
    }
}

template<typename Call>
KyResult FaultAdapter::Undo(const char* aName, Call&& aCall)
{
    static_cast<void>(aCall()); // made in any case; the answer is what is spoilt
    return Do(aName, [] { return KyResult(KyResult::OK); });
}

template<typename Call>
bool FaultAdapter::Ask(const char* aName, Call&& aCall)
{
    const Verdict lVerdict = Judge(aName);
    return lVerdict == Verdict::Pretend || (lVerdict == Verdict::Make && aCall());
}

bool FaultAdapter::IsIntegerFeatureAvailable(const KyString& aName)
{
    return Ask("IsIntegerFeatureAvailable", [&] { return mInner.IsIntegerFeatureAvailable(aName); });
}

bool FaultAdapter::IsFeatureAvailable(const KyString& aName)
{
    return Ask("IsFeatureAvailable", [&] { return mInner.IsFeatureAvailable(aName); });
}

bool FaultAdapter::IsRegisterFeatureAvailable(const KyString& aName)
{
    return Ask("IsRegisterFeatureAvailable", [&] { return mInner.IsRegisterFeatureAvailable(aName); });
}

bool FaultAdapter::IsFeatureReadable(const KyString& aName)
{
    return Ask("IsFeatureReadable", [&] { return mInner.IsFeatureReadable(aName); });
}

bool FaultAdapter::IsFeatureWritable(const KyString& aName)
{
    return Ask("IsFeatureWritable", [&] { return mInner.IsFeatureWritable(aName); });
}

bool FaultAdapter::IsEnumEntryAvailable(const KyString& aName, const KyString& aEntry)
{
    return Ask("IsEnumEntryAvailable", [&] { return mInner.IsEnumEntryAvailable(aName, aEntry); });
}

KyResult FaultAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    if (aName == KyString("GevMACAddress"))
    {
        return mInner.GetIntegerValue(aName, aValue);
    }
    return Do("GetIntegerValue", [&] { return mInner.GetIntegerValue(aName, aValue); });
}

KyResult FaultAdapter::GetEnumEntries(const KyString& aName, KyStringList& aEntries)
{
    return Do("GetEnumEntries", [&] { return mInner.GetEnumEntries(aName, aEntries); });
}

KyResult FaultAdapter::GetFeatureAsString(const KyString& aName, KyString& aValue)
{
    return Do("GetFeatureAsString", [&] { return mInner.GetFeatureAsString(aName, aValue); });
}

KyResult FaultAdapter::SetFeatureFromString(const KyString& aName, const KyString& aValue)
{
    return Do("SetFeatureFromString", [&] { return mInner.SetFeatureFromString(aName, aValue); });
}

KyResult FaultAdapter::GetStringValue(const KyString& aName, KyString& aValue)
{
    return Do("GetStringValue", [&] { return mInner.GetStringValue(aName, aValue); });
}

KyResult FaultAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    return Do("GetRegisterLength", [&] { return mInner.GetRegisterLength(aName, aLength); });
}

KyResult FaultAdapter::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    return Do("GetRegisterData", [&] { return mInner.GetRegisterData(aName, aBuffer, aLength); });
}

KyResult FaultAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    return Do("SetRegisterData", [&] { return mInner.SetRegisterData(aName, aBuffer, aLength); });
}

KyResult FaultAdapter::RegisterFeatureInterest(const KyString& aName)
{
    return Do("RegisterFeatureInterest", [&] { return mInner.RegisterFeatureInterest(aName); });
}

KyResult FaultAdapter::UnregisterFeatureInterest(const KyString& aName)
{
    return Undo("UnregisterFeatureInterest", [&] { return mInner.UnregisterFeatureInterest(aName); });
}

KyResult FaultAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    return Do("WriteRegister", [&] { return mInner.WriteRegister(aAddress, aValue); });
}

KyResult FaultAdapter::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    return Do("ReadRegister", [&] { return mInner.ReadRegister(aAddress, aValue); });
}

KyResult FaultAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    return Do("WriteMemory", [&] { return mInner.WriteMemory(aBuffer, aAddress, aLength); });
}

KyResult FaultAdapter::PostWrite(uint32_t aMilliseconds)
{
    return Do("PostWrite", [&] { return mInner.PostWrite(aMilliseconds); });
}

bool FaultAdapter::IsConnected()
{
    return Ask("IsConnected", [&] { return mInner.IsConnected(); });
}

bool FaultAdapter::IsKorvoVideoInterface()
{
    return Ask("IsKorvoVideoInterface", [&] { return mInner.IsKorvoVideoInterface(); });
}

KyResult FaultAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    return Do("RegisterEventSink", [&] { return mInner.RegisterEventSink(aSink); });
}

KyResult FaultAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    return Undo("UnregisterEventSink", [&] { return mInner.UnregisterEventSink(aSink); });
}

} // namespace KyTest
