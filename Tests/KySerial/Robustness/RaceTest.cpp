// Every two calls that the headers allow to meet, for the race detector; and many servers and clients at
// once.

#include "KySerial/Bridge/BridgeFixture.h"
#include "KySerial/KyDeviceI2CBus.h"
#include "KySerial/KyDeviceSerialPort.h"
#include "KySerial/KySerialBridge.h"
#include "Support/PrivateSession.h"
#include "Support/Repeater.h"
#include "clserzmo/clser.h"
#include "clserzmo/sharedfifo.h"
#include "clserzmo/sharedregistry.h"

#include <atomic>
#include <mutex>
#include <thread>

using namespace KyTest;
using KySerialLib::SharedFifo;

namespace
{

using Call = std::function<void()>;

constexpr int cMeetings = 40;

// Lets each two of the calls, and each with itself where that is allowed, run at the same time.
void MeetInPairs(const std::vector<Call>& aCalls, bool aWithItself)
{
    for (size_t lFirst = 0; lFirst < aCalls.size(); ++lFirst)
    {
        for (size_t lSecond = lFirst + (aWithItself ? 0 : 1); lSecond < aCalls.size(); ++lSecond)
        {
            std::atomic<int> lThere{0}; // not std::barrier: one compiler's never opens on Windows
            const auto lRun = [&](const Call& aCall)
            {
                for (++lThere; lThere < 2;)
                {
                    std::this_thread::yield();
                }
                for (int lIndex = 0; lIndex < cMeetings; ++lIndex)
                {
                    aCall();
                }
            };
            std::thread lOther([&] { lRun(aCalls[lSecond]); });
            lRun(aCalls[lFirst]);
            lOther.join();
        }
    }
}

// Calls that may meet in one place only, made one at a time.
Call Alone(std::mutex& aMutex, Call aCall)
{
    return [&aMutex, lCall = std::move(aCall)]
    {
        const std::lock_guard<std::mutex> lLock(aMutex);
        lCall();
    };
}

class RaceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        mDevice.SetRecording(false);
        AddSettings(mDevice, "Bulk1");
        AddSettings(mDevice, "Uart0");
        mDevice.SetInteger("EventBulk1UpstreamDataLength", 4);
        mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SendEvent(0x9000, Words({0x5})); });
        mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({0x1800})); });
    }

    void Arrive()
    {
        mDevice.SendEvent(0x9000, Words({0x10A, 1, 2, 3}));
        mDevice.Invalidate("EventBulk1UpstreamDataBuffer");
    }

    RecordingLogSink mLog{PriorityFatal};
    ScriptedAdapter mDevice;
};

class PortRaceTest : public RaceTest, public testing::WithParamInterface<KyDeviceSerial>
{
};

TEST_P(PortRaceTest, EveryTwoCallsMeet)
{
    KyDeviceSerialPort lPort;
    ASSERT_THAT(lPort.Open(&mDevice, GetParam()), IsOK());
    std::mutex lReading;
    uint32_t lCount = 0;
    uint8_t lBytes[8] = {};
    const auto lReader = [&](const Call& aCall) { return Alone(lReading, aCall); };
    const std::vector<Call> lCalls{
        [this] { Arrive(); },
        [&]
        {
            const uint8_t lByte = 1;
            uint32_t lWritten = 0;
            EXPECT_THAT(lPort.Write(&lByte, 1, lWritten), IsOK());
        },
        lReader([&] { static_cast<void>(lPort.Read(lBytes, sizeof lBytes, lCount, 0)); }),
        lReader([&] { EXPECT_THAT(lPort.FlushRxBuffer(), IsOK()); }),
        lReader([&] { EXPECT_THAT(lPort.GetRxBytesReady(lCount), IsOK()); }),
        lReader([&] { EXPECT_THAT(lPort.GetRxBufferSize(lCount), IsOK()); }),
        lReader([&] { EXPECT_THAT(lPort.SetRxBufferSize(100), IsOK()); }),
        [&] { EXPECT_TRUE(lPort.IsOpened()); },
        [this] { EXPECT_TRUE(KyDeviceSerialPort::IsSupported(&mDevice, GetParam())); }};
    MeetInPairs(lCalls, false);
    EXPECT_THAT(lPort.Close(), IsOK());
}

INSTANTIATE_TEST_SUITE_P(EachEngine, PortRaceTest,
                         testing::Values(KyDeviceSerialUart0, KyDeviceSerialBulk0, KyDeviceSerialBulk1));

TEST_F(RaceTest, OpeningAndClosingMeetsADeviceThatComesAndGoes)
{
    std::optional<Repeater> lPlug(
        [this]
        {
            mDevice.SetAnswer(Slot::IsConnected, false);
            Arrive();
            mDevice.SetAnswer(Slot::IsConnected, true);
            Arrive();
        });
    KyDeviceSerialPort lPort;
    int lClosed = 0;
    for (int lIndex = 0; lIndex < 300 || (lClosed == 0 && lIndex < 1000000);
         ++lIndex) // away for long, at times
    {
        if (!lPort.IsOpened())
        {
            static_cast<void>(lPort.Open(&mDevice, KyDeviceSerialBulk1)); // the device may be away
        }
        lClosed += lPort.Close().IsOK() ? 1 : 0;
    }
    lPlug.reset();
    static_cast<void>(lPort.Close()); // may be closed
    EXPECT_FALSE(lPort.IsOpened());
    EXPECT_THAT(lPort.Open(&mDevice, KyDeviceSerialBulk1), IsOK());
    EXPECT_THAT(lPort.Close(), IsOK());
    EXPECT_TRUE(mDevice.GetSinks().empty());
    EXPECT_GT(lClosed, 0);
}

TEST_F(RaceTest, EveryCallOfABusMeetsTheEventThread)
{
    mDevice.SetRegister(0xB8FC, 0); // no registers to ask for a port that they do not have
    KyDeviceI2CBus lBus;
    ASSERT_THAT(lBus.Open(&mDevice, KyDeviceSerialBulk1), IsOK());
    std::mutex lCaller;
    uint8_t lByte = 0;
    uint32_t lCount = 0;
    const auto lOne = [&](const Call& aCall) { return Alone(lCaller, aCall); };
    const std::vector<Call> lCalls{
        [this] { Arrive(); },
        lOne([&] { EXPECT_THAT(lBus.BurstWrite(1, &lByte, 1, true), IsOK()); }),
        lOne([&] { EXPECT_THAT(lBus.BurstRead(1, &lByte, 0, lCount, true), IsOK()); }),
        lOne([&] { EXPECT_THAT(lBus.IndirectBurstWrite(1, 2, &lByte, 1, true), IsOK()); }),
        lOne([&] { EXPECT_THAT(lBus.IndirectBurstRead(1, 2, &lByte, 0, lCount, true, true), IsOK()); }),
        lOne([&] { EXPECT_TRUE(lBus.IsOpened()); }),
        [this] { EXPECT_TRUE(KyDeviceI2CBus::IsSupported(&mDevice, KyDeviceSerialBulk1)); }};
    MeetInPairs(lCalls, false);
    EXPECT_THAT(lBus.Close(), IsOK());
}

TEST_F(RaceTest, EveryTwoCallsOnABridgeMeet)
{
    const PrivateSession lSession;
    KySerialBridge lBridge;
    ASSERT_THAT(lBridge.Start("Raced", &mDevice, KyDeviceSerialBulk1), IsOK());
    SharedFifo lDown("KySerialBridgeDownFifo1", "Local\\", 1024, false);
    std::mutex lRates;
    const std::vector<Call> lCalls{
        [&]
        {
            Arrive();
            uint32_t lCount = 0;
            static_cast<void>(lDown.Write("x", 1, lCount, 0));
        },
        [&] { EXPECT_THAT(lBridge.Recover(), IsOK()); },
        Alone(lRates, [&] { EXPECT_THAT(lBridge.SetHardCodedBaudRate(19200), IsOK()); }),
        Alone(lRates,
              [&] { static_cast<void>(lBridge.SetSerialPortConfiguration(KySerialPortConfiguration())); }),
        [&] { EXPECT_EQ(lBridge.GetSupportedBaudRateCount(), 2U); },
        [&] { EXPECT_EQ(lBridge.GetSupportedBaudRate(0), 9600U); },
        [&] { EXPECT_GT(lBridge.GetBaudRate(), 0U); },
        [&] { EXPECT_GT(lBridge.GetHardCodedBaudRate(), 0U); },
        [&] { EXPECT_STREQ(lBridge.GetName().GetAscii(), "Raced"); },
        [&] { EXPECT_EQ(lBridge.GetSerialPort().GetLength(), 0U); },
        [&] { EXPECT_EQ(lBridge.GetDevicePort(), KyDeviceSerialBulk1); },
        [&] { EXPECT_FALSE(lBridge.GetSerialPortConfiguration().IsValid().IsOK()); },
        [&] { static_cast<void>(lBridge.GetBytesSentToDevice() + lBridge.GetBytesReceivedFromDevice()); },
        [&] { lBridge.ResetStatistics(); }};
    MeetInPairs(lCalls, false);
    EXPECT_THAT(lBridge.Stop(), IsOK());
    EXPECT_TRUE(mDevice.GetSinks().empty());
}

TEST_F(RaceTest, EveryTwoCallsOnAFifoMeet)
{
    const PrivateSession lSession;
    SharedFifo lFifo("Raced", "Local\\", 64, true);
    ASSERT_TRUE(lFifo.IsValid());
    const std::vector<Call> lCalls{[&]
                                   {
                                       uint32_t lCount = 0;
                                       static_cast<void>(lFifo.Write("abcde", 5, lCount, 0));
                                       EXPECT_LE(lCount, 5U);
                                   },
                                   [&]
                                   {
                                       char lBytes[16];
                                       uint32_t lCount = 0;
                                       static_cast<void>(lFifo.Read(lBytes, sizeof lBytes, lCount, 0));
                                       EXPECT_LE(lCount, 16U);
                                   },
                                   [&]
                                   {
                                       uint32_t lCount = 0;
                                       EXPECT_TRUE(lFifo.GetAvailable(lCount));
                                       EXPECT_LT(lCount, 64U);
                                   },
                                   [&] { EXPECT_FALSE(lFifo.Clear()); },
                                   [&] { static_cast<void>(lFifo.WaitUntilEmpty(0)); },
                                   [&] { EXPECT_TRUE(lFifo.IsValid()); }};
    MeetInPairs(lCalls, true);
}

TEST_F(RaceTest, ServersAndClientsComeAndGo)
{
    constexpr int cServers = 32;
    constexpr int cClients = 64;
    const PrivateSession lSession;
    const KySerialLib::SharedRegistry lKeeper(true); // the table lives while servers come and go
    std::atomic<int> lVisits{0};
    std::atomic<int> lServing{cServers};
    std::vector<std::thread> lThreads;
    lThreads.reserve(cServers + cClients);
    for (int lServer = 0; lServer < cServers; ++lServer)
    {
        lThreads.emplace_back(
            [&, lServer]
            {
                ScriptedAdapter lDevice;
                lDevice.SetRecording(false);
                KySerialBridge lBridge;
                const std::string lName = "Server" + std::to_string(lServer);
                for (int lRound = 0; lRound < 2; ++lRound)
                {
                    const int lBefore = lVisits;
                    EXPECT_THAT(lBridge.Start(lName.c_str(), &lDevice, KyDeviceSerialBulk1), IsOK());
                    while (lVisits < lBefore + 3)
                    {
                        std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    }
                    EXPECT_THAT(lBridge.Stop(), IsOK());
                }
                --lServing;
            });
    }
    for (int lClient = 0; lClient < cClients; ++lClient)
    {
        lThreads.emplace_back(
            [&, lClient]
            {
                for (int lTry = lClient; lServing > 0; ++lTry)
                {
                    hSerRef lPort = nullptr;
                    if (clSerialInit(static_cast<CLUINT32>(lTry % cServers), &lPort) != CL_ERR_NO_ERR)
                    {
                        std::this_thread::sleep_for(std::chrono::milliseconds(5));
                    }
                    char lBytes[4] = "abc";
                    CLUINT32 lCount = 3;
                    static_cast<void>(clSerialWrite(lPort, lBytes, &lCount, 1)); // the server may go
                    lCount = 1;
                    EXPECT_NE(clSerialReadEx(lPort, lBytes, &lCount, 1), CL_ERR_NO_ERR); // nobody sends
                    clSerialClose(lPort);
                    ++lVisits; // those that found no server count too: nobody waits for ever
                }
            });
    }
    for (std::thread& lThread : lThreads)
    {
        lThread.join();
    }
    EXPECT_GE(lVisits, 3);
}

} // namespace
