#include "Support/ScriptedAdapter.h"
#include "Support/ResultMatcher.h"

#include <gtest/gtest.h>

using namespace KyTest;

namespace
{

class RecordingSink final : public IKyDeviceEventSink
{
public:
    void NotifyEvent(uint16_t aEventID, uint16_t /*aChannel*/, uint64_t /*aBlockID*/, uint64_t /*aTimestamp*/,
                     const void* /*aData*/, uint32_t aDataLength) override
    {
        mTexts.push_back(ToHex(aEventID) + " " + std::to_string(aDataLength));
    }
    void NotifyFeatureInvalidated(const KyString* aName) override { mTexts.emplace_back(aName->GetAscii()); }

    Calls mTexts;
};

TEST(ScriptedAdapterTest, WritesEveryCallDown)
{
    ScriptedAdapter lAdapter;
    const uint8_t lBytes[] = {0xA0, 1, 2};
    uint32_t lValue = 0;
    static_cast<void>(lAdapter.ReadRegister(0xB838, lValue));
    static_cast<void>(lAdapter.WriteRegister(0xB84C, 0x41));
    static_cast<void>(lAdapter.WriteMemory(lBytes, 0x80001600, 3));
    static_cast<void>(lAdapter.SetRegisterData("Bulk0DownstreamData", lBytes, 3));
    static_cast<void>(lAdapter.SetFeatureFromString("EventSelector", "A"));
    static_cast<void>(lAdapter.IsEnumEntryAvailable("BulkMode", "I2C"));
    static_cast<void>(lAdapter.IsConnected());
    EXPECT_EQ(lAdapter.TakeCalls(), (Calls{"ReadRegister(0xb838)", "WriteRegister(0xb84c, 0x41)",
                                           "WriteMemory(0x80001600, [a0 01 02])",
                                           "SetRegisterData(Bulk0DownstreamData, [a0 01 02])",
                                           "SetFeatureFromString(EventSelector, \"A\")",
                                           "IsEnumEntryAvailable(BulkMode, I2C)", "IsConnected"}));
    EXPECT_EQ(lAdapter.TakeCalls(), Calls());
    EXPECT_EQ(lAdapter.GetCallCount(), 7);
    EXPECT_EQ(lAdapter.GetCallCount(Slot::WriteMemory), 1);
}

TEST(ScriptedAdapterTest, RefusesTheCallThatWasAskedFor)
{
    ScriptedAdapter lAdapter;
    uint32_t lValue = 0;
    lAdapter.FailCall(2, KyResult(9));
    EXPECT_TRUE(lAdapter.IsConnected());
    EXPECT_FALSE(lAdapter.IsConnected());
    EXPECT_TRUE(lAdapter.IsConnected());

    lAdapter.FailCall(Slot::ReadRegister, 2, KyResult(9, "nine"));
    EXPECT_THAT(lAdapter.ReadRegister(1, lValue), IsOK());
    EXPECT_TRUE(lAdapter.IsConnected());
    EXPECT_THAT(lAdapter.ReadRegister(1, lValue), IsResult(9, "nine"));
    EXPECT_THAT(lAdapter.ReadRegister(1, lValue), IsOK());

    lAdapter.Fail(Slot::ReadRegister, "0x2", KyResult(8));
    EXPECT_THAT(lAdapter.ReadRegister(1, lValue), IsOK());
    EXPECT_THAT(lAdapter.ReadRegister(2, lValue), IsResult(8, ""));
    lAdapter.Fail(Slot::WriteRegister, KyResult(7));
    EXPECT_THAT(lAdapter.WriteRegister(1, 5), IsResult(7, ""));
    EXPECT_THAT(lAdapter.WriteRegister(1, 5), IsResult(7, ""));
    EXPECT_EQ(lAdapter.GetRegister(1), 0U);
    lAdapter.StopFailing();
    EXPECT_THAT(lAdapter.WriteRegister(1, 5), IsOK());
    EXPECT_EQ(lAdapter.GetRegister(1), 5U);
}

TEST(ScriptedAdapterTest, IsGoneFromTheCallThatWasAskedFor)
{
    ScriptedAdapter lAdapter;
    lAdapter.DisconnectAtCall(2);
    EXPECT_TRUE(lAdapter.IsConnected());
    EXPECT_THAT(lAdapter.WriteRegister(1, 5), IsResult(KyResult::NO_CONNECTION, "gone"));
    EXPECT_FALSE(lAdapter.IsConnected());
    EXPECT_THAT(lAdapter.WriteRegister(1, 5), IsResult(KyResult::NO_CONNECTION, "gone"));
}

TEST(ScriptedAdapterTest, ReportsTheRegisteredSinks)
{
    ScriptedAdapter lAdapter;
    RecordingSink lSink;
    EXPECT_THAT(lAdapter.RegisterEventSink(&lSink), IsOK());
    EXPECT_EQ(lAdapter.GetSinks(), std::vector<IKyDeviceEventSink*>{&lSink});
    lAdapter.SendEvent(0x9000, Bytes{1, 2});
    lAdapter.Invalidate("Name");
    EXPECT_THAT(lAdapter.UnregisterEventSink(&lSink), IsOK());
    lAdapter.SendEvent(0x9001, nullptr, 0);
    EXPECT_EQ(lSink.mTexts, (Calls{"0x9000 2", "Name"}));
}

TEST(ScriptedAdapterTest, RunsHooksWithinTheCall)
{
    ScriptedAdapter lAdapter;
    RecordingSink lSink;
    EXPECT_THAT(lAdapter.RegisterEventSink(&lSink), IsOK());
    int lCalls = 0;
    lAdapter.OnEveryCall([&] { ++lCalls; });
    lAdapter.OnCall(Slot::WriteRegister, [&] { lAdapter.SendEvent(0x9000, Bytes{1}); });
    static_cast<void>(lAdapter.WriteRegister(1, 2));
    static_cast<void>(lAdapter.IsConnected());
    EXPECT_EQ(lSink.mTexts, Calls{"0x9000 1"});
    EXPECT_EQ(lCalls, 2);
}

TEST(ScriptedAdapterTest, HasAMacAddressOfItsOwn)
{
    ScriptedAdapter lOne;
    ScriptedAdapter lOther;
    int64_t lMac = 0;
    int64_t lOtherMac = 0;
    EXPECT_THAT(lOne.GetIntegerValue("GevMACAddress", lMac), IsOK());
    EXPECT_THAT(lOther.GetIntegerValue("GevMACAddress", lOtherMac), IsOK());
    EXPECT_NE(lMac, lOtherMac);
}

} // namespace
