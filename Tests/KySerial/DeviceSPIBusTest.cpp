#include "KySerial/BusTest.h"

#include "DeviceSPIBus.h"
#include "KySerial/KyDeviceSPIBus.h"

#include <chrono>
#include <type_traits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cName[] = "KySerialLib::DeviceSPIBus::";
constexpr char cNoSPI[] = "SPI Bus is not supported with this device";
constexpr char cNotSupported[] = "The specified port is not supported by this device.";
constexpr char cNoBuffer[] = "aBuffer pointer cannot be NULL.";
constexpr char cTooLong[] = "SPI read and write only support up to 255 bytes";

LogLine Failure(const std::string& aFunction, const std::string& aText)
{
    return {PriorityError, cName + aFunction, aText};
}

std::string NotOpenText(const std::string& aFunction)
{
    return cName + aFunction + " failed SPI. You must first call Open before using this function";
}

template<typename Bus>
class SPIBusTest : public BusTest<Bus>
{
protected:
    void ExpectNotOpen(const KyResult& aResult, const std::string& aFunction)
    {
        EXPECT_THAT(aResult, IsResult(KyResult::NOT_OPEN, NotOpenText(aFunction).c_str()));
        EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure(aFunction, NotOpenText(aFunction))}));
    }

    void OpenBulk0()
    {
        ASSERT_THAT(this->Open(2), IsOK());
        this->Forget();
    }
};

using Buses = testing::Types<DeviceSPIBus, KyDeviceSPIBus>;
class BusNames
{
public:
    template<typename Bus>
    static std::string GetName(int /*aIndex*/)
    {
        return std::is_same_v<Bus, DeviceSPIBus> ? "Internal" : "Public";
    }
};
TYPED_TEST_SUITE(SPIBusTest, Buses, BusNames);

TYPED_TEST(SPIBusTest, IsNotOpenBeforeOpen)
{
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure("IsOpened", NotOpenText("IsOpened"))}));
    this->ExpectNotOpen(this->mBus->Close(), "Close");
    this->ExpectNotOpen(this->mBus->BurstRead(this->mBytes, 1, this->mGot, 0), "BurstRead");
    this->ExpectNotOpen(this->mBus->BurstWriteAndRead(this->mBytes, 1, 1, false, false), "BurstWriteAndRead");
    this->ExpectNotOpen(this->mBus->BurstWriteAndRead(this->mBytes, 256, 1, false, false),
                        "BurstWriteAndRead");
    this->DisableEveryPriority();
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_EQ(this->TakeLog(), Lines());
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
    EXPECT_THAT(this->Open(2), IsResult(KyResult::UNSUPPORTED, cNoSPI));
    EXPECT_EQ(this->mDevice.TakeCalls(), AskProtocol(0, "SPI"));
    EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure("Open", cNoSPI)}));
    this->ExpectNotOpen(this->mBus->Close(), "Close");
}

TYPED_TEST(SPIBusTest, DoesNotOpenWithoutADevice)
{
    EXPECT_THAT(this->mBus->Open(nullptr, KyDeviceSerialBulk0), IsResult(KyResult::UNSUPPORTED, cNoSPI));
    EXPECT_EQ(this->TakeLog(), (Lines{{PriorityError, "KySerialLib::IRegisterSerialPort::IsProtocolSupported",
                                       "Device pointer is NULL."},
                                      Failure("Open", cNoSPI)}));
}

TYPED_TEST(SPIBusTest, DoesNotOpenOnPortsThatAreNoBulkPorts)
{
    for (const int lPort : {-1, 0, 1, 10, -5})
    {
        EXPECT_THAT(this->Open(lPort), IsResult(KyResult::UNSUPPORTED, cNoSPI));
        EXPECT_EQ(this->TakeLog(), (Lines{Failure("Open", cNoSPI)}));
    }
}

TYPED_TEST(SPIBusTest, RefusesAPortThatTheDeviceClaimsButThatIsNoBulkPort)
{
    this->OfferNamelessFeatures();
    for (const int lPort : {-1, 0, 1, 10})
    {
        EXPECT_THAT(this->Open(lPort), IsResult(KyResult::BAD_PARAMETER, cNotSupported));
        EXPECT_EQ(this->TakeLog(), (Lines{Failure("Open", cNotSupported)}));
        this->ExpectNotOpen(this->mBus->Close(), "Close");
    }
}

TYPED_TEST(SPIBusTest, ReplacesItsEngineAtEveryOpen)
{
    ASSERT_THAT(this->Open(3), IsOK());
    EXPECT_THAT(this->Open(3), IsResult(KyResult::FAILURE, "The specified port is already in use."));
    EXPECT_FALSE(this->mBus->IsOpened());
    EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, "Device pointer is NULL."));
    EXPECT_THAT(this->Open(4), IsOK());
    EXPECT_EQ(this->mDevice.GetSinks().size(), 2U);
    this->mDevice.SetInteger("EventBulk1UpstreamDataLength", 3);
    this->mDevice.Invalidate("EventBulk1UpstreamDataBuffer"); // the former engine's sink is still safe
    EXPECT_THAT(this->mBus->Close(), IsOK());
}

TYPED_TEST(SPIBusTest, ClosesWhenDestroyed)
{
    this->OpenBulk0();
    this->mBus.reset();
    EXPECT_EQ(this->TakeLog(), Lines());
    EXPECT_TRUE(this->IsFree(2));
    EXPECT_TRUE(this->mDevice.GetSinks().empty());
}

TYPED_TEST(SPIBusTest, TellsWhetherADeviceHasABus)
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

TYPED_TEST(SPIBusTest, ReadsWithoutWriting)
{
    this->OpenBulk0();
    EXPECT_THAT(this->mBus->BurstWriteAndRead(nullptr, 0, 200, false, true), IsOK());
    EXPECT_EQ(this->mDevice.GetContent(cDownstream), (Bytes{0, 0, 0, 0, 0, 0, 0, 4, 0, 200, 0, 1}));
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
        EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure("BurstWriteAndRead", cTooLong)}));
    }
    EXPECT_EQ(this->mDevice.TakeCalls(), Calls());
}

TYPED_TEST(SPIBusTest, RefusesNullBuffers)
{
    this->OpenBulk0();
    this->Forget();
    EXPECT_THAT(this->mBus->BurstWriteAndRead(nullptr, 3, 0, false, false),
                IsResult(KyResult::BAD_PARAMETER, cNoBuffer));
    EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure("BurstWriteAndRead", cNoBuffer)}));
    for (const uint32_t lSize : {3U, 0U})
    {
        this->mGot = 99;
        EXPECT_THAT(this->mBus->BurstRead(nullptr, lSize, this->mGot, 0),
                    IsResult(KyResult::BAD_PARAMETER, cNoBuffer));
        EXPECT_EQ(this->mGot, 0U);
        EXPECT_EQ(this->TakeLogOf("DeviceSPIBus"), (Lines{Failure("BurstRead", cNoBuffer)}));
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
    const auto lStart = std::chrono::steady_clock::now();
    EXPECT_THAT(this->mBus->BurstRead(this->mBytes, 2, this->mGot, 60), IsResult(KyResult::TIMED_OUT, ""));
    EXPECT_GE(std::chrono::steady_clock::now() - lStart, std::chrono::milliseconds(59));
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
                IsResult(KyResult::NO_CONNECTION, "Device pointer is NULL."));
    EXPECT_THAT(this->mBus->Close(), IsResult(KyResult::NO_CONNECTION, "Device pointer is NULL."));
}

TEST(KyDeviceSPIBusTest, SharesItsBusByAssignmentAndHasNoCopyConstructor)
{
    EXPECT_FALSE(std::is_copy_constructible_v<KyDeviceSPIBus>);
    EXPECT_TRUE(std::is_copy_assignable_v<KyDeviceSPIBus>);
    ScriptedAdapter lDevice;
    auto lOne = std::make_unique<KyDeviceSPIBus>();
    auto lOther = std::make_unique<KyDeviceSPIBus>();
    ASSERT_THAT(lOne->Open(&lDevice, KyDeviceSerialBulk0), IsOK());
    *lOther = *lOne;
    KyDeviceSPIBus& lSame = *lOther;
    *lOther = lSame;
    EXPECT_TRUE(lOther->IsOpened());
    lOne.reset();
    EXPECT_TRUE(lOther->IsOpened());
    EXPECT_THAT(lOther->Close(), IsOK());
    EXPECT_TRUE(lDevice.GetSinks().empty());
}

} // namespace
