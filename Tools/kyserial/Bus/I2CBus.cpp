#include "kyserial/Bus/I2CBus.h"

#include "kyserial/Bus/BulkPortScope.h"
#include "kyserial/Device/PortName.h"
#include "kyserial/Text/Failure.h"
#include "kyserial/Text/Hex.h"

namespace KySerialTool
{

I2CBus::I2CBus(IKyDeviceAdapter& aAdapter, KyDeviceSerial aPort, bool aFast, uint32_t aRetries)
    : mScope(aAdapter, aPort), mPort(aPort), mFast(aFast), mRetries(aRetries)
{
    OpenBus(mBus, mScope, aAdapter, aPort, "I2C");
}

I2CBus::~I2CBus()
{
    static_cast<void>(
        mBus.Close()); // fails only when the device is gone, which a transfer has reported before
}

KyResult I2CBus::TryWrite(uint8_t aAddress, const std::vector<uint8_t>& aBytes, Then aThen)
{
    return mBus.MasterTransmitter(aAddress, aBytes.data(), static_cast<uint32_t>(aBytes.size()), mFast,
                                  aThen == Then::Stop);
}

KyResult I2CBus::TryRead(uint8_t aAddress, size_t aCount, std::vector<uint8_t>& aBytes, Then aThen)
{
    // Only a time-out is repeated. A missing acknowledge is an answer: the slave is not there, or busy.
    KyResult lResult = ReadOnce(aAddress, aCount, aBytes, aThen);
    for (uint32_t lRetry = 0; lRetry < mRetries && lResult.GetCode() == KyResult::TIMED_OUT; ++lRetry)
    {
        lResult = ReadOnce(aAddress, aCount, aBytes, aThen);
    }
    return lResult;
}

KyResult I2CBus::ReadOnce(uint8_t aAddress, size_t aCount, std::vector<uint8_t>& aBytes, Then aThen)
{
    aBytes.resize(aCount);
    uint32_t lRead = 0;
    KyResult lResult = mBus.MasterReceiverAfterFirstByte(
        aAddress, aBytes.data(), static_cast<uint32_t>(aCount), lRead, mFast, aThen == Then::Stop);
    aBytes.resize(lRead);
    return lResult;
}

void I2CBus::Write(uint8_t aAddress, const std::vector<uint8_t>& aBytes, Then aThen)
{
    Check(TryWrite(aAddress, aBytes, aThen), "writing to " + Name(aAddress) + " failed");
}

std::vector<uint8_t> I2CBus::Read(uint8_t aAddress, size_t aCount, Then aThen)
{
    std::vector<uint8_t> lBytes;
    Check(TryRead(aAddress, aCount, lBytes, aThen), "reading from " + Name(aAddress) + " failed");
    return lBytes;
}

std::vector<uint8_t> I2CBus::WriteAndRead(uint8_t aAddress, const std::vector<uint8_t>& aBytes, size_t aCount)
{
    std::vector<uint8_t> lRead;
    Check(TryWriteAndRead(aAddress, aBytes, aCount, lRead), "reading from " + Name(aAddress) + " failed");
    return lRead;
}

KyResult I2CBus::TryWriteAndRead(uint8_t aAddress, const std::vector<uint8_t>& aBytes, size_t aCount,
                                 std::vector<uint8_t>& aRead)
{
    KyResult lResult;
    uint32_t lTries = 0;
    do
    {
        // Repeated from the write on: the read that came too late may have moved the slave's own offset.
        aRead.clear();
        lResult = TryWrite(aAddress, aBytes, Then::RepeatedStart);
        lResult = lResult.IsOK() ? ReadOnce(aAddress, aCount, aRead, Then::Stop) : lResult;
    } while (lResult.GetCode() == KyResult::TIMED_OUT && lTries++ < mRetries);
    return lResult;
}

bool I2CBus::IsNoAnswer(const KyResult& aResult)
{
    constexpr uint32_t cNoAcknowledge = 0x8F01; // some devices report it; others send nothing
    return aResult.GetCode() == KyResult::TIMED_OUT || aResult.GetCode() == cNoAcknowledge;
}

std::string I2CBus::Name(uint8_t aAddress) const
{
    return "0x" + HexBytes(&aAddress, 1) + " on " + PortName(mPort);
}

} // namespace KySerialTool
