#include "KySerial/Bus/BusTest.h"
#include "Support/TimeOf.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cTooLong[] = "SPI read and write only support up to 255 bytes";

template<typename Bus>
class SPIBusTest : public BusTest<Bus>
{
protected:
    void OpenBulk0()
    {
        ASSERT_THAT(this->Open(2), IsOK());
        this->Forget();
    }
};

using SPIBuses = testing::Types<DeviceSPIBus, KyDeviceSPIBus>;
TYPED_TEST_SUITE(SPIBusTest, SPIBuses, BusNames);

TYPED_TEST(SPIBusTest, OperationsBeforeOpenAreRefused)
{
    this->ExpectNotOpen(this->mBus->BurstRead(this->mBytes, 1, this->mGot, 0), "BurstRead");
    this->ExpectNotOpen(this->mBus->BurstWriteAndRead(this->mBytes, 1, 1, false, false), "BurstWriteAndRead");
    this->ExpectNotOpen(this->mBus->BurstWriteAndRead(this->mBytes, 256, 1, false, false),
                        "BurstWriteAndRead");
}

TYPED_TEST(SPIBusTest, OpensEachBulkPortWithFeatures)
{
    for (int lPort = 2; lPort <= 9; ++lPort)
    {
        SCOPED_TRACE(lPort);
        EXPECT_THAT(this->Open(lPort), IsOK());
        EXPECT_EQ(this->mDevice.TakeCalls(), Join({AskProtocol(lPort - 2, "SPI"), ClaimFeatures(lPort - 2),
                                                   SwitchEvent(lPort - 2, "On")}));
        EXPECT_EQ(this->TakeLog(), Lines());
        EXPECT_TRUE(this->mBus->IsOpened());
        EXPECT_FALSE(this->IsFree(lPort));
        EXPECT_THAT(this->mBus->Close(), IsOK());
        EXPECT_FALSE(this->mBus->IsOpened());
        EXPECT_TRUE(this->IsFree(lPort));
        this->mDevice.TakeCalls();
        this->TakeLog();
    }
}

TYPED_TEST(SPIBusTest, DoesNotOpenWithoutSPI)
{
    this->mDevice.SetEntry("BulkMode", "SPI", false); // I2C is still there
    EXPECT_THAT(this->Open(2), IsResult(KyResult::UNSUPPORTED, this->cUnsupported));
    EXPECT_EQ(this->mDevice.TakeCalls(), AskProtocol(0, "SPI"));
    EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{this->Failure("Open", this->cUnsupported)}));
    this->ExpectNotOpen(this->mBus->Close(), "Close");
}

TYPED_TEST(SPIBusTest, ReportsWhetherADeviceHasABus)
{
    for (int lPort = -1; lPort <= 10; ++lPort)
    {
        EXPECT_EQ(TypeParam::IsSupported(&this->mDevice, static_cast<KyDeviceSerial>(lPort)),
                  lPort >= 2 && lPort <= 9);
    }
    this->mDevice.TakeCalls();
    this->mDevice.SetEntry("BulkMode", "SPI", false);
    EXPECT_FALSE(TypeParam::IsSupported(&this->mDevice, KyDeviceSerialBulk0));
    EXPECT_EQ(this->mDevice.TakeCalls(), AskProtocol(0, "SPI"));
    EXPECT_EQ(this->TakeLog(), Lines());
    EXPECT_FALSE(TypeParam::IsSupported(nullptr, KyDeviceSerialBulk0));
}

TYPED_TEST(SPIBusTest, TransfersInOneMessage)
{
    this->OpenBulk0();
    const uint8_t lData[] = {1, 2, 3, 4, 5};
    EXPECT_THAT(this->mBus->BurstWriteAndRead(lData, 5, 5, true, true), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream),
              (Bytes{0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 5, 1, 1, 2, 3, 4, 5, 0, 0, 0}));
    EXPECT_THAT(this->mBus->BurstWriteAndRead(lData, 4, 7, false, false), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream), (Bytes{0, 0, 0, 0, 0, 0, 0, 8, 4, 7, 0, 0, 1, 2, 3, 4}));
    // Each option has its own place.
    EXPECT_THAT(this->mBus->BurstWriteAndRead(lData, 4, 4, false, true), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream)[11], 1);
    EXPECT_EQ(this->mDevice.GetContent(cDownstream)[8], 4);
    EXPECT_THAT(this->mBus->BurstWriteAndRead(lData, 4, 4, true, false), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream)[11], 0);
    EXPECT_EQ(this->mDevice.GetContent(cDownstream)[10], 4);
}

TYPED_TEST(SPIBusTest, TakesSizesUpTo255)
{
    this->OpenBulk0();
    Bytes lData = Count(300);
    EXPECT_THAT(this->mBus->BurstWriteAndRead(lData.data(), 255, 255, false, false), IsOK());
    this->Forget();
    const std::pair<uint32_t, uint32_t> lSizes[] = {{256, 0}, {0, 256}, {256, 256}, {0xFFFFFFFF, 0}};
    for (const auto& [lWrite, lRead] : lSizes)
    {
        EXPECT_THAT(this->mBus->BurstWriteAndRead(lData.data(), lWrite, lRead, false, false),
                    IsResult(KyResult::BAD_PARAMETER, cTooLong));
        EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{this->Failure("BurstWriteAndRead", cTooLong)}));
    }
    EXPECT_EQ(this->mDevice.TakeCalls(), Calls());
}

TYPED_TEST(SPIBusTest, RefusesNullBuffers)
{
    this->OpenBulk0();
    this->Forget();
    EXPECT_THAT(this->mBus->BurstWriteAndRead(nullptr, 3, 0, false, false),
                IsResult(KyResult::BAD_PARAMETER, cNullBuffer));
    EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{this->Failure("BurstWriteAndRead", cNullBuffer)}));
    for (const uint32_t lSize : {3U, 0U})
    {
        this->mGot = 99;
        EXPECT_THAT(this->mBus->BurstRead(nullptr, lSize, this->mGot, 0),
                    IsResult(KyResult::BAD_PARAMETER, cNullBuffer));
        EXPECT_EQ(this->mGot, 0U);
        EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{this->Failure("BurstRead", cNullBuffer)}));
    }
    EXPECT_EQ(this->mDevice.TakeCalls(), Calls());
}

TYPED_TEST(SPIBusTest, CollectsWhatTransfersRead)
{
    this->OpenBulk0();
    this->mDevice.SetContent(cUpstreamBuffer, {7, 8, 9});
    this->mDevice.SetInteger(cUpstreamLength, 3);
    this->mDevice.OnCall(Slot::PostWrite, [this] { this->mDevice.Invalidate(cUpstreamBuffer); });
    EXPECT_THAT(this->mBus->BurstWriteAndRead(nullptr, 0, 3, false, true), IsOK());
    EXPECT_THAT(this->mBus->BurstRead(this->mBytes, 2, this->mGot, 0), IsOK());
    EXPECT_EQ(Bytes(this->mBytes, this->mBytes + this->mGot), (Bytes{7, 8}));
    EXPECT_THAT(this->mBus->BurstRead(this->mBytes, 200, this->mGot, 60000), IsOK()); // does not loop
    EXPECT_EQ(Bytes(this->mBytes, this->mBytes + this->mGot), Bytes{9});
}

TYPED_TEST(SPIBusTest, TimesOutWhenNothingCame)
{
    this->OpenBulk0();
    EXPECT_THAT(this->mBus->BurstRead(this->mBytes, 2, this->mGot, 0), IsResult(KyResult::TIMED_OUT, ""));
    EXPECT_EQ(this->mGot, 0U);
    EXPECT_GE(TimeOf([this] { static_cast<void>(this->mBus->BurstRead(this->mBytes, 2, this->mGot, 60)); }),
              std::chrono::milliseconds(59));
}

TYPED_TEST(SPIBusTest, PassesTheEnginesFailuresOn)
{
    this->OpenBulk0();
    this->mDevice.Fail(Slot::SetRegisterData, KyResult(0x3333, "bus"));
    EXPECT_THAT(this->mBus->BurstWriteAndRead(this->mBytes, 1, 0, false, false), IsResult(0x3333, "bus"));
    this->mDevice.StopFailing();
    this->mDevice.SetLength(cDownstream, 12);
    EXPECT_EQ(this->mBus->BurstWriteAndRead(this->mBytes, 1, 0, false, false).GetCode(),
              KyResult::BUFFER_TOO_SMALL);
    EXPECT_THAT(this->mBus->Close(), IsOK());
    EXPECT_THAT(this->mBus->BurstWriteAndRead(this->mBytes, 1, 0, false, false),
                IsResult(KyResult::NO_CONNECTION, cNull));
    EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, cNull));
}

} // namespace
