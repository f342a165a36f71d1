#include "KySerial/EngineTest.h"

#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "PortMap.h"

#include <memory>
#include <set>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr uint32_t cRefused = 0x7777;

struct Kind
{
    const char* mName;
    KyDeviceSerial mPort;
    bool mRegisters;   // whether bulk port 0 is driven through registers
    size_t mWriteSize; // bytes; more than one chunk or message

    friend void PrintTo(const Kind& aKind, std::ostream* aStream) { *aStream << aKind.mName; }
};

constexpr Kind cKinds[] = {{"Uart0", KyDeviceSerialUart0, true, 3},
                           {"Uart1", KyDeviceSerialUart1, true, 3},
                           {"Bulk0Registers", KyDeviceSerialBulk0, true, 300},
                           {"Bulk0Features", KyDeviceSerialBulk0, false, 600},
                           {"Bulk7Features", KyDeviceSerialBulk7, false, 600}};

// A device that confirms whatever it gets.
void Prepare(ScriptedAdapter& aDevice, const Kind& aKind)
{
    if (!aKind.mRegisters)
    {
        aDevice.SetRegister(0xB8FC, 0);
        aDevice.SetRegister(0xB95C, 0);
    }
    const auto lConfirm = [&aDevice] { aDevice.SendEvent(0x9000, Words({0x1805})); };
    aDevice.OnCall(Slot::WriteRegister, lConfirm);
    aDevice.OnCall(Slot::WriteMemory, lConfirm);
}

// The refused call was one that tells devices apart: a claim made or released by it is another device's.
bool IsIdentifying(const std::string& aCall)
{
    return aCall == "IsGigEVision" || aCall == "IsAlternateTransport" ||
           aCall.starts_with("GetIntegerValue(Gev");
}

// Frees what a device that could not be identified has left claimed, for the tests to come.
void ReleaseUnidentified(KyDeviceSerial aPort)
{
    ScriptedAdapter lDevice;
    lDevice.Fail(Slot::GetIntegerValue);
    static_cast<void>(PortMap::GetInstance().Unlock(&lDevice, aPort));
    lDevice.SetAnswer(Slot::IsGigEVision, false);
    static_cast<void>(PortMap::GetInstance().Unlock(&lDevice, aPort));
}

bool IsFree(ScriptedAdapter& aDevice, KyDeviceSerial aPort)
{
    return PortMap::GetInstance().Lock(&aDevice, aPort) && PortMap::GetInstance().Unlock(&aDevice, aPort);
}

class PortFaultTest : public testing::TestWithParam<Kind>
{
protected:
    // Opens, writes, receives; nothing may crash and every code must be one of the documented ones.
    void Use(KyDeviceSerialPort& aPort, ScriptedAdapter& aDevice)
    {
        const KyResult lOpened = aPort.Open(&aDevice, GetParam().mPort);
        EXPECT_TRUE(mOpenCodes.contains(lOpened.GetCode())) << testing::PrintToString(lOpened);
        EXPECT_TRUE(!lOpened.IsOK() || aPort.IsOpened());
        mOpened += lOpened.IsOK() ? 1 : 0;
        const Bytes lBytes = Count(GetParam().mWriteSize);
        uint32_t lWritten = 0xDEAD;
        const KyResult lResult = aPort.Write(lBytes.data(), static_cast<uint32_t>(lBytes.size()), lWritten);
        EXPECT_TRUE(mWriteCodes.contains(lResult.GetCode())) << testing::PrintToString(lResult);
        EXPECT_LE(lWritten, lBytes.size());
        EXPECT_EQ(lResult.IsOK() && aPort.IsOpened(), lWritten == lBytes.size() && lResult.IsOK());
        mWritten += lResult.IsOK() ? 1 : 0;
        aDevice.SetInteger("EventBulk0UpstreamDataLength", 2);
        aDevice.SetInteger("EventBulk7UpstreamDataLength", 2);
        aDevice.SendEvent(0x9000, Words({0x10A, 1}));
        aDevice.Invalidate("EventBulk0UpstreamDataBuffer");
        static_cast<void>(ReadAll(aPort)); // whatever came
    }

    const std::set<uint32_t> mOpenCodes{KyResult::OK, KyResult::NO_CONNECTION, KyResult::UNSUPPORTED,
                                        KyResult::FAILURE, cRefused};
    const std::set<uint32_t> mWriteCodes{KyResult::OK, KyResult::NO_CONNECTION, KyResult::TIMED_OUT,
                                         KyResult::FAILURE, cRefused};
    RecordingLogSink mLog;
    AssertRecorder mAsserts; // a device that changes its mind breaks some
    int mOpened = 0;
    int mWritten = 0;
};

TEST_P(PortFaultTest, SurvivesEachRefusedCall)
{
    int lNumber = 0;
    for (bool lRefused = true; lRefused;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice, GetParam());
        lDevice.FailCall(lNumber);
        KyDeviceSerialPort lPort;
        Use(lPort, lDevice);
        if (lPort.IsOpened() && !lPort.Close().IsOK())
        {
            EXPECT_TRUE(lPort.IsOpened()); // only because it seemed disconnected: nothing was released
            EXPECT_THAT(lPort.Close(), IsOK());
        }
        EXPECT_FALSE(lPort.IsOpened());
        EXPECT_EQ(GetReady(lPort), 0U);
        const Calls lCalls = lDevice.TakeCalls();
        lRefused = lCalls.size() >= static_cast<size_t>(lNumber);
        const std::string lCall = lRefused ? lCalls[static_cast<size_t>(lNumber) - 1] : "none";
        lDevice.StopFailing();
        EXPECT_TRUE(lDevice.GetSinks().empty() || lCall == "UnregisterEventSink") << lCall;
        EXPECT_TRUE(IsFree(lDevice, GetParam().mPort) || IsIdentifying(lCall)) << lCall;
        ReleaseUnidentified(GetParam().mPort);
    }
    EXPECT_GT(lNumber, 15);
    EXPECT_GT(mOpened, 2); // the refusals of Write() and Close(), at the least
    EXPECT_GT(mWritten, 2);
}

TEST_P(PortFaultTest, SurvivesADeviceThatGoesAtEachCall)
{
    int lNumber = 0;
    for (bool lGone = true; lGone;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice, GetParam());
        lDevice.DisconnectAtCall(lNumber);
        KyDeviceSerialPort lPort;
        Use(lPort, lDevice);
        const bool lOpened = lPort.IsOpened();
        const KyResult lClosed = lPort.Close();
        EXPECT_TRUE(lClosed.IsOK() || lClosed.GetCode() == KyResult::NO_CONNECTION);
        EXPECT_EQ(lPort.IsOpened(), lOpened && !lClosed.IsOK());
        const Calls lCalls = lDevice.TakeCalls();
        lGone = lCalls.size() >= static_cast<size_t>(lNumber);

        // The device comes back: everything can be released that was claimed while it was there.
        lDevice.StopFailing();
        lDevice.SetAnswer(Slot::IsConnected, true);
        const auto lClaimed = std::find(lCalls.begin(), lCalls.end(), "RegisterEventSink");
        const bool lMine = lClaimed - lCalls.begin() < lNumber - 1;
        if (lPort.IsOpened())
        {
            EXPECT_THAT(lPort.Close(), IsOK());
            EXPECT_TRUE(IsFree(lDevice, GetParam().mPort) || !lMine);
            EXPECT_TRUE(lDevice.GetSinks().empty());
        }
        EXPECT_FALSE(lPort.IsOpened());
        ReleaseUnidentified(GetParam().mPort);
    }
    EXPECT_GT(lNumber, 15);
}

TEST_P(PortFaultTest, CanBeDestroyedAfterEachRefusedCall)
{
    int lNumber = 0;
    for (bool lRefused = true; lRefused;)
    {
        ScriptedAdapter lDevice;
        Prepare(lDevice, GetParam());
        lDevice.FailCall(++lNumber);
        auto lPort = std::make_unique<KyDeviceSerialPort>();
        static_cast<void>(lPort->Open(&lDevice, GetParam().mPort)); // any result: see above
        lPort.reset();
        const Calls lCalls = lDevice.TakeCalls();
        lRefused = lCalls.size() >= static_cast<size_t>(lNumber);
        // What is still registered is still called. (After a refused UnregisterEventSink() that would be the
        // adapter's own fault: the library ignores that result.)
        if (!lRefused || lCalls[static_cast<size_t>(lNumber) - 1] != "UnregisterEventSink")
        {
            lDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1, 2, 3}));
            lDevice.Invalidate("EventBulk0UpstreamDataBuffer");
        }
        ReleaseUnidentified(GetParam().mPort);
    }
    EXPECT_GT(lNumber, 10);
}

INSTANTIATE_TEST_SUITE_P(EachPort, PortFaultTest, testing::ValuesIn(cKinds),
                         [](const testing::TestParamInfo<Kind>& aInfo) { return aInfo.param.mName; });

// Buses: the same with their own operations.

class BusFaultTest : public testing::TestWithParam<bool>
{
protected:
    RecordingLogSink mLog;
    AssertRecorder mAsserts;
};

TEST_P(BusFaultTest, I2CSurvivesEachRefusedCall)
{
    const Kind lKind{"", KyDeviceSerialBulk0, GetParam(), 0};
    int lNumber = 0;
    for (bool lRefused = true; lRefused;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice, lKind);
        lDevice.FailCall(lNumber);
        auto lBus = std::make_unique<KyDeviceI2CBus>();
        static_cast<void>(lBus->Open(&lDevice, lKind.mPort)); // any result: its codes are the engine's
        uint8_t lByte = 0;
        uint32_t lGot = 0;
        static_cast<void>(lBus->BurstWrite(0x50, &lByte, 1, false));
        EXPECT_FALSE(lBus->BurstRead(0x50, &lByte, 1, lGot, true).IsOK()); // nobody answers
        EXPECT_EQ(lGot, 0U);
        lBus.reset();
        lRefused = lDevice.GetCallCount() >= lNumber;
        ReleaseUnidentified(lKind.mPort);
    }
    EXPECT_GT(lNumber, 20);
}

TEST_P(BusFaultTest, SPISurvivesEachRefusedCall)
{
    const Kind lKind{"", KyDeviceSerialBulk1, GetParam(), 0};
    int lNumber = 0;
    for (bool lRefused = true; lRefused;)
    {
        SCOPED_TRACE(++lNumber);
        ScriptedAdapter lDevice;
        Prepare(lDevice, lKind);
        lDevice.FailCall(lNumber);
        auto lBus = std::make_unique<KyDeviceSPIBus>();
        static_cast<void>(lBus->Open(&lDevice, lKind.mPort)); // any result: its codes are the engine's
        uint8_t lByte = 0;
        uint32_t lGot = 0;
        static_cast<void>(lBus->BurstWriteAndRead(&lByte, 1, 1, true, true));
        EXPECT_FALSE(lBus->BurstRead(&lByte, 1, lGot, 0).IsOK());
        lBus.reset();
        lRefused = lDevice.GetCallCount() >= lNumber;
        ReleaseUnidentified(lKind.mPort);
    }
    EXPECT_GT(lNumber, 20);
}

INSTANTIATE_TEST_SUITE_P(EachWay, BusFaultTest, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& aInfo)
                         { return aInfo.param ? "Registers" : "Features"; });

} // namespace
