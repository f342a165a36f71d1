#include "kyserial/Bridge/PatientAdapter.h"

#include "kyserial/Bridge/PortProtocol.h"
#include "kyserial/Device/PortName.h"

#include <JxUtilsLib/LockScope.h>

#include <array>
#include <utility>

namespace KySerialTool
{

PatientAdapter::PatientAdapter(IKyDeviceAdapter& aTarget, KyDeviceSerial aPort, Generation aGeneration)
    : ForwardingAdapter(aTarget)
    , mPort(aPort)
    , mDownstreamFeature(DownstreamFeature(aPort))
    , mBigEndian(aTarget.IsGigEVision())
    , mTargetGeneration(std::move(aGeneration))
    , mGeneration(TargetGeneration())
    , mRecovered(mGeneration)
{
}

bool PatientAdapter::IsTargetSame() const
{
    return IsTargetConnected() && TargetGeneration() == mGeneration;
}

void PatientAdapter::BeginRecovery()
{
    mRecovered = TargetGeneration();
}

void PatientAdapter::SetAway(bool aAway)
{
    if (!aAway)
    {
        mGeneration = mRecovered;
    }
    mAway = aAway;
}

// Before a transfer: to a device that is back, but not set up, nothing must be sent.
bool PatientAdapter::FindsAway()
{
    if (mPatient && TargetGeneration() != mGeneration)
    {
        mAway = true;
    }
    return mAway;
}

// What a device says when it has sent everything.
void PatientAdapter::ReleaseWriter()
{
    const uint32_t lStatus = IsBulk(mPort)                  ? cBulkDone
                             : mPort == KyDeviceSerialUart0 ? cUart0Done
                                                            : cUart1Done;
    const std::array<uint8_t, 4> lEvent = {static_cast<uint8_t>(lStatus & 0xFFU),
                                           static_cast<uint8_t>(lStatus >> 8U & 0xFFU), 0, 0};
    const JxUtilsLib::LockScope lScope(mLock); // who unregisters waits for the call
    for (IKyDeviceEventSink* const lSink : mSinks)
    {
        lSink->NotifyEvent(cInterrupt, 0, 0, 0, lEvent.data(), static_cast<uint32_t>(lEvent.size()));
    }
}

bool PatientAdapter::IsConnected()
{
    return mPatient || IsTargetConnected();
}

bool PatientAdapter::IsDownstream(const KyString& aName) const
{
    return !mDownstreamFeature.empty() && mDownstreamFeature == aName.GetAscii();
}

// Whether a transfer with this result has met a device that is away, and is to seem done.
bool PatientAdapter::IsDropped(const KyResult& aResult)
{
    if (!aResult.IsOK() && mPatient && !IsTargetSame())
    {
        mAway = true;
    }
    return !aResult.IsOK() && mAway;
}

KyResult PatientAdapter::GetRegisterLength(const KyString& aName, int64_t& aLength)
{
    KyResult lResult = ForwardingAdapter::GetRegisterLength(aName, aLength);
    if (IsDownstream(aName) && lResult.IsOK())
    {
        mDownstreamLength = aLength;
    }
    if (IsDownstream(aName) && IsDropped(lResult) && mDownstreamLength > 0)
    {
        aLength = mDownstreamLength;
        return {KyResult::OK};
    }
    return lResult;
}

KyResult PatientAdapter::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    if (!IsDownstream(aName))
    {
        return ForwardingAdapter::SetRegisterData(aName, aBuffer, aLength);
    }
    KyResult lResult = FindsAway() ? KyResult(KyResult::NO_CONNECTION)
                                   : ForwardingAdapter::SetRegisterData(aName, aBuffer, aLength);
    if (!IsDropped(lResult))
    {
        return lResult;
    }
    mLost += static_cast<uint64_t>(MessageSize(aBuffer, aLength, mBigEndian));
    return {KyResult::OK};
}

KyResult PatientAdapter::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    if (!IsDataRegister(mPort, aAddress))
    {
        return ForwardingAdapter::WriteRegister(aAddress, aValue);
    }
    KyResult lResult =
        FindsAway() ? KyResult(KyResult::NO_CONNECTION) : ForwardingAdapter::WriteRegister(aAddress, aValue);
    if (!IsDropped(lResult))
    {
        return lResult;
    }
    ++mLost;
    ReleaseWriter();
    return {KyResult::OK};
}

KyResult PatientAdapter::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    if (mPort != KyDeviceSerialBulk0 || (aAddress & cTransmitWindow) == 0)
    {
        return ForwardingAdapter::WriteMemory(aBuffer, aAddress, aLength);
    }
    KyResult lResult = FindsAway() ? KyResult(KyResult::NO_CONNECTION)
                                   : ForwardingAdapter::WriteMemory(aBuffer, aAddress, aLength);
    if (!IsDropped(lResult))
    {
        return lResult;
    }
    mLost += aLength;
    ReleaseWriter();
    return {KyResult::OK};
}

KyResult PatientAdapter::RegisterEventSink(IKyDeviceEventSink* aSink)
{
    {
        const JxUtilsLib::LockScope lScope(mLock);
        mSinks.push_back(aSink);
    }
    return ForwardingAdapter::RegisterEventSink(aSink);
}

KyResult PatientAdapter::UnregisterEventSink(IKyDeviceEventSink* aSink)
{
    {
        const JxUtilsLib::LockScope lScope(mLock);
        std::erase(mSinks, aSink);
    }
    return ForwardingAdapter::UnregisterEventSink(aSink);
}

} // namespace KySerialTool
