#pragma once

#include "KySerial/DeviceProtocol.h"
#include "Tests/Support/NullAdapter.h"

#include <cstdint>

namespace KyBench
{

/// A device that does nothing and answers at once, so that what is measured around it is the library.
/// It has two UARTs, a register-driven bulk port 0 and feature-driven bulk ports. Each write raises the
/// interrupt that reports its end, inside the call.
class BenchDevice : public KyTest::NullAdapter
{
public:
    uint64_t mRegisterWrites = 0;
    uint64_t mMemoryWrites = 0;
    uint64_t mMessages = 0;
    /// The answer to "who are you": two devices have two.
    int64_t mAddress = 0x0011223344;

    KyResult GetIntegerValue(const KyString& /*aName*/, int64_t& aValue) override
    {
        aValue = mAddress;
        return KyResult();
    }
    KyResult GetFeatureAsString(const KyString& /*aName*/, KyString& aValue) override
    {
        aValue = KyString("Off");
        return KyResult();
    }
    KyResult GetStringValue(const KyString& /*aName*/, KyString& aValue) override
    {
        aValue = KyString("bench");
        return KyResult();
    }
    KyResult GetRegisterLength(const KyString& /*aName*/, int64_t& aLength) override
    {
        aLength = 520;
        return KyResult();
    }
    KyResult GetRegisterData(const KyString& /*aName*/, uint8_t* /*aBuffer*/, int64_t /*aLength*/) override
    {
        return KyResult();
    }
    KyResult SetRegisterData(const KyString& /*aName*/, const uint8_t* /*aBuffer*/,
                             int64_t /*aLength*/) override
    {
        ++mMessages;
        return KyResult();
    }
    KyResult WriteRegister(uint32_t aAddress, uint32_t /*aValue*/) override
    {
        ++mRegisterWrites;
        if (mSink != nullptr &&
            (aAddress == KyDeviceProtocol::cUart0Data || aAddress == KyDeviceProtocol::cUart1Data))
        {
            static constexpr uint8_t cSent[4] = {
                KyDeviceProtocol::cUart0TransmitDone | KyDeviceProtocol::cUart1TransmitDone, 0, 0, 0};
            mSink->NotifyEvent(KyDeviceProtocol::cInterruptEvent, 0xFFFF, 0, 0, cSent, sizeof(cSent));
        }
        return KyResult();
    }
    KyResult ReadRegister(uint32_t aAddress, uint32_t& aValue) override
    {
        // Capabilities: two UARTs; the bulk port is an UART at 115200 bit/s with a threshold of 64 bytes.
        aValue = aAddress == KyDeviceProtocol::cFunctionCapabilities ? KyDeviceProtocol::cImplemented | 2U
                 : aAddress == KyDeviceProtocol::cBulk0Configuration ? 0x400010C0U
                                                                     : 0;
        return KyResult();
    }
    KyResult WriteMemory(const uint8_t* /*aBuffer*/, uint32_t /*aAddress*/, uint32_t /*aLength*/) override
    {
        ++mMemoryWrites;
        if (mSink != nullptr)
        {
            static constexpr uint8_t cEmpty[4] = {0, 0x18, 0, 0};
            mSink->NotifyEvent(KyDeviceProtocol::cBulkInterruptEvent, 0xFFFF, 0, 0, cEmpty, sizeof(cEmpty));
        }
        return KyResult();
    }
    KyResult RegisterEventSink(IKyDeviceEventSink* aSink) override
    {
        mSink = aSink;
        return KyResult();
    }
    KyResult UnregisterEventSink(IKyDeviceEventSink* /*aSink*/) override
    {
        mSink = nullptr;
        return KyResult();
    }

protected:
    IKyDeviceEventSink* mSink = nullptr;
};

} // namespace KyBench
