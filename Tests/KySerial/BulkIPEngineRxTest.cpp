#include "KySerial/EngineTest.h"

#include "BulkIPEngine.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cNotify[] = "KySerialLib::BulkIPEngine::NotifyEvent";

LogLine RxLine(size_t aLength)
{
    return {PriorityDebug, cNotify, "Rx Interrupt of length " + std::to_string(aLength)};
}

class BulkIPEngineRxTest : public EngineTest
{
protected:
    void SetUp() override
    {
        ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK());
        Forget();
    }

    // What one event leaves in the receive buffer.
    Bytes Receive(uint16_t aEventID, uint32_t aStatus, const Bytes& aData)
    {
        Bytes lPayload = Words({aStatus});
        lPayload.insert(lPayload.end(), aData.begin(), aData.end());
        mDevice.SendEvent(aEventID, lPayload);
        return ReadAll(mEngine);
    }

    BulkIPEngine mEngine;
};

TEST_F(BulkIPEngineRxTest, TakesEveryByteAfterTheStatus)
{
    EXPECT_EQ(Receive(0x9000, 0x100, {1, 2, 3, 4, 5}), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(TakeLogOf("BulkIPEngine"), (Lines{RxLine(5)}));
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_F(BulkIPEngineRxTest, TakesBytesForEachOfTheThreeRxBitsAndNoOther)
{
    for (unsigned lBit = 0; lBit < 32; ++lBit)
    {
        SCOPED_TRACE(lBit);
        const bool lRx = lBit >= 8 && lBit <= 10;
        EXPECT_EQ(Receive(0x9000, 1U << lBit, {7}), lRx ? Bytes{7} : Bytes());
        Lines lExpected;
        if (lRx)
        {
            lExpected = {RxLine(1)};
        }
        else if (lBit == 11)
        {
            lExpected = {{PriorityDebug, cNotify, "Tx fifo empty interrupt"}};
        }
        else if (lBit == 12)
        {
            lExpected = {{PriorityDebug, cNotify, "Tx fifo partial empty interrupt"}};
        }
        EXPECT_EQ(TakeLog(), lExpected);
    }
}

TEST_F(BulkIPEngineRxTest, LogsAllThatOneEventSaysInOrder)
{
    EXPECT_EQ(Receive(0x9001, 0xFFFFFFFF, {9, 8}), (Bytes{9, 8}));
    EXPECT_EQ(TakeLog(), (Lines{RxLine(2),
                                {PriorityDebug, cNotify, "Tx fifo empty interrupt"},
                                {PriorityDebug, cNotify, "Tx fifo partial empty interrupt"}}));
}

TEST_F(BulkIPEngineRxTest, TakesEventsOfItsTwoIdentifiersOnly)
{
    for (const int lID : {0, 0x8FFF, 0x9000, 0x9001, 0x9002, 0xFFFF, 0x0090})
    {
        SCOPED_TRACE(lID);
        const bool lMine = lID == 0x9000 || lID == 0x9001;
        EXPECT_EQ(Receive(static_cast<uint16_t>(lID), 0x100, {7}), lMine ? Bytes{7} : Bytes());
        EXPECT_EQ(TakeLog(), lMine ? Lines{RxLine(1)} : Lines());
    }
}

TEST_F(BulkIPEngineRxTest, TakesEventsOfEveryLength)
{
    for (size_t lLength = 0; lLength <= 64; ++lLength)
    {
        SCOPED_TRACE(lLength);
        Bytes lData(lLength, 0x5A); // of exactly this size on the heap: the sanitizer sees any byte beyond
        for (size_t lIndex = 0; lIndex < lLength && lIndex < 4; ++lIndex)
        {
            lData[lIndex] = lIndex == 1 ? 0x04 : 0;
        }
        mDevice.SendEvent(0x9000, lData);
        EXPECT_EQ(ReadAll(mEngine), Bytes(lLength >= 4 ? lLength - 4 : 0, 0x5A));
        EXPECT_EQ(TakeLog(), lLength >= 4 ? Lines{RxLine(lLength - 4)} : Lines());
    }
    mDevice.SendEvent(0x9000, nullptr, 0);
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineRxTest, TakesUnalignedData)
{
    const Bytes lData{0xEE, 0x00, 0x01, 0x00, 0x00, 0x11, 0x22, 0x33};
    mDevice.SendEvent(0x9000, lData.data() + 1, 7);
    EXPECT_EQ(ReadAll(mEngine), (Bytes{0x11, 0x22, 0x33}));
}

TEST_F(BulkIPEngineRxTest, KeepsTheNewestOfTooMany)
{
    EXPECT_THAT(mEngine.SetRxBufferSize(4), IsOK());
    EXPECT_EQ(Receive(0x9000, 0x100, {1, 2, 3, 4, 5}), (Bytes{3, 4, 5}));
    for (const uint32_t lSize : {0U, 1U})
    {
        EXPECT_THAT(mEngine.SetRxBufferSize(lSize), IsOK());
        EXPECT_EQ(Receive(0x9000, 0x100, {1, 2, 3, 4, 5}), Bytes());
    }
}

TEST_F(BulkIPEngineRxTest, ReceivesSilentlyWhenNoPriorityIsEnabled)
{
    DisableEveryPriority();
    EXPECT_EQ(Receive(0x9000, 0x1900, {1}), Bytes{1});
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(BulkIPEngineRxTest, ChecksThatEventsComeToAnOpenPort)
{
    EXPECT_THAT(mEngine.Close(), IsOK());
    mEngine.NotifyEvent(0x1234, 0, 0, 0, nullptr, 0);
    EXPECT_EQ(mAsserts.Take(), Broken({"mDevice != NULL"}));
}

} // namespace
