#include "GigE/ScriptedDevice.h"
#include "Support/ResultMatcher.h"

#include "Adapters/GigE/Client/DescriptionFile.h"
#include "Adapters/GigE/Client/ParseInformation.h"
#include "Adapters/GigE/EventSinks.h"
#include "Adapters/GigE/EventStore.h"
#include "RecordingSink.h"

#include <JxUtilsLib/Event.h>
#include <KyGigE/Controller.h>
#include <KyGigE/DeviceAddress.h>
#include <KyGigE/DeviceName.h>
#include <KyGigE/Discovery.h>
#include <gmock/gmock.h>

using KyGigE::DeviceAddress;
using KyGigE::EventSinks;
using KyGigE::EventStore;
using KyGigE::ParseDeviceAddress;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

TEST(DeviceAddressTest, TakesAnAddressApart)
{
    DeviceAddress lAddress;
    EXPECT_EQ(ParseDeviceAddress("gev://192.168.0.5", lAddress), "");
    EXPECT_EQ(lAddress.mAddress, "192.168.0.5");
    EXPECT_EQ(lAddress.mPort, 3956);
    EXPECT_EQ(lAddress.mInterface, "");
    EXPECT_EQ(ParseDeviceAddress("gev://10.0.0.1:4000?interface=eth1", lAddress), "");
    EXPECT_EQ(lAddress.mAddress, "10.0.0.1");
    EXPECT_EQ(lAddress.mPort, 4000);
    EXPECT_EQ(lAddress.mInterface, "eth1");
    EXPECT_EQ(ParseDeviceAddress("gev://left-eye.example:4000", lAddress), "");
    EXPECT_EQ(lAddress.mAddress, "left-eye.example");
    EXPECT_EQ(lAddress.mPort, 4000);
}

TEST(DeviceAddressTest, MakesTheTextAgain)
{
    for (const char* const lText :
         {"gev://1.2.3.4", "gev://left-eye:5", "gev://1.2.3.4:5", "gev://1.2.3.4?interface=lo"})
    {
        DeviceAddress lAddress;
        EXPECT_EQ(ParseDeviceAddress(lText, lAddress), "");
        EXPECT_EQ(KyGigE::DeviceAddressText(lAddress), lText);
    }
}

TEST(DeviceAddressTest, SaysWhatIsWrong)
{
    DeviceAddress lAddress{"kept", 1, ""};
    for (const char* const lText :
         {"", "sim", "gev://", "gev://ho_st", "gev://-host", "gev://.host", "gev://1.2.3", "gev://1.2.3.256",
          "gev://1.2.3.4.5", "gev://1.2.3.4:", "gev://1.2.3.4:0", "gev://1.2.3.4:65536", "gev://1.2.3.4:x",
          "gev://1.2.3.4?", "gev://1.2.3.4?interface=", "gev://1.2.3.4?speed=9", "gev://1.2.3.4/",
          "GEV://1.2.3.4"})
    {
        EXPECT_THAT(ParseDeviceAddress(lText, lAddress), HasSubstr("\"")) << lText;
    }
    EXPECT_EQ(lAddress.mAddress, "kept");
    EXPECT_EQ(ParseDeviceAddress("gev://1.2.3.4:0", lAddress), "\"0\" is no UDP port; use 1 to 65535");
}

TEST(DescriptionFileTest, FindsTheFileInTheDevice)
{
    KyGigE::DescriptionPlace lPlace;
    EXPECT_TRUE(KyGigE::ParseDescriptionUrl("Local:name.xml;100000;691D", lPlace));
    EXPECT_EQ(lPlace.mAddress, 0x100000U);
    EXPECT_EQ(lPlace.mSize, 0x691DU);
    EXPECT_TRUE(KyGigE::ParseDescriptionUrl("local:///a.zip;A;B?SchemaVersion=1.1.0", lPlace));
    EXPECT_EQ(lPlace.mAddress, 0xAU);
    EXPECT_EQ(lPlace.mSize, 0xBU);
}

TEST(DescriptionFileTest, TakesBlanksAndLineEnds)
{
    KyGigE::DescriptionPlace lPlace;
    for (const char* const lUrl :
         {" Local:name.xml;100000;691D", "Local:name.xml; 100000 ; 691D", "Local:name.xml;100000;691D\r\n",
          "\tLocal: name.xml ;0x100000;0X691D ?SchemaVersion=1.1.0\n"})
    {
        lPlace = {};
        EXPECT_TRUE(KyGigE::ParseDescriptionUrl(lUrl, lPlace)) << lUrl;
        EXPECT_EQ(lPlace.mAddress, 0x100000U) << lUrl;
        EXPECT_EQ(lPlace.mSize, 0x691DU) << lUrl;
    }
}

TEST(DescriptionFileTest, RefusesOtherPlaces)
{
    KyGigE::DescriptionPlace lPlace;
    for (const char* const lUrl :
         {"", "http://example/a.xml", "File:a.xml", "Local:a.xml", "Local:a.xml;1", "Local:a.xml;;1",
          "Local:a.xml;1;", "Local:a.xml;1;0", "Local:a.xml;x;1", "Local:a.xml;123456789;1",
          "Local:a.xml;-1;1", "Local:a.xml;1 2;1", " ", "Local:a.xml;1;FFFFFFFF", "Local:a.xml;1;2;3"})
    {
        EXPECT_FALSE(KyGigE::ParseDescriptionUrl(lUrl, lPlace)) << lUrl;
    }
}

TEST(DescriptionFileTest, UsesTheSecondAddressWhenTheFirstLeadsElsewhere)
{
    KyTest::ScriptedDevice lDevice("<xml/>");
    KyGigE::ControlChannel lChannel({200, 4, 1000});
    ASSERT_THAT(lChannel.Open({lDevice.GetAddress(), lDevice.GetPort()}, 0), KyTest::IsOK());
    lChannel.Begin();
    std::string lFile;
    EXPECT_THAT(KyGigE::ReadDescription(lChannel, lFile), KyTest::IsOK());
    EXPECT_EQ(lFile, "<xml/>");
    lDevice.PutText(KyGvcp::cFirstUrlRegister, "http://nowhere/a.xml;;;");
    EXPECT_THAT(KyGigE::ReadDescription(lChannel, lFile),
                KyTest::IsResult(KyResult::FAILURE,
                                 "The device has no description of its features in its own memory."));
    EXPECT_EQ(lFile, "");
    lDevice.PutText(KyGvcp::cSecondUrlRegister, "Local:a.xml;100000;3");
    EXPECT_THAT(KyGigE::ReadDescription(lChannel, lFile), KyTest::IsOK());
    EXPECT_EQ(lFile, "<xm");
}

TEST(DiscoveryTest, FindsADeviceAtItsAddress)
{
    const KyTest::ScriptedDevice lDevice("");
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mAddress = "127.0.0.1";
    lOptions.mPort = lDevice.GetPort();
    lOptions.mTime = 20000;
    std::vector<KyGigE::FoundDevice> lFound;
    EXPECT_EQ(KyGigE::DiscoverDevices(lOptions, lFound), "");
    ASSERT_EQ(lFound.size(), 1U);
    EXPECT_EQ(lFound[0].mInformation.mModel, "Scripted");
    EXPECT_EQ(KyGigE::MacText(lFound[0].mInformation.mMac), "02:00:12:34:56:78");
    EXPECT_EQ(lFound[0].mAddress, "127.0.0.1");
    EXPECT_EQ(lFound[0].mPort, lDevice.GetPort());
}

TEST(DeviceNameTest, ADeviceHasSeveralNames)
{
    KyGigE::FoundDevice lDevice;
    lDevice.mAddress = "10.0.0.5";
    lDevice.mInformation.mMac = 0x001122AABBCC;
    lDevice.mInformation.mSerialNumber = "SN7";
    lDevice.mInformation.mModel = "Model";
    lDevice.mInformation.mUserName = "Left";
    for (const char* const lName :
         {"00:11:22:aa:bb:cc", "00-11-22-AA-BB-CC", "001122aabbcc", "sn7", "MODEL", "left", "10.0.0.5"})
    {
        EXPECT_TRUE(KyGigE::IsNameOf(lName, lDevice)) << lName;
    }
    for (const char* const lName : {"", "SN", "00:11:22:aa:bb", "10.0.0.50"})
    {
        EXPECT_FALSE(KyGigE::IsNameOf(lName, lDevice)) << lName;
    }
}

TEST(DeviceNameTest, ADeviceIsFoundByNameOrByAddress)
{
    const KyTest::ScriptedDevice lDevice("");
    KyGigE::DiscoveryOptions lWhere;
    lWhere.mAddress = "127.0.0.1";
    lWhere.mPort = lDevice.GetPort();
    lWhere.mTime = 20000;
    KyGigE::DeviceAddress lAddress;
    EXPECT_EQ(KyGigE::FindDevice("02:00:12:34:56:78", lWhere, lAddress), "");
    EXPECT_EQ(KyGigE::DeviceAddressText(lAddress), "gev://127.0.0.1:" + std::to_string(lDevice.GetPort()));
    EXPECT_THAT(KyGigE::FindDevice("other", lWhere, lAddress), HasSubstr("no device answers to \"other\""));
    EXPECT_EQ(lAddress.mPort, lDevice.GetPort()); // untouched
    EXPECT_EQ(KyGigE::FindDevice("10.0.0.5:4000", lWhere, lAddress), "");
    EXPECT_EQ(KyGigE::DeviceAddressText(lAddress), "gev://10.0.0.5:4000");
    EXPECT_THAT(KyGigE::FindDevice("gev://10.0.0", lWhere, lAddress), HasSubstr("10.0.0"));
}

TEST(ControllerTest, ADeviceSaysWhoControlsIt)
{
    KyTest::ScriptedDevice lDevice("");
    KyGigE::FoundDevice lFound;
    lFound.mAddress = "127.0.0.1";
    lFound.mPort = lDevice.GetPort();
    KyGigE::Controller lController;
    EXPECT_EQ(KyGigE::FindController(lFound, lController), "");
    EXPECT_FALSE(lController.mControlled);
    lDevice.PutWord(KyGvcp::cControlPrivilegeRegister, KyGvcp::cExclusiveAccess);
    lDevice.PutWord(KyGvcp::cPrimaryAddressRegister, 0x0A000007);
    lDevice.PutWord(KyGvcp::cPrimaryPortRegister, 4321);
    EXPECT_EQ(KyGigE::FindController(lFound, lController), "");
    EXPECT_TRUE(lController.mControlled && lController.mExclusive);
    EXPECT_EQ(lController.mAddress, "10.0.0.7");
    EXPECT_EQ(lController.mPort, 4321);
}

TEST(ControllerTest, ADeviceThatIsNotThereSaysNothing)
{
    KyGigE::FoundDevice lFound;
    lFound.mAddress = "127.0.0.1";
    lFound.mPort = 9; // nothing but a refusal comes from there
    KyGigE::Controller lController;
    EXPECT_THAT(KyGigE::FindController(lFound, lController), HasSubstr("127.0.0.1"));
    EXPECT_FALSE(lController.mControlled);
}

TEST(DiscoveryTest, SaysWhatItCannotAsk)
{
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mInterface = "none7";
    std::vector<KyGigE::FoundDevice> lFound;
    EXPECT_EQ(KyGigE::DiscoverDevices(lOptions, lFound), "no network interface none7");
    lOptions.mAddress = "1.2.3";
    EXPECT_EQ(KyGigE::DiscoverDevices(lOptions, lFound),
              "\"1.2.3\" is no IPv4 address and no name of a host");
    EXPECT_THAT(lFound, IsEmpty());
}

TEST(DiscoveryTest, AnAddressWithoutADeviceIsNoFailure)
{
    KyGigE::DiscoveryOptions lOptions;
    lOptions.mAddress = "127.0.0.1";
    lOptions.mPort = 9; // nothing but a refusal comes from there
    lOptions.mTime = 10;
    std::vector<KyGigE::FoundDevice> lFound;
    EXPECT_EQ(KyGigE::DiscoverDevices(lOptions, lFound), "");
    EXPECT_THAT(lFound, IsEmpty());
}

TEST(DeviceInformationTest, CutsTextsAtWhatCannotBePrinted)
{
    std::vector<uint8_t> lRegisters(KyGvcp::cDiscoverySize, 0);
    std::fill_n(lRegisters.begin() + KyGvcp::cVendorRegister, 32, static_cast<uint8_t>('V'));
    lRegisters[KyGvcp::cModelRegister] = 'M';
    lRegisters[KyGvcp::cModelRegister + 1] = 0x1B;
    const KyGigE::DeviceInformation lInformation = KyGigE::ParseInformation(lRegisters);
    EXPECT_EQ(lInformation.mVendor, std::string(32, 'V'));
    EXPECT_EQ(lInformation.mModel, "M");
    EXPECT_EQ(KyGigE::ParseInformation(KyGvcp::Bytes(lRegisters).first(100)).mSerialNumber, "");
}

class EventStoreTest : public testing::Test
{
protected:
    std::vector<uint8_t> Read(uint16_t aEvent, uint32_t aOffset, size_t aSize)
    {
        std::vector<uint8_t> lBytes(aSize, 9);
        mStore.Read(aEvent, aOffset, lBytes.data(), aSize);
        return lBytes;
    }
    void Deliver(uint16_t aEvent, const std::vector<uint8_t>& aItem, size_t aHeader = 16)
    {
        mStore.Begin(aEvent, aItem.data(), aItem.size(), aHeader);
        mStore.End();
    }

    EventStore mStore;
};

TEST_F(EventStoreTest, KeepsTheLastItemOfEachEvent)
{
    EXPECT_THAT(Read(0x9100, 0, 6), ElementsAre(0, 16, 0x91, 0, 0, 0)); // none came: a header, no data
    Deliver(0x9100, {1, 2, 3});
    Deliver(0x9101, {4});
    Deliver(0x9100, {5, 6});
    EXPECT_THAT(Read(0x9100, 0, 2), ElementsAre(5, 6));
    EXPECT_THAT(Read(0x9101, 0, 1), ElementsAre(4));
}

TEST_F(EventStoreTest, AnEventThatNeverCameHasAHeaderLikeThoseThatCame)
{
    Deliver(0x9101, {4}, 24);
    EXPECT_THAT(Read(0x9100, 0, 4), ElementsAre(0, 24, 0x91, 0));
}

TEST_F(EventStoreTest, ReadsZerosBeyondTheEnd)
{
    Deliver(0x9100, {1, 2, 3});
    EXPECT_THAT(Read(0x9100, 2, 3), ElementsAre(3, 0, 0));
    EXPECT_THAT(Read(0x9100, 3, 1), ElementsAre(0));
    EXPECT_THAT(Read(0x9100, 0xFFFFFFFF, 1), ElementsAre(0));
}

TEST_F(EventStoreTest, TheDeliveringThreadSeesTheDeliveredEventOnly)
{
    Deliver(0x9100, {1});
    const uint8_t lItem = 2;
    mStore.Begin(0x9101, &lItem, 1, 16);
    EXPECT_THAT(Read(0x9100, 0, 2), ElementsAre(0, 16));
    EXPECT_THAT(Read(0x9101, 0, 1), ElementsAre(2));
    std::thread([this] { EXPECT_THAT(Read(0x9100, 0, 1), ElementsAre(1)); }).join();
    mStore.End();
    EXPECT_THAT(Read(0x9100, 0, 1), ElementsAre(1));
    mStore.BeginNone();
    EXPECT_THAT(Read(0x9101, 0, 1), ElementsAre(0));
    mStore.End();
}

TEST(EventSinksTest, CallsEachSinkOnceAndNoneThatIsGone)
{
    EventSinks lSinks;
    RecordingSink lFirst;
    RecordingSink lSecond;
    EXPECT_TRUE(lSinks.Add(&lFirst));
    EXPECT_FALSE(lSinks.Add(&lFirst));
    EXPECT_TRUE(lSinks.Add(&lSecond));
    lFirst.mOnEvent = [&](uint16_t /*aID*/) { EXPECT_TRUE(lSinks.Remove(&lSecond)); };
    lSinks.Call([](IKyDeviceEventSink& aSink) { aSink.NotifyEvent(1, 0, 0, 0, nullptr, 0); });
    EXPECT_EQ(lFirst.TakeEvents().size(), 1U);
    EXPECT_THAT(lSecond.TakeEvents(), IsEmpty());
    EXPECT_FALSE(lSinks.Remove(&lSecond));
}

TEST(EventSinksTest, ASinkMayRemoveItself)
{
    EventSinks lSinks;
    RecordingSink lSink;
    lSinks.Add(&lSink);
    lSink.mOnEvent = [&](uint16_t /*aID*/) { EXPECT_TRUE(lSinks.Remove(&lSink)); };
    lSinks.Call([](IKyDeviceEventSink& aSink) { aSink.NotifyEvent(1, 0, 0, 0, nullptr, 0); });
    EXPECT_EQ(lSink.TakeEvents().size(), 1U);
}

TEST(EventSinksTest, RemovingWaitsForACallThatRuns)
{
    EventSinks lSinks;
    RecordingSink lSink;
    JxUtilsLib::Event lInside(true);
    JxUtilsLib::Event lGo(true);
    std::atomic<bool> lDone = false;
    lSink.mOnEvent = [&](uint16_t /*aID*/)
    {
        lInside.Set();
        EXPECT_TRUE(lGo.Wait_ms(20000));
        lDone = true;
    };
    lSinks.Add(&lSink);
    std::thread lCaller(
        [&] { lSinks.Call([](IKyDeviceEventSink& aSink) { aSink.NotifyEvent(1, 0, 0, 0, nullptr, 0); }); });
    ASSERT_TRUE(lInside.Wait_ms(20000));
    std::thread lRemover(
        [&]
        {
            EXPECT_TRUE(lSinks.Remove(&lSink));
            EXPECT_TRUE(lDone);
        });
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // time to come back too early
    lGo.Set();
    lRemover.join();
    lCaller.join();
}

TEST(EventSinksTest, InterestIsCounted)
{
    EventSinks lSinks;
    EXPECT_FALSE(lSinks.HasInterests());
    lSinks.AddInterest("A");
    lSinks.AddInterest("A");
    EXPECT_TRUE(lSinks.RemoveInterest("A"));
    EXPECT_TRUE(lSinks.HasInterest("A"));
    EXPECT_THAT(lSinks.GetInterests(), ElementsAre("A"));
    EXPECT_TRUE(lSinks.RemoveInterest("A"));
    EXPECT_FALSE(lSinks.HasInterest("A"));
    EXPECT_FALSE(lSinks.RemoveInterest("A"));
    EXPECT_FALSE(lSinks.HasInterests());
}

} // namespace
