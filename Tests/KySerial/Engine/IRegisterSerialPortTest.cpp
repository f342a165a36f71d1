// What is the feature engine's own when it is asked for a port, opened and closed; EngineContractTest has what all
// engines owe.

#include "KySerial/FeatureEngineTest.h"

#include <functional>

using namespace KyTest;
using namespace KySerialLib;

namespace
{

constexpr char cIsSupported[] = "KySerialLib::IRegisterSerialPort::IsSupported";
constexpr char cIsProtocol[] = "KySerialLib::IRegisterSerialPort::IsProtocolSupported";
constexpr char cOpen[] = "KySerialLib::IRegisterSerialPort::Open";
constexpr char cSet[] = "KySerialLib::IRegisterSerialPort::SetEventNotification";
constexpr char cNotKorvo[] = "The device is not an a Korvo video interface.";
constexpr char cWillClose[] = "IRegisterSerialPort::Open could not set event notification FAILURE will close";

class IRegisterSerialPortTest : public EngineTest
{
protected:
    KyResult Open() { return mEngine.Open(&mDevice, KyDeviceSerialBulk0); }

    void ExpectClosed()
    {
        EXPECT_FALSE(mEngine.IsOpened());
        EXPECT_TRUE(mDevice.GetSinks().empty());
        EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
    }

    // Open() with the event switch refused in the middle: gives up, having closed again.
    void ExpectNoNotification(const std::string& aText, bool aAtCloseToo)
    {
        EXPECT_THAT(Open(), IsResult(KyResult::FAILURE, ""));
        const LogLine lFailure{PriorityError, cSet, aText};
        Lines lLines{lFailure, {PriorityWarning, cOpen, cWillClose}};
        lLines.resize(aAtCloseToo ? 3 : 2, lFailure);
        EXPECT_EQ(TakeLogOf("IRegisterSerialPort"), lLines);
        EXPECT_EQ(mDevice.GetInterest(cUpstreamBuffer), 0);
        ExpectClosed();
    }

    IRegisterSerialPort mEngine{false};
};

TEST_F(IRegisterSerialPortTest, SupportsNoPortWithoutOneOfItsFeatures)
{
    const std::pair<Slot, const char*> lFeatures[] = {{Slot::IsRegisterFeatureAvailable, cDownstream},
                                                      {Slot::IsIntegerFeatureAvailable, cUpstreamLength},
                                                      {Slot::IsRegisterFeatureAvailable, cUpstreamBuffer}};
    for (const auto& [lSlot, lName] : lFeatures)
    {
        SCOPED_TRACE(lName);
        mDevice.SetAvailable(lSlot, lName, false);
        EXPECT_FALSE(IRegisterSerialPort::IsSupported(&mDevice, KyDeviceSerialBulk0));
        EXPECT_TRUE(IRegisterSerialPort::IsSupported(&mDevice, KyDeviceSerialBulk1));
        mDevice.SetAvailable(lSlot, lName, true);
    }
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(IRegisterSerialPortTest, AsksForFeaturesWithoutANameForOtherPortsAndOpensNone)
{
    for (const int lPort : {-1, 0, 1, 10, -2, 0x7FFFFFFF})
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(IRegisterSerialPort::IsSupported(&mDevice, static_cast<KyDeviceSerial>(lPort)));
        const Calls lCalls = mDevice.TakeCalls();
        ASSERT_GE(lCalls.size(), 3U);
        EXPECT_EQ(lCalls[2], "IsRegisterFeatureAvailable()");
        EXPECT_EQ(TakeLog(), Lines());
        ExpectFailure(mEngine.Open(&mDevice, static_cast<KyDeviceSerial>(lPort)), KyResult::UNSUPPORTED,
                      cOpen, cNotSupported);
        EXPECT_FALSE(mEngine.IsOpened());
        mDevice.TakeCalls();
    }
}

TEST_F(IRegisterSerialPortTest, OffersNoProtocolWithoutAConnectedDevice)
{
    EXPECT_FALSE(IRegisterSerialPort::IsProtocolSupported(nullptr, KyDeviceSerialBulk0, "I2C"));
    EXPECT_EQ(TakeLogOf("DeviceChecks"), (Lines{{PriorityError, cIsProtocol, cNull}}));
    mDevice.SetAnswer(Slot::IsConnected, false);
    EXPECT_FALSE(IRegisterSerialPort::IsProtocolSupported(&mDevice, KyDeviceSerialBulk0, "I2C"));
    EXPECT_EQ(mDevice.TakeCalls(), Calls{"IsConnected"});
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsProtocol, cDisconnected}}));
}

TEST_F(IRegisterSerialPortTest, OffersTheProtocolsOfTheDevicesBulkMode)
{
    EXPECT_TRUE(IRegisterSerialPort::IsProtocolSupported(&mDevice, KyDeviceSerialBulk0, "I2C"));
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({{"IsConnected"}, AskSupport(0), {"IsEnumEntryAvailable(BulkMode, I2C)"}}));
    EXPECT_FALSE(IRegisterSerialPort::IsProtocolSupported(&mDevice, KyDeviceSerialBulk7, "CAN"));
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({{"IsConnected"}, AskSupport(7), {"IsEnumEntryAvailable(BulkMode, CAN)"}}));
    EXPECT_EQ(TakeLog(), Lines());
}

TEST_F(IRegisterSerialPortTest, OffersNoProtocolOnAPortThatIsNotSupported)
{
    mDevice.SetAvailable(Slot::IsRegisterFeatureAvailable, cUpstreamBuffer, false);
    EXPECT_FALSE(IRegisterSerialPort::IsProtocolSupported(&mDevice, KyDeviceSerialBulk0, "I2C"));
    EXPECT_EQ(mDevice.GetCallCount(Slot::IsEnumEntryAvailable), 0);
    EXPECT_EQ(TakeLog(), Lines());
    mDevice.SetAnswer(Slot::IsKorvoVideoInterface, false);
    EXPECT_FALSE(IRegisterSerialPort::IsProtocolSupported(&mDevice, KyDeviceSerialBulk1, "I2C"));
    EXPECT_EQ(TakeLog(), (Lines{{PriorityError, cIsSupported, cNotKorvo}}));
}

TEST_F(IRegisterSerialPortTest, OpensEachBulkPortInOrder)
{
    for (int lPort = 2; lPort <= 9; ++lPort)
    {
        SCOPED_TRACE(lPort);
        EXPECT_FALSE(mEngine.IsOpened());
        EXPECT_THAT(mEngine.Open(&mDevice, static_cast<KyDeviceSerial>(lPort)), IsOK());
        EXPECT_EQ(TakeLog(), Lines());
        EXPECT_EQ(mDevice.TakeCalls(), Join({ClaimFeatures(lPort - 2), SwitchEvent(lPort - 2, "On")}));
        EXPECT_TRUE(mEngine.IsOpened());
        EXPECT_FALSE(IsFree(lPort));
        EXPECT_EQ(mDevice.GetSinks(), std::vector<IKyDeviceEventSink*>{&mEngine});
        EXPECT_EQ(mDevice.GetText("EventNotification"), "On");
        Forget();
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.TakeCalls(),
                  Join({{"IsConnected"}, SwitchEvent(lPort - 2, "Off"), ReleaseFeatures(lPort - 2)}));
        EXPECT_EQ(TakeLog(), Lines());
        EXPECT_EQ(mDevice.GetText("EventNotification"), "Off");
        EXPECT_EQ(mDevice.GetText("EventSelector"), "Other");
        ExpectClosed();
        mDevice.TakeCalls();
    }
}

TEST_F(IRegisterSerialPortTest, LeavesASelectorAloneThatIsRightAlready)
{
    mDevice.SetText("EventSelector", "Bulk0UpstreamData");
    EXPECT_THAT(Open(), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(),
              Join({ClaimFeatures(0),
                    {"IsFeatureAvailable(EventSelector)", "GetFeatureAsString(EventSelector)",
                     "IsFeatureAvailable(EventNotification)", "GetFeatureAsString(EventNotification)",
                     "SetFeatureFromString(EventNotification, \"On\")"}}));
}

TEST_F(IRegisterSerialPortTest, PutsAnyEarlierNotificationBackAndLeavesOneAloneThatIsOnAlready)
{
    for (const std::string lEarlier : {"Once", "Off", "On"})
    {
        mDevice.SetText("EventNotification", lEarlier);
        mDevice.TakeCalls();
        EXPECT_THAT(Open(), IsOK());
        EXPECT_THAT(mEngine.Close(), IsOK());
        EXPECT_EQ(mDevice.GetText("EventNotification"), lEarlier);
        const auto lSet = testing::Contains(testing::StartsWith("SetFeatureFromString(EventNotification"));
        EXPECT_EQ(testing::Value(mDevice.TakeCalls(), lSet), lEarlier != "On");
    }
}

TEST_F(IRegisterSerialPortTest, ClosesWhenAFeatureVanishesAfterTheClaim)
{
    const std::pair<Slot, int> lVanishing[] = {{Slot::IsRegisterFeatureAvailable, 3},
                                               {Slot::IsIntegerFeatureAvailable, 2},
                                               {Slot::IsRegisterFeatureAvailable, 4}};
    for (const auto& [lSlot, lCall] : lVanishing)
    {
        SCOPED_TRACE(testing::Message() << GetSlotName(lSlot) << ' ' << lCall);
        mDevice.FailCall(lSlot, lCall);
        ExpectFailure(Open(), KyResult::UNSUPPORTED, cOpen, cNotSupported);
        EXPECT_EQ(mAsserts.Take(), Broken({"0"}));
        const Calls lEnd = ReleaseFeatures(0);
        EXPECT_EQ(Last(mDevice.TakeCalls(), lEnd.size()), lEnd);
        EXPECT_EQ(mDevice.GetCallCount(Slot::RegisterEventSink), 0);
        mDevice.StopFailing();
        ExpectClosed();
        mDevice.TakeCalls();
    }
}

TEST_F(IRegisterSerialPortTest, OpensWhenSinkOrInterestCannotBeRegistered)
{
    const std::pair<Slot, const char*> lRefusals[] = {
        {Slot::RegisterEventSink,
         "IRegisterSerialPort::Open had problems registering event sink! WRONG_STATE"},
        {Slot::RegisterFeatureInterest, "IRegisterSerialPort::Open had problems registering GenInvalidator! "
                                        "EventBulk0UpstreamDataBuffer error WRONG_STATE"}};
    for (const auto& [lSlot, lText] : lRefusals)
    {
        mDevice.Fail(lSlot, KyResult(KyResult::WRONG_STATE));
        EXPECT_THAT(Open(), IsOK());
        EXPECT_EQ(TakeLogOf("IRegisterSerialPort"), (Lines{{PriorityWarning, cOpen, lText}}));
        EXPECT_EQ(mDevice.TakeCalls(), Join({ClaimFeatures(0), SwitchEvent(0, "On")}));
        EXPECT_TRUE(mEngine.IsOpened());
        mDevice.StopFailing();
        EXPECT_THAT(mEngine.Close(), IsOK());
        Forget();
    }
}

// Each closes again; what has been changed by then stays.
TEST_F(IRegisterSerialPortTest, GivesUpWhenTheNotificationCannotBeSwitchedOn)
{
    struct Case
    {
        std::function<void(ScriptedAdapter&)> mRefuse;
        const char* mText;
        bool mAtCloseToo;
        const char* mSelector;
    };
    const char* const lNoSelector = "Couldn't get EventSelector parameter.";
    const char* const lNoNotification = "Couldn't get EventNotification parameter.";
    const char* const lMoved = "Bulk0UpstreamData";
    const Case lCases[] = {
        {[](auto& aDevice) { aDevice.SetAvailable(Slot::IsFeatureAvailable, "EventSelector", false); },
         lNoSelector, true, "Other"},
        {[](auto& aDevice) { aDevice.Fail(Slot::GetFeatureAsString, "EventSelector"); }, lNoSelector, true,
         "Other"},
        {[](auto& aDevice) { aDevice.Fail(Slot::SetFeatureFromString, "EventSelector"); },
         "Failed setting parameter EventSelector to Bulk0UpstreamData.", true, "Other"},
        {[](auto& aDevice) { aDevice.SetAvailable(Slot::IsFeatureAvailable, "EventNotification", false); },
         lNoNotification, true, lMoved},
        {[](auto& aDevice) { aDevice.Fail(Slot::GetFeatureAsString, "EventNotification"); }, lNoNotification,
         true, lMoved},
        {[](auto& aDevice) { aDevice.FailCall(Slot::SetFeatureFromString, 2); },
         "Failed setting parameter EventNotification to On.", false, lMoved}};
    for (const Case& lCase : lCases)
    {
        SCOPED_TRACE(lCase.mText);
        mDevice.SetText("EventSelector", "Other");
        lCase.mRefuse(mDevice);
        ExpectNoNotification(lCase.mText, lCase.mAtCloseToo);
        EXPECT_TRUE(mDevice.GetText("EventNotification") == "Off" || !lCase.mAtCloseToo);
        EXPECT_EQ(mDevice.GetText("EventSelector"), lCase.mSelector);
        mDevice.StopFailing();
        mDevice.SetAvailable(Slot::IsFeatureAvailable, "EventSelector", true);
        mDevice.SetAvailable(Slot::IsFeatureAvailable, "EventNotification", true);
        Forget();
    }
}

TEST_F(IRegisterSerialPortTest, ClosesInOrderWhenItGivesUp)
{
    mDevice.SetAvailable(Slot::IsFeatureAvailable, "EventSelector", false);
    EXPECT_THAT(Open(), IsResult(KyResult::FAILURE, ""));
    const Calls lAsk{"IsFeatureAvailable(EventSelector)"};
    EXPECT_EQ(mDevice.TakeCalls(), Join({ClaimFeatures(0), lAsk, {"IsConnected"}, lAsk, ReleaseFeatures(0)}));
    DisableEveryPriority();
    mDevice.Fail(Slot::RegisterEventSink);
    EXPECT_THAT(Open(), IsResult(KyResult::FAILURE, ""));
}

TEST_F(IRegisterSerialPortTest, OpensWhenTheSelectorCannotBePutBack)
{
    mDevice.FailCall(Slot::SetFeatureFromString, 3);
    EXPECT_THAT(Open(), IsOK());
    EXPECT_EQ(TakeLog(), Lines());
    EXPECT_TRUE(mEngine.IsOpened());
    EXPECT_EQ(mDevice.GetText("EventSelector"), "Bulk0UpstreamData");
}

TEST_F(IRegisterSerialPortTest, ClosesWhateverTheDeviceRefuses)
{
    ASSERT_THAT(Open(), IsOK());
    mDevice.Fail(Slot::SetFeatureFromString, "EventSelector");
    mDevice.Fail(Slot::UnregisterEventSink);
    mDevice.Fail(Slot::UnregisterFeatureInterest);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(TakeLog(),
              (Lines{{PriorityError, cSet, "Failed setting parameter EventSelector to Bulk0UpstreamData."}}));
    EXPECT_FALSE(mEngine.IsOpened());
    EXPECT_TRUE(IsFree(KyDeviceSerialBulk0));
}

} // namespace
