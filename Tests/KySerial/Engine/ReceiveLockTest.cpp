// What the engines do and do not do while they hold the lock of the receive buffer.

#include "KySerial/Engine/EngineKinds.h"
#include "Support/Repeater.h"

#include <atomic>
#include <future>
#include <thread>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

using std::chrono::milliseconds;

// Asks for the lock on a thread of its own, whether it gets it or not.
std::future<void> AskForLock(SerialPort& aPort)
{
    return std::async(std::launch::async,
                      [&aPort]
                      {
                          uint32_t lReady = 0;
                          static_cast<void>(aPort.GetRxBytesReady(lReady)); // OK always
                      });
}

bool IsDone(std::future<void>& aCall, milliseconds aPatience)
{
    return aCall.wait_for(aPatience) == std::future_status::ready;
}

class ReceiveLockTest : public EngineKindTest
{
protected:
    // Sees at every call of the adapter whether others get the lock.
    void WatchCalls()
    {
        mDevice.OnEveryCall(
            [this]
            {
                ++mCalls;
                if (!mWasHeld)
                {
                    mAsked.push_back(AskForLock(*mEngine)); // kept: it ends when the lock is given back
                    mWasHeld = !IsDone(mAsked.back(), milliseconds(10000));
                }
            });
    }

    // Delivers many bytes in one event, and sees from another thread how many are there meanwhile.
    bool SawPartOfAnEvent(uint32_t aCount)
    {
        std::atomic<bool> lSawPart{false};
        const Repeater lOther(
            [&]
            {
                uint32_t lReady = 0;
                static_cast<void>(mEngine->GetRxBytesReady(lReady)); // OK always
                lSawPart = lSawPart || (lReady != 0 && lReady != aCount);
            });
        for (int lRound = 0; lRound < 40 && !lSawPart; ++lRound)
        {
            Notify();
            EXPECT_EQ(GetReady(*mEngine), aCount);
            EXPECT_THAT(mEngine->FlushRxBuffer(), IsOK());
        }
        return lSawPart;
    }

    int mCalls = 0;
    bool mWasHeld = false;
    std::vector<std::future<void>> mAsked;
};

TEST_P(ReceiveLockTest, NoCallOfTheAdapterIsMadeUnderTheLock)
{
    WatchCalls();
    OnPiece([this] { Confirm(); });
    Offer({1, 2, 3});
    ASSERT_THAT(Open(), IsOK());
    const int lCallsOfOpen = mCalls;
    EXPECT_THAT(Write(Count(3)), IsOK());
    Notify();
    EXPECT_EQ(GetReady(*mEngine), 3U);
    mDevice.SetRegister(0xB84C, 0x00010042); // the byte that a UART collects after a failed write
    for (int lIndex = 0; lIndex < 5; ++lIndex)
    {
        mDevice.FailCall(GetParam() == EngineKind::Uart ? Slot::WriteRegister : Slot::WriteMemory, 1);
        static_cast<void>(Write(Count(1))); // ignored: only its calls count
    }
    EXPECT_THAT(mEngine->Close(), IsOK());
    EXPECT_GT(mCalls, lCallsOfOpen + 10);
    EXPECT_FALSE(mWasHeld);
}

TEST_P(ReceiveLockTest, OneHoldOfTheLockTakesTheBytesOfOneEvent)
{
    constexpr uint32_t cBytes = 100000;
    ASSERT_THAT(Open(), IsOK());
    ASSERT_THAT(mEngine->SetRxBufferSize(cBytes + 1), IsOK());
    mDevice.SetRecording(false);
    Offer(Count(cBytes));
    JxUtilsLib::Logger::SetPriority(PriorityError);
    EXPECT_FALSE(SawPartOfAnEvent(cBytes));
}

KY_ALL_ENGINES(ReceiveLockTest);

// Engines whose writers wait for an event.
using WriterTest = EngineKindTest;

TEST_P(WriterTest, AWriterIsWokenWhenTheBytesOfTheSameEventAreStored)
{
    ASSERT_THAT(Open(), IsOK());
    const Bytes lEvent = GetParam() == EngineKind::Uart ? Words({0x3, 0x41}) : Words({0x900, 0x41});
    std::thread lEvents;
    OnPiece([&] { lEvents = std::thread([&] { mDevice.SendEvent(0x9000, lEvent); }); });
    // While the event thread cannot store the bytes, the writer must not hear of the rest of the event.
    mEngine->LockRx();
    auto lWrite = std::async(std::launch::async, [this] { return Write(Count(1)).IsOK(); });
    const bool lIsDone = lWrite.wait_for(milliseconds(100)) == std::future_status::ready;
    mEngine->UnlockRx();
    const bool lIsWritten = lWrite.get(); // not, when the machine was busy for longer than a writer waits
    EXPECT_FALSE(lIsDone && lIsWritten);
    lEvents.join();
    EXPECT_GT(GetReady(*mEngine), 0U);
}

KY_REGISTER_ENGINES(WriterTest);

// Sees, when a line says that bytes have come, whether others get the lock.
class LockLookingSink final : public JxUtilsLib::LogSink
{
public:
    explicit LockLookingSink(SerialPort& aPort) : mPort(aPort) { JxUtilsLib::Logger::SetSink(this); }
    ~LockLookingSink() { JxUtilsLib::Logger::SetSink(nullptr); }
    LockLookingSink(const LockLookingSink&) = delete;
    LockLookingSink& operator=(const LockLookingSink&) = delete;

    void Write(const JxUtilsLib::LogRecord& aRecord) override
    {
        if (std::string(aRecord.mMessage).starts_with("Rx Interrupt of length "))
        {
            mAsked.push_back(AskForLock(mPort));
            mHeld += IsDone(mAsked.back(), milliseconds(50)) ? 0 : 1;
        }
    }

    int GetHeld() const { return mHeld; }

private:
    SerialPort& mPort;
    std::vector<std::future<void>> mAsked;
    int mHeld = 0;
};

using BulkReceiveLockTest = EngineTest;

TEST_F(BulkReceiveLockTest, TheLineAboutReceivedBytesIsLoggedUnderTheLockAlsoWithoutBytes)
{
    BulkIPEngine lEngine;
    ASSERT_THAT(lEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
    const LockLookingSink lSink(lEngine);
    mDevice.SendEvent(0x9000, Words({0x100, 0x44332211}));
    EXPECT_EQ(lSink.GetHeld(), 1);
    mDevice.SendEvent(0x9000, Words({0x400}));
    EXPECT_EQ(lSink.GetHeld(), 2);
    EXPECT_EQ(GetReady(lEngine), 4U);
}

// A read that has waited in vain returns without the lock, which somebody may hold for long.
TEST_F(BulkReceiveLockTest, AReadThatTimesOutDoesNotWaitForTheLock)
{
    BulkIPEngine lEngine;
    bool lReturned = false;
    for (int lAttempt = 0; lAttempt < 5 && !lReturned; ++lAttempt) // the lock may come before the read begins
    {
        auto lRead = std::async(std::launch::async,
                                [&]
                                {
                                    uint8_t lByte = 0;
                                    uint32_t lGot = 0;
                                    return lEngine.Read(&lByte, 1, lGot, 300).GetCode();
                                });
        std::this_thread::sleep_for(milliseconds(100));
        lEngine.LockRx();
        lReturned = lRead.wait_for(milliseconds(2000)) == std::future_status::ready;
        lEngine.UnlockRx();
        EXPECT_EQ(lRead.get(), static_cast<uint32_t>(KyResult::TIMED_OUT));
    }
    EXPECT_TRUE(lReturned);
    auto lAsked = AskForLock(lEngine);
    EXPECT_TRUE(IsDone(lAsked, milliseconds(10000))) << "the lock is still held";
}

} // namespace
