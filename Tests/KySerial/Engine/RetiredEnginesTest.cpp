#include "IRegisterSerialPort.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSPIBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "Support/AllocationCounter.h"
#include "Support/QuietSink.h"
#include "Support/ResultMatcher.h"
#include "Support/ScriptedAdapter.h"
#include "Tests/Fuzz/PlainAdapter.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

// A program of its own: it replaces operator new.

namespace
{

using KyTest::GetAllocatedBytes;
using KyTest::IsOK;

constexpr int cCameras = 10000;
constexpr int64_t cMostBytes = 1024; // for each camera

// A camera that can be unplugged, and counts what it is asked.
class Camera final : public KyTest::PlainAdapter
{
public:
    explicit Camera(int64_t aMac) : mMac(aMac) { mRegisters[0xB8FC] = 0x80000002; }

    bool IsConnected() override { return mIsConnected; }
    KyResult GetIntegerValue(const KyString& aName, int64_t& aValue) override
    {
        ++mQuestions;
        aValue = aName == "GevMACAddress" ? mMac : cLength;
        return KyResult(KyResult::OK);
    }
    KyResult GetRegisterLength(const KyString& /*aName*/, int64_t& aLength) override
    {
        ++mQuestions;
        aLength = cLength;
        return KyResult(KyResult::OK);
    }
    bool IsRegisterFeatureAvailable(const KyString& /*aName*/) override
    {
        ++mQuestions;
        return true;
    }

    // An event of each kind.
    void SendEvents()
    {
        const std::array<uint8_t, 8> lData = {0xFF, 0xFF, 0, 0, 1, 2, 3, 4};
        Send(0x9000, lData.data(), static_cast<uint32_t>(lData.size()));
        const KyString lName("EventBulk1UpstreamDataBuffer");
        Invalidate(&lName);
    }

    static constexpr int64_t cLength = 512; // of the data features
    const int64_t mMac;
    bool mIsConnected = true;
    int mQuestions = 0;
};

class RetiredEnginesTest : public testing::Test
{
protected:
    // Unplugs aCount cameras while something of each is open. Returns the bytes that each has left.
    template<typename Product>
    int64_t Unplug(KyDeviceSerial aPort, int aCount)
    {
        const int64_t lBefore = GetAllocatedBytes();
        for (int lNumber = 0; lNumber < aCount; ++lNumber)
        {
            Camera lCamera(sNextMac++);
            Product lProduct;
            EXPECT_THAT(lProduct.Open(&lCamera, aPort), IsOK());
            Use(lProduct, lCamera);
            Send(lProduct, aPort);
            lCamera.mIsConnected = false;
        }
        return (GetAllocatedBytes() - lBefore) / aCount;
    }

    static void Use(KyDeviceSerialPort& aPort, Camera& aCamera)
    {
        aCamera.SendEvents();
        uint32_t lReady = 0;
        EXPECT_THAT(aPort.GetRxBytesReady(lReady), IsOK());
        EXPECT_GT(lReady, 0U);
    }
    // With features, which need a message buffer, and no event to go on.
    static void Send(KyDeviceSerialPort& aPort, KyDeviceSerial aSerial)
    {
        const std::array<uint8_t, 500> lData = {};
        uint32_t lSent = 0;
        if (aSerial == KyDeviceSerialBulk1)
        {
            EXPECT_THAT(aPort.Write(lData.data(), static_cast<uint32_t>(lData.size()), lSent), IsOK());
        }
    }
    static void Send(KyDeviceI2CBus& aBus, KyDeviceSerial /*aSerial*/)
    {
        const uint8_t lByte = 1;
        EXPECT_THAT(aBus.BurstWrite(0x50, &lByte, 1, false), IsOK());
    }
    static void Send(KyDeviceSPIBus& aBus, KyDeviceSerial /*aSerial*/)
    {
        const uint8_t lByte = 1;
        EXPECT_THAT(aBus.BurstWriteAndRead(&lByte, 1, 0, false, true), IsOK());
    }
    template<typename Bus>
    static void Use(Bus& /*aBus*/, Camera& aCamera)
    {
        aCamera.SendEvents();
    }

    static inline int64_t sNextMac = 0x001122000000;
    KyTest::QuietSink mSink;
};

TEST_F(RetiredEnginesTest, TenThousandUnpluggedCamerasLeaveLessThanAKilobyteEach)
{
    for (const KyDeviceSerial lPort :
         {KyDeviceSerialUart0, KyDeviceSerialUart1, KyDeviceSerialBulk0, KyDeviceSerialBulk1})
    {
        const int64_t lBytes = Unplug<KyDeviceSerialPort>(lPort, cCameras);
        EXPECT_LT(lBytes, cMostBytes) << "port " << lPort;
        RecordProperty("BytesOfPort" + std::to_string(lPort), std::to_string(lBytes));
    }
}

TEST_F(RetiredEnginesTest, UnpluggedBusesLeaveLessThanAKilobyteEach)
{
    EXPECT_LT(Unplug<KyDeviceI2CBus>(KyDeviceSerialBulk1, 100), cMostBytes);
    EXPECT_LT(Unplug<KyDeviceSPIBus>(KyDeviceSerialBulk1, 100), cMostBytes);
}

TEST_F(RetiredEnginesTest, CyclesOfAnI2CBusLeaveLessThanAKilobyteEach)
{
    Camera lCamera(sNextMac++);
    KyDeviceI2CBus lBus;
    const int64_t lBefore = GetAllocatedBytes();
    for (int lCycle = 0; lCycle < 1000; ++lCycle)
    {
        ASSERT_THAT(lBus.Open(&lCamera, KyDeviceSerialBulk1), IsOK());
        ASSERT_THAT(lBus.Close(), IsOK());
    }
    const int64_t lBytes = (GetAllocatedBytes() - lBefore) / 1000;
    EXPECT_LT(lBytes, cMostBytes);
    EXPECT_GT(lBytes, 0); // the engines stay, as programs rely on for those that are open
}

TEST_F(RetiredEnginesTest, CyclesOfThePortLeaveNothing)
{
    Camera lCamera(sNextMac++);
    KyDeviceSerialPort lPort;
    int64_t lBefore = 0;
    for (int lCycle = 0; lCycle < 10; ++lCycle)
    {
        lBefore = lCycle == 1 ? GetAllocatedBytes() : lBefore; // the first one makes what all share
        ASSERT_THAT(lPort.Open(&lCamera, KyDeviceSerialBulk1), IsOK());
        ASSERT_THAT(lPort.Close(), IsOK());
    }
    EXPECT_EQ(GetAllocatedBytes(), lBefore);
}

TEST_F(RetiredEnginesTest, EngineThatASecondOpenReplacesAsksItsCameraNothingAtEvents)
{
    for (const KyDeviceSerial lSerial : {KyDeviceSerialUart0, KyDeviceSerialBulk0, KyDeviceSerialBulk1})
    {
        Camera lFirst(sNextMac++);
        Camera lSecond(sNextMac++);
        KyDeviceSerialPort lPort;
        ASSERT_THAT(lPort.Open(&lFirst, lSerial), IsOK());
        ASSERT_THAT(lPort.Open(&lSecond, lSerial), IsOK());
        ASSERT_EQ(lFirst.mSinks.size(), 1U);
        lFirst.mQuestions = 0;
        lFirst.SendEvents();
        EXPECT_EQ(lFirst.mQuestions, 0) << "port " << lSerial;
        uint32_t lReady = 99;
        EXPECT_THAT(lPort.GetRxBytesReady(lReady), IsOK());
        EXPECT_EQ(lReady, 0U);
        Use(lPort, lSecond); // the engine in use receives
        EXPECT_THAT(lPort.Close(), IsOK());
    }
}

TEST_F(RetiredEnginesTest, EngineMayRetireWhileItTakesAnEvent)
{
    constexpr char cBuffer[] = "EventBulk1UpstreamDataBuffer";
    KyTest::ScriptedAdapter lCamera;
    lCamera.SetContent(cBuffer, KyTest::Bytes(4, 7));
    lCamera.SetInteger("EventBulk1UpstreamDataLength", 4);
    auto lEngine = std::make_unique<KySerialLib::IRegisterSerialPort>(false);
    // The reader drops the port in the middle of an event, whose bytes still have to have a place.
    lCamera.OnCall(KyTest::Slot::GetRegisterData,
                   [&]
                   {
                       lEngine->Retire();
                       lEngine->ReleaseBuffers();
                   });
    ASSERT_THAT(lEngine->Open(&lCamera, KyDeviceSerialBulk1), IsOK());
    lCamera.Invalidate(cBuffer);
    lCamera.Invalidate(cBuffer);
    uint32_t lReady = 99;
    EXPECT_THAT(lEngine->GetRxBytesReady(lReady), IsOK());
    EXPECT_EQ(lReady, 0U);
    EXPECT_THAT(lEngine->Close(), IsOK());
}

} // namespace
