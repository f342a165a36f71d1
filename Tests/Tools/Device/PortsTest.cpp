#include "Simulator/Camera/CameraModel.h"
#include "Simulator/Camera/SimulatedDeviceAdapter.h"
#include "kyserial/Commands/Commands.h"
#include "kyserial/Device/PortSurvey.h"
#include "kyserial/Options/Options.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>

using namespace KySerialTool;
using namespace KySimulator;

namespace
{

using Texts = std::vector<std::string>;

std::vector<PortFinding> Survey(const CameraConfiguration& aConfiguration)
{
    ApplyLogOptions(CommonOptions()); // the library's questions break assertions of its own
    SimulatedDeviceAdapter lAdapter(std::make_shared<CameraModel>(aConfiguration));
    return SurveyPorts(lAdapter);
}

TEST(PortsTest, FindsTheEngineOfEachPort)
{
    const std::vector<PortFinding> lFindings = Survey({});
    ASSERT_EQ(10U, lFindings.size());
    EXPECT_EQ(PortEngine::RegisterUart, lFindings[0].mEngine);
    EXPECT_EQ(PortEngine::RegisterUart, lFindings[1].mEngine);
    EXPECT_EQ(PortEngine::RegisterBulk, lFindings[2].mEngine);
    EXPECT_EQ(PortEngine::Features, lFindings[3].mEngine);
    EXPECT_EQ(PortEngine::Features, lFindings[9].mEngine);
}

TEST(PortsTest, CameraWithOneUartHasTheFirst)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUartCount = 1;
    const std::vector<PortFinding> lFindings = Survey(lConfiguration);
    EXPECT_TRUE(lFindings[0].mSupported);
    EXPECT_FALSE(lFindings[1].mSupported);
    EXPECT_EQ(PortEngine::None, lFindings[1].mEngine);
    EXPECT_TRUE(lFindings[1].mProtocols.empty());
}

TEST(PortsTest, ProtocolsAreThoseOfThePortItself)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mBulk[1].mI2C = false;
    lConfiguration.mBulk[2].mUart = false;
    lConfiguration.mBulk[2].mUsrt = false;
    lConfiguration.mBulk[2].mMode = Protocol::Spi;
    const std::vector<PortFinding> lFindings = Survey(lConfiguration);
    EXPECT_EQ((Texts{"UART", "USRT", "SPI"}), lFindings[3].mProtocols);
    EXPECT_EQ((Texts{"I2C", "SPI"}), lFindings[4].mProtocols);
    EXPECT_EQ("SPI", lFindings[4].mMode);
}

TEST(PortsTest, DeviceWithoutAnythingOffersNothing)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mVideoInterface = false;
    for (const PortFinding& lFinding : Survey(lConfiguration))
    {
        EXPECT_FALSE(lFinding.mSupported) << lFinding.mPort;
    }
}

TEST(PortsTest, TableShowsMissingThingsAsDashes)
{
    EXPECT_EQ("PORT   VALUE  SUPPORTED  ENGINE  PROTOCOLS  MODE\n"
              "uart1  1      no         -       -          -\n",
              PortsTable({{KyDeviceSerialUart1}}));
}

TEST(PortsTest, JsonHasEveryFieldOfAPort)
{
    const nlohmann::json lJson = nlohmann::json::parse(
        PortsJson("sim", {{KyDeviceSerialBulk7, true, PortEngine::Features, {"SPI"}, "SPI"}}));
    const nlohmann::json lExpected = {{"name", "bulk7"},      {"value", 9},           {"supported", true},
                                      {"engine", "features"}, {"protocols", {"SPI"}}, {"mode", "SPI"}};
    EXPECT_EQ(lExpected, lJson["ports"][0]);
}

} // namespace
