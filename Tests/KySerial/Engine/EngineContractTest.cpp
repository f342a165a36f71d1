// What every engine owes when it is asked for a port, opened and closed.

#include "KySerial/Engine/EngineKinds.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

class EngineContractTest : public EngineKindTest
{
protected:
    static bool IsSupported(IKyDeviceAdapter* aDevice, int aPort)
    {
        constexpr bool (*cQuestions[])(IKyDeviceAdapter*, KyDeviceSerial) = {
            &SerialPortIPEngine::IsSupported, &BulkIPEngine::IsSupported, &IRegisterSerialPort::IsSupported};
        return cQuestions[static_cast<int>(GetParam())](aDevice, static_cast<KyDeviceSerial>(aPort));
    }

    // The device has no such port, asked with these calls, and one line says why.
    void ExpectUnsupported(int aPort, const Calls& aCalls, JxUtilsLib::PriorityLevel aPriority,
                           const std::string& aText)
    {
        EXPECT_FALSE(IsSupported(&mDevice, aPort));
        EXPECT_EQ(mDevice.TakeCalls(), aCalls);
        EXPECT_EQ(TakeLog(), (Lines{{aPriority, GetFunction("IsSupported"), aText}}));
    }

    void ExpectOpen()
    {
        EXPECT_TRUE(mEngine->IsOpened());
        EXPECT_FALSE(IsFree(mPort));
        EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{mEngine.get()});
    }
    void ExpectClosed()
    {
        EXPECT_FALSE(mEngine->IsOpened());
        EXPECT_TRUE(IsFree(mPort));
        EXPECT_TRUE(mDevice.GetSinks().empty());
    }
};

// What the engines owe that drive registers.
using RegisterContractTest = EngineContractTest;

TEST_P(EngineContractTest, SupportsNothingWithoutADevice)
{
    EXPECT_FALSE(IsSupported(nullptr, mPort));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, GetFunction("IsSupported"), cNull}}));
}

TEST_P(EngineContractTest, AsksNothingOfADisconnectedOrAnotherMakersDevice)
{
    mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
    ExpectUnsupported(mPort, {"IsConnected", "IsKorvoVideoInterface"},
                      HasRegisters() ? PriorityInfo : PriorityError,
                      "The device is not an a Korvo video interface.");
    mDevice.SetAnswer(Slot::IsConnected, false);
    ExpectUnsupported(mPort, {"IsConnected"}, PriorityError, cDisconnected);
}

TEST_P(RegisterContractTest, ReadsNoRegisterOfAnotherTransport)
{
    mDevice.SetAnswer(Slot::IsGigEVision, false);
    ExpectUnsupported(
        mPort,
        {"IsConnected", "IsKorvoVideoInterface", "IsGigEVision", "IsAlternateTransport", "IsGigEVision"},
        PriorityInfo, "The device is not a GigE Vision device.");
}

TEST_P(RegisterContractTest, NeverAsksAgainAfterTheCapabilitiesCouldNotBeRead)
{
    mDevice.FailCall(Slot::ReadRegister, 1);
    ExpectUnsupported(mPort, Join({cAskRegisters, cIdentify}), PriorityInfo,
                      "Could not read device function capabilities register.");
    for (const KyDeviceSerial lPort : {mPort, IsUart() ? KyDeviceSerialUart1 : mPort})
    {
        ExpectUnsupported(lPort, Join({{"IsConnected", "IsKorvoVideoInterface"}, cIdentify}), PriorityInfo,
                          "Not reading DEV_REG_FUNCTION_CAPS, already know it is now supported.");
    }
}

TEST_P(RegisterContractTest, SupportsNoOtherPort)
{
    for (const int lPort : {-1, IsUart() ? 2 : 0, IsUart() ? 2 : 1, 3, 9, 10, -2, 0x7FFFFFFF})
    {
        SCOPED_TRACE(lPort);
        ExpectUnsupported(lPort, cAskRegisters, PriorityFatal,
                          IsUart() ? "The specified port is not supported"
                                   : "Port " + std::to_string(lPort) + " is invalid");
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
        EXPECT_THAT(mEngine->Open(&mDevice, static_cast<KyDeviceSerial>(lPort)),
                    IsResult(KyResult::UNSUPPORTED, cNotSupported));
        EXPECT_EQ(mAsserts.Take(), Broken({"false"}));
        EXPECT_FALSE(mEngine->IsOpened());
        Forget();
    }
}

TEST_P(EngineContractTest, OpensClosesAndOpensAgain)
{
    ExpectClosed();
    for (int lTurn = 0; lTurn < 3; ++lTurn)
    {
        EXPECT_THAT(Open(), IsOK());
        ExpectOpen();
        mEngine->PushByte(1, true);
        TakeLog();
        EXPECT_THAT(mEngine->Close(), IsOK());
        ExpectClosed();
        EXPECT_EQ(GetReady(*mEngine), 0U);
    }
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_THAT(mEngine->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
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

TEST_P(EngineContractTest, DoesNotOpenWithoutAConnectedDevice)
{
    ExpectFailure(mEngine->Open(nullptr, mPort), KyResult::NO_CONNECTION, GetFunction("Open"), cNull,
                  "DeviceChecks");
    mDevice.SetAnswer(Slot::IsConnected, false);
    ExpectFailure(Open(), KyResult::NO_CONNECTION, GetFunction("Open"), cDisconnected);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_FALSE(mEngine->IsOpened());
}

TEST_P(EngineContractTest, DoesNotOpenAPortThatTheDeviceHasNot)
{
    mDevice.SetRegister(0xB8FC, 0x80000000);
    mDevice.SetAvailable(Slot::IsIntegerFeatureAvailable, cUpstreamLength, false);
    ExpectFailure(Open(), KyResult::UNSUPPORTED, GetFunction("Open"), cNotSupported);
    ExpectClosed();
}

TEST_P(EngineContractTest, DoesNotOpenAPortInUseAndLeavesItsOwnerAlone)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    const auto lSecond = Make();
    EXPECT_THAT(lSecond->Open(&mDevice, mPort), IsResult(KyResult::FAILURE, cInUse));
    EXPECT_EQ(TakeLog(), (Lines{cClaimed, {PriorityError, GetFunction("Open"), cInUse}}));
    // The claim is the last that is asked for: nothing of the device is touched.
    EXPECT_EQ(Last(mDevice.TakeCalls(), cIdentify.size()), cIdentify);
    EXPECT_FALSE(lSecond->IsOpened());
    EXPECT_THAT(lSecond->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    ExpectOpen();
}

TEST_P(EngineContractTest, DoesNotCloseWithoutADevice)
{
    mEngine->PushByte(1, true);
    ExpectFailure(mEngine->Close(), KyResult::NO_CONNECTION, GetFunction("Close"), cNull, "DeviceChecks");
    EXPECT_EQ(GetReady(*mEngine), 1U); // nothing was released
}

TEST_P(EngineContractTest, StaysOpenWhenTheDeviceIsGoneAtClose)
{
    ASSERT_THAT(Open(), IsOK());
    Forget();
    mEngine->PushByte(1, true);
    mDevice.SetAnswer(Slot::IsConnected, false);
    ExpectFailure(mEngine->Close(), KyResult::NO_CONNECTION, GetFunction("Close"), cDisconnected);
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(GetReady(*mEngine), 1U);
    ExpectOpen();
    mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_THAT(mEngine->Close(), IsOK());
    EXPECT_EQ(GetReady(*mEngine), 0U);
    ExpectClosed();
}

TEST_P(EngineContractTest, FailsTheSameWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    EXPECT_FALSE(IsSupported(nullptr, mPort));
    EXPECT_EQ(mEngine->Open(nullptr, mPort).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_EQ(mEngine->Close().GetCode(), KyResult::NO_CONNECTION);
    EXPECT_THAT(Write({}), IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_THAT(mEngine->Open(&mDevice, KyDeviceSerialInvalid),
                IsResult(KyResult::UNSUPPORTED, cNotSupported));
    EXPECT_EQ(mAsserts.Take(), HasRegisters() ? Broken({"false"}) : Calls());
    ASSERT_THAT(Open(), IsOK());
    OnPiece([this] { Confirm(); });
    EXPECT_THAT(Write(Count(300)), IsOK());
    EXPECT_EQ(TakeLog(), Lines());
}

KY_ALL_ENGINES(EngineContractTest);
KY_REGISTER_ENGINES(RegisterContractTest);

} // namespace
