#include "kyserial/TrafficTap.h"

#include "kyserial/PortName.h"

#include <algorithm>

namespace KySerialTool
{

namespace
{

// The serial registers and interrupts of the video-interface engines.
constexpr uint32_t cUart0Data = 0xB84C;
constexpr uint32_t cUart1Data = 0xB850;
constexpr uint32_t cDataValid = 0x10000;
constexpr uint32_t cTransmitWindow = 0x80000000U;
constexpr uint16_t cInterrupt = 0x9000;
constexpr uint16_t cBulkInterrupt = 0x9001;
constexpr uint32_t cUart0Receive = 0x2;
constexpr uint32_t cUart1Receive = 0x8;
constexpr uint32_t cBulkReceive = 0x700;

// A message to a bulk port: flags, number of bytes, bytes.
constexpr int64_t cHeader = 8;

std::string BulkFeature(KyDeviceSerial aPort, const std::string& aBefore, const std::string& aBehind)
{
    return IsBulk(aPort) ? aBefore + std::to_string(BulkIndex(aPort)) + aBehind : std::string();
}

uint32_t Word(const uint8_t* aBytes, bool aBigEndian)
{
    uint32_t lWord = 0;
    for (unsigned lIndex = 0; lIndex < 4; ++lIndex)
    {
        lWord |= static_cast<uint32_t>(aBytes[lIndex]) << 8U * (aBigEndian ? 3 - lIndex : lIndex);
    }
    return lWord;
}

} // namespace

TrafficTap::TrafficTap(IKyDeviceAdapter& aDevice, KyDeviceSerial aPort, TrafficLog& aLog)
    : ForwardingAdapter(aDevice)
    , mPort(aPort)
    , mDownstreamFeature(BulkFeature(aPort, "Bulk", "DownstreamData"))
    , mUpstreamFeature(BulkFeature(aPort, "EventBulk", "UpstreamDataBuffer"))
    , mLog(aLog)
{
    static_cast<void>(aDevice.RegisterEventSink(this)); // refused: the log lacks what comes that way
}

TrafficTap::~TrafficTap()
{
    static_cast<void>(GetTarget().UnregisterEventSink(this));
}

bool TrafficTap::IsDataRegister(uint32_t aAddress) const
{
    return (mPort == KyDeviceSerialUart0 && aAddress == cUart0Data) ||
           (mPort == KyDeviceSerialUart1 && aAddress == cUart1Data);
}

KyResult TrafficTap::WriteRegister(uint32_t aAddress, uint32_t aValue)
{
    KyResult lResult = ForwardingAdapter::WriteRegister(aAddress, aValue);
    if (lResult.IsOK() && IsDataRegister(aAddress))
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
    if (lResult.IsOK() && IsDataRegister(aAddress) && (aValue & cDataValid) != 0)
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
    if (lResult.IsOK() && IsBulk(mPort) && mDownstreamFeature == aName.GetAscii() && aLength > cHeader)
    {
        const int64_t lSize = Word(aBuffer + 4, GetTarget().IsGigEVision());
        mLog.Add(TrafficLog::cSent, aBuffer + cHeader,
                 static_cast<size_t>(std::min(lSize, aLength - cHeader)));
    }
    return lResult;
}

// The library fetches each upstream event once.
KyResult TrafficTap::GetRegisterData(const KyString& aName, uint8_t* aBuffer, int64_t aLength)
{
    KyResult lResult = ForwardingAdapter::GetRegisterData(aName, aBuffer, aLength);
    if (lResult.IsOK() && IsBulk(mPort) && mUpstreamFeature == aName.GetAscii() && aLength > 0)
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
