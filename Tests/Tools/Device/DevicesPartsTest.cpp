#include "kyserial/Commands/Commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace KySerialTool;

namespace
{

NetworkFinding Finding()
{
    return {
        "gev://10.0.0.2", "10.0.0.2", 3956, "02:00:00:00:00:01", "Korvo", "Camera", "1.0", "S1", "", "eth0"};
}

TEST(DevicesTableTest, HasALinePerDevice)
{
    EXPECT_EQ("DEVICE          MAC                VENDOR  MODEL   SERIAL  NAME  INTERFACE\n"
              "gev://10.0.0.2  02:00:00:00:00:01  Korvo   Camera  S1      -     eth0\n",
              DevicesTable({Finding()}));
    EXPECT_EQ("DEVICE  MAC  VENDOR  MODEL  SERIAL  NAME  INTERFACE\n", DevicesTable({}));
}

TEST(DevicesJsonTest, HasAnObjectPerDevice)
{
    const nlohmann::json lJson = nlohmann::json::parse(DevicesJson({Finding()}));
    ASSERT_EQ(1U, lJson["devices"].size());
    const nlohmann::json& lDevice = lJson["devices"][0];
    EXPECT_EQ("gev://10.0.0.2", lDevice["device"]);
    EXPECT_EQ(3956, lDevice["port"]);
    EXPECT_EQ("02:00:00:00:00:01", lDevice["mac"]);
    EXPECT_EQ("", lDevice["userName"]);
    EXPECT_EQ(0U, nlohmann::json::parse(DevicesJson({}))["devices"].size());
}

TEST(DevicesJsonTest, BytesThatAreNoTextAreReplaced)
{
    NetworkFinding lFinding = Finding();
    lFinding.mModel = "\xFF\xFE";
    EXPECT_TRUE(nlohmann::json::accept(DevicesJson({lFinding})));
}

FeatureFinding Mode()
{
    return {{"BulkMode", "Serial", "Enumeration", "Beginner", "Protocol"}, "RW", "UART", {"UART", "I2C"}};
}

TEST(FeaturesTableTest, HasALinePerFeature)
{
    const FeatureFinding lData = {{"Bulk0DownstreamData", "Serial", "Register", "Guru", ""}, "WO", ""};
    EXPECT_EQ("FEATURE              KIND         ACCESS  VALUE\n"
              "BulkMode             Enumeration  RW      UART\n"
              "Bulk0DownstreamData  Register     WO      -\n",
              FeaturesTable({Mode(), lData}));
}

TEST(FeaturesJsonTest, HasTheEntriesOfEnumerations)
{
    const nlohmann::json lJson = nlohmann::json::parse(FeaturesJson("sim", {Mode()}));
    EXPECT_EQ("sim", lJson["device"]);
    const nlohmann::json lExpected = {{"name", "BulkMode"},    {"kind", "Enumeration"},
                                      {"category", "Serial"},  {"visibility", "Beginner"},
                                      {"toolTip", "Protocol"}, {"access", "RW"},
                                      {"value", "UART"},       {"entries", {"UART", "I2C"}}};
    EXPECT_EQ(lExpected, lJson["features"][0]);
}

} // namespace
