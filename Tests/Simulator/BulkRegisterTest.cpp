#include "Simulator/CameraFixture.h"

#include "Simulator/RecordingPeer.h"

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr uint32_t cUartMode = 1U << cInterfaceShift;
constexpr uint32_t cAllBulk = 0x1F00;

constexpr uint32_t Threshold(uint32_t aBytes)
{
    return aBytes << cThresholdShift;
}

} // namespace

class BulkRegisterTest : public CameraFixture
{
protected:
    Status WriteWindow(const Bytes& aData, uint32_t aAddress = cTransmitWindow)
    {
        return mCamera->WriteMemory(aAddress, aData.data(), aData.size()).mStatus;
    }

    std::vector<uint32_t> TakeStatus()
    {
        std::vector<uint32_t> lStatus;
        for (const DeviceEvent& lEvent : mListener.TakeEvents())
        {
            lStatus.push_back(lEvent.mData.at(0) | static_cast<uint32_t>(lEvent.mData.at(1)) << 8U);
        }
        return lStatus;
    }
};

TEST_F(BulkRegisterTest, StartsAsUartAt9600WithItsThresholdInTheMiddle)
{
    Make();
    EXPECT_EQ(Read(cBulk0Configuration), cUartMode | Threshold(128));
    EXPECT_EQ(Read(cBulk0Rate), 0U);
    EXPECT_EQ(mCamera->GetByteTime(Port::Bulk0), Time(1041666));
}

TEST_F(BulkRegisterTest, SendsWindowWritesAtTheLineRate)
{
    Make();
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Bulk0, lPeer);
    EXPECT_EQ(WriteWindow({1, 2, 3}), Status::Ok);
    mClock->Advance(Time(1041666) * 2);
    EXPECT_THAT(lPeer->GetBytes(), ElementsAre(1, 2));
    mClock->Advance(Time(1041666));
    EXPECT_THAT(lPeer->GetBytes(), ElementsAre(1, 2, 3));
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(1, 2, 3));
}

TEST_F(BulkRegisterTest, RaisesPartialEmptyAtTheThresholdAndEmptyAtTheEnd)
{
    Make();
    Write(cInterruptEnable, cAllBulk);
    Write(cBulk0Configuration, cUartMode | Threshold(2));
    EXPECT_EQ(WriteWindow({1, 2, 3, 4, 5}), Status::Ok);
    mClock->Advance(Time(1041666) * 3 - 1ns);
    EXPECT_THAT(TakeStatus(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitPartialEmpty));
    mClock->Advance(Time(1041666) * 2);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitEmpty));
}

TEST_F(BulkRegisterTest, AThresholdOfNoneFallsTogetherWithEmpty)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Write(cInterruptEnable, cAllBulk);
    Write(cBulk0Configuration, cUartMode);
    EXPECT_EQ(WriteWindow({1, 2, 3}), Status::Ok);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitPartialEmpty | cBulkTransmitEmpty));
}

TEST_F(BulkRegisterTest, AFillThatNeverReachesTheThresholdRaisesOnlyEmpty)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Write(cInterruptEnable, cAllBulk);
    EXPECT_EQ(WriteWindow(Numbers(100)), Status::Ok);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitEmpty));
}

TEST_F(BulkRegisterTest, DisabledTransmitInterruptsAreNotRaised)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Write(cInterruptEnable, cBulkTransmitPartialEmpty);
    EXPECT_EQ(WriteWindow(Numbers(200)), Status::Ok);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitPartialEmpty));
    Write(cInterruptEnable, 0);
    EXPECT_EQ(WriteWindow(Numbers(200)), Status::Ok);
    EXPECT_THAT(TakeStatus(), IsEmpty());
}

TEST_F(BulkRegisterTest, DropsWhatTheFifoCannotHold)
{
    Make();
    EXPECT_EQ(WriteWindow(Numbers(250)), Status::Ok);
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mTransmitOverflow, 0U);
    EXPECT_EQ(WriteWindow(Numbers(10)), Status::Ok);
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mTransmitOverflow, 4U);
    mClock->Advance(10s);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), SizeIs(256));
}

TEST_F(BulkRegisterTest, OneWriteBeyondTheFifoLosesTheRest)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    EXPECT_EQ(WriteWindow(Numbers(300)), Status::Ok);
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mTransmitOverflow, 44U);
    EXPECT_EQ(mCamera->GetWire(Port::Bulk0), Numbers(256));
}

TEST_F(BulkRegisterTest, TheResetBitEmptiesBothFifos)
{
    Make();
    EXPECT_EQ(WriteWindow({1, 2, 3}), Status::Ok);
    const Bytes lBytes = {9};
    mCamera->InjectBytes(Port::Bulk0, lBytes.data(), lBytes.size());
    mClock->Advance(1100us); // one byte out, one in
    Write(cBulk0Configuration, Read(cBulk0Configuration) | cResetFifos);
    EXPECT_NE(Read(cBulk0Configuration) & cResetFifos, 0U);
    Write(cBulk0Configuration, Read(cBulk0Configuration) & ~cResetFifos);
    Write(cInterruptEnable, cAllBulk);
    mClock->Advance(1s);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(1));
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
}

TEST_F(BulkRegisterTest, ReceivedBytesFollowTheStatusAsTheyAre)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Write(cInterruptEnable, cAllBulk);
    const Bytes lBytes = {0xAA, 0xBB, 0xCC};
    mCamera->InjectBytes(Port::Bulk0, lBytes.data(), lBytes.size());
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(lEvents[0].mId, 0x9001);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(0, 1, 0, 0, 0xAA, 0xBB, 0xCC));
}

TEST_F(BulkRegisterTest, TheOtherInterruptEventCanBeConfigured)
{
    mConfiguration.mUnlimitedLineRate = true;
    mConfiguration.mBulkInterruptEvent = 0x9000;
    Make();
    Write(cInterruptEnable, cAllBulk);
    EXPECT_EQ(WriteWindow({1}), Status::Ok);
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(1));
    EXPECT_EQ(lEvents[0].mId, 0x9000);
}

TEST_F(BulkRegisterTest, UartAndBulkNeverShareAnEvent)
{
    mConfiguration.mUnlimitedLineRate = true;
    mConfiguration.mBulkInterruptEvent = 0x9000;
    Make();
    const Bytes lBytes = {1};
    mCamera->InjectBytes(Port::Bulk0, lBytes.data(), lBytes.size());
    mCamera->InjectBytes(Port::Uart0, lBytes.data(), lBytes.size());
    mCamera->InjectBytes(Port::Uart1, lBytes.data(), lBytes.size());
    Write(cInterruptEnable, 0x1F0F);
    EXPECT_THAT(TakeStatus(), ElementsAre(0x2U, 0x8U, 0x100U));
}

TEST_F(BulkRegisterTest, AnyReceiveBitIsEnoughAndTheLowestIsRaised)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    const Bytes lBytes = {1};
    for (const uint32_t lBit : {0x100U, 0x200U, 0x400U, 0x600U})
    {
        Write(cInterruptEnable, lBit);
        mCamera->InjectBytes(Port::Bulk0, lBytes.data(), lBytes.size());
        EXPECT_THAT(TakeStatus(), ElementsAre(lBit == 0x600 ? 0x200U : lBit));
    }
}

TEST_F(BulkRegisterTest, LongDataComesInSeveralEvents)
{
    mConfiguration.mUnlimitedLineRate = true;
    mConfiguration.mBulkReceiveFifo = 2000;
    Make();
    Write(cInterruptEnable, 0x100);
    const Bytes lBytes = Numbers(1200);
    mCamera->InjectBytes(Port::Bulk0, lBytes.data(), lBytes.size());
    const auto lEvents = mListener.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(3));
    EXPECT_THAT(lEvents[0].mData, SizeIs(4 + 512));
    EXPECT_THAT(lEvents[2].mData, SizeIs(4 + 176));
}

struct RateCase
{
    uint32_t mConfiguration;
    uint32_t mRate;
    int64_t mNanoseconds;

    friend void PrintTo(const RateCase& aCase, std::ostream* aStream)
    {
        *aStream << aCase.mConfiguration << ' ' << aCase.mRate;
    }
};

class BulkRateTest : public BulkRegisterTest, public testing::WithParamInterface<RateCase>
{
};

TEST_P(BulkRateTest, FollowsTheRegisters)
{
    Make();
    Write(cBulk0Rate, GetParam().mRate);
    Write(cBulk0Configuration, GetParam().mConfiguration);
    EXPECT_EQ(mCamera->GetByteTime(Port::Bulk0).count(), GetParam().mNanoseconds);
}

constexpr uint32_t Speed(uint32_t aIndex)
{
    return aIndex << cSpeedShift;
}

INSTANTIATE_TEST_SUITE_P(Rates, BulkRateTest,
                         testing::Values(RateCase{cUartMode | Speed(1), 0, 694444},         // 14400
                                         RateCase{cUartMode | Speed(2), 0, 520833},         // 19200
                                         RateCase{cUartMode | Speed(3), 0, 347222},         // 28800
                                         RateCase{cUartMode | Speed(4), 0, 260416},         // 38400
                                         RateCase{cUartMode | Speed(5), 0, 173611},         // 57600
                                         RateCase{cUartMode | Speed(6), 0, 86805},          // 115200
                                         RateCase{cUartMode | Speed(7), 0, 4800},           // 480 ns a bit
                                         RateCase{cUartMode | Speed(7), 0xFFFFFF02, 9600},  // twice that
                                         RateCase{cUartMode | cDoubleByteTime, 0, 2083332}, // half of 9600
                                         RateCase{Speed(0), 0, 958},    // 16.7 MHz / 2, eight bits
                                         RateCase{Speed(7), 0, 122635}, // 16.7 MHz / 256
                                         RateCase{2U << cInterfaceShift, 0,
                                                  90000})); // I2C: nine bits at 100 kHz

TEST_F(BulkRegisterTest, AnInterfaceThatDoesNotExistSwallowsBytes)
{
    Make();
    Write(cInterruptEnable, cAllBulk);
    Write(cBulk0Configuration, 5U << cInterfaceShift | Threshold(200));
    EXPECT_EQ(WriteWindow({1, 2, 3}), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mDiscarded, 3U);
    EXPECT_THAT(TakeStatus(), ElementsAre(cBulkTransmitEmpty));
}

TEST_F(BulkRegisterTest, RegistersAndFeaturesReachTheSameSettings)
{
    Make();
    Set("BulkBaudRate", "Baud57600");
    Set("BulkMode", "I2C");
    EXPECT_EQ(Read(cBulk0Configuration), Speed(5) | 2U << cInterfaceShift | Threshold(128));
    mListener.TakeChanges();
    Write(cBulk0Configuration, cUartMode | Speed(6));
    EXPECT_EQ(Get("BulkMode"), "UART");
    EXPECT_EQ(Get("BulkBaudRate"), "Baud115200");
    EXPECT_THAT(mListener.TakeChanges(), testing::UnorderedElementsAre("BulkMode", "BulkBaudRate"));
    Write(cBulk0Configuration, cUartMode | Speed(7));
    std::string lText = "x";
    EXPECT_EQ(mCamera->GetText("BulkBaudRate", lText).mStatus, Status::AccessDenied);
    EXPECT_EQ(lText, "");
}

TEST_F(BulkRegisterTest, FlagsInTheAddressDoNotMatterToAUart)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    EXPECT_EQ(WriteWindow({1, 2}, 0x80001E00), Status::Ok);
    EXPECT_THAT(mCamera->GetWire(Port::Bulk0), ElementsAre(1, 2));
}

TEST_F(BulkRegisterTest, ChunksSizedByTheThresholdNeverOverflow)
{
    Make();
    Write(cInterruptEnable, cAllBulk);
    Write(cBulk0Configuration, cUartMode | Threshold(100));
    Bytes lExpected;
    Bytes lChunk = Numbers(256);
    for (int lRound = 0; lRound < 10; ++lRound)
    {
        EXPECT_EQ(WriteWindow(lChunk), Status::Ok);
        lExpected.insert(lExpected.end(), lChunk.begin(), lChunk.end());
        while (TakeStatus().empty())
        {
            mClock->Advance(1ms);
        }
        lChunk = Numbers(252 - 100);
    }
    mClock->Advance(10s);
    EXPECT_EQ(mCamera->GetWire(Port::Bulk0), lExpected);
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk0).mTransmitOverflow, 0U);
}
