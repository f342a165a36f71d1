// How long the engines wait for a device. From below each wait is exact; from above it has room for a busy
// machine, but none for another number in the code.

#include "KySerial/EngineTest.h"

#include "BulkIPEngine.h"
#include "SerialPortIPEngine.h"
#include "Support/TimeOf.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

using std::chrono::milliseconds;

class UartWaitTest : public EngineTest
{
protected:
    void SetUp() override { ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialUart0), IsOK()); }

    // A byte that the device refuses or does not confirm.
    void WriteInVain()
    {
        uint32_t lWritten = 0;
        EXPECT_EQ(mEngine.Write(Count(1).data(), 1, lWritten).GetCode(),
                  static_cast<uint32_t>(KyResult::FAILURE));
    }

    SerialPortIPEngine mEngine;
};

TEST_F(UartWaitTest, LooksForReceivedBytesAfterAByteThatWasNotConfirmed)
{
    mDevice.SetRegister(0xB84C, 0x00010044);
    int lLooks = 0;
    for (int lTry = 0; lTry < 5 && lLooks == 0; ++lTry) // the look ends when the millisecond count moves on
    {
        mDevice.ClearCounts();
        mDevice.OnCall(Slot::WriteRegister, [this] { mDevice.SetRegister(0xB84C, 0); });
        mDevice.OnCall(Slot::ReadRegister, [this] { mDevice.SetRegister(0xB84C, 0x00010044); });
        WriteInVain();
        lLooks = mDevice.GetCallCount(Slot::ReadRegister);
    }
    EXPECT_EQ(lLooks, 1);
    EXPECT_EQ(ReadAll(mEngine), Bytes{0x44});
}

TEST_F(UartWaitTest, PausesForATenthOfASecondWhenMoreReceivedBytesWait)
{
    mDevice.Fail(Slot::WriteRegister);
    mDevice.SetRegister(0xB84C, 0x00810043);
    const auto lWrite = [this]
    {
        do // the look ends when the millisecond count moves on, even before it began
        {
            mDevice.ClearCounts();
            WriteInVain();
        } while (mDevice.GetCallCount(Slot::ReadRegister) == 0);
    };
    EXPECT_GE(TimeOf(lWrite), milliseconds(99));
    EXPECT_TRUE(TakesLessThan(milliseconds(300), lWrite));
}

class BulkWaitTest : public EngineTest
{
protected:
    void Open(uint32_t aConfig)
    {
        mDevice.SetRegister(0xB898, aConfig);
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
    }

    void SetTransfer(bool aFastMode)
    {
        mEngine.SetI2CTransfer(true);
        mEngine.SetI2CFastMode(aFastMode);
    }

    // The device confirms the first aConfirmed chunks of each write.
    void WriteInVain(size_t aSize, int aConfirmed)
    {
        mDevice.ClearCounts();
        mDevice.OnCall(Slot::WriteMemory,
                       [this, aConfirmed]
                       {
                           if (mDevice.GetCallCount(Slot::WriteMemory) <= aConfirmed)
                           {
                               mDevice.SendEvent(0x9000, Words({0x1000}));
                           }
                       });
        uint32_t lWritten = 0;
        EXPECT_EQ(mEngine.Write(Count(aSize).data(), static_cast<uint32_t>(aSize), lWritten).GetCode(),
                  static_cast<uint32_t>(KyResult::TIMED_OUT));
    }

    static constexpr uint32_t cUart = 1U << 12; // at 9600 bit/s
    BulkIPEngine mEngine;
};

TEST_F(BulkWaitTest, WaitsBetweenChunksForTheTimeOfTheChunk)
{
    Open(cUart);
    const auto lWrite = [this] { WriteInVain(300, 0); };
    SetTransfer(false);
    EXPECT_GE(TimeOf(lWrite), milliseconds(599));
    SetTransfer(true);
    EXPECT_GE(TimeOf(lWrite), milliseconds(149));
    EXPECT_TRUE(TakesLessThan(milliseconds(280), lWrite));
}

TEST_F(BulkWaitTest, WaitsAfterTheLastChunkForTheTimeOfThatChunk)
{
    Open(cUart | 253U << 24U); // without a limit for the second chunk
    EXPECT_GE(TimeOf([this] { WriteInVain(2256, 1); }), milliseconds(615)); // 208 ms for 2000 bytes
    SetTransfer(true);
    EXPECT_TRUE(TakesLessThan(milliseconds(280), [this] { WriteInVain(257, 1); }));
}

} // namespace
