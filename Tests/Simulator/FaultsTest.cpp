#include "Simulator/AdapterFixture.h"

#include <thread>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class FaultsTest : public AdapterFixture
{
protected:
    void MakeListening()
    {
        MakeAdapter();
        EXPECT_TRUE(mAdapter->RegisterEventSink(&mSink).IsOK());
        EXPECT_TRUE(mAdapter->WriteRegister(cInterruptEnable, 0x1F0F).IsOK());
    }

    Faults& GetFaults() { return mAdapter->GetFaults(); }

    bool ReadWorks()
    {
        uint32_t lValue = 0;
        return mAdapter->ReadRegister(cInterruptEnable, lValue).IsOK();
    }

    Bytes TakeFirstBytes()
    {
        mAdapter->WaitForEvents();
        Bytes lBytes;
        for (const RecordingSink::Event& lEvent : mSink.TakeEvents())
        {
            lBytes.push_back(lEvent.mData.at(4));
        }
        return lBytes;
    }
};

TEST_F(FaultsTest, TheNthCallFailsOnceWithTheGivenResult)
{
    MakeAdapter();
    GetFaults().FailCall({2, false, {}, KyResult(0x1234, "Asked for.")});
    EXPECT_TRUE(ReadWorks());
    const KyResult lResult = mAdapter->WriteRegister(cUart0Data, 1);
    EXPECT_EQ(lResult.GetCode(), 0x1234U);
    EXPECT_EQ(lResult.GetDescription(), KyString("Asked for."));
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), IsEmpty()); // it did not happen
    EXPECT_TRUE(ReadWorks());
}

TEST_F(FaultsTest, TheNthCallAndAllAfterItCanFail)
{
    MakeAdapter();
    GetFaults().FailCall({3, true, {}, KyResult::FAILURE});
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(ReadWorks());
    EXPECT_FALSE(ReadWorks());
    EXPECT_FALSE(mAdapter->IsGigEVision());
    EXPECT_FALSE(ReadWorks());
    GetFaults().Clear();
    EXPECT_TRUE(ReadWorks());
}

TEST_F(FaultsTest, OnlyCallsOfOneOperationCanFail)
{
    MakeAdapter();
    GetFaults().FailCall({2, false, AdapterSlot::WriteRegister, KyResult::TIMED_OUT});
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(mAdapter->WriteRegister(cBulk0Rate, 1).IsOK());
    EXPECT_TRUE(ReadWorks());
    EXPECT_EQ(mAdapter->WriteRegister(cBulk0Rate, 2).GetCode(), KyResult::TIMED_OUT);
    EXPECT_TRUE(mAdapter->WriteRegister(cBulk0Rate, 3).IsOK());
}

TEST_F(FaultsTest, SeveralFaultsCountIndependently)
{
    MakeAdapter();
    GetFaults().FailCall({1, false, {}, KyResult(1)});
    GetFaults().FailCall({1, false, AdapterSlot::WriteRegister, KyResult(2)});
    GetFaults().FailCall({0, false, AdapterSlot::PostWrite, KyResult(3)}); // 0 counts as 1
    EXPECT_EQ(mAdapter->WriteRegister(cBulk0Rate, 1).GetCode(), 1U);
    EXPECT_TRUE(mAdapter->WriteRegister(cBulk0Rate, 1).IsOK()); // both were spent on the first
    EXPECT_EQ(mAdapter->PostWrite(1).GetCode(), 3U);
}

TEST_F(FaultsTest, EveryOperationCanFail)
{
    MakeAdapter();
    GetFaults().FailCall({1, true, {}, KyResult(0x77)});
    int64_t lNumber = 0;
    uint32_t lValue = 0;
    uint8_t lByte = 0;
    KyString lText;
    KyStringList lEntries;
    const std::vector<uint32_t> lCodes = {
        mAdapter->GetIntegerValue("GevMACAddress", lNumber).GetCode(),
        mAdapter->GetEnumEntries("BulkMode", lEntries).GetCode(),
        mAdapter->GetFeatureAsString("BulkMode", lText).GetCode(),
        mAdapter->SetFeatureFromString("BulkMode", "SPI").GetCode(),
        mAdapter->GetStringValue("DeviceVendorName", lText).GetCode(),
        mAdapter->GetRegisterLength("Bulk0DownstreamData", lNumber).GetCode(),
        mAdapter->GetRegisterData("EventBulk0UpstreamDataBuffer", &lByte, 1).GetCode(),
        mAdapter->SetRegisterData("Bulk0DownstreamData", &lByte, 1).GetCode(),
        mAdapter->RegisterFeatureInterest("BulkMode").GetCode(),
        mAdapter->UnregisterFeatureInterest("BulkMode").GetCode(),
        mAdapter->WriteRegister(cBulk0Rate, 1).GetCode(),
        mAdapter->ReadRegister(cBulk0Rate, lValue).GetCode(),
        mAdapter->WriteMemory(&lByte, cTransmitWindow, 1).GetCode(),
        mAdapter->PostWrite(1).GetCode(),
        mAdapter->RegisterEventSink(&mSink).GetCode(),
        mAdapter->UnregisterEventSink(&mSink).GetCode(),
    };
    EXPECT_THAT(lCodes, testing::Each(0x77U));
    EXPECT_FALSE(mAdapter->IsIntegerFeatureAvailable("GevMACAddress"));
    EXPECT_FALSE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsRegisterFeatureAvailable("Bulk0DownstreamData"));
    EXPECT_FALSE(mAdapter->IsFeatureReadable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsFeatureWritable("BulkMode"));
    EXPECT_FALSE(mAdapter->IsEnumEntryAvailable("BulkMode", "UART"));
    EXPECT_FALSE(mAdapter->IsConnected());
    EXPECT_FALSE(mAdapter->IsKorvoVideoInterface());
    EXPECT_FALSE(mAdapter->IsGigEVision());
    EXPECT_FALSE(mAdapter->IsAlternateTransport());
    EXPECT_EQ(GetFaults().GetCallCount(), 26U);
    EXPECT_EQ(Get("BulkMode"), "UART");
}

TEST_F(FaultsTest, CallsAreCountedAllAndByOperation)
{
    MakeAdapter();
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(mAdapter->IsConnected());
    EXPECT_EQ(GetFaults().GetCallCount(), 3U);
    EXPECT_EQ(GetFaults().GetCallCount(AdapterSlot::ReadRegister), 2U);
    EXPECT_EQ(GetFaults().GetCallCount(AdapterSlot::WriteRegister), 0U);
    EXPECT_EQ(GetFaults().GetCallCount(static_cast<AdapterSlot>(999)), 0U);
}

TEST_F(FaultsTest, ADisconnectedCameraAnswersNothing)
{
    MakeListening();
    Notify(1);
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataBuffer").IsOK());
    GetFaults().Disconnect();
    EXPECT_TRUE(GetFaults().IsDisconnected());
    EXPECT_FALSE(mAdapter->IsConnected());
    EXPECT_FALSE(mAdapter->IsFeatureAvailable("BulkMode"));
    EXPECT_EQ(mAdapter->WriteRegister(cUart0Data, 1).GetCode(), KyResult::NO_CONNECTION);
    EXPECT_TRUE(mAdapter->IsGigEVision()); // that much is known
    EXPECT_TRUE(mAdapter->IsKorvoVideoInterface());
    Inject(Port::Uart0, {1});
    Inject(Port::Bulk1, {1});
    EXPECT_THAT(TakeFirstBytes(), IsEmpty());
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), IsEmpty());
    GetFaults().Reconnect();
    EXPECT_TRUE(mAdapter->IsConnected());
    Inject(Port::Uart0, {2});
    EXPECT_THAT(TakeFirstBytes(), ElementsAre(2));
}

TEST_F(FaultsTest, TheConnectionCanBreakAtACall)
{
    MakeAdapter();
    GetFaults().DisconnectAtCall(3);
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(mAdapter->IsConnected());
    EXPECT_FALSE(ReadWorks());
    EXPECT_FALSE(mAdapter->IsConnected());
    GetFaults().Reconnect();
    GetFaults().DisconnectAtCall(2);
    GetFaults().Clear();
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(ReadWorks());
    EXPECT_TRUE(ReadWorks());
}

TEST_F(FaultsTest, WithdrawalsTakeEffectWhateverTheyReturn)
{
    MakeListening();
    GetFaults().FailCall({1, false, AdapterSlot::UnregisterEventSink, KyResult::FAILURE});
    EXPECT_FALSE(mAdapter->UnregisterEventSink(&mSink).IsOK());
    Inject(Port::Uart0, {1});
    EXPECT_THAT(TakeFirstBytes(), IsEmpty());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("BulkMode").IsOK());
    GetFaults().Disconnect();
    EXPECT_EQ(mAdapter->UnregisterFeatureInterest("BulkMode").GetCode(), KyResult::NO_CONNECTION);
    GetFaults().Reconnect();
    EXPECT_EQ(mAdapter->UnregisterFeatureInterest("BulkMode").GetCode(), Code(Status::InvalidParameter));
}

TEST_F(FaultsTest, TheNthEventCanBeLost)
{
    MakeListening();
    GetFaults().LoseEvent(2);
    Inject(Port::Uart0, {1});
    Inject(Port::Uart0, {2});
    Inject(Port::Uart0, {3});
    EXPECT_THAT(TakeFirstBytes(), ElementsAre(1, 3));
    EXPECT_EQ(GetFaults().GetEventCount(), 3U);
}

TEST_F(FaultsTest, TheNthEventCanComeTwice)
{
    MakeListening();
    GetFaults().DoubleEvent(2);
    Inject(Port::Uart0, {1});
    Inject(Port::Uart0, {2});
    Inject(Port::Uart0, {3});
    EXPECT_THAT(TakeFirstBytes(), ElementsAre(1, 2, 2, 3));
}

TEST_F(FaultsTest, ADelayedEventHoldsBackThoseAfterIt)
{
    MakeListening();
    GetFaults().DelayEvent(10ms, 2);
    Inject(Port::Uart0, {1});
    Inject(Port::Uart0, {2});
    Inject(Port::Uart0, {3});
    while (mSink.TakeEvents().empty())
    {
        std::this_thread::yield();
    }
    mClock->Advance(10ms - 1ns);
    EXPECT_THAT(mSink.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeFirstBytes(), ElementsAre(2, 3));
}

TEST_F(FaultsTest, AnAdapterCanBeDestroyedWithADelayedEvent)
{
    MakeListening();
    GetFaults().DelayEvent(1h);
    Inject(Port::Uart0, {1});
    mAdapter.reset();
    mClock->Advance(1h);
    EXPECT_THAT(mSink.TakeEvents(), IsEmpty());
}

TEST_F(FaultsTest, EventFaultsCanBeTakenBack)
{
    MakeListening();
    GetFaults().LoseEvent(1);
    GetFaults().Clear();
    Inject(Port::Uart0, {1});
    EXPECT_THAT(TakeFirstBytes(), ElementsAre(1));
}

TEST_F(FaultsTest, TheTranscriptHasCallsWithTheirArguments)
{
    MakeAdapter();
    EXPECT_TRUE(ReadWorks());
    GetFaults().RecordCalls(true);
    EXPECT_TRUE(GetFaults().IsRecording());
    EXPECT_TRUE(mAdapter->WriteRegister(cUart0Data, 0x41).IsOK());
    EXPECT_TRUE(mAdapter->SetFeatureFromString("BulkSelector", "Bulk3").IsOK());
    const Bytes lMessage = Message({1});
    EXPECT_TRUE(mAdapter->SetRegisterData("Bulk0DownstreamData", lMessage.data(), 12).IsOK());
    const Bytes lLong(70, 0xAB);
    EXPECT_TRUE(mAdapter->WriteMemory(lLong.data(), cTransmitWindow, 70).IsOK());
    EXPECT_TRUE(mAdapter->IsConnected());
    GetFaults().RecordCalls(false);
    EXPECT_TRUE(ReadWorks());
    const auto lCalls = GetFaults().GetTranscript();
    ASSERT_THAT(lCalls, SizeIs(5));
    EXPECT_EQ(lCalls[0].mSlot, AdapterSlot::WriteRegister);
    EXPECT_EQ(lCalls[0].mArguments, "0xB84C, 0x41");
    EXPECT_EQ(lCalls[1].mArguments, "BulkSelector, Bulk3");
    EXPECT_EQ(lCalls[2].mArguments, "Bulk0DownstreamData, 12 bytes: 00 00 00 00 00 00 00 01 01 EE EE EE");
    EXPECT_THAT(lCalls[3].mArguments, testing::StartsWith("0x80000000, 70 bytes: AB AB"));
    EXPECT_THAT(lCalls[3].mArguments, testing::EndsWith(" AB ..."));
    EXPECT_STREQ(NameOf(lCalls[4].mSlot), "IsConnected");
    GetFaults().RecordCalls(true);
    EXPECT_THAT(GetFaults().GetTranscript(), IsEmpty());
}

TEST_F(FaultsTest, SlotsHaveNames)
{
    EXPECT_STREQ(NameOf(AdapterSlot::IsIntegerFeatureAvailable), "IsIntegerFeatureAvailable");
    EXPECT_STREQ(NameOf(AdapterSlot::UnregisterEventSink), "UnregisterEventSink");
    EXPECT_STREQ(NameOf(AdapterSlot::PostWrite), "PostWrite");
    EXPECT_STREQ(NameOf(static_cast<AdapterSlot>(12)), "");
    EXPECT_STREQ(NameOf(static_cast<AdapterSlot>(99)), "");
}
