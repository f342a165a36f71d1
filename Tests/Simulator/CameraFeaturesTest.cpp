#include "Simulator/CameraFixture.h"

using namespace KyDeviceProtocol;
using namespace KySimulator;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class CameraFeaturesTest : public CameraFixture
{
protected:
    std::vector<std::string> Entries(const std::string& aName)
    {
        std::vector<std::string> lEntries;
        EXPECT_TRUE(mCamera->GetEntries(aName, lEntries).IsOk()) << aName;
        return lEntries;
    }
};

TEST_F(CameraFeaturesTest, IdentityIsReadOnlyButForTheUserID)
{
    mConfiguration.mVendor = "ACME";
    mConfiguration.mModel = "M1";
    mConfiguration.mSerialNumber = "1234";
    mConfiguration.mMacAddress = 0x0050C2FFFFFE;
    Make();
    EXPECT_EQ(Get("DeviceVendorName"), "ACME");
    EXPECT_EQ(Get("DeviceModelName"), "M1");
    EXPECT_EQ(Get("DeviceSerialNumber"), "1234");
    EXPECT_EQ(Get("GevMACAddress"), "346868940798");
    int64_t lMac = 0;
    EXPECT_TRUE(mCamera->GetInteger("GevMACAddress", lMac).IsOk());
    EXPECT_EQ(lMac, 0x0050C2FFFFFE);
    EXPECT_EQ(mCamera->SetText("DeviceVendorName", "X").mStatus, Status::WriteProtect);
    EXPECT_EQ(mCamera->SetText("GevMACAddress", "1").mStatus, Status::WriteProtect);
    Set("DeviceUserID", "left camera");
    EXPECT_EQ(Get("DeviceUserID"), "left camera");
    EXPECT_EQ(mCamera->SetText("DeviceUserID", "seventeen letters").mStatus, Status::InvalidParameter);
}

TEST_F(CameraFeaturesTest, OnlyGigEVisionHasAMacAddress)
{
    mConfiguration.mTransport = Transport::Alternate;
    Make();
    EXPECT_EQ(mCamera->GetFeatureKind("GevMACAddress"), FeatureKind::None);
    EXPECT_EQ(mCamera->GetFeatureKind("DeviceSerialNumber"), FeatureKind::String);
}

TEST_F(CameraFeaturesTest, CamerasOfOneProcessDiffer)
{
    const CameraModel lFirst({}, mClock);
    const CameraModel lSecond({}, mClock);
    EXPECT_NE(lFirst.GetConfiguration().mMacAddress, lSecond.GetConfiguration().mMacAddress);
    EXPECT_NE(lFirst.GetConfiguration().mSerialNumber, lSecond.GetConfiguration().mSerialNumber);
    EXPECT_EQ(lFirst.GetConfiguration().mMacAddress >> 40U, 2U); // locally administered, no group
    EXPECT_EQ(lFirst.GetConfiguration().mSerialNumber.size(), 11U);
}

TEST_F(CameraFeaturesTest, SelectorsOfferThePortsThatExist)
{
    mConfiguration.mBulk[0].mFeatures = false;
    mConfiguration.mBulk[1].mFeatures = false;
    for (size_t lBulk = 4; lBulk < cBulkCount; ++lBulk)
    {
        mConfiguration.mBulk[lBulk].mFeatures = false;
    }
    Make();
    EXPECT_THAT(Entries("BulkSelector"), ElementsAre("Bulk2", "Bulk3"));
    EXPECT_THAT(Entries("EventSelector"), ElementsAre("Bulk2UpstreamData", "Bulk3UpstreamData"));
    EXPECT_EQ(Get("BulkSelector"), "Bulk2");
    EXPECT_EQ(mCamera->SetText("BulkSelector", "Bulk1").mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetFeatureKind("Bulk1DownstreamData"), FeatureKind::None);
    EXPECT_EQ(mCamera->GetFeatureKind("Bulk2DownstreamData"), FeatureKind::Register);
    EXPECT_EQ(mCamera->GetFeatureKind("EventBulk3UpstreamDataBuffer"), FeatureKind::Register);
    EXPECT_EQ(mCamera->GetFeatureKind("EventBulk3UpstreamDataLength"), FeatureKind::Integer);
}

TEST_F(CameraFeaturesTest, ModesFollowTheSelectedPort)
{
    mConfiguration.mBulk[1] = {true, true, false, true, false, Protocol::I2C};
    Make();
    EXPECT_THAT(Entries("BulkMode"), ElementsAre("UART", "USRT", "I2C", "SPI"));
    EXPECT_EQ(Get("BulkMode"), "UART");
    Set("BulkSelector", "Bulk1");
    EXPECT_THAT(Entries("BulkMode"), ElementsAre("UART", "I2C"));
    EXPECT_EQ(Get("BulkMode"), "I2C");
    EXPECT_EQ(mCamera->SetText("BulkMode", "SPI").mStatus, Status::InvalidParameter);
    Set("BulkMode", "UART");
    Set("BulkSelector", "Bulk0");
    Set("BulkMode", "SPI");
    Set("BulkSelector", "Bulk1");
    EXPECT_EQ(Get("BulkMode"), "UART");
}

TEST_F(CameraFeaturesTest, LineSettingsBelongToTheSelectedPort)
{
    Make();
    EXPECT_THAT(Entries("BulkBaudRate"), ElementsAre("Baud9600", "Baud14400", "Baud19200", "Baud28800",
                                                     "Baud38400", "Baud57600", "Baud115200"));
    EXPECT_THAT(Entries("BulkParity"), ElementsAre("None", "Even", "Odd"));
    EXPECT_THAT(Entries("BulkNumOfStopBits"), ElementsAre("One", "Two"));
    Set("BulkSelector", "Bulk6");
    Set("BulkBaudRate", "Baud38400");
    Set("BulkParity", "Odd");
    Set("BulkNumOfStopBits", "Two");
    EXPECT_EQ(mCamera->GetByteTime(Port::Bulk6), Time(312500));
    Set("BulkSelector", "Bulk5");
    EXPECT_EQ(Get("BulkBaudRate"), "Baud9600");
    EXPECT_EQ(Get("BulkParity"), "None");
    EXPECT_EQ(Get("BulkNumOfStopBits"), "One");
}

TEST_F(CameraFeaturesTest, WithoutSelectorEachPortHasItsOwnSettings)
{
    mConfiguration.mBulkSelector = false;
    mConfiguration.mBulk[0].mFeatures = false;
    Make();
    EXPECT_EQ(mCamera->GetFeatureKind("BulkSelector"), FeatureKind::None);
    EXPECT_EQ(mCamera->GetFeatureKind("BulkBaudRate"), FeatureKind::None);
    Set("Bulk3BaudRate", "Baud19200");
    Set("Bulk3Parity", "Even");
    EXPECT_EQ(Get("Bulk3BaudRate"), "Baud19200");
    EXPECT_EQ(Get("Bulk4BaudRate"), "Baud9600");
    Set("BulkMode", "I2C");
    EXPECT_EQ(mCamera->GetByteTime(Port::Bulk1), Time(90000));
}

TEST_F(CameraFeaturesTest, NotificationBelongsToTheSelectedEvent)
{
    Make();
    EXPECT_THAT(Entries("EventNotification"), ElementsAre("Off", "On"));
    Set("EventSelector", "Bulk3UpstreamData");
    Set("EventNotification", "On");
    Set("EventSelector", "Bulk4UpstreamData");
    EXPECT_EQ(Get("EventNotification"), "Off");
    Set("EventSelector", "Bulk3UpstreamData");
    EXPECT_EQ(Get("EventNotification"), "On");
}

TEST_F(CameraFeaturesTest, ChangesAreReportedOnce)
{
    Make();
    Set("BulkParity", "None");
    EXPECT_THAT(mListener.TakeChanges(), IsEmpty());
    Set("BulkParity", "Even");
    EXPECT_THAT(mListener.TakeChanges(), ElementsAre("BulkParity"));
    Set("BulkSelector", "Bulk3");
    EXPECT_THAT(mListener.TakeChanges(), UnorderedElementsAre("BulkSelector", "BulkMode", "BulkBaudRate",
                                                              "BulkParity", "BulkNumOfStopBits"));
    Set("EventSelector", "Bulk3UpstreamData");
    EXPECT_THAT(mListener.TakeChanges(), ElementsAre("EventSelector", "EventNotification"));
    Set("DeviceUserID", "x");
    EXPECT_THAT(mListener.TakeChanges(), ElementsAre("DeviceUserID"));
    Write(cBulk0Configuration, 0); // bulk port 0 is not the selected one
    EXPECT_THAT(mListener.TakeChanges(), IsEmpty());
}

TEST_F(CameraFeaturesTest, AccessFollowsTheFeature)
{
    Make();
    EXPECT_TRUE(mCamera->IsFeatureReadable("BulkMode"));
    EXPECT_TRUE(mCamera->IsFeatureWritable("BulkMode"));
    EXPECT_FALSE(mCamera->IsFeatureReadable("Bulk0DownstreamData"));
    EXPECT_TRUE(mCamera->IsFeatureWritable("Bulk0DownstreamData"));
    EXPECT_TRUE(mCamera->IsFeatureReadable("EventBulk0UpstreamDataBuffer"));
    EXPECT_FALSE(mCamera->IsFeatureWritable("EventBulk0UpstreamDataBuffer"));
    EXPECT_FALSE(mCamera->IsFeatureReadable("Nonsense"));
    EXPECT_FALSE(mCamera->IsFeatureWritable(""));
}

TEST_F(CameraFeaturesTest, WrongNamesAndKindsAreRefused)
{
    Make();
    int64_t lNumber = 5;
    std::string lText = "x";
    std::vector<std::string> lEntries = {"x"};
    EXPECT_EQ(mCamera->GetInteger("Nonsense", lNumber).mStatus, Status::NotImplemented);
    EXPECT_EQ(lNumber, 0);
    EXPECT_EQ(mCamera->GetInteger("BulkMode", lNumber).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetText("Nonsense", lText).mStatus, Status::NotImplemented);
    EXPECT_EQ(lText, "");
    EXPECT_EQ(mCamera->GetText("Bulk0DownstreamData", lText).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->SetText("Nonsense", "").mStatus, Status::NotImplemented);
    EXPECT_EQ(mCamera->SetText("Bulk0DownstreamData", "").mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->SetText("BulkMode", "uart").mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->SetText("BulkBaudRate", "").mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetEntries("DeviceVendorName", lEntries).mStatus, Status::InvalidParameter);
    EXPECT_THAT(lEntries, IsEmpty());
    EXPECT_EQ(mCamera->GetRegisterLength("BulkMode", lNumber).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetRegisterLength("Nonsense", lNumber).mStatus, Status::NotImplemented);
}

TEST_F(CameraFeaturesTest, RegisterFeaturesKeepToTheirLength)
{
    mConfiguration.mDownstreamLength = 12;
    mConfiguration.mUpstreamLength = 6;
    Make();
    int64_t lLength = 0;
    EXPECT_TRUE(mCamera->GetRegisterLength("Bulk0DownstreamData", lLength).IsOk());
    EXPECT_EQ(lLength, 12);
    EXPECT_TRUE(mCamera->GetRegisterLength("EventBulk0UpstreamDataBuffer", lLength).IsOk());
    EXPECT_EQ(lLength, 6);
    Bytes lData(20);
    EXPECT_EQ(Send(0, lData), Status::InvalidParameter);
    EXPECT_EQ(Send(0, Message({1, 2, 3, 4})), Status::Ok);
    const std::string lBuffer = "EventBulk0UpstreamDataBuffer";
    EXPECT_TRUE(mCamera->GetRegisterData(lBuffer, lData.data(), 6).IsOk());
    EXPECT_TRUE(mCamera->GetRegisterData(lBuffer, lData.data(), 0).IsOk());
    EXPECT_EQ(mCamera->GetRegisterData(lBuffer, lData.data(), 7).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetRegisterData(lBuffer, lData.data(), -1).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetRegisterData(lBuffer, nullptr, 1).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->GetRegisterData("Bulk0DownstreamData", lData.data(), 1).mStatus, Status::AccessDenied);
    EXPECT_EQ(mCamera->SetRegisterData(lBuffer, lData.data(), 1).mStatus, Status::WriteProtect);
    EXPECT_EQ(mCamera->SetRegisterData("Bulk0DownstreamData", nullptr, 4).mStatus, Status::InvalidParameter);
    EXPECT_EQ(mCamera->SetRegisterData("Bulk0DownstreamData", lData.data(), -4).mStatus,
              Status::InvalidParameter);
    EXPECT_EQ(mCamera->SetRegisterData("BulkMode", lData.data(), 4).mStatus, Status::InvalidParameter);
}

TEST_F(CameraFeaturesTest, ACameraWithoutBulkFeaturesHasNoneOfTheirFeatures)
{
    for (BulkPortConfiguration& lBulk : mConfiguration.mBulk)
    {
        lBulk.mFeatures = false;
    }
    Make();
    for (const char* const lName :
         {"BulkSelector", "BulkMode", "BulkBaudRate", "EventSelector", "EventNotification"})
    {
        EXPECT_EQ(mCamera->GetFeatureKind(lName), FeatureKind::None) << lName;
    }
    Write(cBulk0Configuration, 0); // the registers are there all the same
    EXPECT_EQ(mCamera->GetFeatureKind("Uart0BaudRate"), FeatureKind::Enumeration);
}

TEST_F(CameraFeaturesTest, ConfigurationsAreKeptWithinTheirLimits)
{
    mConfiguration.mUartCount = 9;
    mConfiguration.mUpstreamLength = 0;
    mConfiguration.mUartReceiveFifo = 0;
    mConfiguration.mBulkReceiveFifo = 0;
    mConfiguration.mBulkInterruptEvent = 0x1234;
    mConfiguration.mMacAddress = 0xFFFF020000000001;
    Make();
    const CameraConfiguration& lCompleted = mCamera->GetConfiguration();
    EXPECT_EQ(lCompleted.mUartCount, 2U);
    EXPECT_EQ(lCompleted.mUpstreamLength, 1U);
    EXPECT_EQ(lCompleted.mUartReceiveFifo, 1U);
    EXPECT_EQ(lCompleted.mBulkReceiveFifo, 1U);
    EXPECT_EQ(lCompleted.mBulkInterruptEvent, 0x9001);
    EXPECT_EQ(lCompleted.mMacAddress, 0x020000000001U);
}
