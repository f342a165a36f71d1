#include "KySerial/EngineTest.h"

#include "SerialPortIPEngine.h"

#include <vector>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

class SerialPortIPEngineRxTest : public EngineTest
{
protected:
    void Open(KyDeviceSerial aPort)
    {
        ASSERT_THAT(mEngine.Open(&mDevice, aPort), IsOK());
        Forget();
    }

    // What one event leaves in the receive buffer.
    Bytes Receive(uint16_t aEventID, const Bytes& aData)
    {
        mDevice.SendEvent(aEventID, aData);
        return ReadAll(mEngine);
    }

    // Lets a write fail with data register aData; returns how often the register was read for it.
    int Drain(uint32_t aRegister, uint32_t aData)
    {
        mDevice.SetRegister(aRegister, aData);
        mDevice.FailCall(Slot::WriteRegister, 1);
        mDevice.ClearCounts();
        const uint8_t lByte = 0;
        uint32_t lWritten = 0;
        EXPECT_EQ(mEngine.Write(&lByte, 1, lWritten).GetCode(), KyResult::FAILURE);
        return mDevice.GetCallCount(Slot::ReadRegister);
    }

    // The drain ends when the millisecond count moves on, even before its first look: try until it looked.
    int DrainOnce(uint32_t aRegister, uint32_t aData)
    {
        int lReads = 0;
        for (int lIndex = 0; lIndex < 100 && lReads == 0; ++lIndex)
        {
            lReads = Drain(aRegister, aData);
        }
        return lReads;
    }

    SerialPortIPEngine mEngine;
};

TEST_F(SerialPortIPEngineRxTest, TakesTheLowByteOfEachDataWord)
{
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(Receive(0x9000, Words({0x2, 0xFFFFFF41, 0x00000142})), (Bytes{0x41, 0x42}));
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_EQ(mDevice.TakeCalls(), Calls());
}

TEST_F(SerialPortIPEngineRxTest, TakesOnlyEventsOfItsUart)
{
    Open(KyDeviceSerialUart1);
    EXPECT_EQ(Receive(0x9000, Words({0x2, 0x41, 0x42})), Bytes());
    EXPECT_EQ(Receive(0x9000, Words({0x8, 0x41, 0x42})), (Bytes{0x41, 0x42}));
    EXPECT_THAT(mEngine.Close(), IsOK());
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(Receive(0x9000, Words({0x8, 0x41, 0x42})), Bytes());
    EXPECT_EQ(Receive(0x9000, Words({0xFFFFFFFD, 0x41})), Bytes());
    EXPECT_EQ(Receive(0x9000, Words({0xF, 0x41})), Bytes{0x41});
}

TEST_F(SerialPortIPEngineRxTest, IgnoresOtherEventIdentifiers)
{
    Open(KyDeviceSerialUart0);
    for (const int lID : {0, 0x8FFF, 0x9001, 0x9002, 0xFFFF, 0x0090})
    {
        EXPECT_EQ(Receive(static_cast<uint16_t>(lID), Words({0xFFFFFFFF, 0x41})), Bytes()) << lID;
    }
}

TEST_F(SerialPortIPEngineRxTest, TakesWholeWordsOfEveryLength)
{
    Open(KyDeviceSerialUart0);
    for (size_t lLength = 0; lLength <= 64; ++lLength)
    {
        SCOPED_TRACE(lLength);
        Bytes lData(lLength, 0x5A); // of exactly this size on the heap: the sanitizer sees any byte beyond
        for (size_t lIndex = 0; lIndex < lLength && lIndex < 4; ++lIndex)
        {
            lData[lIndex] = lIndex == 0 ? 0x3 : 0;
        }
        const size_t lBytes = lLength >= 4 ? lLength / 4 - 1 : 0;
        EXPECT_EQ(Receive(0x9000, lData), Bytes(lBytes, 0x5A));
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(SerialPortIPEngineRxTest, TakesALongEventWhole)
{
    Open(KyDeviceSerialUart0);
    EXPECT_THAT(mEngine.SetRxBufferSize(1000), IsOK());
    std::vector<uint32_t> lWords{0x2};
    Bytes lExpected;
    for (uint32_t lIndex = 0; lIndex < 700; ++lIndex)
    {
        lWords.push_back(lIndex);
        lExpected.push_back(static_cast<uint8_t>(lIndex & 0xFFU));
    }
    EXPECT_EQ(Receive(0x9000, Words(lWords)), lExpected);
}

TEST_F(SerialPortIPEngineRxTest, TakesUnalignedData)
{
    Open(KyDeviceSerialUart0);
    Bytes lData{0xEE};
    const Bytes lWords = Words({0x2, 0x11, 0x22});
    lData.insert(lData.end(), lWords.begin(), lWords.end());
    mDevice.SendEvent(0x9000, lData.data() + 1, 12);
    EXPECT_EQ(ReadAll(mEngine), (Bytes{0x11, 0x22}));
}

TEST_F(SerialPortIPEngineRxTest, IgnoresAnEventWithoutData)
{
    Open(KyDeviceSerialUart0);
    mDevice.SendEvent(0x9000, nullptr, 0);
    EXPECT_EQ(GetReady(mEngine), 0U);
}

TEST_F(SerialPortIPEngineRxTest, KeepsTheNewestOfTooMany)
{
    Open(KyDeviceSerialUart0);
    EXPECT_THAT(mEngine.SetRxBufferSize(4), IsOK());
    EXPECT_EQ(Receive(0x9000, Words({0x2, 1, 2, 3, 4, 5})), (Bytes{3, 4, 5}));
    for (const uint32_t lSize : {0U, 1U})
    {
        EXPECT_THAT(mEngine.SetRxBufferSize(lSize), IsOK());
        EXPECT_EQ(Receive(0x9000, Words({0x2, 1, 2, 3, 4, 5})), Bytes());
    }
}

TEST_F(SerialPortIPEngineRxTest, ChecksThatEventsComeToAnOpenPort)
{
    const Bytes lData = Words({0xFFFFFFFF, 0x41});
    mEngine.NotifyEvent(0x9000, 0, 0, 0, lData.data(), static_cast<uint32_t>(lData.size()));
    EXPECT_EQ(mAsserts.Take(), Broken({"mDevice != NULL"}));
    EXPECT_EQ(GetReady(mEngine), 0U);
    mEngine.NotifyEvent(0x1234, 0, 0, 0, nullptr, 0);
    EXPECT_EQ(mAsserts.Take(), Broken({"mDevice != NULL"}));
}

TEST_F(SerialPortIPEngineRxTest, CollectsAByteThatTheDeviceStillHoldsAfterAFailedWrite)
{
    for (const KyDeviceSerial lPort : {KyDeviceSerialUart0, KyDeviceSerialUart1})
    {
        Open(lPort);
        const uint32_t lRegister = lPort == KyDeviceSerialUart0 ? 0xB84C : 0xB850;
        EXPECT_EQ(DrainOnce(lRegister, 0x00010042), 1);
        EXPECT_EQ(ReadAll(mEngine), Bytes{0x42});
        EXPECT_EQ(mDevice.TakeCalls().back(), "ReadRegister(" + ToHex(lRegister) + ")");
        EXPECT_THAT(mEngine.Close(), IsOK());
    }
}

TEST_F(SerialPortIPEngineRxTest, CollectsNoMoreThanTheFirstByteEvenWhenMoreWaits)
{
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(DrainOnce(0xB84C, 0x00810043), 1);
    EXPECT_EQ(ReadAll(mEngine), Bytes{0x43});
}

TEST_F(SerialPortIPEngineRxTest, CollectsOnlyValidBytes)
{
    Open(KyDeviceSerialUart0);
    EXPECT_EQ(DrainOnce(0xB84C, 0xFF7EFFFF), 1);
    EXPECT_EQ(DrainOnce(0xB84C, 0xFFFEFFFF), 1);
    EXPECT_EQ(ReadAll(mEngine), Bytes());
}

TEST_F(SerialPortIPEngineRxTest, CollectsNothingWhenTheDeviceDoesNotAnswer)
{
    Open(KyDeviceSerialUart0);
    mDevice.Fail(Slot::ReadRegister);
    EXPECT_EQ(DrainOnce(0xB84C, 0x00810043), 1);
    EXPECT_EQ(ReadAll(mEngine), Bytes());
}

} // namespace
