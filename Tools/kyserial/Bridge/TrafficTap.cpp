#include "kyserial/Bridge/TrafficTap.h"

#include "kyserial/Bridge/PortProtocol.h"
#include "kyserial/Device/PortName.h"

namespace KySerialTool
{

TrafficTap::TrafficTap(IKyDeviceAdapter& aDevice, KyDeviceSerial aPort, TrafficLog& aLog)
    : ForwardingAdapter(aDevice)
    , mPort(aPort)
    , mDownstreamFeature(DownstreamFeature(aPort))
    , mUpstreamFeature(UpstreamFeature(aPort))
    , mLog(aLog)
{
    static_cast<void>(aDevice.RegisterEventSink(this)); // refused: the log lacks what comes that way
}

TrafficTap::~TrafficTap()
{
    static_cast<void>(GetTarget().UnregisterEventSink(this));
}

KyResult TrafficTap::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    KyResult lResult = ForwardingAdapter::WriteRegister(aAddress, aValue);
    if (lResult.IsOK() && IsDataRegister(mPort, aAddress))
    {
        const auto lByte = static_cast<uint8_t>(aValue & 0xFFU);
        mLog.Add(TrafficLog::cSent, &lByte, 1);
    }
    return lResult;
}

// Received bytes come with events; the library takes some from here after a failure.
KyResult TrafficTap::ReadRegister(uint32_t aAddress, uint32_t& aValue)
{
    KyResult lResult = ForwardingAdapter::ReadRegister(aAddress, aValue);
    if (lResult.IsOK() && IsDataRegister(mPort, aAddress) && (aValue & cDataValid) != 0)
    {
        const auto lByte = static_cast<uint8_t>(aValue & 0xFFU);
        mLog.Add(TrafficLog::cReceived, &lByte, 1);
    }
    return lResult;
}

KyResult TrafficTap::WriteMemory(const uint8_t* aBuffer, uint32_t aAddress, uint32_t aLength)
{
    KyResult lResult = ForwardingAdapter::WriteMemory(aBuffer, aAddress, aLength);
    if (lResult.IsOK() && mPort == KyDeviceSerialBulk0 && (aAddress & cTransmitWindow) != 0)
    {
        mLog.Add(TrafficLog::cSent, aBuffer, aLength);
    }
    return lResult;
}

KyResult TrafficTap::SetRegisterData(const KyString& aName, const uint8_t* aBuffer, int64_t aLength)
{
    KyResult lResult = ForwardingAdapter::SetRegisterData(aName, aBuffer, aLength);
    const bool lDownstream = !mDownstreamFeature.empty() && mDownstreamFeature == aName.GetAscii();
    const int64_t lSize =
        lResult.IsOK() && lDownstream ? MessageSize(aBuffer, aLength, GetTarget().IsGigEVision()) : 0;
    if (lSize > 0)
    {
        mLog.Add(TrafficLog::cSent, aBuffer + cMessageHeader, static_cast<size_t>(lSize));
    }
    return lResult;
}

// The library fetches each upstream event once.
KyResult TrafficTap::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    KyResult lResult = ForwardingAdapter::GetRegisterData(aName, aBuffer, aLength);
    if (lResult.IsOK() && !mUpstreamFeature.empty() && mUpstreamFeature == aName.GetAscii() && aLength > 0)
    {
        mLog.Add(TrafficLog::cReceived, aBuffer, static_cast<size_t>(aLength));
    }
    return lResult;
}

void TrafficTap::NotifyEvent(uint16_t aEventID, uint16_t /*aChannel*/, uint64_t /*aBlockID*/,
                             uint64_t /*aTimestamp*/, const void* aData, uint32_t aDataLength)
{
    if (aEventID < cInterrupt || aEventID > cBulkInterrupt || aData == nullptr || aDataLength < 4)
    {
        return;
    }
    const auto* const lBytes = static_cast<const uint8_t*>(aData);
    const uint32_t lStatus = Word(lBytes, false);
    if (mPort == KyDeviceSerialBulk0 && (lStatus & cBulkReceive) != 0)
    {
        mLog.Add(TrafficLog::cReceived, lBytes + 4, aDataLength - 4);
    }
    const uint32_t lUartReceive = mPort == KyDeviceSerialUart0 ? cUart0Receive : cUart1Receive;
    if (!IsBulk(mPort) && aEventID == cInterrupt && (lStatus & lUartReceive) != 0)
    {
        for (uint32_t lOffset = 4; lOffset + 4 <= aDataLength; lOffset += 4) // a word for each byte
        {
            mLog.Add(TrafficLog::cReceived, lBytes + lOffset, 1);
        }
    }
}

void TrafficTap::NotifyFeatureInvalidated(const KyString* /*aName*/) {}

} // namespace KySerialTool
