#include "Table/AdapterObject.h"

#include "JxUtilsLib/LockScope.h"
#include "KySerialC/Result.h"

namespace KySerialCLib
{

namespace
{

thread_local int gRunning = 0; // calls and reports that the thread is in

} // namespace

void EventForwarder::NotifyEvent(uint16_t aEventID, uint16_t aChannel, uint64_t aBlockID, uint64_t aTimestamp,
                                 const void* aData, uint32_t aDataLength)
{
    ++gRunning;
    // A device that has ended does not listen any more; nothing else can be wrong.
    static_cast<void>(
        KyDeviceNotifyEvent(mDevice, aEventID, aChannel, aBlockID, aTimestamp, aData, aDataLength));
    --gRunning;
}

void EventForwarder::NotifyFeatureInvalidated(const KyString* aName)
{
    ++gRunning;
    static_cast<void>(KyDeviceNotifyFeatureInvalidated(mDevice, aName->GetAscii())); // as above
    --gRunning;
}

KyResult AdapterObject::ReportTo(KyDeviceHandle aDevice)
{
    EventForwarder* lForwarder = nullptr;
    {
        const JxUtilsLib::LockScope lScope(mLock);
        const auto [lEntry, lNew] = mForwarders.try_emplace(aDevice, aDevice);
        // A device asks for each of its sinks, and one forwarder serves them all.
        if (!lNew)
        {
            return KyResult();
        }
        lForwarder = &lEntry->second;
    }
    KyResult lResult = mAdapter->RegisterEventSink(lForwarder);
    if (!lResult.IsOK())
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mForwarders.erase(aDevice);
    }
    return lResult;
}

bool AdapterObject::Enter()
{
    const JxUtilsLib::LockScope lScope(mLock);
    mCalls += mStopped ? 0 : 1;
    return !mStopped;
}

void AdapterObject::Leave()
{
    const JxUtilsLib::LockScope lScope(mLock);
    --mCalls;
    mLeft.NotifyAll();
}

void AdapterObject::Stop()
{
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mStopped = true;
        while (mCalls != 0)
        {
            mLeft.Wait(mLock);
        }
    }
    mAdapter.reset(); // waits for the event that is being reported
}

AdapterObjectCall::AdapterObjectCall(uint64_t aHandle) : mObject(AdapterObjects().Find(aHandle))
{
    if (mObject != nullptr && !mObject->Enter())
    {
        mObject.reset();
    }
    ++gRunning;
}

AdapterObjectCall::~AdapterObjectCall()
{
    --gRunning;
    if (mObject != nullptr)
    {
        mObject->Leave();
    }
}

bool AdapterObjectCall::IsRunning()
{
    return gRunning > 0;
}

KyCode FinishCall(const KyResult& aResult) noexcept
{
    KySetLastText(aResult.IsOK() ? nullptr : aResult.GetDescription().GetAscii());
    return aResult.GetCode();
}

} // namespace KySerialCLib
