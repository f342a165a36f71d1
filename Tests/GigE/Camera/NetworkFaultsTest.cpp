#include <Simulator/Network/DatagramGate.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

namespace
{

using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class DatagramGateTest : public testing::Test
{
protected:
    DatagramGateTest()
        : mGate(mFaults,
                [this](DatagramKind aKind, const KyGvcp::Endpoint& aPeer, KyGvcp::Bytes aData)
                {
                    EXPECT_EQ(1U, aPeer.mAddress);
                    (aKind == DatagramKind::Event ? mEvents : mOthers).push_back(aData[0]);
                })
    {
    }

    void Pass(uint8_t aByte, DatagramKind aKind = DatagramKind::Event)
    {
        mGate.Pass(aKind, {1, 2}, std::vector<uint8_t>{aByte}, mNow);
    }
    void PassSix()
    {
        for (uint8_t lByte = 1; lByte <= 6; ++lByte)
        {
            Pass(lByte);
        }
    }

    Time mNow{1s};
    NetworkFaults mFaults;
    std::vector<int> mEvents;
    std::vector<int> mOthers;
    DatagramGate mGate;
};

TEST_F(DatagramGateTest, LetsEverythingThroughWithoutFaults)
{
    PassSix();
    EXPECT_THAT(mEvents, ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(cNever, mGate.NextDue());
}

TEST_F(DatagramGateTest, DropsEveryNthOfOneKind)
{
    mFaults.Drop(DatagramKind::Event, 3);
    PassSix();
    for (uint8_t lByte = 1; lByte <= 3; ++lByte)
    {
        Pass(lByte, DatagramKind::Acknowledge);
    }
    EXPECT_THAT(mEvents, ElementsAre(1, 2, 4, 5));
    EXPECT_THAT(mOthers, ElementsAre(1, 2, 3));
    EXPECT_EQ(2U, mGate.GetCounters().mDropped);
}

TEST_F(DatagramGateTest, DoublesEveryNth)
{
    mFaults.Double(DatagramKind::Event, 4);
    PassSix();
    EXPECT_THAT(mEvents, ElementsAre(1, 2, 3, 4, 4, 5, 6));
    EXPECT_EQ(1U, mGate.GetCounters().mDoubled);
}

TEST_F(DatagramGateTest, DelaysEveryNthPastTheNext)
{
    mFaults.Delay(DatagramKind::Event, 2, 50ms);
    PassSix();
    EXPECT_THAT(mEvents, ElementsAre(1, 3, 5));
    EXPECT_EQ(mNow + 50ms, mGate.NextDue());
    mGate.Step(mNow + 49ms);
    EXPECT_THAT(mEvents, ElementsAre(1, 3, 5));
    mGate.Step(mNow + 50ms);
    EXPECT_THAT(mEvents, ElementsAre(1, 3, 5, 2, 4, 6));
    EXPECT_EQ(cNever, mGate.NextDue());
    EXPECT_EQ(3U, mGate.GetCounters().mDelayed);
}

TEST_F(DatagramGateTest, DoublesAndDelaysTheSame)
{
    mFaults.Double(DatagramKind::Event, 1);
    mFaults.Delay(DatagramKind::Event, 1, 1ms);
    Pass(9);
    EXPECT_THAT(mEvents, IsEmpty());
    mGate.Step(mNow + 1ms);
    EXPECT_THAT(mEvents, ElementsAre(9, 9));
}

TEST_F(DatagramGateTest, TakesFaultsBack)
{
    mFaults.Drop(DatagramKind::Event, 1);
    Pass(1);
    mFaults.Drop(DatagramKind::Event, 0);
    Pass(2);
    mFaults.Double(DatagramKind::Event, 1);
    mFaults.SetBusy(1);
    mFaults.SetSlow(1, 1s);
    mFaults.Clear();
    Pass(3);
    EXPECT_THAT(mEvents, ElementsAre(2, 3));
    EXPECT_FALSE(mFaults.TakeBusy());
    EXPECT_EQ(Time(0), mFaults.TakeSlow());
}

TEST(NetworkFaultsTest, EachKindOfCommandFaultMeetsEveryNth)
{
    NetworkFaults lFaults;
    lFaults.SetBusy(2);
    lFaults.SetSlow(3, 30ms);
    lFaults.SetSilent(1, 10ms);
    std::array<bool, 6> lBusy{};
    std::array<int64_t, 6> lSlow{};
    for (size_t lCommand = 0; lCommand < lBusy.size(); ++lCommand)
    {
        lBusy.at(lCommand) = lFaults.TakeBusy();
        lSlow.at(lCommand) = lFaults.TakeSlow() / 1ms;
        EXPECT_EQ(Time(10ms), lFaults.TakeSilent());
    }
    EXPECT_THAT(lBusy, ElementsAre(false, true, false, true, false, true));
    EXPECT_THAT(lSlow, ElementsAre(0, 0, 30, 0, 0, 30));
}

// Applications learn that time from the camera, so it must not outlive the fault.
TEST(NetworkFaultsTest, TheSilentTimeEndsWithItsFault)
{
    NetworkFaults lFaults;
    EXPECT_EQ(Time(0), lFaults.GetSilentTime());
    lFaults.SetSilent(5, 10ms);
    EXPECT_EQ(Time(10ms), lFaults.GetSilentTime());
    lFaults.SetSilent(0, 10ms);
    EXPECT_EQ(Time(0), lFaults.GetSilentTime());
    EXPECT_EQ(Time(0), lFaults.TakeSilent());
}

TEST(NetworkFaultsTest, ADatagramIsLostRatherThanDoubled)
{
    NetworkFaults lFaults;
    lFaults.Drop(DatagramKind::Event, 2);
    lFaults.Double(DatagramKind::Event, 1);
    EXPECT_EQ(2U, lFaults.NextFate(DatagramKind::Event).mCopies);
    EXPECT_EQ(0U, lFaults.NextFate(DatagramKind::Event).mCopies);
    EXPECT_EQ(1U, lFaults.NextFate(DatagramKind::Command).mCopies) << "another kind";
}

} // namespace
