#include "Simulator/AdapterFixture.h"

using namespace KyDeviceProtocol;
using namespace KySimulator;
using testing::ElementsAre;

class AdapterTest : public AdapterFixture
{
};

TEST_F(AdapterTest, SaysWhatTheCameraIs)
{
    MakeAdapter();
    EXPECT_TRUE(mAdapter->IsConnected());
    EXPECT_TRUE(mAdapter->IsKorvoVideoInterface());
    EXPECT_TRUE(mAdapter->IsGigEVision());
    EXPECT_FALSE(mAdapter->IsAlternateTransport());
    EXPECT_EQ(&mAdapter->GetCamera(), mCamera.get());
}

TEST_F(AdapterTest, KnowsTheOtherTransports)
{
    mConfiguration.mTransport = Transport::Alternate;
    mConfiguration.mVideoInterface = false;
    MakeAdapter();
    EXPECT_FALSE(mAdapter->IsKorvoVideoInterface());
    EXPECT_FALSE(mAdapter->IsGigEVision());
    EXPECT_TRUE(mAdapter->IsAlternateTransport());
    mConfiguration.mTransport = Transport::None;
    SimulatedDeviceAdapter lNeither(std::make_shared<CameraModel>(mConfiguration, mClock));
    EXPECT_FALSE(lNeither.IsGigEVision());
    EXPECT_FALSE(lNeither.IsAlternateTransport());
}

TEST_F(AdapterTest, PassesRegistersThrough)
{
    MakeAdapter();
    EXPECT_TRUE(mAdapter->WriteRegister(cInterruptEnable, 0x12345678).IsOK());
    uint32_t lValue = 0;
    EXPECT_TRUE(mAdapter->ReadRegister(cInterruptEnable, lValue).IsOK());
    EXPECT_EQ(lValue, 0x12345678U);
    const KyResult lRefused = mAdapter->ReadRegister(0xB83A, lValue);
    EXPECT_EQ(lRefused.GetCode(), 0x8005U);
    EXPECT_STREQ(lRefused.GetDescription().GetAscii(), "Registers are at multiples of 4.");
    EXPECT_EQ(mAdapter->WriteRegister(0x4, 1).GetCode(), Code(Status::InvalidAddress));
}

TEST_F(AdapterTest, PassesMemoryThroughByteByByte)
{
    MakeAdapter();
    const Bytes lBytes = {1, 2, 3};
    EXPECT_TRUE(mAdapter->WriteMemory(lBytes.data(), cTransmitWindow, 3).IsOK());
    EXPECT_EQ(mCamera->GetWire(Port::Bulk0), lBytes);
    EXPECT_EQ(mAdapter->WriteMemory(nullptr, cTransmitWindow, 3).GetCode(), Code(Status::InvalidParameter));
}

TEST_F(AdapterTest, KnowsTheKindsOfFeatures)
{
    MakeAdapter();
    EXPECT_TRUE(mAdapter->IsIntegerFeatureAvailable("EventBulk0UpstreamDataLength"));
    EXPECT_FALSE(mAdapter->IsIntegerFeatureAvailable("BulkMode"));
    EXPECT_TRUE(mAdapter->IsRegisterFeatureAvailable("Bulk0DownstreamData"));
    EXPECT_FALSE(mAdapter->IsRegisterFeatureAvailable("EventBulk0UpstreamDataLength"));
    EXPECT_TRUE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsFeatureAvailable("Bulk8DownstreamData"));
    EXPECT_FALSE(mAdapter->IsFeatureAvailable(""));
    EXPECT_TRUE(mAdapter->IsFeatureReadable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsFeatureReadable("Bulk0DownstreamData"));
    EXPECT_TRUE(mAdapter->IsFeatureWritable("Bulk0DownstreamData"));
    EXPECT_FALSE(mAdapter->IsFeatureWritable("DeviceVendorName"));
    EXPECT_TRUE(mAdapter->IsEnumEntryAvailable("BulkMode", "SPI"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("BulkMode", "spi"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("Nonsense", "SPI"));
}

TEST_F(AdapterTest, ReadsAndWritesFeatures)
{
    mConfiguration.mMacAddress = 0x020000001234;
    MakeAdapter();
    int64_t lNumber = 0;
    EXPECT_TRUE(mAdapter->GetIntegerValue("GevMACAddress", lNumber).IsOK());
    EXPECT_EQ(lNumber, 0x020000001234);
    KyString lText;
    EXPECT_TRUE(mAdapter->GetStringValue("DeviceVendorName", lText).IsOK());
    EXPECT_EQ(lText, KyString("Korvo"));
    EXPECT_EQ(mAdapter->GetStringValue("BulkMode", lText).GetCode(), Code(Status::InvalidParameter));
    EXPECT_EQ(mAdapter->GetStringValue("Nonsense", lText).GetCode(), Code(Status::NotImplemented));
    EXPECT_TRUE(mAdapter->SetFeatureFromString("BulkMode", "I2C").IsOK());
    EXPECT_TRUE(mAdapter->GetFeatureAsString("BulkMode", lText).IsOK());
    EXPECT_EQ(lText, KyString("I2C"));
    EXPECT_EQ(mAdapter->SetFeatureFromString("BulkMode", "CAN").GetCode(), Code(Status::InvalidParameter));
    KyStringList lEntries;
    lEntries.Add("left over");
    EXPECT_TRUE(mAdapter->GetEnumEntries("BulkParity", lEntries).IsOK());
    ASSERT_EQ(lEntries.GetCount(), 3U);
    EXPECT_EQ(*lEntries.GetFirst(), KyString("None"));
    EXPECT_EQ(*lEntries.GetNext(), KyString("Even"));
    EXPECT_EQ(*lEntries.GetNext(), KyString("Odd"));
}

TEST_F(AdapterTest, WritesMessages)
{
    MakeAdapter();
    int64_t lLength = 0;
    EXPECT_TRUE(mAdapter->GetRegisterLength("Bulk1DownstreamData", lLength).IsOK());
    EXPECT_EQ(lLength, 520);
    const Bytes lMessage = Message({1, 2, 3});
    EXPECT_TRUE(mAdapter->SetRegisterData("Bulk1DownstreamData", lMessage.data(), 12).IsOK());
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), ElementsAre(1, 2, 3));
    EXPECT_EQ(mAdapter->SetRegisterData("Bulk1DownstreamData", lMessage.data(), 8).GetCode(),
              Code(Status::InvalidParameter));
    EXPECT_TRUE(mAdapter->PostWrite(1000).IsOK());
}

TEST_F(AdapterTest, ReservedOperationsDoNothing)
{
    MakeAdapter();
    mAdapter->Reserved0();
    mAdapter->Reserved3();
    mAdapter->Reserved12();
    mAdapter->Reserved13();
    mAdapter->Reserved23();
    EXPECT_EQ(mAdapter->GetFaults().GetCallCount(), 0U);
}

TEST_F(AdapterTest, SinksAndInterestsAreCounted)
{
    MakeAdapter();
    EXPECT_TRUE(mAdapter->RegisterEventSink(&mSink).IsOK());
    EXPECT_EQ(mAdapter->RegisterEventSink(&mSink).GetCode(), Code(Status::InvalidParameter));
    EXPECT_EQ(mAdapter->RegisterEventSink(nullptr).GetCode(), Code(Status::InvalidParameter));
    EXPECT_TRUE(mAdapter->UnregisterEventSink(&mSink).IsOK());
    EXPECT_EQ(mAdapter->UnregisterEventSink(&mSink).GetCode(), Code(Status::InvalidParameter));
    EXPECT_EQ(mAdapter->UnregisterEventSink(nullptr).GetCode(), Code(Status::InvalidParameter));
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("BulkMode").IsOK());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("BulkMode").IsOK());
    EXPECT_TRUE(mAdapter->UnregisterFeatureInterest("BulkMode").IsOK());
    EXPECT_TRUE(mAdapter->UnregisterFeatureInterest("BulkMode").IsOK());
    EXPECT_EQ(mAdapter->UnregisterFeatureInterest("BulkMode").GetCode(), Code(Status::InvalidParameter));
    EXPECT_EQ(mAdapter->RegisterFeatureInterest("Nonsense").GetCode(), Code(Status::NotImplemented));
}

TEST_F(AdapterTest, TwoAdaptersSeeOneCamera)
{
    MakeAdapter();
    SimulatedDeviceAdapter lOther(mCamera);
    EXPECT_TRUE(mAdapter->SetFeatureFromString("BulkSelector", "Bulk5").IsOK());
    KyString lText;
    EXPECT_TRUE(lOther.GetFeatureAsString("BulkSelector", lText).IsOK());
    EXPECT_EQ(lText, KyString("Bulk5"));
    RecordingSink lSink;
    EXPECT_TRUE(mAdapter->RegisterEventSink(&mSink).IsOK());
    EXPECT_TRUE(lOther.RegisterEventSink(&lSink).IsOK());
    EXPECT_TRUE(lOther.WriteRegister(cInterruptEnable, cUart0Receive).IsOK());
    Inject(Port::Uart0, {1});
    mAdapter->WaitForEvents();
    lOther.WaitForEvents();
    const auto lFirst = mSink.TakeEvents();
    const auto lSecond = lSink.TakeEvents();
    ASSERT_EQ(lFirst.size(), 1U);
    ASSERT_EQ(lSecond.size(), 1U);
    EXPECT_EQ(lFirst[0].mData, lSecond[0].mData);
    EXPECT_NE(lFirst[0].mThread, lSecond[0].mThread);
    lOther.GetFaults().Disconnect(); // the other one does not notice
    EXPECT_FALSE(lOther.IsConnected());
    EXPECT_TRUE(mAdapter->IsConnected());
    static_cast<void>(lOther.UnregisterEventSink(&lSink)); // fails, and takes effect
}
