// Every call of the adapter spoilt in every way, in every operation of the public classes.

#include "JxUtilsLib/Thread.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "KySerial/KySerialBridge.h"
#include "KySerial/Robustness/TortureFixture.h"
#include "Support/PrivateSession.h"
#include "Support/Repeater.h"
#include "Support/WaitFor.h"
#include "clserzmo/sharedfifo.h"

#include <optional>
#include <tuple>

using namespace KyTest;

namespace
{

// What operations may answer beside OK when the device spoils something.
const Codes cWriteCodes{KyResult::NO_CONNECTION, KyResult::TIMED_OUT, KyResult::FAILURE,
                        KyResult::BUFFER_TOO_SMALL, FaultAdapter::cFailed};
const Codes cReadCodes{KyResult::TIMED_OUT};
const Codes cBusReadCodes{KyResult::NOT_OPEN, KyResult::NO_CONNECTION,    KyResult::TIMED_OUT,
                          KyResult::FAILURE,  KyResult::BUFFER_TOO_SMALL, FaultAdapter::cFailed};
const Codes cCloseCodes{KyResult::NOT_OPEN, KyResult::NO_CONNECTION};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order in which a row is read
struct Scenario
{
    const char* mName;
    KyDeviceSerial mPort;
    bool mRegisters; // whether bulk port 0 is driven through registers
    void (*mDo)(OneRun& aRun, const Scenario& aScenario);
    // Whether nobody can close what is open when the device seems to be gone, so that the claim stays.
    bool mMayKeepItsClaim = false;
};

void UsePort(OneRun& aRun, const Scenario& aScenario)
{
    KyDeviceSerialPort lPort;
    aRun.Note("Open", lPort.Open(&aRun.mAdapter, aScenario.mPort), cOpenCodes);
    const Bytes lBytes = Count(aScenario.mPort < KyDeviceSerialBulk0 ? 1 : 600);
    uint32_t lCount = 0xDEAD;
    const KyResult lWritten = lPort.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lCount);
    aRun.Note("Write", lWritten, cWriteCodes);
    EXPECT_LE(lCount, lBytes.size());
    EXPECT_TRUE(!lWritten.IsOK() || lCount == lBytes.size());
    aRun.mDevice.SendEvent(0x9000, Words({0x10A, 1}));
    aRun.mDevice.Invalidate("EventBulk0UpstreamDataBuffer");
    aRun.mDevice.Invalidate("EventBulk7UpstreamDataBuffer");
    uint8_t lByte = 0;
    aRun.Note("Read", lPort.Read(&lByte, 1, lCount, 0), cReadCodes);
    EXPECT_LE(lCount, 1U);
    aRun.Note("Close", lPort.Close(), cCloseCodes);
    aRun.Release(lPort);
}

// What is still registered is still called after the port is destroyed.
void DestroyOpenPort(OneRun& aRun, const Scenario& aScenario)
{
    std::optional<KyDeviceSerialPort> lPort(std::in_place);
    aRun.Note("Open", lPort->Open(&aRun.mAdapter, aScenario.mPort), cOpenCodes);
    lPort.reset();
    aRun.mDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1, 2, 3}));
    aRun.mDevice.Invalidate("EventBulk0UpstreamDataBuffer");
    aRun.mDevice.Invalidate("EventBulk7UpstreamDataBuffer");
}

void UseI2C(OneRun& aRun, const Scenario& aScenario)
{
    KyDeviceI2CBus lBus;
    uint8_t lByte = 1;
    uint32_t lCount = 0;
    aRun.Note("Open", lBus.Open(&aRun.mAdapter, aScenario.mPort), cOpenCodes);
    aRun.Note("MasterTransmitter", lBus.MasterTransmitter(0x50, &lByte, 1, false, false), cBusReadCodes);
    aRun.Note("MasterReceiverAfterFirstByte",
              lBus.MasterReceiverAfterFirstByte(0x50, &lByte, 1, lCount, true, true), cBusReadCodes);
    EXPECT_LE(lCount, 1U);
    aRun.Note("BurstWrite", lBus.BurstWrite(0x50, &lByte, 1, true), cBusReadCodes);
    aRun.Note("BurstRead", lBus.BurstRead(0x50, &lByte, 1, lCount, true), cBusReadCodes);
    aRun.Note("IndirectBurstWrite", lBus.IndirectBurstWrite(0x50, 0, &lByte, 1, true), cBusReadCodes);
    aRun.Note("IndirectBurstRead", lBus.IndirectBurstRead(0x50, 0, &lByte, 1, lCount, true, true),
              cBusReadCodes);
    aRun.Note("Close", lBus.Close(), cCloseCodes);
    aRun.Release(lBus);
}

void UseSPI(OneRun& aRun, const Scenario& aScenario)
{
    KyDeviceSPIBus lBus;
    uint8_t lByte = 1;
    uint32_t lCount = 0;
    aRun.Note("Open", lBus.Open(&aRun.mAdapter, aScenario.mPort), cOpenCodes);
    aRun.Note("BurstWriteAndRead", lBus.BurstWriteAndRead(&lByte, 1, 1, true, true), cBusReadCodes);
    aRun.Note("BurstRead", lBus.BurstRead(&lByte, 1, lCount, 0), cBusReadCodes);
    EXPECT_LE(lCount, 1U);
    aRun.Note("BurstWriteAndRead", lBus.BurstWriteAndRead(nullptr, 0, 4, false, false), cBusReadCodes);
    aRun.Note("Close", lBus.Close(), cCloseCodes);
    aRun.Release(lBus);
}

void UseBridge(OneRun& aRun, const Scenario& aScenario)
{
    KySerialBridge lBridge;
    const KyResult lStarted = lBridge.Start("Torture", &aRun.mAdapter, aScenario.mPort);
    aRun.Note("Start", lStarted, cOpenCodes);
    EXPECT_EQ(lBridge.GetDevicePort(), lStarted.IsOK() ? aScenario.mPort : KyDeviceSerialInvalid);
    if (!lStarted.IsOK())
    {
        aRun.mAdapter.Heal();
        EXPECT_THAT(lBridge.Stop(), IsResult(KyResult::NO_CONNECTION, "Bridge not started."));
        return;
    }
    KySerialLib::SharedFifo lDown("KySerialBridgeDownFifo1", "Local\\", 1024, false);
    ASSERT_TRUE(lDown.IsValid());
    // A device that never stops sending, so that the bridge's threads never wait long for bytes.
    const Repeater lSender(
        [&aRun]
        {
            const FaultAdapter::Immunity lImmunity;
            aRun.mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
            JxUtilsLib::Thread::Sleep(1);
        });
    uint32_t lCount = 0;
    EXPECT_TRUE(lDown.Write("abc", 3, lCount, 60000));
    EXPECT_TRUE(lDown.WaitUntilEmpty(60000)); // whatever the device does, the thread takes the bytes
    aRun.Note("SetHardCodedBaudRate", lBridge.SetHardCodedBaudRate(19200), {});
    aRun.Note("Recover", lBridge.Recover(), {});
    aRun.mAdapter.Heal();
    aRun.Note("Recover", lBridge.Recover(), {}); // after this the bridge works, whatever was before
    const uint64_t lBefore = lBridge.GetBytesSentToDevice();
    EXPECT_TRUE(lDown.Write("defg", 4, lCount, 60000));
    EXPECT_TRUE(
        WaitFor([&] { return lBridge.GetBytesSentToDevice() >= lBefore + 4; })); // the first ones may be late
    aRun.Note("Stop", lBridge.Stop(), {});
}

constexpr Scenario cScenarios[] = {
    {"Uart0Port", KyDeviceSerialUart0, true, &UsePort},
    {"Uart1Port", KyDeviceSerialUart1, true, &UsePort},
    {"Uart1Destroyed", KyDeviceSerialUart1, true, &DestroyOpenPort, true},
    {"Bulk0RegistersDestroyed", KyDeviceSerialBulk0, true, &DestroyOpenPort, true},
    {"Bulk7Destroyed", KyDeviceSerialBulk7, true, &DestroyOpenPort, true},
    {"Bulk0RegistersPort", KyDeviceSerialBulk0, true, &UsePort},
    {"Bulk0FeaturesPort", KyDeviceSerialBulk0, false, &UsePort},
    {"Bulk7Port", KyDeviceSerialBulk7, true, &UsePort},
    {"Bulk0I2C", KyDeviceSerialBulk0, true, &UseI2C},
    {"Bulk1I2C", KyDeviceSerialBulk1, false, &UseI2C},
    {"Bulk2SPI", KyDeviceSerialBulk2, true, &UseSPI},
    {"Bulk1Bridge", KyDeviceSerialBulk1, true, &UseBridge, true}};

// A device that confirms whatever it gets, and whose slaves answer every read with one byte.
void PrepareFor(const Scenario& aScenario, ScriptedAdapter& aDevice)
{
    aDevice.SetRecording(false);
    if (!aScenario.mRegisters)
    {
        aDevice.SetRegister(0xB8FC, 0);
        aDevice.SetRegister(0xB95C, 0);
    }
    AddSettings(aDevice, "Bulk1");
    const std::string lBuffer =
        "EventBulk" + std::to_string(std::max(0, aScenario.mPort - KyDeviceSerialBulk0)) + "UpstreamData";
    for (const char* lIndex : {"0", "1", "2", "7"})
    {
        aDevice.SetInteger("EventBulk" + std::string(lIndex) + "UpstreamDataLength", 1);
    }
    aDevice.OnCall(Slot::WriteRegister, [&aDevice] { aDevice.SendEvent(0x9000, Words({0x5})); });
    aDevice.OnCall(Slot::WriteMemory, [&aDevice] { aDevice.SendEvent(0x9000, Words({0x1900, 1})); });
    aDevice.OnCall(Slot::SetRegisterData, [&aDevice, lBuffer] { aDevice.Invalidate(lBuffer + "Buffer"); });
}

class TortureTest : public TortureFixture<testing::TestWithParam<std::tuple<Scenario, Fault>>>
{
protected:
    const Scenario& GetScenario() const { return std::get<0>(GetParam()); }
    KyDeviceSerial GetPort() const override { return GetScenario().mPort; }
    void Prepare(ScriptedAdapter& aDevice) override { PrepareFor(GetScenario(), aDevice); }
    void Live(OneRun& aRun) override
    {
        aRun.mMayKeepItsClaim = GetScenario().mMayKeepItsClaim;
        GetScenario().mDo(aRun, GetScenario());
    }

    PrivateSession mSession;
};

TEST_P(TortureTest, LeavesNothingOpenWhicheverCallFails)
{
    const Fault lFault = std::get<1>(GetParam());
    // A bridge's life takes longer than all the others together.
    const int lSpoilt = SpoilEachCall(lFault, GetScenario().mDo == &UseBridge ? 10 : 1);
    EXPECT_GT(lSpoilt, 9);
    EXPECT_LT(lSpoilt, 999);
    // Neither a bridge nor the opening of a port that is driven through features reads back what it wrote.
    const bool lReadsBack = !GetScenario().mMayKeepItsClaim || GetScenario().mPort <= KyDeviceSerialBulk0;
    const bool lHarmless = lFault == Fault::Delay || (lFault == Fault::Drop && !lReadsBack);
    EXPECT_EQ(mFailures > 0, !lHarmless) << "some operation has to fail";
}

std::string GetName(const testing::TestParamInfo<std::tuple<Scenario, Fault>>& aInfo)
{
    return std::string(std::get<0>(aInfo.param).mName) + "_" + GetFaultName(std::get<1>(aInfo.param));
}

INSTANTIATE_TEST_SUITE_P(EachWay, TortureTest,
                         testing::Combine(testing::ValuesIn(cScenarios), testing::ValuesIn(cEachFault)),
                         &GetName);

} // namespace
