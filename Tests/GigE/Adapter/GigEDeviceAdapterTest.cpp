#include "GigE/FakeSpace.h"
#include "GigE/ScriptedDevice.h"
#include "RecordingSink.h"
#include "Support/RecordingLogSink.h"
#include "Support/ResultMatcher.h"
#include "Support/WaitFor.h"

#include "Adapters/GigE/DeviceConnection.h"

#include <JxUtilsLib/Event.h>
#include <KyGigE/GigEDeviceAdapter.h>
#include <gmock/gmock.h>

using KyGigE::ConnectionOptions;
using KyGigE::GigEDeviceAdapter;
using KyTest::IntReg;
using KyTest::IsOK;
using KyTest::IsResult;
using KyTest::ScriptedDevice;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;

namespace
{

std::string UpstreamNodes(const std::string& aPort, const std::string& aEvent)
{
    return "<Register Name=\"Event" + aPort +
           "UpstreamDataBuffer\"><Address>20</Address><Length>512</Length><AccessMode>RO</"
           "AccessMode><pPort>" +
           aPort + "Event</pPort></Register>" +
           IntReg("Event" + aPort + "UpstreamDataLength", "16", "RO", "", aPort + "Event") + "<Port Name=\"" +
           aPort + "Event\"><EventID>" + aEvent + "</EventID></Port>";
}

std::string Xml()
{
    return KyTest::Description(
        "<Category Name=\"Root\"><pFeature>BulkMode</pFeature><pFeature>Rate</pFeature></Category>"
        "<Enumeration Name=\"BulkMode\"><EnumEntry Name=\"UART\"><Value>0</Value></EnumEntry>"
        "<EnumEntry Name=\"SPI\"><Value>2</Value></EnumEntry><pValue>ModeReg</pValue></Enumeration>"
        "<Register Name=\"Bulk0DownstreamData\"><Address>0x80010000</Address><Length>520</Length>"
        "<AccessMode>WO</AccessMode><pPort>Device</pPort></Register>"
        "<StringReg Name=\"DeviceVendorName\"><Address>0x48</Address><Length>32</Length>"
        "<AccessMode>RO</AccessMode><pPort>Device</pPort></StringReg>"
        "<IntReg Name=\"GevMACAddress\"><Address>8</Address><Length>8</Length><AccessMode>RO</AccessMode>"
        "<pPort>Device</pPort><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>" +
        IntReg("ModeReg", "0x20000") + IntReg("Rate", "0x20004") +
        IntReg("Temperature", "0x20008", "RO", "<PollingTime>1000</PollingTime>") +
        UpstreamNodes("Bulk1", "9101") + UpstreamNodes("Bulk2", "9102"));
}

class GigEDeviceAdapterTest : public testing::Test
{
protected:
    GigEDeviceAdapterTest()
    {
        ConnectionOptions lOptions;
        lOptions.mReconnect = false;
        lOptions.mHeartbeatPeriod = 20;
        lOptions.mControl.mAttempts = 50; // nobody is lost for want of a processor
        EXPECT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", mDevice.GetPort(), ""}, lOptions, mAdapter),
                    IsOK());
        EXPECT_THAT(mAdapter->RegisterEventSink(&mSink), IsOK());
    }

    /// An upstream event: length, then bytes.
    void SendUpstream(uint16_t aEvent, const Bytes& aBytes)
    {
        Bytes lData = {0, 0, 0, static_cast<uint8_t>(aBytes.size())};
        lData.insert(lData.end(), aBytes.begin(), aBytes.end());
        Deliver(aEvent, lData);
    }
    void Deliver(uint16_t aEvent, const Bytes& aData)
    {
        EXPECT_TRUE(mDevice.WaitForAcknowledge(mDevice.SendEvent(aEvent, aData)));
        mAdapter->WaitForEvents();
    }

    Bytes ReadUpstream(const std::string& aPort)
    {
        int64_t lLength = -1;
        EXPECT_THAT(mAdapter->GetIntegerValue(("Event" + aPort + "UpstreamDataLength").c_str(), lLength),
                    IsOK());
        Bytes lBytes(static_cast<size_t>(lLength));
        EXPECT_TRUE(lLength == 0 || mAdapter
                                        ->GetRegisterData(("Event" + aPort + "UpstreamDataBuffer").c_str(),
                                                          lBytes.data(), lLength)
                                        .IsOK());
        return lBytes;
    }

    ScriptedDevice mDevice{Xml()};
    RecordingSink mSink;
    std::unique_ptr<GigEDeviceAdapter> mAdapter;
};

TEST_F(GigEDeviceAdapterTest, SaysWhatKindOfDeviceItIs)
{
    EXPECT_TRUE(mAdapter->IsConnected());
    EXPECT_TRUE(mAdapter->IsGigEVision());
    EXPECT_FALSE(mAdapter->IsAlternateTransport());
    EXPECT_TRUE(mAdapter->IsKorvoVideoInterface());
    int64_t lMac = 0;
    EXPECT_THAT(mAdapter->GetIntegerValue("GevMACAddress", lMac), IsOK());
    EXPECT_EQ(lMac, 0x020012345678);
    KyString lVendor;
    EXPECT_THAT(mAdapter->GetStringValue("DeviceVendorName", lVendor), IsOK());
    EXPECT_STREQ(lVendor.GetAscii(), "Korvo");
    EXPECT_THAT(mAdapter->GetStringValue("BulkMode", lVendor), IsResult(0x8002, "The feature is no string."));
}

// Ports look it up when they open and close, under a lock of the process.
TEST_F(GigEDeviceAdapterTest, TheMacAddressIsReadOnce)
{
    int64_t lFirst = 0;
    EXPECT_THAT(mAdapter->GetIntegerValue("GevMACAddress", lFirst), IsOK());
    mDevice.PutWord(8, 0);
    mDevice.PutWord(12, 0);
    int64_t lSecond = 0;
    EXPECT_THAT(mAdapter->GetIntegerValue("GevMACAddress", lSecond), IsOK());
    EXPECT_EQ(lSecond, lFirst);
    EXPECT_NE(lSecond, 0);
}

TEST_F(GigEDeviceAdapterTest, AsksForFeaturesByKind)
{
    EXPECT_TRUE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsFeatureAvailable("Nothing"));
    EXPECT_TRUE(mAdapter->IsRegisterFeatureAvailable("Bulk0DownstreamData"));
    EXPECT_FALSE(mAdapter->IsRegisterFeatureAvailable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsRegisterFeatureAvailable("DeviceVendorName"));
    EXPECT_TRUE(mAdapter->IsIntegerFeatureAvailable("EventBulk1UpstreamDataLength"));
    EXPECT_FALSE(mAdapter->IsIntegerFeatureAvailable("BulkMode"));
    EXPECT_TRUE(mAdapter->IsFeatureReadable("EventBulk1UpstreamDataBuffer"));
    EXPECT_FALSE(mAdapter->IsFeatureWritable("EventBulk1UpstreamDataBuffer"));
    EXPECT_TRUE(mAdapter->IsFeatureWritable("BulkMode"));
    EXPECT_TRUE(mAdapter->IsEnumEntryAvailable("BulkMode", "SPI"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("BulkMode", "I2C"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("Nothing", "I2C"));
}

TEST_F(GigEDeviceAdapterTest, WritesMessagesByteByByte)
{
    const Bytes lMessage = {1, 2, 3, 4, 5};
    EXPECT_THAT(mAdapter->SetRegisterData("Bulk0DownstreamData", lMessage.data(), 5), IsOK());
    EXPECT_THAT(mDevice.TakeWindowWrites(), ElementsAre(testing::Pair(0x80010000U, lMessage)));
    const Bytes lLargest(520, 7);
    EXPECT_THAT(mAdapter->SetRegisterData("Bulk0DownstreamData", lLargest.data(), 520), IsOK());
    EXPECT_THAT(mDevice.TakeWindowWrites(), ElementsAre(testing::Pair(0x80010000U, lLargest)));
    EXPECT_EQ(mAdapter->SetRegisterData("Bulk0DownstreamData", lLargest.data(), 521).GetCode(), 0x8002U);
    EXPECT_EQ(mAdapter->SetRegisterData("Bulk0DownstreamData", nullptr, 4).GetCode(), 0x8002U);
    EXPECT_EQ(mAdapter->SetRegisterData("Bulk0DownstreamData", lLargest.data(), -1).GetCode(), 0x8002U);
    EXPECT_EQ(mAdapter->SetRegisterData("EventBulk1UpstreamDataBuffer", lLargest.data(), 1).GetCode(),
              0x8004U);
    int64_t lLength = 0;
    EXPECT_THAT(mAdapter->GetRegisterLength("Bulk0DownstreamData", lLength), IsOK());
    EXPECT_EQ(lLength, 520);
    EXPECT_THAT(mDevice.TakeWindowWrites(), IsEmpty());
}

TEST_F(GigEDeviceAdapterTest, AnEventReachesSinksWithItsBytes)
{
    Deliver(0x9000, {2, 0, 0, 0, 0x41, 0, 0, 0});
    const auto lEvents = mSink.TakeEvents();
    ASSERT_EQ(lEvents.size(), 1U);
    EXPECT_EQ(lEvents[0].mId, 0x9000);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(2, 0, 0, 0, 0x41, 0, 0, 0));
    EXPECT_NE(lEvents[0].mThread, std::this_thread::get_id());
}

TEST_F(GigEDeviceAdapterTest, AnEventIsReportedForFeaturesThatSomebodyHasInterestIn)
{
    SendUpstream(0x9101, {1});
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataLength"), IsOK());
    SendUpstream(0x9101, {1});
    EXPECT_THAT(mSink.TakeFeatures(),
                ElementsAre("EventBulk1UpstreamDataBuffer", "EventBulk1UpstreamDataLength"));
    SendUpstream(0x9102, {1});
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
    EXPECT_THAT(mAdapter->UnregisterFeatureInterest("EventBulk1UpstreamDataLength"), IsOK());
    EXPECT_THAT(mAdapter->UnregisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    SendUpstream(0x9101, {1});
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre("EventBulk1UpstreamDataBuffer"));
    EXPECT_THAT(mAdapter->UnregisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    EXPECT_EQ(mAdapter->UnregisterFeatureInterest("EventBulk1UpstreamDataBuffer").GetCode(), 0x8002U);
    EXPECT_EQ(mAdapter->RegisterFeatureInterest("Nothing").GetCode(), 0x8001U);
}

TEST_F(GigEDeviceAdapterTest, ANotificationShowsItsOwnEventAndNoOther)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk2UpstreamDataBuffer"), IsOK());
    std::vector<std::pair<Bytes, Bytes>> lSeen;
    mSink.mOnFeature = [&](const std::string& /*aName*/)
    { lSeen.emplace_back(ReadUpstream("Bulk1"), ReadUpstream("Bulk2")); };
    mAdapter->WaitForEvents(); // so that the event thread sees what the sink has to do
    SendUpstream(0x9101, {1, 2, 3});
    SendUpstream(0x9102, {4});
    EXPECT_THAT(lSeen, ElementsAre(std::pair(Bytes{1, 2, 3}, Bytes{}), std::pair(Bytes{}, Bytes{4})));
    EXPECT_EQ(ReadUpstream("Bulk1"), (Bytes{1, 2, 3}));
    EXPECT_EQ(ReadUpstream("Bulk2"), (Bytes{4}));
}

TEST_F(GigEDeviceAdapterTest, BeforeTheFirstEventThereIsNothing)
{
    EXPECT_THAT(ReadUpstream("Bulk1"), IsEmpty());
}

TEST_F(GigEDeviceAdapterTest, AWrittenFeatureIsReportedWithThoseThatDependOnIt)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("ModeReg"), IsOK());
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("BulkMode"), IsOK());
    EXPECT_THAT(mAdapter->SetFeatureFromString("BulkMode", "SPI"), IsOK());
    EXPECT_THAT(mAdapter->SetFeatureFromString("Rate", "9600"), IsOK());
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre("BulkMode", "ModeReg"));
    EXPECT_EQ(mDevice.GetWord(0x20000), 2U);
    KyString lText;
    EXPECT_THAT(mAdapter->GetFeatureAsString("Rate", lText), IsOK());
    EXPECT_STREQ(lText.GetAscii(), "9600");
}

TEST_F(GigEDeviceAdapterTest, AFeatureThatChangesByItselfIsPolledAfterWrites)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("Temperature"), IsOK());
    EXPECT_THAT(mAdapter->PostWrite(1000), IsOK());
    mDevice.PutWord(0x20008, 30);
    EXPECT_THAT(mAdapter->PostWrite(500), IsOK());
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
    EXPECT_THAT(mAdapter->PostWrite(500), IsOK());
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre("Temperature"));
    EXPECT_THAT(mAdapter->PostWrite(1000), IsOK());
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
}

TEST_F(GigEDeviceAdapterTest, AnInterruptTouchesNoFeature)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("BulkMode"), IsOK());
    mDevice.TakeCommands();
    Deliver(0x9001, {0, 1, 0, 0, 9});
    for (const auto& lCommand : mDevice.TakeCommands())
    {
        EXPECT_EQ(lCommand.Word(0), KyGvcp::cHeartbeatRegister);
    }
    EXPECT_EQ(mSink.TakeEvents().size(), 1U);
}

TEST_F(GigEDeviceAdapterTest, SinksAreKnownOnce)
{
    EXPECT_EQ(mAdapter->RegisterEventSink(&mSink).GetCode(), 0x8002U);
    EXPECT_EQ(mAdapter->RegisterEventSink(nullptr).GetCode(), 0x8002U);
    EXPECT_THAT(mAdapter->UnregisterEventSink(&mSink), IsOK());
    EXPECT_EQ(mAdapter->UnregisterEventSink(&mSink).GetCode(), 0x8002U);
    Deliver(0x9000, {1});
    EXPECT_THAT(mSink.TakeEvents(), IsEmpty());
}

TEST_F(GigEDeviceAdapterTest, SinksUseTheAdapterFromInsideANotification)
{
    uint32_t lRead = 0;
    mSink.mOnEvent = [&](uint16_t /*aID*/)
    {
        EXPECT_THAT(mAdapter->WriteRegister(0x20004, 5), IsOK());
        EXPECT_THAT(mAdapter->ReadRegister(0x20004, lRead), IsOK());
        EXPECT_THAT(mAdapter->UnregisterEventSink(&mSink), IsOK());
    };
    mAdapter->WaitForEvents(); // so that the event thread sees what the sink has to do
    Deliver(0x9000, {1});
    EXPECT_EQ(lRead, 5U);
}

TEST_F(GigEDeviceAdapterTest, TheBytesOfAnEventAreReadThoughTheDeviceIsLostDuringItsNotification)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataBuffer"), IsOK());
    Bytes lBytes(3);
    JxUtilsLib::Event lNotified(true);
    JxUtilsLib::Event lIsOff(true);
    mSink.mOnFeature = [&](const std::string& /*aName*/)
    {
        lNotified.Set();
        EXPECT_TRUE(lIsOff.Wait_ms(60000));
        uint32_t lValue = 0;
        EXPECT_EQ(mAdapter->ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
        EXPECT_THAT(mAdapter->GetRegisterData("EventBulk1UpstreamDataBuffer", lBytes.data(), 3), IsOK());
        EXPECT_EQ(mAdapter->GetRegisterData("EventBulk2UpstreamDataBuffer", lBytes.data(), 3).GetCode(),
                  KyResult::NO_CONNECTION);
    };
    mAdapter->WaitForEvents(); // so that the event thread sees what the sink has to do
    mDevice.SendEvent(0x9101, {0, 0, 0, 3, 1, 2, 3});
    EXPECT_TRUE(lNotified.Wait_ms(60000));
    mDevice.SwitchOff();
    lIsOff.Set();
    mAdapter->WaitForEvents();
    EXPECT_EQ(lBytes, (Bytes{1, 2, 3}));
}

TEST_F(GigEDeviceAdapterTest, NothingWorksOnALostDevice)
{
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("BulkMode"), IsOK());
    mDevice.SwitchOff();
    uint32_t lValue = 7;
    EXPECT_EQ(mAdapter->ReadRegister(0, lValue).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_EQ(lValue, 0U);
    EXPECT_FALSE(mAdapter->IsConnected());
    EXPECT_FALSE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsRegisterFeatureAvailable("Bulk0DownstreamData"));
    EXPECT_FALSE(mAdapter->IsIntegerFeatureAvailable("Rate"));
    EXPECT_FALSE(mAdapter->IsFeatureReadable("Rate"));
    EXPECT_FALSE(mAdapter->IsFeatureWritable("Rate"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("BulkMode", "SPI"));
    EXPECT_TRUE(mAdapter->IsGigEVision());
    const auto lGone = IsResult(KyResult::NO_CONNECTION, "The device is not currently connected.");
    int64_t lInteger = 7;
    KyString lText("x");
    KyStringList lList;
    lList.Add("x");
    uint8_t lByte = 0;
    EXPECT_THAT(mAdapter->GetIntegerValue("Rate", lInteger), lGone);
    EXPECT_EQ(lInteger, 0);
    EXPECT_THAT(mAdapter->GetFeatureAsString("Rate", lText), lGone);
    EXPECT_EQ(lText.GetLength(), 0U);
    EXPECT_THAT(mAdapter->GetStringValue("DeviceVendorName", lText), lGone);
    EXPECT_THAT(mAdapter->GetEnumEntries("BulkMode", lList), lGone);
    EXPECT_EQ(lList.GetCount(), 0U);
    EXPECT_THAT(mAdapter->SetFeatureFromString("BulkMode", "SPI"), lGone);
    EXPECT_THAT(mAdapter->GetRegisterLength("Bulk0DownstreamData", lInteger), lGone);
    EXPECT_THAT(mAdapter->GetRegisterData("EventBulk1UpstreamDataBuffer", &lByte, 1), lGone);
    EXPECT_THAT(mAdapter->SetRegisterData("Bulk0DownstreamData", &lByte, 1), lGone);
    EXPECT_THAT(mAdapter->WriteRegister(0, 0), lGone);
    EXPECT_THAT(mAdapter->WriteMemory(&lByte, 0x80000000, 1), lGone);
    EXPECT_THAT(mAdapter->PostWrite(1000), lGone);
    EXPECT_THAT(mAdapter->RegisterFeatureInterest("Rate"), lGone);
    EXPECT_THAT(mAdapter->UnregisterFeatureInterest("BulkMode"), lGone);
    EXPECT_THAT(mAdapter->UnregisterEventSink(&mSink), lGone);
    mDevice.SwitchOn();
    EXPECT_THAT(mAdapter->Reconnect(), IsOK());
    EXPECT_EQ(mAdapter->UnregisterEventSink(&mSink).GetCode(), 0x8002U); // it took effect
    EXPECT_EQ(mAdapter->UnregisterFeatureInterest("BulkMode").GetCode(), 0x8002U);
    EXPECT_TRUE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_EQ(mAdapter->GetFigures().mLosses, 1U);
}

TEST_F(GigEDeviceAdapterTest, ListsFeaturesWithWhatCanBeDone)
{
    const auto lFeatures = mAdapter->ListFeatures();
    ASSERT_EQ(lFeatures.size(), 2U);
    EXPECT_EQ(lFeatures[0].mName, "BulkMode");
    EXPECT_EQ(lFeatures[0].mKind, "Enumeration");
    EXPECT_TRUE(lFeatures[0].mReadable);
    EXPECT_TRUE(lFeatures[0].mWritable);
    EXPECT_EQ(lFeatures[1].mKind, "Integer");
    const auto lReadings = mAdapter->ReadFeatures();
    ASSERT_EQ(lReadings.size(), 2U);
    KyString lText;
    EXPECT_THAT(mAdapter->GetFeatureAsString("BulkMode", lText), IsOK());
    EXPECT_EQ(lReadings[0].mFeature.mName, "BulkMode");
    EXPECT_TRUE(lReadings[0].mFeature.mReadable && lReadings[0].mFeature.mWritable);
    EXPECT_EQ(lReadings[0].mValue, lText.GetAscii());
    EXPECT_THAT(lReadings[0].mEntries, testing::Contains(lReadings[0].mValue));
    EXPECT_THAT(lReadings[1].mEntries, testing::IsEmpty());
}

TEST(GigEConnectTest, ADeviceWithoutAUsableDescriptionHasNoFeaturesAndItsRegistersWork)
{
    KyTest::RecordingLogSink lLog;
    ScriptedDevice lDevice("<html/>");
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", lDevice.GetPort(), ""}, lAdapter), IsOK());
    const auto lLines = lLog.Take();
    ASSERT_EQ(lLines.size(), 1U);
    EXPECT_EQ(lLines[0].mMessage,
              "The description of the device cannot be used, so it has no features: The device's "
              "XML describes no registers.");
    EXPECT_TRUE(lAdapter->IsKorvoVideoInterface());
    EXPECT_TRUE(lAdapter->ListFeatures().empty());
    EXPECT_FALSE(lAdapter->IsFeatureAvailable("BulkMode"));
    KyString lText;
    EXPECT_EQ(lAdapter->GetFeatureAsString("BulkMode", lText).GetCode(), KyGvcp::cNotImplemented);
    EXPECT_EQ(lAdapter->RegisterFeatureInterest("BulkMode").GetCode(), KyGvcp::cNotImplemented);
    EXPECT_THAT(lAdapter->PostWrite(1000), IsOK());
    RecordingSink lSink;
    EXPECT_THAT(lAdapter->RegisterEventSink(&lSink), IsOK());
    EXPECT_THAT(lAdapter->WriteRegister(0xB84C, 0x41), IsOK());
    EXPECT_EQ(lDevice.GetWord(0xB84C), 0x41U);
    EXPECT_TRUE(lDevice.WaitForAcknowledge(lDevice.SendEvent(0x9000, {1, 2, 3, 4})));
    lAdapter->WaitForEvents();
    EXPECT_EQ(lSink.TakeEvents().size(), 1U);
    EXPECT_THAT(lAdapter->UnregisterEventSink(&lSink), IsOK());
}

TEST(GigEConnectTest, EachConnectionHasANumberOfItsOwn)
{
    ScriptedDevice lDevice(Xml());
    std::unique_ptr<GigEDeviceAdapter> lAdapter;
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", lDevice.GetPort(), ""}, lAdapter), IsOK());
    EXPECT_EQ(lAdapter->GetGeneration(), 1U);
    for (uint64_t lNext = 2; lNext < 12; ++lNext)
    {
        lDevice.SwitchOff();
        lDevice.SwitchOn(); // between two signs of life
        EXPECT_TRUE(KyTest::WaitFor([&] { return lAdapter->GetGeneration() == lNext; }));
    }
}

// A caller that has got the features before the device started anew, and goes on afterwards.
TEST(GigEConnectTest, FeaturesOfAnEarlierConnectionAreNotWrittenOnTheNextOne)
{
    ScriptedDevice lDevice(Xml());
    ConnectionOptions lOptions;
    lOptions.mHeartbeatPeriod = 5;
    KyGigE::DeviceConnection lConnection({"127.0.0.1", lDevice.GetPort(), ""}, lOptions);
    ASSERT_THAT(lConnection.Open(), IsOK());
    const auto lFeatures = lConnection.GetFeatures();
    EXPECT_THAT(lFeatures->mMap->SetText("Rate", "1"), IsOK());
    lDevice.SwitchOff();
    lDevice.SwitchOn();
    EXPECT_TRUE(KyTest::WaitFor([&] { return lConnection.GetClient().GetGeneration() == 2; }));
    const auto lGone = IsResult(KyResult::NO_CONNECTION, "The device is not currently connected.");
    const uint8_t lByte = 0x55;
    EXPECT_THAT(lFeatures->mMap->SetText("Rate", "2"), lGone);
    EXPECT_THAT(lFeatures->mSpace->WriteMemory(0x80010000, &lByte, 1), lGone);
    EXPECT_THAT(lDevice.TakeWindowWrites(), IsEmpty());
    EXPECT_EQ(lDevice.GetWord(0x20004), 1U);
    EXPECT_THAT(lConnection.GetFeatures()->mMap->SetText("Rate", "3"), IsOK());
    EXPECT_EQ(lDevice.GetWord(0x20004), 3U);
}

TEST(GigEConnectTest, TwoDevicesAtOnce)
{
    ScriptedDevice lFirst(Xml());
    ScriptedDevice lSecond(Xml());
    lFirst.PutWord(0x20004, 1);
    lSecond.PutWord(0x20004, 2);
    std::unique_ptr<GigEDeviceAdapter> lOne;
    std::unique_ptr<GigEDeviceAdapter> lTwo;
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", lFirst.GetPort(), ""}, lOne), IsOK());
    ASSERT_THAT(GigEDeviceAdapter::Connect({"127.0.0.1", lSecond.GetPort(), ""}, lTwo), IsOK());
    int64_t lValue = 0;
    EXPECT_THAT(lOne->GetIntegerValue("Rate", lValue), IsOK());
    EXPECT_EQ(lValue, 1);
    EXPECT_THAT(lTwo->GetIntegerValue("Rate", lValue), IsOK());
    EXPECT_EQ(lValue, 2);
}

} // namespace
