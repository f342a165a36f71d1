// The C interface from several threads, and beside the C++ headers.

#include "Check.h"

#include "KySerialC/kyserial.h"
#include "KySimulatorC/kysimulator.h"

#include <KySerial/KyDeviceI2CBus.h>
#include <KySerial/KyDeviceSPIBus.h>
#include <KySerial/KyDeviceSerialPort.h>
#include <KySerial/KySerialBridge.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

static_assert(static_cast<int>(KyResult::NOT_OPEN) == KY_NOT_OPEN &&
              static_cast<int>(KyResult::BAD_PARAMETER) == KY_BAD_PARAMETER);
static_assert(static_cast<int>(KyDeviceSerialBulk7) == KY_BULK7 &&
              static_cast<int>(KyParityOdd) == KY_PARITY_ODD);

TEST(KyThreadsC, TheTextBelongsToTheThread)
{
    KySetLastText("mine");
    std::thread([] { EXPECT_STREQ(KyGetLastText(), ""); }).join();
    EXPECT_STREQ(KyGetLastText(), "mine");
}

TEST(KyThreadsC, APortIsReadAndWrittenAtTheSameTime)
{
    constexpr size_t cBytes = 20000;
    const TestCamera lCamera = MakeCamera();
    const KyPortHandle lPort = OpenPort(lCamera, KY_BULK1, KY_SIM_LOOPBACK);
    ASSERT_EQ(KyPortSetRxBufferSize(lPort, cBytes + 1), static_cast<KyCode>(KY_OK));
    std::thread lWriter(
        [&]
        {
            const std::string lData(cBytes, 'x');
            uint32_t lWritten = 0;
            EXPECT_EQ(KyPortWrite(lPort, reinterpret_cast<const uint8_t*>(lData.data()), cBytes, &lWritten),
                      static_cast<KyCode>(KY_OK));
        });
    size_t lReceived = 0;
    uint32_t lRead = 1;
    while (lReceived < cBytes && lRead > 0)
    {
        std::vector<uint8_t> lBuffer(1000);
        KyPortRead(lPort, lBuffer.data(), 1000, &lRead, PATIENCE);
        lReceived += lRead;
    }
    lWriter.join();
    EXPECT_EQ(lReceived, cBytes);
    CHECK_OK(KyPortClose(lPort));
    CHECK_OK(KyPortDestroy(lPort));
    EndCamera(lCamera);
}

// Whatever another thread does with a port meanwhile, calls on it give a result and nothing breaks.
TEST(KyThreadsC, APortThatIsClosedAndDestroyedMeanwhileGivesResults)
{
    const TestCamera lCamera = MakeCamera();
    KyLogSetPriority(KY_LOG_FATAL);
    for (int lRound = 0; lRound < 20; ++lRound)
    {
        const KyPortHandle lPort = OpenPort(lCamera, KY_BULK1, KY_SIM_LOOPBACK);
        std::atomic<int> lStarted{0};
        std::vector<std::thread> lThreads;
        lThreads.reserve(3);
        for (int lThread = 0; lThread < 3; ++lThread)
        {
            lThreads.emplace_back(
                [&, lThread]
                {
                    ++lStarted;
                    KyCode lCode = KY_OK;
                    while (lCode != KY_INVALID_HANDLE)
                    {
                        uint8_t lByte = 'x';
                        uint32_t lCount = 0;
                        lCode = lThread == 0   ? KyPortRead(lPort, &lByte, 1, &lCount, 1)
                                : lThread == 1 ? KyPortWrite(lPort, &lByte, 1, &lCount)
                                               : KyPortFlushRxBuffer(lPort);
                    }
                });
        }
        while (lStarted < 3)
        {
            std::this_thread::yield();
        }
        CHECK_OK(KyPortClose(lPort));
        CHECK_OK(KyPortOpen(lPort, lCamera.mDevice, KY_BULK1));
        CHECK_OK(KyPortDestroy(lPort));
        for (std::thread& lThread : lThreads)
        {
            lThread.join();
        }
    }
    KyLogSetPriority(KY_LOG_WARNING);
    EndCamera(lCamera);
}

// Reports of many threads come one after the other, and a port may be opened and closed meanwhile.
TEST(KyThreadsC, EventsMayBeReportedByManyThreadsWhilePortsComeAndGo)
{
    const TestCamera lCamera = MakeCamera();
    std::atomic<bool> lStop{false};
    std::vector<std::thread> lReporters;
    lReporters.reserve(3);
    for (int lThread = 0; lThread < 3; ++lThread)
    {
        lReporters.emplace_back(
            [&]
            {
                const uint8_t lPayload[] = {0x02, 0, 0, 0, 'k', 0, 0x01, 0};
                while (!lStop)
                {
                    CHECK_OK(
                        KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, lPayload, sizeof lPayload));
                }
            });
    }
    for (int lRound = 0; lRound < 20; ++lRound)
    {
        const KyPortHandle lPort = OpenPort(lCamera, KY_UART0, KY_SIM_NOTHING);
        uint8_t lByte = 0;
        uint32_t lRead = 0;
        CHECK_OK(KyPortRead(lPort, &lByte, 1, &lRead, PATIENCE));
        EXPECT_EQ(lByte, 'k');
        CHECK_OK(KyPortClose(lPort));
        CHECK_OK(KyPortDestroy(lPort));
    }
    lStop = true;
    for (std::thread& lThread : lReporters)
    {
        lThread.join();
    }
    EndCamera(lCamera);
}

TEST(KyThreadsC, ADeviceMayEndWhileItsEventsAreReported)
{
    for (int lRound = 0; lRound < 20; ++lRound)
    {
        const TestCamera lCamera = MakeCamera();
        std::atomic<bool> lStarted{false};
        std::thread lReporter(
            [&]
            {
                KyCode lCode = KY_OK;
                while (lCode == KY_OK)
                {
                    lCode = KyDeviceNotifyEvent(lCamera.mDevice, 0x9000, 0, 0, 0, nullptr, 0);
                    lStarted = true;
                }
                EXPECT_EQ(lCode, static_cast<KyCode>(KY_INVALID_HANDLE));
            });
        while (!lStarted)
        {
            std::this_thread::yield();
        }
        KyLogSetPriority(KY_LOG_FATAL);
        EndCamera(lCamera);
        lReporter.join();
        KyLogSetPriority(KY_LOG_WARNING);
    }
}
