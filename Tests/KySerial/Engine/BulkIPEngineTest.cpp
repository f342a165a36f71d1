// What is the register bulk engine's own when it is asked for its port, opened and closed, and when bytes come;
// EngineContractTest and EngineTransferTest have what all engines owe.

#include "KySerial/EngineTest.h"

#include "BulkIPEngine.h"

#include <functional>
#include <vector>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cIsI2C[] = "KySerialLib::BulkIPEngine::IsI2CSupported";
constexpr char cBulkEnable[] = "KySerialLib::BulkIPEngine::EnableInterrupts";
constexpr char cBulkNotify[] = "KySerialLib::BulkIPEngine::NotifyEvent";

const Calls cAskI2C = {"IsConnected", "IsKorvoVideoInterface", "IsGigEVision", "ReadRegister(0xb8fc)"};
const Calls cAskI2CToTheEnd = Join({cAskI2C, {"ReadRegister(0xb95c)"}});
const Calls cClaim = Join({{"IsConnected"}, cAskRegisters, cIdentify, {"RegisterEventSink"}});
const Calls cReadConfig = {"ReadRegister(0xb898)", "ReadRegister(0xb954)"};
const Calls cEnableAll = {"ReadRegister(0xb838)", "WriteRegister(0xb838, 0x1f00)"};
const Calls cReset = {"ReadRegister(0xb898)", "WriteRegister(0xb898, 0x18c0)",
                      "WriteRegister(0xb898, 0x10c0)"};

LogLine RxLine(size_t aLength)
{
    return {PriorityDebug, cBulkNotify, "Rx Interrupt of length " + std::to_string(aLength)};
}
const LogLine cEmptyLine{PriorityDebug, cBulkNotify, "Tx fifo empty interrupt"};
const LogLine cPartialLine{PriorityDebug, cBulkNotify, "Tx fifo partial empty interrupt"};

class BulkIPEngineTest : public EngineTest
{
protected:
    static bool IsI2CSupported(ScriptedAdapter& aDevice, int aPort = KyDeviceSerialBulk0)
    {
        return BulkIPEngine::IsI2CSupported(&aDevice, static_cast<KyDeviceSerial>(aPort));
    }

    KyResult Open() { return mEngine.Open(&mDevice, KyDeviceSerialBulk0); }

    // Every step that fails after the claim leaves an open engine, which Close() closes.
    void ExpectLeftOpen()
    {
        EXPECT_TRUE(mEngine.IsOpened());
        EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{&mEngine});
        EXPECT_FALSE(IsFree(KyDeviceSerialBulk0));
        mDevice.StopFailing();
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_FALSE(mEngine.IsOpened());
        EXPECT_TRUE(mDevice.GetSinks().empty());
        EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
        Forget();
    }

    // What one event leaves in the receive buffer.
    Bytes Receive(uint16_t aEventID, uint32_t aStatus, const Bytes& aData)
    {
        mDevice.SendEvent(aEventID, Together({Words({aStatus}), aData}));
        return ReadAll(mEngine);
    }

    BulkIPEngine mEngine;
};

TEST_F(BulkIPEngineTest, SupportsBulk0WhenTheCapabilitiesCountAnything)
{
    for (uint32_t lCount = 0; lCount < 8; ++lCount)
    {
        for (const uint32_t lOthers : {0x80000000U, 0x7FFFFFF8U, 0xFFFFFFF8U}) // the second: not implemented
        {
            SCOPED_TRACE(ToHex(lOthers | lCount));
            mDevice.SetRegister(0xB8FC, lOthers | lCount);
            EXPECT_EQ(BulkIPEngine::IsSupported(&mDevice, KyDeviceSerialBulk0),
                      lCount != 0 && lOthers != 0x7FFFFFF8);
            EXPECT_EQ(mDevice.TakeCalls(), cAskRegisters);
        }
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineTest, RunsI2CWithBothBitsOfTheInterfaceRegisterOfAPresentPort)
{
    for (const uint32_t lCapabilities : {0x80000001U, 0x80000000U})
    {
        for (const uint32_t lBits : {0U, 1U, 2U, 3U, 0xFFFFFFFCU, 0xFFFFFFFEU, 0xFFFFFFFFU})
        {
            SCOPED_TRACE(ToHex(lBits));
            mDevice.SetRegister(0xB8FC, lCapabilities);
            mDevice.SetRegister(0xB95C, lBits);
            EXPECT_EQ(IsI2CSupported(mDevice), (lBits & 3) == 3 && lCapabilities == 0x80000001);
            EXPECT_EQ(mDevice.TakeCalls(), cAskI2CToTheEnd);
        }
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineTest, LogsWhyADeviceCannotRunI2C)
{
    using Device = ScriptedAdapter;
    struct Case
    {
        std::function<void(Device&)> mSpoil;
        Calls mCalls;
        JxUtilsLib::PriorityLevel mPriority;
        const char* mText;
    };
    const Case lCases[] = {
        {[](Device& aDevice) { aDevice.SetAnswer(Slot::IsGigEVision, false); },
         {"IsConnected", "IsKorvoVideoInterface", "IsGigEVision"},
         PriorityInfo,
         "The device is not a GigE Vision device."},
        {[](Device& aDevice) { aDevice.SetAnswer(Slot::IsKorvoVideoInterface, false); },
         {"IsConnected", "IsKorvoVideoInterface"},
         PriorityError,
         "The device is not an a Korvo video interface."},
        {[](Device& aDevice) { aDevice.SetAnswer(Slot::IsConnected, false); },
         {"IsConnected"},
         PriorityError,
         cDisconnected},
        {[](Device& aDevice) { aDevice.SetRegister(0xB8FC, 0x7FFFFFFF); }, cAskI2C, PriorityError,
         "Implemented bit was not set."},
        {[](Device& aDevice) { aDevice.Fail(Slot::ReadRegister, "0xb8fc"); }, Join({cAskI2C, cIdentify}),
         PriorityError, "Failed to read function capabilities register."},
        {[](Device& aDevice) { aDevice.Fail(Slot::ReadRegister, "0xb95c"); }, cAskI2CToTheEnd, PriorityError,
         "Failed to read DEV_REG_BULK_0_3_CONFIG register."}};
    for (const Case& lCase : lCases)
    {
        SCOPED_TRACE(lCase.mText);
        Device lDevice;
        lCase.mSpoil(lDevice);
        EXPECT_FALSE(IsI2CSupported(lDevice));
        EXPECT_EQ(lDevice.TakeCalls(), lCase.mCalls);
        EXPECT_EQ(TakeLog(), (Lines{{lCase.mPriority, cIsI2C, lCase.mText}}));
    }
    EXPECT_FALSE(BulkIPEngine::IsI2CSupported(nullptr, KyDeviceSerialBulk0));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, cIsI2C, cNull}}));
}

TEST_F(BulkIPEngineTest, RemembersADeviceThatDidNotAnswerButAsksAboutI2CAgain)
{
    DisableEveryPriority();
    mDevice.Fail(Slot::ReadRegister, "0xb95c");
    EXPECT_FALSE(IsI2CSupported(mDevice));
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mDevice)); // only without its capabilities
    mDevice.Fail(Slot::ReadRegister);
    EXPECT_FALSE(IsI2CSupported(mDevice));
    EXPECT_TRUE(PortMap::IsKnownUnsupported(&mDevice));
    mDevice.StopFailing();
    EXPECT_FALSE(BulkIPEngine::IsSupported(&mDevice, KyDeviceSerialBulk0));
    EXPECT_TRUE(IsI2CSupported(mDevice));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineTest, RunsI2COnNoOtherPort)
{
    for (const int lPort : {-1, 0, 1, 3, 9, 10, -2, 0x7FFFFFFF})
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(IsI2CSupported(mDevice, lPort));
        EXPECT_EQ(mDevice.TakeCalls(), cAskI2C);
        EXPECT_EQ(TakeLog(),
                  (Lines{{PriorityFatal, cIsI2C, "Port " + std::to_string(lPort) + " is invalid"}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    }
}

TEST_F(BulkIPEngineTest, OpensAndClosesInOrder)
{
    EXPECT_THAT(Open(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, cReadConfig, cEnableAll, cReset}));
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({{"IsConnected", "ReadRegister(0xb838)", "WriteRegister(0xb838, 0x0)"},
                    cIdentify,
                    {"UnregisterEventSink"}}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineTest, PutsItsFiveEnableBitsBackAndKeepsTheOthers)
{
    for (uint32_t lSaved = 0; lSaved < 32; ++lSaved)
    {
        SCOPED_TRACE(lSaved);
        mDevice.SetRegister(0xB838, 0xA00000F5 | lSaved << 8);
        ASSERT_THAT(Open(), IsOK());
        EXPECT_EQ(mDevice.GetRegister(0xB838), 0xA0001FF5U);
        mDevice.SetRegister(0xB838, 0xFFFFFFFF ^ lSaved << 8); // others may have changed all of it
        ASSERT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.GetRegister(0xB838), 0xFFFFE0FF | lSaved << 8);
    }
}

TEST_F(BulkIPEngineTest, PulsesTheResetBitAloneEvenWhenItIsSet)
{
    mDevice.SetRegister(0xB898, 0x00001FFF);
    ASSERT_THAT(Open(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim,
                                         cReadConfig,
                                         cEnableAll,
                                         {"ReadRegister(0xb898)", "WriteRegister(0xb898, 0x1fff)",
                                          "WriteRegister(0xb898, 0x17ff)"}}));
    EXPECT_EQ(mDevice.GetRegister(0xB898), 0x17FFU);
}

TEST_F(BulkIPEngineTest, OpensWithAnUnknownInterface)
{
    for (uint32_t lInterface = 3; lInterface < 8; ++lInterface)
    {
        SCOPED_TRACE(lInterface);
        mDevice.SetRegister(0xB898, lInterface << 12);
        EXPECT_THAT(Open(), IsOK());
        EXPECT_EQ(TakeLogOf("BulkIPEngine"),
                  (Lines{{PriorityFatal, "KySerialLib::BulkIPEngine::UpdateTimePerByte",
                          "Unknown interface selected (" + std::to_string(lInterface) + ")."}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
        EXPECT_THAT(mEngine.Close(), IsOK());
    }
}

TEST_F(BulkIPEngineTest, PassesOnEveryFailureOfTheConfigurationAndOfTheFifoReset)
{
    const KyResult lRefusal(0x1234, "refused");
    const Calls lBefore = Join({cClaim, cReadConfig, cEnableAll});
    const std::pair<std::function<void()>, Calls> lCases[] = {
        {[&] { mDevice.FailCall(Slot::ReadRegister, 2, lRefusal); }, Join({cClaim, {cReadConfig[0]}})},
        {[&] { mDevice.FailCall(Slot::ReadRegister, 3, lRefusal); }, Join({cClaim, cReadConfig})},
        {[&] { mDevice.FailCall(Slot::ReadRegister, 5, lRefusal); }, Join({lBefore, {cReset[0]}})},
        {[&] { mDevice.FailCall(Slot::WriteRegister, 2, lRefusal); },
         Join({lBefore, {cReset[0], cReset[1]}})},
        {[&] { mDevice.FailCall(Slot::WriteRegister, 3, lRefusal); }, Join({lBefore, cReset})}};
    for (const auto& [lSpoil, lCalls] : lCases)
    {
        SCOPED_TRACE(lCalls.back());
        lSpoil();
        EXPECT_THAT(Open(), IsResult(0x1234, "refused"));
        EXPECT_EQ(mDevice.TakeCalls(), lCalls);
        EXPECT_EQ(TakeLog(), Lines());
        ExpectLeftOpen();
    }
}

TEST_F(BulkIPEngineTest, FailsWhenTheEnableRegisterCannotBeReadOrWritten)
{
    mDevice.Fail(Slot::ReadRegister, "0xb838");
    const KyResult lResult = Open();
    // "write" although it was a read, and a value that nobody has read: clients know the text like this.
    EXPECT_EQ(lResult.GetCode(), KyResult::FAILURE);
    EXPECT_THAT(lResult.GetDescription().GetAscii(),
                testing::MatchesRegex("Failed to write value \\w+ to Intenable register\\."));
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, cReadConfig, {"ReadRegister(0xb838)"}}));
    EXPECT_EQ(TakeLogOf("BulkIPEngine"),
              (Lines{{PriorityError, cBulkEnable, lResult.GetDescription().GetAscii()}}));
    ExpectLeftOpen();

    mDevice.SetRegister(0xB838, 0xAB);
    mDevice.Fail(Slot::WriteRegister, "0xb838");
    const char* const lText = "Failed to write value 1fab to Intenable register.";
    EXPECT_THAT(Open(), IsResult(KyResult::FAILURE, lText));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cBulkEnable, lText}}));
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({cClaim, cReadConfig, {"ReadRegister(0xb838)", "WriteRegister(0xb838, 0x1fab)"}}));
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, ClosesWhenTheEnableBitsCannotBePutBack)
{
    for (const Slot lSlot : {Slot::WriteRegister, Slot::ReadRegister})
    {
        ASSERT_THAT(Open(), IsOK());
        Forget();
        mDevice.Fail(lSlot);
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(TakeLog(),
                  (Lines{{PriorityError, cBulkEnable, "Failed to write value 0 to Intenable register."}}));
        EXPECT_FALSE(mEngine.IsOpened());
        EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
        mDevice.StopFailing();
    }
}

TEST_F(BulkIPEngineTest, TakesBytesForEachOfTheThreeRxBitsAndNoOther)
{
    ASSERT_THAT(Open(), IsOK());
    for (unsigned lBit = 0; lBit < 32; ++lBit)
    {
        SCOPED_TRACE(lBit);
        const bool lRx = lBit >= 8 && lBit <= 10;
        EXPECT_EQ(Receive(0x9000, 1U << lBit, {7}), lRx ? Bytes{7} : Bytes());
        EXPECT_EQ(TakeLog(), lRx          ? Lines{RxLine(1)}
                             : lBit == 11 ? Lines{cEmptyLine}
                             : lBit == 12 ? Lines{cPartialLine}
                                          : Lines());
    }
}

TEST_F(BulkIPEngineTest, LogsAllThatOneEventSaysInOrder)
{
    ASSERT_THAT(Open(), IsOK());
    EXPECT_EQ(Receive(0x9001, 0xFFFFFFFF, {9, 8}), (Bytes{9, 8}));
    EXPECT_EQ(TakeLogOf("BulkIPEngine"), (Lines{RxLine(2), cEmptyLine, cPartialLine}));
    DisableEveryPriority();
    EXPECT_EQ(Receive(0x9000, 0x1900, {1}), Bytes{1});
    EXPECT_EQ(TakeLog(), Lines());
}

} // namespace
