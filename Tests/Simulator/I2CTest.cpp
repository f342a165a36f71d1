#include "Simulator/CameraFixture.h"

#include <Simulator/Peers/Eeprom24C02.h>
#include <Simulator/Peers/TemperatureSensor.h>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// Upper four bits of a message's first word.
constexpr uint8_t cFast = 8;
constexpr uint8_t cStop = 4;
constexpr uint8_t cThird = 2;
constexpr uint8_t cTransfer = 1;
constexpr uint8_t cUsual = cStop | cThird | cTransfer;

constexpr uint32_t cI2CMode = 2U << cInterfaceShift;

} // namespace

class I2CTest : public CameraFixture
{
protected:
    void MakeBus(size_t aBulk = 1)
    {
        mConfiguration.mBulk[aBulk].mMode = Protocol::I2C;
        Make();
        mBulk = aBulk;
        mBus->SetDevice(Eeprom24C02::cAddress, mEeprom);
        mBus->SetDevice(TemperatureSensor::cAddress, mSensor);
        mCamera->PlugI2C(BulkPortOf(aBulk), mBus);
        Notify(aBulk);
    }

    Status WriteTo(uint8_t aAddress, Bytes aData, uint8_t aFlags = cUsual)
    {
        aData.insert(aData.begin(), static_cast<uint8_t>(aAddress << 1U));
        return Send(mBulk, Message(aData, aFlags));
    }

    /// Reads and lets the bus finish.
    Bytes ReadFrom(uint8_t aAddress, uint16_t aCount, uint8_t aFlags = cUsual)
    {
        EXPECT_EQ(Send(mBulk, Message(ReadCommand(aAddress, aCount), aFlags)), Status::Ok);
        mClock->Advance(1min);
        return TakeData(static_cast<uint16_t>(cUpstreamEvent + mBulk));
    }

    static Bytes ReadCommand(uint8_t aAddress, uint16_t aCount)
    {
        return {static_cast<uint8_t>((static_cast<uint32_t>(aAddress) << 1U) | 1U),
                static_cast<uint8_t>(aCount & 0xFFU), static_cast<uint8_t>(aCount >> 8U)};
    }

    size_t mBulk = 1;
    std::shared_ptr<I2CBusPeer> mBus = std::make_shared<I2CBusPeer>();
    std::shared_ptr<Eeprom24C02> mEeprom = std::make_shared<Eeprom24C02>();
    std::shared_ptr<TemperatureSensor> mSensor = std::make_shared<TemperatureSensor>();
};

TEST_F(I2CTest, AWriteIsOneTransferOnTheBus)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x50, {0x10, 0xAB}), Status::Ok);
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(1));
    EXPECT_EQ(lTransfers[0].mAddress, 0x50);
    EXPECT_FALSE(lTransfers[0].mRead);
    EXPECT_FALSE(lTransfers[0].mRepeatedStart);
    EXPECT_TRUE(lTransfers[0].mAddressAcknowledged);
    EXPECT_THAT(lTransfers[0].mBytes, ElementsAre(I2CByte{0x10, true}, I2CByte{0xAB, true}));
    EXPECT_TRUE(lTransfers[0].mStop);
    EXPECT_FALSE(lTransfers[0].mFast);
    EXPECT_TRUE(lTransfers[0].mThirdFlag);
    EXPECT_TRUE(lTransfers[0].IsComplete());
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), IsEmpty()); // the serial line has nothing to do with it
}

TEST_F(I2CTest, TransfersTakeTheTimeOfTheirBits)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x48, {1, 0}), Status::Ok);
    EXPECT_EQ(WriteTo(0x48, {1, 0}, cUsual | cFast), Status::Ok);
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(2));
    EXPECT_EQ(lTransfers[0].mStart, Time(0));
    EXPECT_EQ(lTransfers[0].mEnd, Time(29 * 10us)); // start, three bytes with acknowledge, stop
    EXPECT_EQ(lTransfers[1].mStart, lTransfers[0].mEnd);
    EXPECT_EQ(lTransfers[1].mEnd - lTransfers[1].mStart, Time(29 * 2500ns));
    EXPECT_TRUE(lTransfers[1].mFast);
}

TEST_F(I2CTest, AReadAnswersWithItsBytesWhenTheyHaveCome)
{
    MakeBus();
    EXPECT_EQ(Send(1, Message(ReadCommand(0x48, 2), cUsual)), Status::Ok);
    mClock->Advance(Time(28 * 10us) - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(cUpstreamEvent + 1), ElementsAre(0x19, 0x00)); // 25 degrees
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(1));
    EXPECT_TRUE(lTransfers[0].mRead);
    EXPECT_THAT(lTransfers[0].mBytes, ElementsAre(I2CByte{0x19, true}, I2CByte{0x00, false}));
    EXPECT_TRUE(lTransfers[0].IsComplete());
}

TEST_F(I2CTest, LongReadsComeInPiecesAndWhole)
{
    MakeBus();
    EXPECT_EQ(Send(1, Message(ReadCommand(0x50, 1000), cUsual)), Status::Ok);
    mClock->Advance(10ms);
    EXPECT_THAT(TakeData(cUpstreamEvent + 1), SizeIs(64)); // a reader with a short time-out sees progress
    mClock->Advance(1s);
    EXPECT_THAT(TakeData(cUpstreamEvent + 1), SizeIs(936));
    EXPECT_THAT(ReadFrom(0x50, 65535), SizeIs(65535));
}

TEST_F(I2CTest, WithoutStopTheNextTransferBeginsWithARepeatedStart)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x48, {3}, cThird | cTransfer), Status::Ok);
    EXPECT_TRUE(mBus->IsHeld());
    EXPECT_THAT(ReadFrom(0x48, 2), ElementsAre(80, 0));
    EXPECT_FALSE(mBus->IsHeld());
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(2));
    EXPECT_FALSE(lTransfers[0].mStop);
    EXPECT_TRUE(lTransfers[1].mRepeatedStart);
    EXPECT_TRUE(lTransfers[1].mStop);
}

TEST_F(I2CTest, AnAbsentDeviceIsReported)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x51, {1, 2}), Status::NoAcknowledge);
    EXPECT_EQ(Send(1, Message(ReadCommand(0x51, 4), cUsual)), Status::NoAcknowledge);
    mClock->Advance(1s);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mNotAcknowledged, 2U);
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(2));
    EXPECT_FALSE(lTransfers[0].mAddressAcknowledged);
    EXPECT_THAT(lTransfers[0].mBytes, IsEmpty());
    EXPECT_TRUE(lTransfers[0].mStop);
}

TEST_F(I2CTest, ReportingCanBeSwitchedOff)
{
    mConfiguration.mReportNack = false;
    MakeBus();
    EXPECT_EQ(WriteTo(0x51, {1, 2}), Status::Ok);
    EXPECT_THAT(ReadFrom(0x51, 4), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mNotAcknowledged, 2U);
}

TEST_F(I2CTest, ABusScanFindsTheDevices)
{
    MakeBus();
    Bytes lFound;
    for (uint8_t lAddress = 8; lAddress < 0x78; ++lAddress)
    {
        if (WriteTo(lAddress, {}) == Status::Ok)
        {
            lFound.push_back(lAddress);
        }
    }
    EXPECT_THAT(lFound, ElementsAre(0x48, 0x50));
    EXPECT_EQ(mEeprom->GetBusyUntil(), Time(0));
}

TEST_F(I2CTest, OnAPortWithoutABusNoDeviceAnswers)
{
    MakeBus();
    mCamera->PlugI2C(Port::Bulk1, nullptr);
    EXPECT_EQ(WriteTo(0x50, {1}), Status::NoAcknowledge);
    mCamera->PlugI2C(Port::Bulk1, mBus);
    EXPECT_EQ(WriteTo(0x50, {1}), Status::Ok);
    mBus->SetDevice(0x50, nullptr);
    EXPECT_FALSE(mBus->HasDevice(0x50));
    EXPECT_EQ(WriteTo(0x50, {1}), Status::NoAcknowledge);
}

TEST_F(I2CTest, CommandsWithoutSenseAreRefused)
{
    MakeBus();
    EXPECT_EQ(Send(1, Message({}, cUsual)), Status::InvalidParameter);
    EXPECT_EQ(Send(1, Message({0xA0, 1}, cStop | cThird)),
              Status::InvalidParameter); // not marked as a transfer
    EXPECT_EQ(Send(1, Message({0xA1}, cUsual)), Status::InvalidParameter);
    EXPECT_EQ(Send(1, Message({0xA1, 1, 0, 0}, cUsual)), Status::InvalidParameter);
    EXPECT_THAT(mBus->GetTransfers(), IsEmpty());
    EXPECT_EQ(mCamera->GetCounters(Port::Bulk1).mBadMessages, 4U);
}

TEST_F(I2CTest, RegistersCarryTransfersToo)
{
    MakeBus(0);
    Write(cInterruptEnable, 0x1F00);
    Notify(0, "Off");
    EXPECT_EQ(Read(cBulk0Configuration) & (cThreeBits << cInterfaceShift), cI2CMode);
    const Bytes lWrite = {0xA0, 0x20, 1, 2, 3};
    EXPECT_TRUE(mCamera->WriteMemory(0x80001C00, lWrite.data(), lWrite.size()).IsOk());
    mClock->Advance(5 * 90us - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(0x9001), ElementsAre(0x00, 0x08, 0, 0));
    mClock->Advance(6ms);
    const Bytes lPointer = {0xA0, 0x20};
    EXPECT_TRUE(mCamera->WriteMemory(0x80001A00, lPointer.data(), lPointer.size()).IsOk()); // fast, no stop
    const Bytes lRead = ReadCommand(0x50, 3);
    EXPECT_TRUE(mCamera->WriteMemory(0x80001E00, lRead.data(), lRead.size()).IsOk());
    mListener.TakeEvents();
    mClock->Advance(1s);
    Bytes lReceived;
    for (const DeviceEvent& lEvent : mListener.TakeEvents())
    {
        if (lEvent.mData.at(1) == 1)
        {
            lReceived.assign(lEvent.mData.begin() + 4, lEvent.mData.end());
        }
    }
    EXPECT_THAT(lReceived, ElementsAre(1, 2, 3));
    const auto lTransfers = mBus->GetTransfers();
    ASSERT_THAT(lTransfers, SizeIs(3));
    EXPECT_TRUE(lTransfers[0].mStop);
    EXPECT_FALSE(lTransfers[1].mStop);
    EXPECT_TRUE(lTransfers[1].mFast);
    EXPECT_TRUE(lTransfers[2].mRepeatedStart);
}

TEST_F(I2CTest, RegistersReportAMissingAcknowledge)
{
    MakeBus(0);
    Write(cInterruptEnable, 0x1F00);
    const Bytes lWrite = {0x62, 1};
    EXPECT_EQ(mCamera->WriteMemory(0x80001C00, lWrite.data(), lWrite.size()).mStatus, Status::NoAcknowledge);
    EXPECT_EQ(mCamera->WriteMemory(0x80000C00, lWrite.data(), lWrite.size()).mStatus,
              Status::InvalidParameter);
    mClock->Advance(1s);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
}

TEST_F(I2CTest, AnUnreportedMissingAcknowledgeStillEndsTheTransmit)
{
    mConfiguration.mReportNack = false;
    MakeBus(0);
    Write(cInterruptEnable, 0x1F00);
    const Bytes lWrite = {0x62, 1};
    EXPECT_TRUE(mCamera->WriteMemory(0x80001C00, lWrite.data(), lWrite.size()).IsOk());
    mClock->Advance(1s);
    EXPECT_THAT(TakeData(0x9001), ElementsAre(0x00, 0x08, 0, 0));
}

TEST_F(I2CTest, TheBusRemembersALimitedHistory)
{
    mConfiguration.mUnlimitedLineRate = true;
    MakeBus();
    for (size_t lCount = 0; lCount < I2CBusPeer::cHistory + 3; ++lCount)
    {
        EXPECT_EQ(WriteTo(0x48, {static_cast<uint8_t>(lCount & 3U)}), Status::Ok);
    }
    EXPECT_THAT(mBus->GetTransfers(), SizeIs(I2CBusPeer::cHistory));
    EXPECT_EQ(mBus->GetTransfers().front().mBytes.at(0).mByte, 3);
    mBus->ClearTransfers();
    EXPECT_THAT(mBus->GetTransfers(), IsEmpty());
}

TEST_F(I2CTest, TheEepromKeepsWhatIsWritten)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x50, {0x30, 1, 2, 3}), Status::Ok);
    mClock->Advance(10ms);
    EXPECT_EQ(WriteTo(0x50, {0x30}, cThird | cTransfer), Status::Ok);
    EXPECT_THAT(ReadFrom(0x50, 5), ElementsAre(1, 2, 3, 0xFF, 0xFF));
    EXPECT_THAT(ReadFrom(0x50, 1), ElementsAre(0xFF)); // the current address
}

TEST_F(I2CTest, EepromWritesWrapInTheirPageAndReadsAtTheEnd)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x50, {0xFE, 1, 2, 3, 4}), Status::Ok);
    mClock->Advance(10ms);
    EXPECT_EQ(WriteTo(0x50, {0xFE}), Status::Ok);
    EXPECT_THAT(ReadFrom(0x50, 3), ElementsAre(1, 2, 0xFF));
    const auto lContents = mEeprom->GetContents();
    EXPECT_EQ(lContents[0xF8], 3);
    EXPECT_EQ(lContents[0xF9], 4);
    EXPECT_EQ(lContents[0x00], 0xFF);
    Bytes lLong = {0x10};
    for (uint8_t lByte = 1; lByte <= 10; ++lByte)
    {
        lLong.push_back(lByte);
    }
    EXPECT_EQ(WriteTo(0x50, lLong), Status::Ok);
    const auto lPage = mEeprom->GetContents();
    EXPECT_THAT(Bytes(lPage.begin() + 0x10, lPage.begin() + 0x19),
                ElementsAre(9, 10, 3, 4, 5, 6, 7, 8, 0xFF));
}

TEST_F(I2CTest, TheEepromDoesNotAcknowledgeWhileItWrites)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x50, {0, 1}), Status::Ok);
    const Time lEnd = mBus->GetTransfers().back().mEnd;
    EXPECT_EQ(mEeprom->GetBusyUntil(), lEnd + 5ms);
    EXPECT_EQ(WriteTo(0x50, {}), Status::NoAcknowledge);
    mClock->Advance(lEnd + 5ms - 100us - 1ns); // the address takes 100 us
    EXPECT_EQ(WriteTo(0x50, {}), Status::NoAcknowledge);
    mClock->Advance(200us);
    EXPECT_EQ(WriteTo(0x50, {}), Status::Ok);
}

TEST_F(I2CTest, OnlyAStopMakesAnEepromWriteCount)
{
    MakeBus();
    EXPECT_EQ(WriteTo(0x50, {0, 1}, cThird | cTransfer), Status::Ok);
    EXPECT_EQ(WriteTo(0x50, {0}), Status::Ok);
    EXPECT_EQ(mEeprom->GetContents()[0], 0xFF);
    auto lContents = mEeprom->GetContents();
    lContents[0] = 0x77;
    mEeprom->SetContents(lContents);
    EXPECT_THAT(ReadFrom(0x50, 1), ElementsAre(0x77));
}

TEST_F(I2CTest, TheSensorMeasures)
{
    MakeBus();
    mSensor->SetHalfDegrees(-51);
    EXPECT_EQ(WriteTo(0x48, {0}), Status::Ok);
    EXPECT_THAT(ReadFrom(0x48, 2), ElementsAre(0xE6, 0x80)); // -25.5 degrees
    mSensor->SetHalfDegrees(1000);
    EXPECT_THAT(ReadFrom(0x48, 3), ElementsAre(125, 0, 125));
    mSensor->SetHalfDegrees(-1000);
    EXPECT_THAT(ReadFrom(0x48, 1), ElementsAre(0xC9)); // -55 degrees
}

TEST_F(I2CTest, TheSensorsRegistersCanBeWritten)
{
    MakeBus();
    EXPECT_EQ(mSensor->GetRegister(2), 75U << 8U);
    EXPECT_EQ(mSensor->GetRegister(3), 80U << 8U);
    EXPECT_EQ(WriteTo(0x48, {1, 0x1F, 0x22}), Status::Ok); // the second byte has no place
    EXPECT_THAT(ReadFrom(0x48, 2), ElementsAre(0x1F, 0x1F));
    EXPECT_EQ(WriteTo(0x48, {2, 0x30, 0xFF, 0x11}), Status::Ok);
    EXPECT_THAT(ReadFrom(0x48, 2), ElementsAre(0x30, 0x80)); // nine bits exist
    EXPECT_EQ(WriteTo(0x48, {3, 0x31}), Status::Ok);
    EXPECT_EQ(mSensor->GetRegister(3), 0x3100);
    EXPECT_EQ(WriteTo(0x48, {0, 0x55, 0x55}), Status::Ok); // cannot be written
    EXPECT_THAT(ReadFrom(0x48, 2), ElementsAre(0x19, 0x00));
}
