#include "KySerial/EngineTest.h"
#include "Support/TimeOf.h"
#include "Support/VirtualSlot.h"

#include "BulkIPEngine.h"
#include "DeviceSerialPort.h"
#include "IRegisterSerialPort.h"
#include "SerialPort.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <future>
#include <memory>
#include <thread>
#include <type_traits>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

class TestPort : public DeviceSerialPort
{
public:
    bool IsOpened() override { return false; }
    KyResult Write(const uint8_t* /*aBuffer*/, uint32_t /*aSize*/, uint32_t& /*aBytesWritten*/) override
    {
        return KyResult();
    }
    KyResult Open(IKyDeviceAdapter* /*aDevice*/, KyDeviceSerial /*aPort*/) override { return KyResult(); }

    void Push(const Bytes& aBytes)
    {
        for (const uint8_t lByte : aBytes)
        {
            PushByte(lByte, true);
        }
    }
};

// One more function than the engines' contract: its slot is the number of functions of the contract.
class ExtendedPort : public DeviceSerialPort
{
public:
    virtual void Added() = 0;
};

class SerialPortTest : public EngineTest
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(TakeLog(), Lines()); // nothing of the base logs
        EngineTest::TearDown();
    }

    void SetSize(uint32_t aSize) { EXPECT_THAT(mPort.SetRxBufferSize(aSize), IsOK()); }

    uint32_t GetSize()
    {
        uint32_t lSize = 0xDEAD;
        EXPECT_THAT(mPort.GetRxBufferSize(lSize), IsOK());
        return lSize;
    }

    // Reads up to so many bytes, of which there is at least one.
    Bytes Read(uint32_t aSize, uint32_t aTimeout)
    {
        EXPECT_THAT(mPort.Read(mBytes, aSize, mGot, aTimeout), IsOK());
        return {mBytes, mBytes + mGot};
    }
    void ExpectNothing(uint32_t aTimeout)
    {
        EXPECT_THAT(mPort.Read(mBytes, sizeof mBytes, mGot, aTimeout), IsResult(KyResult::TIMED_OUT, ""));
        EXPECT_EQ(mGot, 0U);
    }
    // A batch of bytes in one hold of the lock.
    void PushBatch(const uint8_t* aBytes, uint32_t aCount)
    {
        mPort.LockRx();
        mPort.PushBytes(aBytes, aCount);
        mPort.UnlockRx();
    }

    // Reads on a second thread, pushing bytes until that has come back.
    KyResult ReadWhilePushing(uint32_t& aGot)
    {
        std::atomic<bool> lDone = false;
        KyResult lResult;
        uint8_t lByte = 0;
        std::thread lReader(
            [&]
            {
                lResult = mPort.Read(&lByte, 1, aGot, 60000);
                lDone = true;
            });
        while (!lDone)
        {
            mPort.PushByte(0x55, true);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        lReader.join();
        return lResult;
    }

    uint8_t mBytes[64] = {};
    uint32_t mGot = 0xDEAD;
    TestPort mPort;
};

TEST_F(SerialPortTest, KeepsTheElevenSlotsOfTheEnginesInOrder)
{
    // The destructor, slot 2, has two entries in this compiler's tables.
    EXPECT_EQ(GetVirtualSlot(&SerialPort::NotifyEvent), 0);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::NotifyFeatureInvalidated), 1);
    EXPECT_TRUE(std::has_virtual_destructor_v<SerialPort>);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::Close), 3 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::IsOpened), 4 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::Write), 5 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::FlushRxBuffer), 6 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::GetRxBytesReady), 7 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::GetRxBufferSize), 8 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::SetRxBufferSize), 9 + 1);
    EXPECT_EQ(GetVirtualSlot(&DeviceSerialPort::Open), 10 + 1);
    EXPECT_EQ(GetVirtualSlot(&ExtendedPort::Added), 11 + 1);
    EXPECT_EQ(GetVirtualSlot(&SerialPort::Read), -1);
    EXPECT_TRUE(std::is_abstract_v<SerialPort>);
    EXPECT_TRUE(std::is_abstract_v<DeviceSerialPort>);
    EXPECT_TRUE((std::is_base_of_v<IKyDeviceEventSink, SerialPort>));
}

TEST_F(SerialPortTest, IsTheBaseOfBothBulkEnginesThroughTheOneWithFlags)
{
    EXPECT_TRUE((std::is_base_of_v<BulkWithI2C, BulkIPEngine>));
    EXPECT_TRUE((std::is_base_of_v<BulkWithI2C, IRegisterSerialPort>));
    EXPECT_TRUE((std::is_base_of_v<DeviceSerialPort, BulkWithI2C>));
    EXPECT_TRUE(std::is_abstract_v<BulkWithI2C>);
    EXPECT_EQ(GetVirtualSlot(&BulkWithI2C::SetI2CFastMode), -1);
    EXPECT_EQ(GetVirtualSlot(&BulkWithI2C::SetI2CTransfer), -1);
}

TEST_F(SerialPortTest, IgnoresEventsAndFeatureChanges)
{
    mPort.NotifyEvent(0x9000, 0, 0, 0, nullptr, 0);
    mPort.NotifyEvent(0x9000, 0, 0, 0, mBytes, sizeof mBytes);
    mPort.NotifyFeatureInvalidated(nullptr);
    EXPECT_EQ(GetReady(mPort), 0U);
}

TEST_F(SerialPortTest, TakesManyBytesInOneHoldOfTheLock)
{
    mPort.LockRx();
    mPort.PushByte(7, false);
    mPort.PushByte(8, false);
    mPort.UnlockRx();
    mPort.PushByte(9, true);
    EXPECT_EQ(GetReady(mPort), 3U);
    EXPECT_EQ(ReadAll(mPort), (Bytes{7, 8, 9}));
    EXPECT_EQ(GetReady(mPort), 0U);
}

TEST_F(SerialPortTest, KeepsOneByteLessThanCellsAndLosesTheOldest)
{
    for (int lIndex = 0; lIndex < 16384; ++lIndex)
    {
        mPort.PushByte(static_cast<uint8_t>(lIndex % 251), true);
    }
    EXPECT_EQ(GetReady(mPort), 16383U);
    EXPECT_EQ(Read(2, 0), (Bytes{1, 2}));
    EXPECT_EQ(mBytes[2], 0); // beyond what was asked for
    const Bytes lRest = ReadAll(mPort);
    EXPECT_EQ(lRest.size(), 16381U);
    EXPECT_EQ(lRest.back(), 16383 % 251);
}

// A batch does what as many single bytes would, wherever the indexes stand and however small the ring is.
TEST_F(SerialPortTest, BatchesOfBytesKeepTheNewest)
{
    for (const uint32_t lCells : {1U, 2U, 3U, 8U, 17U})
    {
        SetSize(lCells);
        std::deque<uint8_t> lExpected;
        uint8_t lNext = 0;
        for (uint32_t lStep = 0; lStep < 400; ++lStep)
        {
            Bytes lBatch((lStep * 7) % (lCells * 2 + 2));
            for (uint8_t& lByte : lBatch)
            {
                lByte = lNext++;
                lExpected.push_back(lByte);
            }
            PushBatch(lBatch.data(), static_cast<uint32_t>(lBatch.size()));
            while (lExpected.size() > lCells - 1)
            {
                lExpected.pop_front();
            }
            ASSERT_EQ(GetReady(mPort), lExpected.size());
            const uint32_t lWanted = lStep % 5 + 1;
            static_cast<void>(mPort.Read(mBytes, lWanted, mGot, 0));
            ASSERT_EQ(mGot, std::min<size_t>(lWanted, lExpected.size()));
            for (uint32_t lIndex = 0; lIndex < mGot; ++lIndex)
            {
                ASSERT_EQ(mBytes[lIndex], lExpected.front());
                lExpected.pop_front();
            }
        }
    }
}

TEST_F(SerialPortTest, ABatchWakesAReader)
{
    auto lReader = std::async(std::launch::async,
                              [this] { return mPort.Read(mBytes, sizeof mBytes, mGot, 0xFFFFFFFF); });
    Bytes lBatch{4, 5, 6};
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // most often the reader waits by then
    PushBatch(lBatch.data(), 3);
    EXPECT_THAT(lReader.get(), IsOK());
    EXPECT_EQ(Bytes(mBytes, mBytes + mGot), lBatch);
}

TEST_F(SerialPortTest, WaitsForTheWholeTimeoutWhenNothingComes)
{
    ExpectNothing(0);
    EXPECT_GE(TimeOf([this] { ExpectNothing(100); }), std::chrono::milliseconds(99));
}

TEST_F(SerialPortTest, ReturnsWhenTheFirstByteComesAndDoesNotWaitForMore)
{
    std::thread lDevice(
        [&]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            mPort.PushByte(0x42, true);
        });
    EXPECT_EQ(Read(sizeof mBytes, 0xFFFFFFFF), Bytes{0x42});
    lDevice.join();
    mPort.Push({1, 2, 3});
    EXPECT_EQ(Read(sizeof mBytes, 0xFFFFFFFF), (Bytes{1, 2, 3}));
}

TEST_F(SerialPortTest, TakesOneByteForASizeOfNone)
{
    mPort.Push({1, 2, 3, 4, 5});
    EXPECT_EQ(Read(0, 0), Bytes{1});
    EXPECT_EQ(GetReady(mPort), 4U);
}

TEST_F(SerialPortTest, RefusesANullBufferAndKeepsTheBytes)
{
    mPort.Push({1, 2});
    EXPECT_THAT(mPort.Read(nullptr, 2, mGot, 0), IsResult(KyResult::BAD_PARAMETER, cNullBuffer));
    EXPECT_EQ(mGot, 0U);
    EXPECT_EQ(mPort.Read(nullptr, 0, mGot, 0).GetCode(), KyResult::BAD_PARAMETER);
    EXPECT_EQ(ReadAll(mPort), (Bytes{1, 2}));
    EXPECT_EQ(TakeLog(), Lines(2, LogLine{PriorityError, "KySerialLib::SerialPort::Read", cNullBuffer}));
}

TEST_F(SerialPortTest, FindsNothingWhenItIsWokenWithoutAByteWhichWakesItOnce)
{
    SetSize(1); // one cell holds nothing, but the byte that gets lost wakes the reader
    EXPECT_THAT(ReadWhilePushing(mGot), IsOK());
    EXPECT_EQ(mGot, 0U);
    ExpectNothing(20);
}

TEST_F(SerialPortTest, LetsOthersInWhileAReaderWaits)
{
    KyResult lResult;
    std::thread lReader([&] { lResult = mPort.Read(mBytes, 1, mGot, 60000); });
    for (int lIndex = 0; lIndex < 20; ++lIndex)
    {
        EXPECT_EQ(GetReady(mPort), 0U);
        EXPECT_THAT(mPort.FlushRxBuffer(), IsOK());
        SetSize(32);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    mPort.PushByte(1, true);
    lReader.join();
    EXPECT_THAT(lResult, IsOK());
    EXPECT_EQ(mGot, 1U);
}

TEST_F(SerialPortTest, AReaderThatWaitsIsLetGoWhenReadsEnd)
{
    auto lReader = std::async(std::launch::async, [this] { return mPort.Read(mBytes, 1, mGot, 0xFFFFFFFF); });
    std::this_thread::sleep_for(std::chrono::milliseconds(2)); // most often the reader waits by then
    mPort.EndReads(true);
    EXPECT_THAT(lReader.get(), IsResult(KyResult::TIMED_OUT, ""));
    EXPECT_EQ(mGot, 0U);
}

TEST_F(SerialPortTest, WhileReadsEndTheyTakeWhatIsThereAndDoNotWait)
{
    mPort.EndReads(true);
    ExpectNothing(0xFFFFFFFF);
    mPort.Push({1, 2});
    EXPECT_THAT(mPort.Read(mBytes, sizeof mBytes, mGot, 0xFFFFFFFF), IsOK());
    EXPECT_EQ(mGot, 2U);
    mPort.EndReads(false);
    EXPECT_THAT(ReadWhilePushing(mGot), IsOK()); // waits again
    EXPECT_EQ(mGot, 1U);
}

TEST_F(SerialPortTest, CountsWhatItReceivesLosesAndClears)
{
    using Counts = std::array<uint64_t, 3>; // received, lost to newer ones, cleared
    const auto lTake = [this]
    {
        const SerialPort::ReceiveCounts lCounts = mPort.TakeReceiveCounts();
        return Counts{lCounts.mReceived, lCounts.mOverrun, lCounts.mCleared};
    };
    SetSize(11); // for ten bytes
    mPort.Push(Count(8));
    EXPECT_EQ(lTake(), (Counts{8, 0, 0}));
    mPort.Push(Count(5)); // byte by byte
    EXPECT_EQ(lTake(), (Counts{5, 3, 0}));
    EXPECT_THAT(mPort.Read(mBytes, 4, mGot, 0), IsOK());
    PushBatch(mBytes, 9); // six wait
    EXPECT_EQ(lTake(), (Counts{9, 5, 0}));
    PushBatch(mBytes, 30);                   // more than there is room for at all
    EXPECT_EQ(lTake(), (Counts{30, 30, 0})); // ten that waited, and twenty of these
    EXPECT_THAT(mPort.FlushRxBuffer(), IsOK());
    EXPECT_EQ(lTake(), (Counts{0, 0, 10}));
    ExpectNothing(0);
    mPort.Push(Count(3));
    SetSize(100);
    EXPECT_EQ(lTake(), (Counts{3, 0, 3}));
    ExpectNothing(0);
    mPort.Push(Count(7));
    EXPECT_THAT(mPort.Close(), IsOK());
    EXPECT_EQ(lTake(), (Counts{7, 0, 7}));
    ExpectNothing(0);
    EXPECT_EQ(GetSize(), 100U);
}

TEST_F(SerialPortTest, TakesEverySmallSize)
{
    for (uint32_t lSize = 0; lSize <= 9; ++lSize)
    {
        SCOPED_TRACE(lSize);
        SetSize(lSize);
        EXPECT_EQ(GetSize(), lSize);
        mPort.Push(Count(25));
        const uint32_t lKept = lSize > 1 ? lSize - 1 : 0;
        EXPECT_EQ(GetReady(mPort), lKept);
        const Bytes lAll = Count(25);
        EXPECT_EQ(ReadAll(mPort), Bytes(lAll.end() - lKept, lAll.end()));
        ExpectNothing(0);
        ExpectNothing(1);
        EXPECT_THAT(mPort.FlushRxBuffer(), IsOK());
        EXPECT_THAT(mPort.Close(), IsOK());
    }
}

} // namespace
