// How the buses take the answers of their devices.

#include "KySerial/Bus/BusTest.h"

#include "DeviceI2CBus.h"
#include "DeviceSPIBus.h"

#include <chrono>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

using std::chrono::milliseconds;

constexpr uint32_t cLong = 11112; // bytes whose reads may take 1050 ms each; shorter answers have 50 ms

class I2CAnswerTest : public BusTest<DeviceI2CBus>
{
protected:
    void TearDown() override
    {
        TakeLog();
        BusTest<DeviceI2CBus>::TearDown();
    }

    // Opens the register engine. The device confirms a read command, then runs aAnswer on its own thread.
    template<typename Answer>
    void OpenWithAnswer(const Answer& aAnswer)
    {
        mDevice.OnCall(Slot::WriteMemory,
                       [this, aAnswer]
                       {
                           mDevice.SendEvent(0x9000, Words({0x800}));
                           mAnswering = std::thread(aAnswer);
                       });
        ASSERT_THAT(Open(2), IsOK());
    }

    KyResult Read()
    {
        mAnswer.assign(cLong, 0);
        KyResult lResult = mBus->BurstRead(0x50, mAnswer.data(), cLong, mGot, false);
        mAnswering.join();
        return lResult;
    }

    void Send(const Bytes& aBytes) { mDevice.SendEvent(0x9000, Together({Words({0x100}), aBytes})); }

    // The part of Count(cLong) that begins at a byte.
    static Bytes CountPart(size_t aBegin, size_t aSize) { return Part(Count(cLong), aBegin, aSize); }

    std::thread mAnswering;
    Bytes mAnswer;
};

TEST_F(I2CAnswerTest, TheTimeIsForEachPartOfTheAnswerNotForAllOfThem)
{
    OpenWithAnswer(
        [this]
        {
            Send(CountPart(0, 100));
            std::this_thread::sleep_for(milliseconds(600));
            Send(CountPart(100, 100));
            std::this_thread::sleep_for(milliseconds(600));
            Send(CountPart(200, cLong - 200));
        });
    KyResult lResult = Read();
    for (int lAttempt = 0; lAttempt < 3 && !lResult.IsOK(); ++lAttempt) // a busy machine was late with a part
    {
        lResult = Read();
    }
    EXPECT_THAT(lResult, IsOK());
    EXPECT_EQ(mGot, cLong);
    EXPECT_EQ(mAnswer, Count(cLong));
}

TEST_F(I2CAnswerTest, GoesOnAfterAWakeUpThatBroughtNothing)
{
    OpenWithAnswer(
        [this]
        {
            auto* const lEngine = static_cast<SerialPort*>(mDevice.GetSinks().at(0));
            EXPECT_THAT(lEngine->SetRxBufferSize(1),
                        IsOK()); // holds nothing, but what comes wakes the reader
            for (int lIndex = 0; lIndex < 20; ++lIndex)
            {
                std::this_thread::sleep_for(milliseconds(5));
                Send({0x99});
            }
            EXPECT_THAT(lEngine->SetRxBufferSize(16384), IsOK());
            Send(Count(cLong));
        });
    EXPECT_THAT(Read(), IsOK());
    EXPECT_EQ(mGot, cLong);
    EXPECT_EQ(mAnswer, Count(cLong));
}

using SPIAnswerTest = BusTest<DeviceSPIBus>;

TEST_F(SPIAnswerTest, ATransferKeepsWhatEarlierOnesHaveRead)
{
    ASSERT_THAT(Open(2), IsOK());
    const auto lAnswer = [this](const Bytes& aBytes) { SendUpstream(mDevice, 0, aBytes); };
    lAnswer({1, 2});
    mDevice.OnCall(Slot::PostWrite, [&] { lAnswer({3, 4}); });
    EXPECT_THAT(mBus->BurstWriteAndRead(mBytes, 2, 2, false, true), IsOK());
    EXPECT_THAT(mBus->BurstRead(mBytes, sizeof mBytes, mGot, 0), IsOK());
    EXPECT_EQ(Bytes(mBytes, mBytes + mGot), (Bytes{1, 2, 3, 4}));
}

} // namespace
