#include "Simulator/FakePortHost.h"

#include <Simulator/Ports/LinePort.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace KySimulator;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<uint8_t>;

/// A port with a byte time of ten and a receiver that can be switched off.
class PlainLine final : public LinePort
{
public:
    PlainLine(FakePortHost& aHost, Limits aLimits) : LinePort(aHost, Port::Uart0, aLimits) {}

    Time GetByteTime() const override { return mByteTime; }
    void HandOn() override
    {
        while (mReceiving && GetReceived() > 0)
        {
            mHost.RaiseUpstream(0, TakeReceived(2));
        }
    }

    using LinePort::ArriveAt;
    using LinePort::DropTransmit;
    using LinePort::TakeReceived;

    /// Transmits at once and on the line, unless the arguments say otherwise.
    void Send(const Bytes& aBytes, bool aOnWire = true, Time aStart = Time(0))
    {
        Transmit(aBytes.data(), aBytes.size(), aOnWire, aStart);
    }

    Time mByteTime{10};
    bool mReceiving = true;
    std::vector<size_t> mFills; // of the transmitter, each time that a byte has left

private:
    void OnByteSent() override { mFills.push_back(GetTransmitFill()); }
};

class LinePortTest : public testing::Test
{
protected:
    /// Moves the clock. \return What the port does then.
    std::vector<std::string> StepAt(int64_t aNow)
    {
        mHost.mNow = Time(aNow);
        mLine.Step();
        return mHost.TakeLog();
    }
    void Inject(const Bytes& aBytes, int64_t aDelay = 0)
    {
        mLine.Inject(aBytes.data(), aBytes.size(), Time(aDelay));
    }

    FakePortHost mHost;
    PlainLine mLine{mHost, {4, 3}};
};

TEST_F(LinePortTest, AnIdlePortHasNothingToDo)
{
    EXPECT_EQ(cNever, mLine.NextDue());
    EXPECT_THAT(StepAt(1000), IsEmpty());
}

TEST_F(LinePortTest, BytesLeaveAByteTimeApart)
{
    mLine.Send({1, 2});
    EXPECT_EQ(Time(10), mLine.NextDue());
    EXPECT_THAT(StepAt(9), IsEmpty());
    EXPECT_THAT(StepAt(10), ElementsAre("peer 1"));
    EXPECT_EQ(Time(20), mLine.NextDue());
    EXPECT_THAT(StepAt(20), ElementsAre("peer 2"));
    EXPECT_EQ(cNever, mLine.NextDue());
    EXPECT_EQ(2U, mLine.GetCounters().mSent);
}

TEST_F(LinePortTest, ALateStepDoesNotSlowTheLineDown)
{
    mLine.Send({1, 2, 3});
    EXPECT_THAT(StepAt(25), ElementsAre("peer 1 2"));
    EXPECT_EQ(Time(30), mLine.NextDue());
}

TEST_F(LinePortTest, TheTransmitterMayBeginLaterButNotBeforeNow)
{
    mLine.Send({1}, true, Time(100));
    EXPECT_EQ(Time(110), mLine.NextDue());
    EXPECT_THAT(StepAt(110), ElementsAre("peer 1"));
    mLine.Send({2}, true, Time(50));
    EXPECT_EQ(Time(120), mLine.NextDue());
}

TEST_F(LinePortTest, BytesThatFollowDoNotDelayThoseBeforeThem)
{
    mLine.Send({1});
    mHost.mNow = Time(5);
    mLine.Send({2}, true, Time(1000));
    EXPECT_THAT(StepAt(20), ElementsAre("peer 1 2"));
}

TEST_F(LinePortTest, BytesOffTheWireOnlyTakeTheLinesTime)
{
    mLine.Send({1, 2}, false);
    EXPECT_THAT(StepAt(20), IsEmpty());
    EXPECT_THAT(mLine.mFills, ElementsAre(1U, 0U)) << "a byte that has left is not counted any more";
    EXPECT_EQ(0U, mLine.GetCounters().mSent);
    EXPECT_THAT(mLine.GetWire(), IsEmpty());
}

TEST_F(LinePortTest, DroppedBytesNeverLeave)
{
    mLine.Send({1, 2});
    mLine.DropTransmit();
    EXPECT_EQ(cNever, mLine.NextDue());
    EXPECT_THAT(StepAt(100), IsEmpty());
}

TEST_F(LinePortTest, TheWireRemembersTheNewestBytes)
{
    mLine.Send({1, 2, 3, 4, 5});
    StepAt(50);
    EXPECT_THAT(mLine.GetWire(), ElementsAre(3, 4, 5));
    mLine.ClearWire();
    EXPECT_THAT(mLine.GetWire(), IsEmpty());

    PlainLine lForgetful(mHost, {4, 0});
    lForgetful.Send({1});
    mHost.mNow = Time(100);
    lForgetful.Step();
    EXPECT_THAT(lForgetful.GetWire(), IsEmpty());
    EXPECT_EQ(1U, lForgetful.GetCounters().mSent);
}

TEST_F(LinePortTest, BytesArriveAByteTimeApartAndAfterThoseOnTheirWay)
{
    Inject({1, 2});
    Inject({3}, 5); // would begin at 5, when the line is still taken
    EXPECT_EQ(Time(10), mLine.NextDue());
    EXPECT_THAT(StepAt(9), IsEmpty());
    EXPECT_THAT(StepAt(10), ElementsAre("upstream 1"));
    EXPECT_THAT(StepAt(29), ElementsAre("upstream 2"));
    EXPECT_THAT(StepAt(30), ElementsAre("upstream 3"));
}

TEST_F(LinePortTest, ADelayComesBeforeTheFirstByteAndIsNeverNegative)
{
    Inject({1}, 100);
    EXPECT_EQ(Time(110), mLine.NextDue());
    StepAt(200);
    Inject({2}, -50);
    EXPECT_EQ(Time(210), mLine.NextDue());
}

TEST_F(LinePortTest, BytesOfABusArriveAtOnceAndAfterThoseOnTheirWay)
{
    const Bytes lBytes = {1, 2};
    mLine.ArriveAt(lBytes.data(), lBytes.size(), Time(50));
    mLine.ArriveAt(lBytes.data(), 1, Time(20));
    EXPECT_THAT(StepAt(49), IsEmpty());
    EXPECT_THAT(StepAt(50), ElementsAre("upstream 1 2", "upstream 1"));
}

TEST_F(LinePortTest, WhatLeavesComesBeforeWhatArrives)
{
    mLine.Send({1});
    Inject({2});
    EXPECT_THAT(StepAt(10), ElementsAre("peer 1", "upstream 2"));
}

TEST_F(LinePortTest, AFullFifoKeepsTheOldestBytes)
{
    mLine.mReceiving = false;
    Inject({1, 2, 3, 4, 5, 6});
    EXPECT_THAT(StepAt(60), IsEmpty());
    EXPECT_EQ(6U, mLine.GetCounters().mReceived);
    EXPECT_EQ(2U, mLine.GetCounters().mReceiveOverflow);
    EXPECT_THAT(mLine.TakeReceived(3), ElementsAre(1, 2, 3));
    EXPECT_THAT(mLine.TakeReceived(3), ElementsAre(4));
    EXPECT_THAT(mLine.TakeReceived(3), IsEmpty());
}

// A step that comes late finds more bytes than the FIFO holds.
TEST_F(LinePortTest, AReceiverThatTakesEveryByteLosesNothing)
{
    Inject({1, 2, 3, 4, 5, 6});
    EXPECT_THAT(StepAt(60), ElementsAre("upstream 1 2", "upstream 3 4", "upstream 5 6"));
    EXPECT_EQ(0U, mLine.GetCounters().mReceiveOverflow);
}

TEST_F(LinePortTest, ALineWithoutTimeIsDoneWithinAStep)
{
    mLine.mByteTime = Time(0);
    mLine.Send({1, 2});
    Inject({3, 4});
    EXPECT_THAT(StepAt(0), ElementsAre("peer 1 2", "upstream 3 4"));
    EXPECT_EQ(cNever, mLine.NextDue());
}

} // namespace
