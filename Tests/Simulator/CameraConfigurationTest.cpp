#include <Simulator/Camera/CameraConfiguration.h>

#include <gtest/gtest.h>

using namespace KySimulator;

namespace
{

TEST(CameraConfigurationTest, EachCameraGetsAnIdentityOfItsOwn)
{
    const CameraConfiguration lFirst = Completed({});
    const CameraConfiguration lSecond = Completed({});
    EXPECT_NE(lFirst.mMacAddress, lSecond.mMacAddress);
    EXPECT_EQ(lFirst.mMacAddress >> 40U, 0x02U); // locally administered
    EXPECT_NE(lFirst.mSerialNumber, lSecond.mSerialNumber);
    EXPECT_EQ(lFirst.mSerialNumber.size(), 11U);
    EXPECT_TRUE(lFirst.mSerialNumber.starts_with("SIM"));
}

TEST(CameraConfigurationTest, GivenIdentityStaysWithin48Bits)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mMacAddress = 0xFFFF001122334455U;
    lConfiguration.mSerialNumber = "7";
    const CameraConfiguration lCompleted = Completed(lConfiguration);
    EXPECT_EQ(lCompleted.mMacAddress, 0x001122334455U);
    EXPECT_EQ(lCompleted.mSerialNumber, "7");
}

TEST(CameraConfigurationTest, SizesAreKeptWithinTheirLimits)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUartCount = 3;
    lConfiguration.mUpstreamLength = 0;
    lConfiguration.mUartReceiveFifo = 0;
    lConfiguration.mBulkReceiveFifo = 0;
    lConfiguration.mBulkInterruptEvent = 0x9002;
    const CameraConfiguration lCompleted = Completed(lConfiguration);
    EXPECT_EQ(lCompleted.mUartCount, 2U);
    EXPECT_EQ(lCompleted.mUpstreamLength, 1U);
    EXPECT_EQ(lCompleted.mUartReceiveFifo, 1U);
    EXPECT_EQ(lCompleted.mBulkReceiveFifo, 1U);
    EXPECT_EQ(lCompleted.mBulkInterruptEvent, 0x9001);
    lConfiguration.mBulkInterruptEvent = 0x9000;
    EXPECT_EQ(Completed(lConfiguration).mBulkInterruptEvent, 0x9000);
}

TEST(CameraConfigurationTest, LowestPortWithFeaturesIsTheFirst)
{
    CameraConfiguration lConfiguration;
    EXPECT_EQ(lConfiguration.FirstFeaturePort(), 0U);
    lConfiguration.mBulk[0].mFeatures = false;
    lConfiguration.mBulk[1].mFeatures = false;
    EXPECT_EQ(lConfiguration.FirstFeaturePort(), 2U);
    for (BulkPortConfiguration& lBulk : lConfiguration.mBulk)
    {
        lBulk.mFeatures = false;
    }
    EXPECT_EQ(lConfiguration.FirstFeaturePort(), lConfiguration.mBulk.size());
}

TEST(CameraConfigurationTest, PortOffersTheProtocolsThatAreSwitchedOn)
{
    BulkPortConfiguration lBulk;
    lBulk.mUart = lBulk.mUsrt = lBulk.mI2C = lBulk.mSpi = false;
    const std::pair<bool BulkPortConfiguration::*, Protocol> lProtocols[] = {
        {&BulkPortConfiguration::mUart, Protocol::Uart},
        {&BulkPortConfiguration::mUsrt, Protocol::Usrt},
        {&BulkPortConfiguration::mI2C, Protocol::I2C},
        {&BulkPortConfiguration::mSpi, Protocol::Spi}};
    for (const auto& [lMember, lProtocol] : lProtocols)
    {
        EXPECT_FALSE(lBulk.Offers(lProtocol));
        lBulk.*lMember = true;
        EXPECT_TRUE(lBulk.Offers(lProtocol));
        lBulk.*lMember = false;
    }
    EXPECT_FALSE(lBulk.Offers(static_cast<Protocol>(77)));
}

} // namespace
