#include "Simulator/AdapterFixture.h"

#include <atomic>
#include <future>
#include <latch>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

constexpr const char* cBuffer1 = "EventBulk1UpstreamDataBuffer";
constexpr const char* cBuffer2 = "EventBulk2UpstreamDataBuffer";

} // namespace

class AdapterEventsTest : public AdapterFixture
{
protected:
    void MakeListening()
    {
        MakeAdapter();
        EXPECT_TRUE(mAdapter->RegisterEventSink(&mSink).IsOK());
        EXPECT_TRUE(mAdapter->WriteRegister(cInterruptEnable, 0x1F0F).IsOK());
    }

    /// What a sink finds in a port's upstream features, as the library's port reads them.
    Bytes ReadUpstream(size_t aBulk)
    {
        const std::string lPrefix = "EventBulk" + std::to_string(aBulk) + "UpstreamData";
        int64_t lLength = -1;
        EXPECT_TRUE(mAdapter->GetIntegerValue((lPrefix + "Length").c_str(), lLength).IsOK());
        Bytes lBytes(static_cast<size_t>(lLength));
        if (lLength > 0)
        {
            EXPECT_TRUE(
                mAdapter->GetRegisterData((lPrefix + "Buffer").c_str(), lBytes.data(), lLength).IsOK());
        }
        return lBytes;
    }
};

TEST_F(AdapterEventsTest, EventsComeOnOneThreadOfTheAdapter)
{
    MakeListening();
    mClock->Advance(3ms);
    Inject(Port::Uart0, {1});
    Inject(Port::Bulk0, {2});
    mAdapter->WaitForEvents();
    const auto lEvents = mSink.TakeEvents();
    ASSERT_THAT(lEvents, SizeIs(2));
    EXPECT_EQ(lEvents[0].mId, 0x9000);
    EXPECT_EQ(lEvents[0].mTimestamp, 3000000U);
    EXPECT_THAT(lEvents[0].mData, ElementsAre(2, 0, 0, 0, 1, 0, 0, 0));
    EXPECT_EQ(lEvents[1].mId, 0x9001);
    EXPECT_THAT(lEvents[1].mData, ElementsAre(0, 1, 0, 0, 2));
    EXPECT_EQ(lEvents[0].mThread, lEvents[1].mThread);
    EXPECT_NE(lEvents[0].mThread, std::this_thread::get_id());
}

TEST_F(AdapterEventsTest, SeveralSinksHearEveryEvent)
{
    MakeListening();
    RecordingSink lOther;
    EXPECT_TRUE(mAdapter->RegisterEventSink(&lOther).IsOK());
    Inject(Port::Uart1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeEvents(), SizeIs(1));
    EXPECT_THAT(lOther.TakeEvents(), SizeIs(1));
    EXPECT_TRUE(mAdapter->UnregisterEventSink(&lOther).IsOK());
    Inject(Port::Uart1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeEvents(), SizeIs(1));
    EXPECT_THAT(lOther.TakeEvents(), IsEmpty());
}

TEST_F(AdapterEventsTest, FeatureNotificationsComeOnlyWhereThereIsInterest)
{
    MakeListening();
    Notify(1);
    Inject(Port::Bulk1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("EventBulk1UpstreamDataLength").IsOK());
    Inject(Port::Bulk1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre(cBuffer1, "EventBulk1UpstreamDataLength"));
    EXPECT_TRUE(mAdapter->UnregisterFeatureInterest("EventBulk1UpstreamDataLength").IsOK());
    EXPECT_TRUE(mAdapter->UnregisterFeatureInterest(cBuffer1).IsOK());
    Inject(Port::Bulk1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre(cBuffer1));
    EXPECT_TRUE(mAdapter->UnregisterFeatureInterest(cBuffer1).IsOK());
    Inject(Port::Bulk1, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty());
}

TEST_F(AdapterEventsTest, ChangedSettingsAreReportedToo)
{
    MakeListening();
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest("BulkParity").IsOK());
    EXPECT_TRUE(mAdapter->SetFeatureFromString("BulkParity", "Odd").IsOK());
    EXPECT_TRUE(mAdapter->SetFeatureFromString("BulkNumOfStopBits", "Two").IsOK());
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeFeatures(), ElementsAre("BulkParity"));
}

TEST_F(AdapterEventsTest, EachNotificationShowsItsOwnBytesEvenWhenSeveralWait)
{
    MakeListening();
    Notify(1);
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    std::vector<Bytes> lSeen;
    std::latch lGo(1);
    mSink.mOnEvent = [&](uint16_t /*aId*/) { lGo.wait(); };
    mSink.mOnFeature = [&](const std::string& /*aName*/) { lSeen.push_back(ReadUpstream(1)); };
    Inject(Port::Bulk1, {1});
    Inject(Port::Bulk1, {2, 3});
    Inject(Port::Bulk1, {4, 5, 6});
    lGo.count_down();
    mAdapter->WaitForEvents();
    EXPECT_THAT(lSeen, ElementsAre(Bytes{1}, Bytes{2, 3}, Bytes{4, 5, 6}));
    EXPECT_EQ(ReadUpstream(1), (Bytes{4, 5, 6})); // any other thread sees the last one
}

TEST_F(AdapterEventsTest, OtherPortsLookEmptyDuringANotification)
{
    MakeListening();
    Notify(1);
    Notify(2);
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer2).IsOK());
    Bytes lOwn;
    Bytes lOther;
    mSink.mOnFeature = [&](const std::string& aName)
    {
        const size_t lBulk = aName == cBuffer1 ? 1 : 2;
        const Bytes lThis = ReadUpstream(lBulk);
        const Bytes lThat = ReadUpstream(3 - lBulk);
        lOwn.insert(lOwn.end(), lThis.begin(), lThis.end());
        lOther.insert(lOther.end(), lThat.begin(), lThat.end());
    };
    Inject(Port::Bulk1, {1});
    Inject(Port::Bulk2, {2});
    Inject(Port::Bulk1, {3});
    mAdapter->WaitForEvents();
    EXPECT_THAT(lOwn, ElementsAre(1, 2, 3));
    EXPECT_THAT(lOther, IsEmpty());
    EXPECT_EQ(ReadUpstream(2), Bytes{2});
}

TEST_F(AdapterEventsTest, TextOfTheLengthFollowsTheNotification)
{
    MakeListening();
    Notify(1);
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    KyString lDuring;
    mSink.mOnFeature = [&](const std::string& /*aName*/)
    { EXPECT_TRUE(mAdapter->GetFeatureAsString("EventBulk1UpstreamDataLength", lDuring).IsOK()); };
    Inject(Port::Bulk1, {1, 2, 3});
    mAdapter->WaitForEvents();
    EXPECT_EQ(lDuring, KyString("3"));
}

TEST_F(AdapterEventsTest, SinksMayCallBackIntoTheAdapter)
{
    MakeListening();
    std::atomic<int> lWrites{0};
    mSink.mOnEvent = [&](uint16_t /*aId*/)
    {
        if (lWrites < 10)
        {
            const auto lByte = static_cast<uint32_t>(lWrites++);
            EXPECT_TRUE(mAdapter->WriteRegister(cUart0Data, lByte).IsOK());
        }
    };
    Inject(Port::Uart0, {1});
    mAdapter->WaitForEvents();
    while (mCamera->GetWire(Port::Uart0).size() < 10) // each event brings the next
    {
        mAdapter->WaitForEvents();
    }
    EXPECT_EQ(mCamera->GetWire(Port::Uart0), Numbers(10));
}

TEST_F(AdapterEventsTest, UnregisterWaitsForARunningCall)
{
    MakeListening();
    std::promise<void> lEntered;
    std::promise<void> lLeave;
    std::atomic<bool> lDone{false};
    mSink.mOnEvent = [&](uint16_t /*aId*/)
    {
        lEntered.set_value();
        lLeave.get_future().wait();
        std::this_thread::sleep_for(20ms); // time for a return that comes too early
        lDone = true;
    };
    Inject(Port::Uart0, {1});
    lEntered.get_future().wait();
    auto lUnregister = std::async(std::launch::async,
                                  [&]
                                  {
                                      EXPECT_TRUE(mAdapter->UnregisterEventSink(&mSink).IsOK());
                                      return lDone.load();
                                  });
    lLeave.set_value();
    EXPECT_TRUE(lUnregister.get());
    Inject(Port::Uart0, {2});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeEvents(), SizeIs(1));
}

TEST_F(AdapterEventsTest, ASinkMayUnregisterItselfFromInside)
{
    MakeListening();
    Notify(1);
    EXPECT_TRUE(mAdapter->RegisterFeatureInterest(cBuffer1).IsOK());
    mSink.mOnEvent = [&](uint16_t /*aId*/) { EXPECT_TRUE(mAdapter->UnregisterEventSink(&mSink).IsOK()); };
    Inject(Port::Bulk1, {1});
    Inject(Port::Bulk1, {2});
    mAdapter->WaitForEvents();
    EXPECT_THAT(mSink.TakeEvents(), SizeIs(1));
    EXPECT_THAT(mSink.TakeFeatures(), IsEmpty()); // not even for the same event
}

TEST_F(AdapterEventsTest, ASinkMayUnregisterAnotherBeforeItsTurn)
{
    MakeListening();
    RecordingSink lOther;
    EXPECT_TRUE(mAdapter->RegisterEventSink(&lOther).IsOK());
    mSink.mOnEvent = [&](uint16_t /*aId*/) { static_cast<void>(mAdapter->UnregisterEventSink(&lOther)); };
    Inject(Port::Uart0, {1});
    mAdapter->WaitForEvents();
    EXPECT_THAT(lOther.TakeEvents(), IsEmpty());
}

TEST_F(AdapterEventsTest, DestroyingTheAdapterEndsTheCalls)
{
    MakeListening();
    for (uint8_t lByte = 0; lByte < 100; ++lByte)
    {
        Inject(Port::Uart0, {lByte});
    }
    mAdapter.reset();
    const size_t lDelivered = mSink.TakeEvents().size();
    EXPECT_LE(lDelivered, 100U);
    Inject(Port::Uart0, {1});
    EXPECT_THAT(mSink.TakeEvents(), IsEmpty());
}

TEST_F(AdapterEventsTest, EveryByteArrivesOnceAndInOrderFromManyThreads)
{
    mConfiguration.mBulkReceiveFifo = 100000;
    MakeListening();
    constexpr int cThreads = 4;
    constexpr int cEach = 200;
    std::vector<std::future<void>> lThreads;
    lThreads.reserve(cThreads);
    for (int lThread = 0; lThread < cThreads; ++lThread)
    {
        lThreads.push_back(std::async(
            std::launch::async,
            [&, lThread]
            {
                for (int lByte = 0; lByte < cEach; ++lByte)
                {
                    Inject(Port::Bulk0, {static_cast<uint8_t>(lThread), static_cast<uint8_t>(lByte)});
                }
            }));
    }
    lThreads.clear(); // waits
    mAdapter->WaitForEvents();
    std::array<int, cThreads> lNext{};
    for (const RecordingSink::Event& lEvent : mSink.TakeEvents())
    {
        ASSERT_EQ(lEvent.mData.size() % 2, 0U);
        for (size_t lIndex = 4; lIndex < lEvent.mData.size(); lIndex += 2)
        {
            int& lExpected = lNext.at(lEvent.mData[lIndex]);
            ASSERT_EQ(lEvent.mData[lIndex + 1], lExpected);
            ++lExpected;
        }
    }
    EXPECT_THAT(lNext, testing::Each(cEach));
}

TEST_F(AdapterEventsTest, WorksWithTheWallClock)
{
    CameraConfiguration lConfiguration;
    const auto lCamera = std::make_shared<CameraModel>(lConfiguration);
    SimulatedDeviceAdapter lAdapter(lCamera);
    std::promise<void> lDone;
    RecordingSink lSink;
    lSink.mOnEvent = [&](uint16_t /*aId*/) { lDone.set_value(); };
    EXPECT_TRUE(lAdapter.RegisterEventSink(&lSink).IsOK());
    EXPECT_TRUE(lAdapter.WriteRegister(cInterruptEnable, cUart0TransmitDone).IsOK());
    const Time lStart = lCamera->GetScheduler().Now();
    EXPECT_TRUE(lAdapter.WriteRegister(cUart0Data, 'x').IsOK());
    ASSERT_EQ(lDone.get_future().wait_for(60s), std::future_status::ready);
    EXPECT_GE(lCamera->GetScheduler().Now() - lStart, Time(1041666));
    EXPECT_TRUE(lAdapter.UnregisterEventSink(&lSink).IsOK());
}
