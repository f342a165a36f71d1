#pragma once

#include "KySerial/FeatureEngineTest.h"

#include "BulkIPEngine.h"
#include "SerialPortIPEngine.h"

#include <memory>

namespace KyTest
{

/// The engines, for what holds for all of them.
enum class EngineKind
{
    Uart,
    RegisterBulk,
    FeatureBulk
};

inline std::string GetKindName(const testing::TestParamInfo<EngineKind>& aInfo)
{
    const char* const lNames[] = {"Uart", "RegisterBulk", "FeatureBulk"};
    return lNames[static_cast<int>(aInfo.param)];
}

/// A test of each engine on a scripted device.
class EngineKindTest : public EngineTest, public testing::WithParamInterface<EngineKind>
{
protected:
    void SetUp() override { mEngine = Make(); }

    static std::unique_ptr<KySerialLib::DeviceSerialPort> Make()
    {
        switch (GetParam())
        {
        case EngineKind::Uart:
            return std::make_unique<KySerialLib::SerialPortIPEngine>();
        case EngineKind::RegisterBulk:
            return std::make_unique<KySerialLib::BulkIPEngine>();
        default:
            return std::make_unique<KySerialLib::IRegisterSerialPort>(false);
        }
    }

    static bool IsUart() { return GetParam() == EngineKind::Uart; }
    static bool HasRegisters() { return GetParam() != EngineKind::FeatureBulk; }

    /// The name of an engine's function in log lines.
    static std::string GetFunction(const char* aName)
    {
        const char* const lClasses[] = {"SerialPortIPEngine", "BulkIPEngine", "IRegisterSerialPort"};
        return std::string("KySerialLib::") + lClasses[static_cast<int>(GetParam())] + "::" + aName;
    }

    KyResult Open() { return mEngine->Open(&mDevice, mPort); }
    KyResult Write(const Bytes& aBytes) { return WriteTo(*mEngine, aBytes, mWritten); }

    /// Sets what happens in the call that brings the device a piece of a write.
    void OnPiece(const std::function<void()>& aHook)
    {
        const Slot lSlots[] = {Slot::WriteRegister, Slot::WriteMemory, Slot::SetRegisterData};
        mDevice.OnCall(lSlots[static_cast<int>(GetParam())], aHook);
    }
    /// The interrupt that a writer waits for after each piece.
    void Confirm() { mDevice.SendEvent(0x9000, Words({0x801})); }

    /// Puts bytes on their way: what Notify() then brings.
    void Offer(const Bytes& aBytes)
    {
        // A UART's bytes come in a word each. 0xA: received, on either UART.
        mEvent = IsUart() ? Words({0xA}) : Together({Words({0x100}), aBytes});
        if (IsUart())
        {
            mEvent = Together({mEvent, Words({aBytes.begin(), aBytes.end()})});
        }
        mDevice.SetContent(cUpstreamBuffer, aBytes);
        mDevice.SetInteger(cUpstreamLength, static_cast<int64_t>(aBytes.size()));
    }

    /// Calls the engine as an adapter does that has an event for it, registered or not.
    void Notify()
    {
        const KyString lName(cUpstreamBuffer);
        mEngine->NotifyEvent(0x9000, 0, 0, 0, mEvent.data(), static_cast<uint32_t>(mEvent.size()));
        mEngine->NotifyFeatureInvalidated(&lName);
    }

    /// The line about bytes that have come, which only one engine writes.
    static Lines ReceivedLine(size_t aLength)
    {
        const std::string lText = "Rx Interrupt of length " + std::to_string(aLength);
        return GetParam() == EngineKind::RegisterBulk
                   ? Lines{{PriorityDebug, GetFunction("NotifyEvent"), lText}}
                   : Lines();
    }

    const KyDeviceSerial mPort = IsUart() ? KyDeviceSerialUart0 : KyDeviceSerialBulk0;
    std::unique_ptr<KySerialLib::DeviceSerialPort> mEngine;
    uint32_t mWritten = 0xDEAD;
    Bytes mEvent;
};

#define KY_ALL_ENGINES(aTest)                                                                                \
    INSTANTIATE_TEST_SUITE_P(                                                                                \
        Engines, aTest,                                                                                      \
        testing::Values(EngineKind::Uart, EngineKind::RegisterBulk, EngineKind::FeatureBulk), &GetKindName)

#define KY_REGISTER_ENGINES(aTest)                                                                           \
    INSTANTIATE_TEST_SUITE_P(Engines, aTest, testing::Values(EngineKind::Uart, EngineKind::RegisterBulk),    \
                             &GetKindName)

} // namespace KyTest
