#include "KySerial/EngineTest.h"

#include "BulkIPEngine.h"
#include "PortMap.h"

#include <vector>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cIsSupported[] = "KySerialLib::BulkIPEngine::IsSupported";
constexpr char cIsI2C[] = "KySerialLib::BulkIPEngine::IsI2CSupported";
constexpr char cNull[] = "Device pointer is NULL.";
constexpr char cDisconnected[] = "The device is not currently connected.";
constexpr char cNotKorvo[] = "The device is not an a Korvo video interface.";
constexpr char cNotGigE[] = "The device is not a GigE Vision device.";

const Calls cAsk =
    Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify, {"IsGigEVision"}, {"ReadRegister(0xb8fc)"}});
const Calls cAskI2C = {"IsConnected", "IsKorvoVideoInterface", "IsGigEVision", "ReadRegister(0xb8fc)"};
const std::vector<int> cOtherPorts = {-1, 0, 1, 3, 9, 10, -2, 0x7FFFFFFF};

class BulkIPEngineSupportTest : public EngineTest
{
protected:
    bool IsSupported() { return BulkIPEngine::IsSupported(&mDevice, KyDeviceSerialBulk0); }
    bool IsI2CSupported() { return BulkIPEngine::IsI2CSupported(&mDevice, KyDeviceSerialBulk0); }
};

TEST_F(BulkIPEngineSupportTest, SupportsBulk0WhenTheCapabilitiesCountAnything)
{
    for (uint32_t lCount = 0; lCount < 8; ++lCount)
    {
        SCOPED_TRACE(lCount);
        mDevice.SetRegister(0xB8FC, 0x80000000 | lCount);
        EXPECT_EQ(IsSupported(), lCount != 0);
        EXPECT_EQ(mDevice.TakeCalls(), cAsk);
        mDevice.SetRegister(0xB8FC, 0x7FFFFFF8 | lCount); // not implemented
        EXPECT_FALSE(IsSupported());
        mDevice.SetRegister(0xB8FC, 0xFFFFFFF8 | lCount);
        EXPECT_EQ(IsSupported(), lCount != 0);
        mDevice.TakeCalls();
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineSupportTest, SupportsNoOtherPort)
{
    for (const int lPort : cOtherPorts)
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(BulkIPEngine::IsSupported(&mDevice, static_cast<KyDeviceSerial>(lPort)));
        EXPECT_EQ(mDevice.TakeCalls(), cAsk);
        EXPECT_EQ(TakeLog(),
                  (Lines{{PriorityFatal, cIsSupported, "Port " + std::to_string(lPort) + " is invalid"}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    }
}

TEST_F(BulkIPEngineSupportTest, AnswersTheSameWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    EXPECT_TRUE(IsSupported());
    EXPECT_FALSE(BulkIPEngine::IsSupported(&mDevice, KyDeviceSerialBulk1));
    EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    EXPECT_FALSE(BulkIPEngine::IsSupported(nullptr, KyDeviceSerialBulk0));
    mDevice.Fail(Slot::ReadRegister, "0xb95c");
    EXPECT_FALSE(IsI2CSupported());
    mDevice.SetRegister(0xB8FC, 0x7FFFFFFF);
    EXPECT_FALSE(IsI2CSupported());
    mDevice.Fail(Slot::ReadRegister);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_TRUE(PortMap::IsKnownUnsupported(&mDevice));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineSupportTest, RunsI2CWithBothBitsOfTheInterfaceRegister)
{
    for (const uint32_t lBits : {0U, 1U, 2U, 3U, 0xFFFFFFFCU, 0xFFFFFFFEU, 0xFFFFFFFFU})
    {
        SCOPED_TRACE(ToHex(lBits));
        mDevice.SetRegister(0xB95C, lBits);
        EXPECT_EQ(IsI2CSupported(), (lBits & 3) == 3);
        EXPECT_EQ(mDevice.TakeCalls(), Join({cAskI2C, {"ReadRegister(0xb95c)"}}));
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineSupportTest, RunsNoI2CWithoutTheBulkPort)
{
    mDevice.SetRegister(0xB8FC, 0x80000000);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cAskI2C, {"ReadRegister(0xb95c)"}}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineSupportTest, RunsNoI2CWithoutADevice)
{
    EXPECT_FALSE(BulkIPEngine::IsI2CSupported(nullptr, KyDeviceSerialBulk0));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, cIsI2C, cNull}}));
}

TEST_F(BulkIPEngineSupportTest, LogsWhyADeviceCannotRunI2C)
{
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "IsKorvoVideoInterface", "IsGigEVision"}));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, cIsI2C, cNotGigE}}));

    mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "IsKorvoVideoInterface"}));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsI2C, cNotKorvo}}));

    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsI2C, cDisconnected}}));
}

TEST_F(BulkIPEngineSupportTest, RunsNoI2CWithoutTheImplementedBit)
{
    mDevice.SetRegister(0xB8FC, 0x7FFFFFFF);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), cAskI2C);
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsI2C, "Implemented bit was not set."}}));
}

TEST_F(BulkIPEngineSupportTest, RemembersADeviceThatDidNotAnswerButAsksAboutI2CAgain)
{
    mDevice.FailCall(Slot::ReadRegister, 1);
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cAskI2C, cIdentify}));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsI2C, "Failed to read function capabilities register."}}));
    EXPECT_TRUE(PortMap::IsKnownUnsupported(&mDevice));
    EXPECT_FALSE(IsSupported());
    EXPECT_TRUE(IsI2CSupported());
}

TEST_F(BulkIPEngineSupportTest, RunsNoI2CWhenTheInterfaceRegisterCannotBeRead)
{
    mDevice.Fail(Slot::ReadRegister, "0xb95c");
    EXPECT_FALSE(IsI2CSupported());
    EXPECT_EQ(mDevice.TakeCalls(), Join({cAskI2C, {"ReadRegister(0xb95c)"}}));
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityError, cIsI2C, "Failed to read DEV_REG_BULK_0_3_CONFIG register."}}));
    EXPECT_FALSE(PortMap::IsKnownUnsupported(&mDevice));
}

TEST_F(BulkIPEngineSupportTest, RunsI2COnNoOtherPort)
{
    for (const int lPort : cOtherPorts)
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(BulkIPEngine::IsI2CSupported(&mDevice, static_cast<KyDeviceSerial>(lPort)));
        EXPECT_EQ(mDevice.TakeCalls(), cAskI2C);
        EXPECT_EQ(TakeLog(),
                  (Lines{{PriorityFatal, cIsI2C, "Port " + std::to_string(lPort) + " is invalid"}}));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
    }
}

} // namespace
