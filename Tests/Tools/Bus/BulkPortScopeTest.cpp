#include "kyserial/Bus/BulkPortScope.h"

#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "kyserial/Text/Failure.h"

#include <gtest/gtest.h>

#include <memory>

using namespace KySerialTool;
using namespace KySimulator;

namespace
{

class BulkPortScopeTest : public testing::Test
{
protected:
    void Make(const CameraConfiguration& aConfiguration)
    {
        mCamera = std::make_shared<CameraModel>(aConfiguration);
        mAdapter = std::make_unique<SimulatedDeviceAdapter>(mCamera);
    }

    std::string Feature(const char* aName)
    {
        KyString lValue;
        return mAdapter->GetFeatureAsString(aName, lValue).IsOK() ? lValue.GetAscii() : "refused";
    }

    std::shared_ptr<CameraModel> mCamera;
    std::unique_ptr<SimulatedDeviceAdapter> mAdapter;
};

TEST_F(BulkPortScopeTest, SelectsThePortAndPutsTheSelectorBack)
{
    Make({});
    const std::string lBefore = Feature("BulkSelector");
    {
        BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk5);
        EXPECT_EQ("Bulk5", Feature("BulkSelector"));
        EXPECT_EQ("UART", lScope.GetMode());
    }
    EXPECT_EQ(lBefore, Feature("BulkSelector"));
}

TEST_F(BulkPortScopeTest, SwitchesTheProtocolForItsLife)
{
    Make({});
    {
        BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk3);
        lScope.UseOneOf({"I2C"});
        EXPECT_EQ("I2C", lScope.GetMode());
    }
    BulkPortScope lAfter(*mAdapter, KyDeviceSerialBulk3);
    EXPECT_EQ("UART", lAfter.GetMode());
}

TEST_F(BulkPortScopeTest, LeavesAProtocolThatWillDo)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mBulk[1].mMode = Protocol::Usrt;
    Make(lConfiguration);
    BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk1);
    lScope.UseOneOf({"UART", "USRT"});
    EXPECT_EQ("USRT", lScope.GetMode());
}

TEST_F(BulkPortScopeTest, KnowsWhichProtocolsThePortOffers)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mBulk[4].mI2C = false;
    lConfiguration.mBulk[4].mUsrt = false;
    Make(lConfiguration);
    BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk4);
    const std::vector<std::string> lModes = lScope.GetOfferedModes();
    EXPECT_EQ(2U, lModes.size());
    for (const std::string& lMode : lModes)
    {
        EXPECT_TRUE(lMode == "UART" || lMode == "SPI") << lMode;
    }
}

TEST_F(BulkPortScopeTest, RefusedProtocolIsAFailure)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mBulk[4].mI2C = false;
    Make(lConfiguration);
    BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk4);
    EXPECT_THROW(lScope.UseOneOf({"I2C"}), OperationError);
    EXPECT_EQ("UART", lScope.GetMode());
}

TEST_F(BulkPortScopeTest, LeavesUartsAndCamerasWithoutASelectorAlone)
{
    Make({});
    {
        BulkPortScope lUart(*mAdapter, KyDeviceSerialUart0);
        lUart.UseOneOf({"I2C"});
        EXPECT_EQ("", lUart.GetMode());
        EXPECT_TRUE(lUart.GetOfferedModes().empty());
    }
    CameraConfiguration lConfiguration;
    lConfiguration.mBulkSelector = false;
    Make(lConfiguration);
    BulkPortScope lScope(*mAdapter, KyDeviceSerialBulk0);
    lScope.UseOneOf({"I2C"});
    EXPECT_EQ("", lScope.GetMode());
}

} // namespace
