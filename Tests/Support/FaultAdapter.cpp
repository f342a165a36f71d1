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

FaultAdapter::Verdict FaultAdapter::GetVerdict(Slot aSlot)
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
        mCall = GetSlotName(aSlot);
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

KyResult FaultAdapter::Do(Slot aSlot, const std::function<KyResult()>& aCall)
{
    const bool lIsMadeAnyhow = aSlot == Slot::UnregisterEventSink || aSlot == Slot::UnregisterFeatureInterest;
    const KyResult lMade = lIsMadeAnyhow ? aCall() : KyResult();
    switch (GetVerdict(aSlot))
    {
    case Verdict::Fail:
        return KyResult(cFailed, "spoilt");
    case Verdict::Gone:
        return KyResult(KyResult::NO_CONNECTION, "gone");
    case Verdict::Pretend:
        return KyResult(KyResult::OK);
    default:
        return lIsMadeAnyhow ? lMade : aCall();
    }
}

bool FaultAdapter::Ask(Slot aSlot, const std::function<bool()>& aCall)
{
    if (aSlot == Slot::IsGigEVision || aSlot == Slot::IsAlternateTransport)
    {
        return aCall(); // identifies the device, as GevMACAddress does
    }
    const Verdict lVerdict = GetVerdict(aSlot);
    return lVerdict == Verdict::Pretend || (lVerdict == Verdict::Make && aCall());
}

KyResult FaultAdapter::GetIntegerValue(const KyString& aName, int64_t& aValue)
{
    return aName == KyString("GevMACAddress") ? mInner.GetIntegerValue(aName, aValue)
                                              : ForwardingAdapter::GetIntegerValue(aName, aValue);
}

} // namespace KyTest
