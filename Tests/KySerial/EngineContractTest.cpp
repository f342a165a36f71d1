// What every engine owes when it is opened and closed.

#include "KySerial/EngineKinds.h"
#include "PortMap.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cNull[] = "Device pointer is NULL.";
constexpr char cDisconnected[] = "The device is not currently connected.";
constexpr char cInUse[] = "The specified port is already in use.";

// What both register engines ask the adapter before they look at their port.
const Calls cAskCapabilities =
    Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify, {"IsGigEVision"}, {"ReadRegister(0xb8fc)"}});

class EngineContractTest : public EngineKindTest
{
protected:
    bool IsFree()
    {
        return PortMap::GetInstance().Lock(&mDevice, mPort) && PortMap::GetInstance().Unlock(&mDevice, mPort);
    }

    static bool IsSupported(IKyDeviceAdapter* aDevice, KyDeviceSerial aPort)
    {
        constexpr bool (*cQuestions[])(IKyDeviceAdapter*, KyDeviceSerial) = {
            &SerialPortIPEngine::IsSupported, &BulkIPEngine::IsSupported, &IRegisterSerialPort::IsSupported};
        return cQuestions[static_cast<int>(GetParam())](aDevice, aPort);
    }
};

// What the engines owe that drive registers.
class RegisterContractTest : public EngineContractTest
{
};

TEST_P(EngineContractTest, SupportsNothingWithoutADevice)
{
    EXPECT_FALSE(IsSupported(nullptr, mPort));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("IsSupported"), cNull}}));
}

TEST_P(EngineContractTest, AsksNothingOfADisconnectedDevice)
{
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_FALSE(IsSupported(&mDevice, mPort));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, GetFunction("IsSupported"), cDisconnected}}));
}

TEST_P(EngineContractTest, AsksNothingOfAnotherMakersDevice)
{
    mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
    EXPECT_FALSE(IsSupported(&mDevice, mPort));
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "IsKorvoVideoInterface"}));
    EXPECT_EQ(TakeLog(),
              (Lines{{GetParam() == EngineKind::FeatureBulk ? PriorityError : PriorityInfo,
                      GetFunction("IsSupported"), "The device is not an a Korvo video interface."}}));
}

TEST_P(RegisterContractTest, ReadsNoRegisterOfAnotherTransport)
{
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    EXPECT_FALSE(IsSupported(&mDevice, mPort));
    EXPECT_EQ(mDevice.TakeCalls(), (Calls{"IsConnected", "IsKorvoVideoInterface", "IsGigEVision",
                                          "IsAlternateTransport", "IsGigEVision"}));
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityInfo, GetFunction("IsSupported"), "The device is not a GigE Vision device."}}));
}

TEST_P(RegisterContractTest, NeverAsksAgainAfterTheCapabilitiesCouldNotBeRead)
{
    const std::string lIsSupported = GetFunction("IsSupported");
    mDevice.FailCall(Slot::ReadRegister, 1);
    EXPECT_FALSE(IsSupported(&mDevice, mPort));
    EXPECT_EQ(mDevice.TakeCalls(), Join({cAskCapabilities, cIdentify}));
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityInfo, lIsSupported, "Could not read device function capabilities register."}}));
    for (const KyDeviceSerial lPort : {mPort, GetParam() == EngineKind::Uart ? KyDeviceSerialUart1 : mPort})
    {
        EXPECT_FALSE(IsSupported(&mDevice, lPort));
        EXPECT_EQ(mDevice.TakeCalls(), Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify}));
        EXPECT_EQ(TakeLog(),
                  (Lines{{PriorityInfo, lIsSupported,
                          "Not reading DEV_REG_FUNCTION_CAPS, already know it is now supported."}}));
    }
}

TEST_P(RegisterContractTest, IgnoresWhatTheRegistrationOfTheSinkSays)
{
    mDevice.Fail(Slot::RegisterEventSink);
    mDevice.Fail(Slot::UnregisterEventSink);
    EXPECT_THAT(Open(), IsOK());
    EXPECT_THAT(mEngine->Close(), IsOK());
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenWithoutADevice)
{
    EXPECT_THAT(mEngine->Open(nullptr, mPort), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("Open"), cNull}}));
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenADisconnectedDevice)
{
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(Open(), IsResult(KyResult::NO_CONNECTION, cDisconnected));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, GetFunction("Open"), cDisconnected}}));
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenAPortInUseAndLeavesItsOwnerAlone)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    const auto lSecond = Make();
    EXPECT_THAT(lSecond->Open(&mDevice, mPort), IsResult(KyResult::FAILURE, cInUse));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityInfo, "KySerialLib::PortMap::Lock",
                                 "Could not read MAC address from device node map."},
                                {PriorityError, GetFunction("Open"), cInUse}}));
    // The claim is the last that is asked for: nothing of the device is touched.
    const Calls lCalls = mDevice.TakeCalls();
    ASSERT_GE(lCalls.size(), cIdentify.size());
    EXPECT_TRUE(std::equal(cIdentify.rbegin(), cIdentify.rend(), lCalls.rbegin()));
    EXPECT_FALSE(lSecond->IsOpened());
    EXPECT_THAT(lSecond->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_TRUE(mEngine->IsOpened());
    EXPECT_FALSE(IsFree());
    EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{mEngine.get()});
}

TEST_P(EngineContractTest, DoesNotCloseWithoutADevice)
{
    mEngine->PushByte(1, true);
    EXPECT_THAT(mEngine->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("Close"), cNull}}));
    EXPECT_EQ(GetReady(*mEngine), 1U); // nothing was released
}

TEST_P(EngineContractTest, StaysOpenWhenTheDeviceIsGoneAtClose)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mEngine->PushByte(1, true);
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(mEngine->Close(), IsResult(KyResult::NO_CONNECTION, cDisconnected));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, GetFunction("Close"), cDisconnected}}));
    EXPECT_TRUE(mEngine->IsOpened());
    EXPECT_EQ(GetReady(*mEngine), 1U);
    EXPECT_FALSE(IsFree());
    EXPECT_EQ(mDevice.GetSinks().size(), 1U);

    mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_THAT(mEngine->Close(), IsOK());
    EXPECT_FALSE(mEngine->IsOpened());
    EXPECT_EQ(GetReady(*mEngine), 0U);
    EXPECT_TRUE(IsFree());
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

KY_ALL_ENGINES(EngineContractTest);
INSTANTIATE_TEST_SUITE_P(Engines, RegisterContractTest,
                         testing::Values(EngineKind::Uart, EngineKind::RegisterBulk), &GetKindName);

} // namespace
