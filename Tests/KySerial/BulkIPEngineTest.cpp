#include "KySerial/EngineTest.h"

#include "BulkIPEngine.h"
#include "PortMap.h"

#include <vector>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cOpen[] = "KySerialLib::BulkIPEngine::Open";
constexpr char cEnable[] = "KySerialLib::BulkIPEngine::EnableInterrupts";
constexpr char cNull[] = "Device pointer is NULL.";
constexpr char cNotSupported[] = "The specified port is not supported by this device.";

const Calls cClaim = Join({{"IsConnected", "IsConnected", "IsKorvoVideoInterface"},
                           cIdentify,
                           {"IsGigEVision", "ReadRegister(0xb8fc)"},
                           cIdentify,
                           {"RegisterEventSink"}});
const Calls cReadConfig = {"ReadRegister(0xb898)", "ReadRegister(0xb954)"};
const Calls cEnableAll = {"ReadRegister(0xb838)", "WriteRegister(0xb838, 0x1f00)"};
const Calls cReset = {"ReadRegister(0xb898)", "WriteRegister(0xb898, 0x18c0)",
                      "WriteRegister(0xb898, 0x10c0)"};

class BulkIPEngineTest : public EngineTest
{
protected:
    KyResult Open() { return mEngine.Open(&mDevice, KyDeviceSerialBulk0); }

    bool IsFree()
    {
        const bool lFree = PortMap::GetInstance().Lock(&mDevice, KyDeviceSerialBulk0);
        if (lFree)
        {
            EXPECT_TRUE(PortMap::GetInstance().Unlock(&mDevice, KyDeviceSerialBulk0));
        }
        return lFree;
    }

    // Every step that fails after the claim leaves an open engine, which Close() closes.
    void ExpectLeftOpen()
    {
        EXPECT_TRUE(mEngine.IsOpened());
        EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{&mEngine});
        EXPECT_FALSE(IsFree());
        mDevice.StopFailing();
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_FALSE(mEngine.IsOpened());
        EXPECT_TRUE(mDevice.GetSinks().empty());
        EXPECT_TRUE(IsFree());
    }

    BulkIPEngine mEngine;
};

TEST_F(BulkIPEngineTest, OpensInOrder)
{
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_THAT(Open(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, cReadConfig, cEnableAll, cReset}));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_TRUE(mEngine.IsOpened());
    EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{&mEngine});
    EXPECT_FALSE(IsFree());
}

TEST_F(BulkIPEngineTest, ClosesInOrder)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mEngine.PushByte(1, true);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({{"IsConnected", "ReadRegister(0xb838)", "WriteRegister(0xb838, 0x0)"},
                    cIdentify,
                    {"UnregisterEventSink"}}));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_EQ(GetReady(mEngine), 0U);
    EXPECT_TRUE(mDevice.GetSinks().empty());
    EXPECT_TRUE(IsFree());
    EXPECT_THAT(mEngine.Close(), IsResult(KyResult::NO_CONNECTION, cNull));
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

TEST_F(BulkIPEngineTest, DoesNotOpenAPortThatTheDeviceHasNot)
{
    mDevice.SetRegister(0xB8FC, 0x80000000);
    EXPECT_THAT(Open(), IsResult(KyResult::UNSUPPORTED, cNotSupported));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cOpen, cNotSupported}}));
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_TRUE(IsFree());
}

TEST_F(BulkIPEngineTest, DoesNotOpenAnotherPort)
{
    for (const int lPort : {-1, 0, 3, 10})
    {
        EXPECT_THAT(mEngine.Open(&mDevice, static_cast<KyDeviceSerial>(lPort)),
                    IsResult(KyResult::UNSUPPORTED, cNotSupported));
        EXPECT_EQ(TakeLog(), (Lines{{PriorityFatal, "KySerialLib::BulkIPEngine::IsSupported",
                                     "Port " + std::to_string(lPort) + " is invalid"},
                                    {PriorityError, cOpen, cNotSupported}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
        EXPECT_FALSE(mEngine.IsOpened());
    }
}

TEST_F(BulkIPEngineTest, PassesOnAConfigurationThatCannotBeRead)
{
    mDevice.Fail(Slot::ReadRegister, "0xb898", KyResult(0x1234, "no configuration"));
    EXPECT_THAT(Open(), IsResult(0x1234, "no configuration"));
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, {"ReadRegister(0xb898)"}}));
    EXPECT_EQ(TakeLog(), Lines());
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, PassesOnARateThatCannotBeRead)
{
    mDevice.Fail(Slot::ReadRegister, "0xb954", KyResult(0x1234, "no rate"));
    EXPECT_THAT(Open(), IsResult(0x1234, "no rate"));
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, cReadConfig}));
    EXPECT_EQ(TakeLog(), Lines());
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, FailsWhenTheEnableRegisterCannotBeRead)
{
    mDevice.Fail(Slot::ReadRegister, "0xb838");
    const KyResult lResult = Open();
    // "write" although it was a read, and a value that nobody has read: clients know the text like this.
    EXPECT_EQ(lResult.GetCode(), KyResult::FAILURE);
    EXPECT_THAT(lResult.GetDescription().GetAscii(),
                testing::MatchesRegex("Failed to write value \\w+ to Intenable register\\."));
    EXPECT_EQ(mDevice.TakeCalls(), Join({cClaim, cReadConfig, {"ReadRegister(0xb838)"}}));
    EXPECT_EQ(TakeLogOf("BulkIPEngine"),
              (Lines{{PriorityError, cEnable, lResult.GetDescription().GetAscii()}}));
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, FailsWhenTheEnableRegisterCannotBeWritten)
{
    mDevice.SetRegister(0xB838, 0xAB);
    mDevice.Fail(Slot::WriteRegister, "0xb838");
    const char* const lText = "Failed to write value 1fab to Intenable register.";
    EXPECT_THAT(Open(), IsResult(KyResult::FAILURE, lText));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cEnable, lText}}));
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({cClaim, cReadConfig, {"ReadRegister(0xb838)", "WriteRegister(0xb838, 0x1fab)"}}));
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, PassesOnEveryFailureOfTheFifoReset)
{
    const Calls lBefore = Join({cClaim, cReadConfig, cEnableAll});
    mDevice.FailCall(Slot::ReadRegister, 5, KyResult(0x1234, "reset read"));
    EXPECT_THAT(Open(), IsResult(0x1234, "reset read"));
    EXPECT_EQ(mDevice.TakeCalls(), Join({lBefore, {"ReadRegister(0xb898)"}}));
    ExpectLeftOpen();
    Forget();

    mDevice.FailCall(Slot::WriteRegister, 2, KyResult(0x1235, "reset set"));
    EXPECT_THAT(Open(), IsResult(0x1235, "reset set"));
    EXPECT_EQ(mDevice.TakeCalls(), Join({lBefore, {cReset[0], cReset[1]}}));
    ExpectLeftOpen();
    Forget();

    mDevice.FailCall(Slot::WriteRegister, 3, KyResult(0x1236, "reset clear"));
    EXPECT_THAT(Open(), IsResult(0x1236, "reset clear"));
    EXPECT_EQ(mDevice.TakeCalls(), Join({lBefore, cReset}));
    EXPECT_EQ(TakeLog(), Lines());
    ExpectLeftOpen();
}

TEST_F(BulkIPEngineTest, ClosesWhenTheEnableBitsCannotBePutBack)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mDevice.Fail(Slot::WriteRegister);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cEnable, "Failed to write value 0 to Intenable register."}}));
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_TRUE(IsFree());

    mDevice.StopFailing();
    ASSERT_THAT(Open(), IsOK());
    mDevice.Fail(Slot::ReadRegister);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_TRUE(IsFree());
}

} // namespace
