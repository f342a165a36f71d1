#include "Tools/ToolRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KyTest;
using testing::HasSubstr;

namespace
{

TEST(PortsProcessTest, TableHasAllPortsOfTheSimulatedCamera)
{
    const ToolResult lResult = RunTool({"ports"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_EQ("", lResult.mError);
    EXPECT_EQ("PORT   VALUE  SUPPORTED  ENGINE         PROTOCOLS          MODE\n"
              "uart0  0      yes        register UART  UART               UART\n"
              "uart1  1      yes        register UART  UART               UART\n"
              "bulk0  2      yes        register bulk  UART USRT I2C SPI  UART\n"
              "bulk1  3      yes        features       UART USRT I2C SPI  UART\n"
              "bulk2  4      yes        features       UART USRT I2C SPI  I2C\n"
              "bulk3  5      yes        features       UART USRT I2C SPI  SPI\n"
              "bulk4  6      yes        features       UART USRT I2C SPI  UART\n"
              "bulk5  7      yes        features       UART USRT I2C SPI  UART\n"
              "bulk6  8      yes        features       UART USRT I2C SPI  UART\n"
              "bulk7  9      yes        features       UART USRT I2C SPI  UART\n",
              lResult.mOutput);
}

TEST(PortsProcessTest, JsonHasTheSame)
{
    const ToolResult lResult = RunTool({"ports", "--json"});
    EXPECT_EQ(0, lResult.mStatus);
    const nlohmann::json lJson = nlohmann::json::parse(lResult.mOutput);
    EXPECT_EQ("sim", lJson["device"]);
    ASSERT_EQ(10U, lJson["ports"].size());
    const nlohmann::json lBulk0 = {{"name", "bulk0"},
                                   {"value", 2},
                                   {"supported", true},
                                   {"engine", "register bulk"},
                                   {"protocols", {"UART", "USRT", "I2C", "SPI"}},
                                   {"mode", "UART"}};
    EXPECT_EQ(lBulk0, lJson["ports"][2]);
}

TEST(PortsProcessTest, CameraWithoutUartsOffersNoneAndDrivesBulk0ThroughFeatures)
{
    const ToolResult lResult = RunTool({"ports", "--sim-no-uart-registers"});
    EXPECT_EQ(0, lResult.mStatus);
    EXPECT_THAT(lResult.mOutput, HasSubstr("uart0  0      no         -         -                  -\n"));
    EXPECT_THAT(lResult.mOutput, HasSubstr("bulk0  2      yes        features  UART USRT I2C SPI  UART\n"));
}

} // namespace
