#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/Faults.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/SpiFlash.h"
#include "kyserial/Bus/Eeprom.h"
#include "kyserial/Bus/FlashMemory.h"
#include "kyserial/Options/Options.h"
#include "kyserial/Text/Failure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

using namespace KySerialTool;
using namespace KySimulator;

namespace
{

using Bytes = std::vector<uint8_t>;

/// Answers may come late on a busy machine; the library waits 50 ms.
constexpr uint32_t cRetries = 1000;

Bytes Pattern(size_t aSize)
{
    Bytes lBytes(aSize);
    for (size_t lIndex = 0; lIndex < aSize; ++lIndex)
    {
        lBytes[lIndex] = static_cast<uint8_t>(lIndex * 13 + 5);
    }
    return lBytes;
}

/// A camera with memories on its buses. Every count that Advance reports is added up.
class MemoriesTest : public testing::Test
{
protected:
    explicit MemoriesTest(const CameraConfiguration& aConfiguration = {})
        : mCamera(std::make_shared<CameraModel>(aConfiguration)), mAdapter(mCamera)
    {
        ApplyLogOptions(CommonOptions()); // opening a bus breaks an assertion of the library
        mWires->SetDevice(Eeprom24C02::cAddress, mChip);
        mCamera->PlugI2C(Port::Bulk2, mWires);
        mCamera->PlugSpi(Port::Bulk3, std::make_shared<SpiBusPeer>(mFlashChip));
    }

    std::shared_ptr<CameraModel> mCamera;
    SimulatedDeviceAdapter mAdapter;
    std::shared_ptr<Eeprom24C02> mChip = std::make_shared<Eeprom24C02>();
    std::shared_ptr<I2CBusPeer> mWires = std::make_shared<I2CBusPeer>();
    std::shared_ptr<SpiFlash> mFlashChip = std::make_shared<SpiFlash>();
    size_t mDone = 0;
    const std::function<void(size_t)> mAdvance = [this](size_t aCount) { mDone += aCount; };
};

/// A camera that does not report a missing acknowledge.
class SilentMemoriesTest : public MemoriesTest
{
protected:
    static CameraConfiguration Silent()
    {
        CameraConfiguration lConfiguration;
        lConfiguration.mReportNack = false;
        return lConfiguration;
    }
    SilentMemoriesTest() : MemoriesTest(Silent()) {}
};

TEST_F(MemoriesTest, EepromIsWrittenPageByPageAcrossPageEnds)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    Eeprom lEeprom(lBus, {});
    const Bytes lBytes = Pattern(21);
    lEeprom.Write(5, lBytes, mAdvance);

    const auto lContents = mChip->GetContents();
    EXPECT_TRUE(std::equal(lBytes.begin(), lBytes.end(), lContents.begin() + 5));
    EXPECT_EQ(0xFF, lContents[4]);
    EXPECT_EQ(0xFF, lContents[26]);
    EXPECT_EQ(21U, mDone);
}

TEST_F(MemoriesTest, EepromIsReadAsAWhole)
{
    std::array<uint8_t, Eeprom24C02::cSize> lContents{};
    const Bytes lBytes = Pattern(lContents.size());
    std::copy(lBytes.begin(), lBytes.end(), lContents.begin());
    mChip->SetContents(lContents);

    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, true, cRetries);
    Eeprom lEeprom(lBus, {});
    EXPECT_EQ(lBytes, lEeprom.Read(0, lBytes.size(), mAdvance));
    EXPECT_EQ(Bytes(lBytes.begin() + 100, lBytes.begin() + 200), lEeprom.Read(100, 100, mAdvance));
    EXPECT_EQ(356U, mDone);
}

TEST_F(MemoriesTest, EepromWithBlocksHasThemInItsAddress)
{
    auto lSecond = std::make_shared<Eeprom24C02>();
    mWires->SetDevice(Eeprom24C02::cAddress + 1, lSecond);
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    Eeprom lEeprom(lBus, {0x50, 512, 8, 1});
    const Bytes lBytes = Pattern(16);
    lEeprom.Write(248, lBytes, mAdvance);

    EXPECT_TRUE(std::equal(lBytes.begin() + 8, lBytes.end(), lSecond->GetContents().begin()));
    EXPECT_EQ(lBytes, lEeprom.Read(248, 16, mAdvance));
}

TEST_F(MemoriesTest, EepromWithWideOffsetsGetsTwoOffsetBytes)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    Eeprom lEeprom(lBus, {0x50, 4096, 32, 2});
    mWires->ClearTransfers();
    lEeprom.Read(0x123, 1, mAdvance);
    const std::vector<I2CTransfer> lTransfers = mWires->GetTransfers();
    ASSERT_EQ(2U, lTransfers.size());
    ASSERT_EQ(2U, lTransfers[0].mBytes.size());
    EXPECT_EQ(0x01, lTransfers[0].mBytes[0].mByte);
    EXPECT_EQ(0x23, lTransfers[0].mBytes[1].mByte);
    EXPECT_TRUE(lTransfers[1].mRepeatedStart);
}

TEST_F(MemoriesTest, MissingEepromIsAFailure)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    Eeprom lEeprom(lBus, {0x51, 256, 8, 1});
    EXPECT_THROW(lEeprom.Read(0, 1, mAdvance), OperationError);
    EXPECT_THROW(lEeprom.Write(0, {1}, mAdvance), OperationError);
}

TEST_F(MemoriesTest, ReadsWhoseAnswerGetsLostAreRepeatedWhenAskedFor)
{
    Bytes lBytes;
    {
        I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false);
        mAdapter.GetFaults().LoseEvent();
        EXPECT_EQ(KyResult::TIMED_OUT, lBus.TryRead(0x50, 1, lBytes).GetCode());
        EXPECT_TRUE(I2CBus::IsNoAnswer(lBus.TryRead(0x51, 1, lBytes)));
    }
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    mAdapter.GetFaults().LoseEvent();
    EXPECT_TRUE(lBus.TryRead(0x50, 1, lBytes).IsOK());
    mAdapter.GetFaults().LoseEvent();
    EXPECT_TRUE(lBus.TryWriteAndRead(0x50, {0}, 2, lBytes).IsOK());
    EXPECT_EQ((Bytes{0xFF, 0xFF}), lBytes);
}

TEST_F(SilentMemoriesTest, WriteCyclesAreAwaitedWithoutReportsOfAMissingAcknowledge)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cRetries);
    Eeprom lEeprom(lBus, {});
    const Bytes lBytes = Pattern(32);
    lEeprom.Write(0, lBytes, mAdvance);
    EXPECT_EQ(lBytes, lEeprom.Read(0, lBytes.size(), mAdvance));
}

TEST_F(MemoriesTest, FlashHasAnIdentity)
{
    SpiBus lBus(mAdapter, KyDeviceSerialBulk3);
    EXPECT_EQ(KySimulator::SpiFlash::cIdentity, FlashMemory(lBus).ReadIdentity());
}

TEST_F(MemoriesTest, PortWithoutAFlashIsAFailure)
{
    SpiBus lBus(mAdapter, KyDeviceSerialBulk4);
    EXPECT_THROW(FlashMemory(lBus).ReadIdentity(), OperationError);
}

TEST_F(MemoriesTest, FlashIsProgrammedAndReadAcrossPages)
{
    SpiBus lBus(mAdapter, KyDeviceSerialBulk3);
    FlashMemory lFlash(lBus);
    const Bytes lBytes = Pattern(700);
    lFlash.Program(100, lBytes, mAdvance);
    EXPECT_EQ(700U, mDone);

    const Bytes lContents = mFlashChip->GetContents();
    EXPECT_TRUE(std::equal(lBytes.begin(), lBytes.end(), lContents.begin() + 100));
    EXPECT_EQ(0xFF, lContents[99]);
    EXPECT_EQ(0xFF, lContents[800]);
    EXPECT_EQ(lBytes, lFlash.Read(100, 700, mAdvance));
}

TEST_F(MemoriesTest, FlashIsErasedBySectorsOrAsAWhole)
{
    mFlashChip->SetContents(Bytes(KySimulator::SpiFlash::cSize, 0));
    SpiBus lBus(mAdapter, KyDeviceSerialBulk3);
    FlashMemory lFlash(lBus);
    lFlash.EraseSectors(4096, 8192, mAdvance);
    Bytes lContents = mFlashChip->GetContents();
    EXPECT_EQ(0x00, lContents[4095]);
    EXPECT_EQ(8192, std::count(lContents.begin(), lContents.end(), 0xFF));
    EXPECT_EQ(0x00, lContents[12288]);

    lFlash.EraseChip([](size_t) {});
    lContents = mFlashChip->GetContents();
    EXPECT_EQ(65536, std::count(lContents.begin(), lContents.end(), 0xFF));
}

TEST_F(MemoriesTest, LongSpiTransfersKeepTheSlaveSelected)
{
    Bytes lContents = Pattern(KySimulator::SpiFlash::cSize);
    mFlashChip->SetContents(lContents);
    SpiBus lBus(mAdapter, KyDeviceSerialBulk3);
    const Bytes lRead = lBus.Transfer({0x03, 0x00, 0x00, 0x10}, 1000);
    EXPECT_EQ(Bytes(lContents.begin() + 16, lContents.begin() + 1016), lRead);
}

TEST_F(MemoriesTest, SimultaneousTransferReadsAsMuchAsItWrites)
{
    SpiBus lBus(mAdapter, KyDeviceSerialBulk3);
    const Bytes lRead = lBus.Transfer({0x9F, 0, 0, 0}, 0, {true, false});
    ASSERT_EQ(4U, lRead.size());
    EXPECT_EQ(0xEF, lRead[1]);
    EXPECT_EQ(0x10, lRead[3]);
}

} // namespace
