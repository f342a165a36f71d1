#include "kyserial/Bus/I2CBus.h"

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "Simulator/Peers/Eeprom24C02.h"
#include "kyserial/Options/Options.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace
{

using namespace KySerialTool;
using namespace KySimulator;

using I2CBytes = std::vector<uint8_t>;

constexpr uint8_t cChip = Eeprom24C02::cAddress;
constexpr uint8_t cNobody = 0x51;
/// On a busy machine an answer may come late again and again; the library waits 50 ms.
constexpr uint32_t cPatientRetries = 1000;

/// An EEPROM whose cells have their own numbers.
class I2CBusTest : public testing::Test
{
protected:
    I2CBusTest()
    {
        ApplyLogOptions(CommonOptions()); // opening a bus breaks an assertion of the library
        std::array<uint8_t, Eeprom24C02::cSize> lContents{};
        for (size_t lCell = 0; lCell < lContents.size(); ++lCell)
        {
            lContents[lCell] = static_cast<uint8_t>(lCell);
        }
        const auto lEeprom = std::make_shared<Eeprom24C02>();
        lEeprom->SetContents(lContents);
        mWires->SetDevice(cChip, lEeprom);
        mCamera->PlugI2C(Port::Bulk2, mWires);
    }

    const std::shared_ptr<CameraModel> mCamera = std::make_shared<CameraModel>();
    const std::shared_ptr<I2CBusPeer> mWires = std::make_shared<I2CBusPeer>();
    SimulatedDeviceAdapter mAdapter{mCamera};
};

TEST_F(I2CBusTest, AnAnswerThatGetsLostIsATimeOut)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false);
    mAdapter.GetFaults().LoseEvent();
    try
    {
        lBus.Read(cChip, 1);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const OperationError& lError)
    {
        EXPECT_EQ(0U, std::string(lError.what()).find("reading from 0x50 on bulk2 failed: TIMED_OUT"))
            << lError.what();
    }
    EXPECT_EQ(1U, mWires->GetTransfers().size());
}

TEST_F(I2CBusTest, AReadIsRepeatedAfterATimeOut)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, true, cPatientRetries);
    mAdapter.GetFaults().LoseEvent();
    EXPECT_EQ(2U, lBus.Read(cChip, 2).size());
    const std::vector<I2CTransfer> lTransfers = mWires->GetTransfers();
    EXPECT_LE(2U, lTransfers.size());
    EXPECT_TRUE(lTransfers.front().mFast);
}

// The read whose answer got lost has moved the chip's pointer.
TEST_F(I2CBusTest, AReadAfterAWriteIsRepeatedFromTheWriteOn)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cPatientRetries);
    mAdapter.GetFaults().LoseEvent();
    EXPECT_EQ((I2CBytes{0x10, 0x11}), lBus.WriteAndRead(cChip, {0x10}, 2));
    EXPECT_LE(4U, mWires->GetTransfers().size());
}

TEST_F(I2CBusTest, AMissingAcknowledgeIsNotRepeated)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false, cPatientRetries);
    I2CBytes lBytes;
    EXPECT_TRUE(I2CBus::IsNoAnswer(lBus.TryRead(cNobody, 1, lBytes)));
    EXPECT_TRUE(I2CBus::IsNoAnswer(lBus.TryWriteAndRead(cNobody, {0}, 1, lBytes)));
    EXPECT_TRUE(lBytes.empty());
    EXPECT_EQ(2U, mWires->GetTransfers().size());
}

TEST_F(I2CBusTest, ARepeatedStartHoldsTheBus)
{
    I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false);
    lBus.Write(cChip, {0x20}, I2CBus::Then::RepeatedStart);
    EXPECT_TRUE(mWires->IsHeld());
    lBus.Write(cChip, {0x20});
    EXPECT_FALSE(mWires->IsHeld());
}

TEST_F(I2CBusTest, ThePortRunsI2CForTheLifeOfTheBus)
{
    const auto lModeOf = [this]
    {
        KyString lMode;
        EXPECT_TRUE(mAdapter.SetFeatureFromString("BulkSelector", "Bulk2").IsOK());
        EXPECT_TRUE(mAdapter.GetFeatureAsString("BulkMode", lMode).IsOK());
        return std::string(lMode.GetAscii());
    };
    {
        const I2CBus lBus(mAdapter, KyDeviceSerialBulk2, false);
        EXPECT_EQ("I2C", lModeOf());
    }
    EXPECT_EQ("UART", lModeOf());
}

TEST(I2CAnswerTest, OnlyATimeOutAndAMissingAcknowledgeAreNoAnswer)
{
    const std::vector<std::pair<uint32_t, bool>> lCases = {{KyResult::OK, false},
                                                           {KyResult::TIMED_OUT, true},
                                                           {0x8F01, true},
                                                           {KyResult::NO_CONNECTION, false},
                                                           {0x8007, false}};
    for (const auto& [lCode, lIsNoAnswer] : lCases)
    {
        EXPECT_EQ(lIsNoAnswer, I2CBus::IsNoAnswer(KyResult(lCode))) << lCode;
    }
}

} // namespace
