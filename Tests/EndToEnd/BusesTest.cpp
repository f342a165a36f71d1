#include "CameraTest.h"

#include <KySerial/KyDeviceI2CBus.h>
#include <KySerial/KyDeviceSPIBus.h>

#include "Simulator/Peers/Eeprom24C02.h"
#include "Simulator/Peers/I2CBusPeer.h"
#include "Simulator/Peers/SpiBusPeer.h"
#include "Simulator/Peers/SpiFlash.h"
#include "Simulator/Peers/TemperatureSensor.h"

#include <gmock/gmock.h>

using namespace KySimulator;
using KyTest::Camera;
using testing::ElementsAre;

namespace
{

using Bytes = std::vector<uint8_t>;

/// A camera with one bulk port in the given mode.
CameraConfiguration InMode(size_t aBulk, Protocol aMode)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mBulk[aBulk].mMode = aMode;
    return lConfiguration;
}

/// A camera with its first bulk port on an I2C bus.
CameraConfiguration WithUarts(uint32_t aCount)
{
    CameraConfiguration lConfiguration = InMode(0, Protocol::I2C);
    lConfiguration.mUartCount = aCount;
    return lConfiguration;
}

} // namespace

/// The parameter is the number of UARTs: without one, bulk port 0 is driven through features and not through
/// registers.
class I2CBusTest : public testing::TestWithParam<uint32_t>
{
protected:
    I2CBusTest() : mCamera(WithUarts(GetParam()))
    {
        mWires->SetDevice(Eeprom24C02::cAddress, mEeprom);
        mWires->SetDevice(TemperatureSensor::cAddress, std::make_shared<TemperatureSensor>());
        mCamera.Model().PlugI2C(Port::Bulk0, mWires);
        const KyResult lResult = mBus.Open(&mCamera.Adapter(), KyDeviceSerialBulk0);
        EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
    }

    ~I2CBusTest() override { EXPECT_TRUE(mBus.Close().IsOK()); }

    /// Reads at an offset. The bus waits only 50 ms for an answer, which a busy machine may miss.
    Bytes ReadAt(uint8_t aAddress, uint8_t aOffset, uint32_t aSize)
    {
        Bytes lBytes(aSize);
        for (int lTry = 0; lTry < 100; ++lTry)
        {
            uint32_t lRead = 0;
            const KyResult lResult =
                mBus.IndirectBurstRead(aAddress, aOffset, lBytes.data(), aSize, lRead, true, true);
            if (lResult.GetCode() != KyResult::TIMED_OUT)
            {
                EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
                EXPECT_EQ(lRead, aSize);
                return lBytes;
            }
        }
        ADD_FAILURE() << "no answer";
        return {};
    }

    std::shared_ptr<I2CBusPeer> mWires = std::make_shared<I2CBusPeer>();
    std::shared_ptr<Eeprom24C02> mEeprom = std::make_shared<Eeprom24C02>(Time(0));
    Camera mCamera;
    KyDeviceI2CBus mBus;
};

TEST_P(I2CBusTest, ReadsBackWhatItWroteToAnEeprom)
{
    const Bytes lBytes = {0xDE, 0xAD, 0xBE, 0xEF};
    ASSERT_TRUE(mBus.IndirectBurstWrite(0x50, 0x20, lBytes.data(), 4, true).IsOK());
    EXPECT_EQ(mEeprom->GetContents()[0x21], 0xAD);
    EXPECT_EQ(ReadAt(0x50, 0x20, 4), lBytes);
    const bool lRegisters = GetParam() > 0;
    EXPECT_EQ(mCamera.Link().CallsOf(AdapterSlot::WriteMemory).value_or(lRegisters) > 0, lRegisters);
    EXPECT_EQ(mCamera.Link().CallsOf(AdapterSlot::SetRegisterData).value_or(!lRegisters) > 0, !lRegisters);
}

TEST_P(I2CBusTest, ACombinedReadIsOneTransactionWithARepeatedStart)
{
    EXPECT_THAT(ReadAt(0x48, 2, 2), ElementsAre(75, 0));
    const auto lTransfers = mWires->GetTransfers();
    ASSERT_GE(lTransfers.size(), 2U);
    EXPECT_EQ(lTransfers[0].mAddress, 0x48);
    EXPECT_TRUE(lTransfers[0].mFast);
    EXPECT_FALSE(lTransfers[0].mStop);
    EXPECT_TRUE(lTransfers[0].mThirdFlag);
    EXPECT_TRUE(lTransfers[1].mRepeatedStart);
    EXPECT_TRUE(lTransfers[1].mRead);
    EXPECT_TRUE(lTransfers[1].mStop);
}

TEST_P(I2CBusTest, AScanFindsTheDevices)
{
    Bytes lFound;
    for (uint8_t lAddress = 0x08; lAddress < 0x78; ++lAddress)
    {
        const uint8_t lPointer = 0;
        if (mBus.BurstWrite(lAddress, &lPointer, 1, true).GetCode() !=
            static_cast<uint32_t>(Status::NoAcknowledge))
        {
            lFound.push_back(lAddress);
        }
    }
    EXPECT_THAT(lFound, ElementsAre(0x48, 0x50));
}

INSTANTIATE_TEST_SUITE_P(Engines, I2CBusTest, testing::Values(2U, 0U));

class SPIBusTest : public testing::Test
{
protected:
    SPIBusTest() : mCamera(InMode(3, Protocol::Spi))
    {
        mCamera.Model().PlugSpi(Port::Bulk3, std::make_shared<SpiBusPeer>(mFlash));
        const KyResult lResult = mBus.Open(&mCamera.Adapter(), KyDeviceSerialBulk3);
        EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
    }

    ~SPIBusTest() override { EXPECT_TRUE(mBus.Close().IsOK()); }

    void Write(Bytes aBytes, uint32_t aRead = 0, bool aSimultaneous = false)
    {
        const KyResult lResult = mBus.BurstWriteAndRead(aBytes.data(), static_cast<uint32_t>(aBytes.size()),
                                                        aRead, aSimultaneous, true);
        EXPECT_TRUE(lResult.IsOK()) << lResult.GetDescription().GetAscii();
    }

    Bytes Receive(size_t aSize)
    {
        Bytes lBytes(aSize);
        size_t lDone = 0;
        while (lDone < aSize)
        {
            uint32_t lRead = 0;
            if (!mBus.BurstRead(lBytes.data() + lDone, static_cast<uint32_t>(aSize - lDone), lRead,
                                KyTest::cPatience)
                     .IsOK())
            {
                ADD_FAILURE() << "after " << lDone << " bytes";
                break;
            }
            lDone += lRead;
        }
        return lBytes;
    }

    std::shared_ptr<SpiFlash> mFlash = std::make_shared<SpiFlash>(SpiFlashTimes{Time(0), Time(0), Time(0)});
    Camera mCamera;
    KyDeviceSPIBus mBus;
};

TEST_F(SPIBusTest, ReadsTheIdentityOfAFlash)
{
    Write({0x9F}, 3);
    EXPECT_THAT(Receive(3), ElementsAre(0xEF, 0x30, 0x10));
    Write({0x9F, 0, 0, 0}, 4, true);
    EXPECT_THAT(Receive(4), ElementsAre(0xFF, 0xEF, 0x30, 0x10));
}

TEST_F(SPIBusTest, ProgramsAndReadsAFlash)
{
    Bytes lProgram = {0x02, 0, 0x10, 0};
    Bytes lData;
    lData.reserve(251);
    for (int lByte = 0; lByte < 251; ++lByte)
    {
        lData.push_back(static_cast<uint8_t>(lByte));
    }
    lProgram.insert(lProgram.end(), lData.begin(), lData.end());
    Write({0x06});
    Write(lProgram);
    Write({0x03, 0, 0x10, 0}, 251);
    EXPECT_EQ(Receive(251), lData);
}
