#include "KySerial/EngineTest.h"
#include "Support/Repeater.h"

#include "KySerial/KyDeviceSerialPort.h"

#include <atomic>
#include <optional>
#include <thread>

using namespace KyTest;

namespace
{

constexpr char cUpstreamBuffer[] = "EventBulk3UpstreamDataBuffer";

// Meant for the race detector: many threads on one port, bounded by counts.
class PortStressTest : public testing::TestWithParam<KyDeviceSerial>
{
protected:
    void SetUp() override
    {
        mDevice.SetRecording(false);
        mDevice.SetContent(cUpstreamBuffer, Count(100));
        mDevice.SetInteger("EventBulk3UpstreamDataLength", 100);
    }

    // The device, again and again: bytes and confirmations for every kind of port.
    void Storm()
    {
        mDevice.SendEvent(0x9000, Words({0x190F, 1, 2, 3, 4, 5, 6, 7}));
        mDevice.Invalidate(cUpstreamBuffer);
        std::this_thread::yield();
    }

    ScriptedAdapter mDevice;
};

TEST_P(PortStressTest, KeepsItsBytesTogetherInAStorm)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, GetParam()), IsOK());
    std::optional<Repeater> lDevice([this] { Storm(); });
    std::thread lReader(
        [&]
        {
            Bytes lBytes(64);
            for (int lIndex = 0; lIndex < 2000; ++lIndex)
            {
                uint32_t lGot = 0;
                const KyResult lResult = lPort.Read(lBytes.data(), 64, lGot, lIndex % 3 == 0 ? 0 : 2);
                EXPECT_TRUE(lResult.IsOK() || lResult.GetCode() == KyResult::TIMED_OUT);
                EXPECT_LE(lGot, 64U);
            }
        });
    std::thread lWriter(
        [&]
        {
            const Bytes lBytes = Count(300);
            const uint32_t lSize = GetParam() < KyDeviceSerialBulk0 ? 5 : 300;
            for (int lIndex = 0; lIndex < 200; ++lIndex)
            {
                uint32_t lWritten = 0;
                EXPECT_THAT(lPort.Write(lBytes.data(), lSize, lWritten), IsOK());
                EXPECT_EQ(lWritten, lSize);
            }
        });
    for (uint32_t lIndex = 0; lIndex < 2000; ++lIndex)
    {
        EXPECT_THAT(lPort.SetRxBufferSize(lIndex % 7 == 0 ? 20000 : lIndex % 40), IsOK());
        uint32_t lValue = 0;
        EXPECT_THAT(lPort.GetRxBufferSize(lValue), IsOK());
        EXPECT_THAT(lPort.GetRxBytesReady(lValue), IsOK());
        EXPECT_LT(lValue, 20000U);
        EXPECT_THAT(lPort.FlushRxBuffer(), IsOK());
        EXPECT_TRUE(lPort.IsOpened());
    }
    lReader.join();
    lWriter.join();
    EXPECT_THAT(lPort.Close(), IsOK()); // in the middle of the storm
    EXPECT_EQ(GetReady(lPort), 0U);
}

TEST_P(PortStressTest, OpensAndClosesInAStorm)
{
    std::optional<Repeater> lDevice([this] { Storm(); });
    for (int lIndex = 0; lIndex < 200; ++lIndex)
    {
        KyDeviceSerialPort lPort;
        EXPECT_THAT(lPort.Open(&mDevice, GetParam()), IsOK());
        uint32_t lGot = 0;
        uint8_t lByte = 0;
        EXPECT_THAT(lPort.Read(&lByte, 1, lGot, 60000), IsOK());
        EXPECT_THAT(lPort.Close(), IsOK());
    }
    lDevice.reset();
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

TEST_P(PortStressTest, LosesNothingWhileTheReaderKeepsUp)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, GetParam()), IsOK());
    constexpr uint32_t cTotal = 50000;
    const Bytes lAll = Count(cTotal);
    std::thread lDevice(
        [&]
        {
            for (uint32_t lSent = 0; lSent < cTotal; lSent += 4)
            {
                while (GetReady(lPort) > 8000)
                {
                    std::this_thread::yield();
                }
                const Bytes lPart = Part(lAll, lSent, 4);
                if (GetParam() == KyDeviceSerialBulk3)
                {
                    SendUpstream(mDevice, 3, lPart);
                    continue;
                }
                mDevice.SendEvent(0x9000, GetParam() == KyDeviceSerialBulk0
                                              ? Together({Words({0x100}), lPart})
                                              : Words({0xA, lPart[0], lPart[1], lPart[2], lPart[3]}));
            }
        });
    uint32_t lNext = 0;
    while (lNext < cTotal)
    {
        uint8_t lBytes[100];
        uint32_t lGot = 0;
        ASSERT_THAT(lPort.Read(lBytes, sizeof lBytes, lGot, 60000), IsOK());
        ASSERT_GT(lGot, 0U);
        for (uint32_t lIndex = 0; lIndex < lGot; ++lIndex, ++lNext)
        {
            ASSERT_EQ(lBytes[lIndex], static_cast<uint8_t>(lNext));
        }
    }
    lDevice.join();
    EXPECT_EQ(lNext, cTotal);
    EXPECT_THAT(lPort.Close(), IsOK());
}

INSTANTIATE_TEST_SUITE_P(EachEngine, PortStressTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialBulk0, KyDeviceSerialBulk3),
                         [](const testing::TestParamInfo<KyDeviceSerial>& aInfo)
                         {
                             return aInfo.param == KyDeviceSerialUart0   ? "Uart"
                                    : aInfo.param == KyDeviceSerialBulk0 ? "Registers"
                                                                         : "Features";
                         });

TEST(PortClaimStressTest, LetsOneOfTwoAdaptersInAtATime)
{
    ScriptedAdapter lFirst;
    ScriptedAdapter lSecond;
    lFirst.SetInteger("GevMACAddress", 0x0A0000000001);
    lSecond.SetInteger("GevMACAddress", 0x0A0000000001);
    JxUtilsLib::Logger::SetPriority(static_cast<JxUtilsLib::PriorityLevel>(PriorityFatal + 1));
    std::atomic<int> lOwners = 0;
    std::atomic<int> lOpened = 0;
    const auto lRun = [&](ScriptedAdapter& aDevice)
    {
        aDevice.SetRecording(false);
        for (int lIndex = 0; lIndex < 400; ++lIndex)
        {
            KyDeviceSerialPort lPort;
            const KyResult lResult = lPort.Open(&aDevice, KyDeviceSerialUart0);
            EXPECT_TRUE(lResult.IsOK() || lResult.GetCode() == KyResult::FAILURE);
            if (lResult.IsOK())
            {
                ++lOpened;
                EXPECT_EQ(++lOwners, 1);
                std::this_thread::yield();
                --lOwners;
                EXPECT_THAT(lPort.Close(), IsOK());
            }
        }
    };
    std::thread lOther([&] { lRun(lSecond); });
    lRun(lFirst);
    lOther.join();
    EXPECT_GE(lOpened, 1);
    JxUtilsLib::Logger::SetPriority(PriorityWarning);
}

} // namespace
