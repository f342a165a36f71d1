// What an engine has at the borders of its life: before it has read the settings, and from one opening to the next.

#include "BulkIPEngine.h"
#include "KySerial/FeatureEngineTest.h"

using namespace KyTest;
using namespace KySerialLib;

namespace
{

// Gives away what follows from the sizes and times.
class Bulk : public BulkIPEngine
{
public:
    using BulkIPEngine::ComputeChunkTimeout;
};

class BulkLifeTest : public EngineTest
{
protected:
    // Lets the opening fail before anything is known of the device's settings.
    void OpenInVain()
    {
        mDevice.Fail(Slot::ReadRegister, "0xb898");
        EXPECT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsResult(0x7777, "scripted"));
        mDevice.StopFailing();
        Forget();
    }

    Bulk mEngine;
};

TEST_F(BulkLifeTest, WritesInChunksOf256And128BytesBeforeItHasReadTheSettings)
{
    OpenInVain();
    mDevice.OnCall(Slot::WriteMemory, [this] { mDevice.SendEvent(0x9000, Words({0x1800})); });
    Calls lCalls{"IsConnected"};
    for (const auto& [lBegin, lSize] :
         std::vector<std::pair<size_t, size_t>>{{0, 256}, {256, 128}, {384, 128}, {512, 88}})
    {
        lCalls.push_back("WriteMemory(0x80000000, " + ToText(Count(600).data() + lBegin, lSize) + ")");
    }
    uint32_t lWritten = 0;
    EXPECT_THAT(WriteTo(mEngine, Count(600), lWritten), IsOK());
    EXPECT_EQ(mDevice.TakeCalls(), lCalls);
    EXPECT_EQ(lWritten, 600U);
    EXPECT_EQ(mEngine.ComputeChunkTimeout(10000), 800U); // 0.03 ms for a byte
}

TEST_F(BulkLifeTest, ClosesWithAllInterruptsOffBeforeItHasSeenWhichWereOn)
{
    OpenInVain();
    mDevice.SetRegister(0xB838, 0xFFFFFFFF);
    EXPECT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.GetRegister(0xB838), 0xFFFFE0FFU);
}

class FeatureLifeTest : public EngineTest
{
protected:
    void Open() { ASSERT_THAT(mEngine.Open(&mDevice, KyDeviceSerialBulk0), IsOK()); }

    void Reopen()
    {
        EXPECT_THAT(mEngine.Close(), IsOK());
        Open();
    }

    // The message that carries these bytes to the device.
    Bytes Send(const Bytes& aBytes)
    {
        uint32_t lWritten = 0;
        EXPECT_THAT(WriteTo(mEngine, aBytes, lWritten), IsOK());
        return mDevice.GetContent(cDownstream);
    }

    // Receives an event whose feature has room for aRoom bytes.
    Bytes Receive(const Bytes& aBytes, size_t aRoom)
    {
        mDevice.SetContent(cUpstreamBuffer, Together({aBytes, Bytes(aRoom - aBytes.size())}));
        mDevice.SetInteger(cUpstreamLength, static_cast<int64_t>(aBytes.size()));
        mDevice.Invalidate(cUpstreamBuffer);
        return ReadAll(mEngine);
    }

    // What such an event leaves whose bytes cannot be read: those that the buffer held.
    Bytes ReceiveInVain(size_t aCount, size_t aRoom)
    {
        mDevice.Fail(Slot::GetRegisterData);
        Bytes lBytes = Receive(Bytes(aCount, 0x99), aRoom);
        mDevice.StopFailing();
        return lBytes;
    }

    static constexpr uint8_t cA = 0xAA;
    IRegisterSerialPort mEngine{false};
};

TEST_F(FeatureLifeTest, TheMessageBufferOutlivesClose)
{
    Open();
    mDevice.SetLength(cDownstream, 100);
    EXPECT_EQ(Send({cA, cA, cA, cA}), (Bytes{0, 0, 0, 0, 0, 0, 0, 4, cA, cA, cA, cA}));
    Reopen();
    mDevice.SetLength(cDownstream, 100);
    EXPECT_EQ(Send({0x55}), (Bytes{0, 0, 0, 0, 0, 0, 0, 1, 0x55, cA, cA, cA}));
}

TEST_F(FeatureLifeTest, TheMessageBufferGrowsAndDoesNotShrink)
{
    Open();
    mDevice.SetLength(cDownstream, 20);
    EXPECT_EQ(Send({cA, cA, cA, cA}).back(), cA);
    mDevice.SetLength(cDownstream, 12); // has room in what is there
    EXPECT_EQ(Send({0x55}).back(), cA);
    mDevice.SetLength(cDownstream, 20);
    EXPECT_EQ(Send({0x55}).back(), cA);
    mDevice.SetLength(cDownstream, 24); // has not: a new one, of zeros
    EXPECT_EQ(Send({0x55}).back(), 0);
}

TEST_F(FeatureLifeTest, TheReceiveBufferOutlivesClose)
{
    Open();
    EXPECT_EQ(Receive({1, 2, 3}, 64), (Bytes{1, 2, 3}));
    Reopen();
    EXPECT_EQ(ReceiveInVain(2, 64), (Bytes{1, 2}));
}

TEST_F(FeatureLifeTest, TheReceiveBufferGrowsAndDoesNotShrink)
{
    Open();
    EXPECT_EQ(Receive({1, 2, 3}, 64), (Bytes{1, 2, 3}));
    EXPECT_EQ(ReceiveInVain(2, 16), (Bytes{1, 2})); // has room in what is there
    EXPECT_EQ(ReceiveInVain(3, 64), (Bytes{1, 2, 3}));
    EXPECT_EQ(ReceiveInVain(3, 65), (Bytes{0, 0, 0})); // has not: a new one, of zeros
}

TEST_F(FeatureLifeTest, AnEventWhoseBytesCannotBeReadBringsThoseOfTheEventBefore)
{
    Open();
    EXPECT_EQ(ReceiveInVain(2, 64), (Bytes{0, 0})); // none before
    EXPECT_EQ(Receive({1, 2, 3}, 64), (Bytes{1, 2, 3}));
    EXPECT_EQ(ReceiveInVain(5, 64), (Bytes{1, 2, 3, 0, 0})); // as many as the device says
    EXPECT_EQ(Receive({4}, 64), Bytes{4});
    EXPECT_EQ(ReceiveInVain(2, 64), (Bytes{4, 2}));
    EXPECT_EQ(mDevice.GetCallCount(Slot::GetRegisterData), 5); // asked once for each
}

TEST_F(FeatureLifeTest, CloseForgetsWhatTheNotificationWas)
{
    mDevice.SetText("EventNotification", "Off");
    Open();
    ASSERT_THAT(mEngine.Close(), IsOK());
    EXPECT_EQ(mDevice.GetText("EventNotification"), "Off");
    Forget();
    // This opening fails before it looks at the notification, and closes again with what it knows of it.
    mDevice.OnCall(Slot::GetIntegerValue,
                   [this] { mDevice.SetAvailable(Slot::IsIntegerFeatureAvailable, cUpstreamLength, false); });
    EXPECT_EQ(mEngine.Open(&mDevice, KyDeviceSerialBulk0).GetCode(),
              static_cast<uint32_t>(KyResult::UNSUPPORTED));
    EXPECT_EQ(mAsserts.Take(), Broken({"0"}));
    EXPECT_THAT(mDevice.TakeCalls(),
                testing::Contains("SetFeatureFromString(EventNotification, \"\")").Times(1));
}

} // namespace
