// What both buses owe when they are opened and closed.

#include "KySerial/Bus/BusTest.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

template<typename Bus>
class BusContractTest : public BusTest<Bus>
{
protected:
    // The I2C bus reports each port but bulk port 0 to the log and as a broken assertion.
    void TearDown() override
    {
        const auto lBroken = this->mAsserts.Take();
        EXPECT_TRUE(lBroken.empty() || this->cIsI2C);
        BusTest<Bus>::TearDown();
    }

    // The lines of failures; that of the I2C bus about the port is of a higher priority.
    Lines TakeFailures()
    {
        Lines lLines = this->TakeLog();
        std::erase_if(lLines, [](const LogLine& aLine) { return aLine.mPriority != PriorityError; });
        return lLines;
    }
};

class ContractNames
{
public:
    template<typename Bus>
    static std::string GetName(int aIndex)
    {
        return BusNames::GetName<Bus>(aIndex) + (aIndex < 2 ? "I2C" : "SPI");
    }
};
using AllBuses = testing::Types<DeviceI2CBus, KyDeviceI2CBus, DeviceSPIBus, KyDeviceSPIBus>;
TYPED_TEST_SUITE(BusContractTest, AllBuses, ContractNames);

TYPED_TEST(BusContractTest, IsNotOpenBeforeOpen)
{
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_EQ(this->TakeLogOf(this->cFile),
              (Lines{this->Failure("IsOpened", this->NotOpenText("IsOpened"))}));
    this->ExpectNotOpen(this->mBus->Close(), "Close");
    this->DisableEveryPriority();
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NOT_OPEN, this->NotOpenText("Close").c_str()));
    this->mBus.reset();
    EXPECT_EQ(this->TakeLog(), Lines());
}

TYPED_TEST(BusContractTest, DoesNotOpenWithoutADevice)
{
    EXPECT_THAT(this->mBus->Open(nullptr, KyDeviceSerialBulk0),
                IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
    Lines lExpected = {{PriorityError, "KySerialLib::IRegisterSerialPort::IsProtocolSupported", cNull},
                       this->Failure("Open", this->cUnsupported)};
    if (this->cIsI2C)
    {
        lExpected.insert(lExpected.begin(),
                         {PriorityError, "KySerialLib::BulkIPEngine::IsI2CSupported", cNull});
    }
    EXPECT_EQ(this->TakeLog(), lExpected);
    EXPECT_FALSE(TypeParam::IsSupported(nullptr, KyDeviceSerialBulk0));
}

TYPED_TEST(BusContractTest, DoesNotOpenADisconnectedDevice)
{
    this->mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_THAT(this->Open(2), IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
    EXPECT_EQ(this->mDevice.TakeCalls(), Calls(this->cIsI2C ? 2 : 1, "IsConnected"));
    this->TakeLog();
    this->ExpectNotOpen(this->mBus->Close(), "Close"); // no engine was chosen
}

TYPED_TEST(BusContractTest, DoesNotOpenOnPortsThatAreNoBulkPorts)
{
    for (const int lPort : {-1, 0, 1, 10, -5})
    {
        EXPECT_THAT(this->Open(lPort), IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
        EXPECT_EQ(this->TakeFailures(), (Lines{this->Failure("Open", this->cUnsupported)}));
    }
}

TYPED_TEST(BusContractTest, RefusesAPortThatTheDeviceClaimsButThatIsNoBulkPort)
{
    this->OfferNamelessFeatures();
    for (const int lPort : {-1, 0, 1, 10})
    {
        EXPECT_THAT(this->Open(lPort), IsResult(KyResult::BAD_PARAMETER, cNotSupported));
        EXPECT_EQ(this->TakeFailures(), (Lines{this->Failure("Open", cNotSupported)}));
        this->ExpectNotOpen(this->mBus->Close(), "Close");
    }
}

TYPED_TEST(BusContractTest, KeepsAnEngineThatDidNotOpenAndLeavesTheOwnerOfThePortAlone)
{
    ASSERT_TRUE(PortMap::GetInstance().Lock(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_THAT(this->Open(2), IsResult(KyResult::FAILURE, cInUse));
    EXPECT_FALSE(this->IsFree(2));
    this->TakeLog();
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_EQ(this->TakeLog(), Lines()); // there is an engine now, which is closed
    EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
    ASSERT_TRUE(PortMap::GetInstance().Unlock(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_THAT(this->Open(2), IsOK());
    EXPECT_TRUE(this->mBus->IsOpened());
}

TYPED_TEST(BusContractTest, FindsItsOwnPortInUseWhenOpenedTwice)
{
    for (const int lPort : {2, 3})
    {
        ASSERT_THAT(this->Open(lPort), IsOK());
        EXPECT_THAT(this->Open(lPort), IsResult(KyResult::FAILURE, cInUse));
        EXPECT_FALSE(this->mBus->IsOpened());
        EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
        EXPECT_FALSE(this->IsFree(lPort));
        this->mDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1})); // the former engine's sink is still safe
        this->mDevice.SetInteger("EventBulk1UpstreamDataLength", 3);
        this->mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    }
    EXPECT_EQ(this->mDevice.GetSinks().size(), 2U);
    EXPECT_THAT(this->Open(4), IsOK());
    EXPECT_THAT(this->mBus->Close(), IsOK());
}

TYPED_TEST(BusContractTest, StaysOpenWhenTheDeviceIsGoneAtClose)
{
    for (const int lPort : {2, 7})
    {
        ASSERT_THAT(this->Open(lPort), IsOK());
        this->Forget();
        this->mDevice.SetAnswer(Slot::IsConnected, false);
        EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, cDisconnected));
        EXPECT_TRUE(this->mBus->IsOpened());
        EXPECT_EQ(this->mDevice.TakeCalls(), Calls{"IsConnected"});
        this->mDevice.SetAnswer(Slot::IsConnected, true);
        EXPECT_FALSE(this->IsFree(lPort));
        EXPECT_THAT(this->mBus->Close(), IsOK());
        EXPECT_FALSE(this->mBus->IsOpened());
        EXPECT_TRUE(this->IsFree(lPort));
        EXPECT_TRUE(this->mDevice.GetSinks().empty());
    }
}

TYPED_TEST(BusContractTest, ClosesWhenDestroyed)
{
    for (const int lPort : {2, 7})
    {
        this->mBus = std::make_unique<TypeParam>();
        ASSERT_THAT(this->Open(lPort), IsOK());
        this->Forget();
        this->mBus.reset();
        EXPECT_EQ(this->TakeLog(), Lines());
        EXPECT_TRUE(this->IsFree(lPort));
        EXPECT_TRUE(this->mDevice.GetSinks().empty());
    }
}

TYPED_TEST(BusContractTest, LeavesASafeSinkWhenDestroyedWithoutItsDevice)
{
    ASSERT_THAT(this->Open(2), IsOK());
    this->mDevice.SetAnswer(Slot::IsConnected, false);
    this->mBus.reset();
    this->mDevice.SetAnswer(Slot::IsConnected, true);
    EXPECT_EQ(this->mDevice.GetSinks().size(), 1U);
    this->mDevice.SendEvent(0x9000, Words({0xFFFFFFFF, 1, 2, 3}));
    this->mDevice.Invalidate("EventBulk0UpstreamDataBuffer");
}

template<typename Bus>
class PublicBusTest : public testing::Test
{
};
using PublicBuses = testing::Types<KyDeviceI2CBus, KyDeviceSPIBus>;
TYPED_TEST_SUITE(PublicBusTest, PublicBuses);

TYPED_TEST(PublicBusTest, SharesItsBusByAssignmentAndHasNoCopyConstructor)
{
    EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_copy_assignable_v<TypeParam>);
    ScriptedAdapter lDevice;
    auto lOne = std::make_unique<TypeParam>();
    auto lOther = std::make_unique<TypeParam>();
    ASSERT_THAT(lOne->Open(&lDevice, KyDeviceSerialBulk0), IsOK());
    *lOther = *lOne;
    TypeParam& lSame = *lOther;
    *lOther = lSame;
    EXPECT_TRUE(lOther->IsOpened());
    lOne.reset();
    EXPECT_TRUE(lOther->IsOpened());
    EXPECT_THAT(lOther->Close(), IsOK());
    EXPECT_TRUE(lDevice.GetSinks().empty());
}

} // namespace
