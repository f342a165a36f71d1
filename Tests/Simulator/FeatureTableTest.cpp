#include <KySerial/DeviceProtocol.h>
#include <Simulator/Camera/FeatureTable.h>

#include <gtest/gtest.h>

namespace
{

using namespace KyDeviceProtocol;
using namespace KySimulator;

TEST(FeatureTableTest, EachUartHasSettingsOfItsOwn)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUartCount = 1;
    const FeatureTable lTable = MakeFeatureTable(lConfiguration);
    ASSERT_EQ(1U, lTable.count(UartName(0) + cBaudRateSuffix));
    EXPECT_EQ(Port::Uart0, lTable.at(UartName(0) + cBaudRateSuffix).mPort);
    EXPECT_EQ(0U, lTable.count(UartName(1) + cBaudRateSuffix));
}

TEST(FeatureTableTest, SettingsBelongToTheSelectedPortOrToEachPort)
{
    CameraConfiguration lConfiguration;
    const FeatureTable lSelected = MakeFeatureTable(lConfiguration);
    EXPECT_EQ(1U, lSelected.count(cBulkSelectorFeature));
    EXPECT_FALSE(lSelected.at(std::string(cBulkPrefix) + cParitySuffix).mPort.has_value());
    EXPECT_EQ(0U, lSelected.count(BulkName(1) + cParitySuffix));

    lConfiguration.mBulkSelector = false;
    const FeatureTable lEach = MakeFeatureTable(lConfiguration);
    EXPECT_EQ(0U, lEach.count(cBulkSelectorFeature));
    EXPECT_EQ(Port::Bulk1, lEach.at(BulkName(1) + cParitySuffix).mPort);
}

TEST(FeatureTableTest, MessagesGoOneWay)
{
    const FeatureTable lTable = MakeFeatureTable({});
    const Feature& lDown = lTable.at(DownstreamFeature(1));
    const Feature& lUp = lTable.at(UpstreamBufferFeature(1));
    EXPECT_TRUE(lDown.mWritable);
    EXPECT_FALSE(lDown.mReadable);
    EXPECT_TRUE(lUp.mReadable);
    EXPECT_FALSE(lUp.mWritable);
    EXPECT_EQ(Port::Bulk1, lDown.mPort);
}

TEST(FeatureTableTest, ACameraWithoutFeaturePortsHasNoEventsToSelect)
{
    CameraConfiguration lConfiguration;
    for (auto& lBulk : lConfiguration.mBulk)
    {
        lBulk.mFeatures = false;
    }
    const FeatureTable lTable = MakeFeatureTable(lConfiguration);
    EXPECT_EQ(0U, lTable.count(cEventSelectorFeature));
    EXPECT_EQ(0U, lTable.count(cBulkModeFeature));
    EXPECT_EQ(1U, lTable.count(cVendorFeature));
}

TEST(FeatureTableTest, ProtocolsHaveNamesOfTheirOwn)
{
    EXPECT_STREQ("USRT", NameOf(Protocol::Usrt));
    EXPECT_STREQ("UART", NameOf(Protocol::Uart));
    EXPECT_STREQ("I2C", NameOf(Protocol::I2C));
    EXPECT_STREQ("SPI", NameOf(Protocol::Spi));
}

} // namespace
