#include "Simulator/RecordingListener.h"
#include "Simulator/RecordingPeer.h"

#include <KySerial/DeviceProtocol.h>
#include <Simulator/Camera/CameraCore.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace KyDeviceProtocol;
using namespace KySimulator;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Time cSlowByte(1041666); // at 9600 bits per second
constexpr Time cFastByte(86805);   // at 115200

/// A clock that keeps the orders for a test to run.
class OrderBook final : public Scheduler
{
public:
    Time Now() const override { return mNow; }
    void At(Time aTime, std::function<void()> aAction) override { mOrders.emplace_back(aTime, aAction); }

    std::vector<Time> Times() const
    {
        std::vector<Time> lTimes;
        for (const auto& [lTime, lAction] : mOrders)
        {
            lTimes.push_back(lTime);
        }
        return lTimes;
    }
    /// Sets the clock and runs the oldest order.
    void RunFirst(Time aNow)
    {
        mNow = aNow;
        const std::function<void()> lAction = mOrders.at(0).second;
        mOrders.erase(mOrders.begin());
        lAction();
    }

    Time mNow{0};

private:
    std::vector<std::pair<Time, std::function<void()>>> mOrders;
};

class CameraCoreTest : public testing::Test
{
protected:
    CameraCoreTest() { mCore->GetOutputQueue().AddListener(&mListener); }

    void Write(uint32_t aAddress, uint32_t aValue)
    {
        EXPECT_TRUE(
            mCore->With([&](CameraState& aState) { return aState.WriteRegister(aAddress, aValue); }).IsOk());
    }
    uint64_t GetSent(Port aPort)
    {
        return mCore->With([&](CameraState& aState) { return aState.Find(aPort)->GetCounters().mSent; });
    }

    const std::shared_ptr<OrderBook> mClock = std::make_shared<OrderBook>();
    RecordingListener mListener;
    std::shared_ptr<CameraCore> mCore = std::make_shared<CameraCore>(CameraConfiguration(), mClock);
};

TEST_F(CameraCoreTest, ATimerIsOrderedForTheNextThingOnly)
{
    mCore->With([](CameraState& /*aState*/) {});
    EXPECT_THAT(mClock->Times(), IsEmpty()) << "a camera at rest needs no clock";
    Write(cUart0Data, 1);
    Write(cUart0Data, 2);
    EXPECT_THAT(mClock->Times(), ElementsAre(cSlowByte));
    mClock->RunFirst(cSlowByte);
    EXPECT_THAT(mClock->Times(), ElementsAre(2 * cSlowByte));
    mClock->RunFirst(2 * cSlowByte);
    EXPECT_THAT(mClock->Times(), IsEmpty());
    EXPECT_EQ(2U, GetSent(Port::Uart0));
}

TEST_F(CameraCoreTest, AnEarlierThingOrdersATimerOfItsOwn)
{
    Write(cUart0Data, 1);
    EXPECT_TRUE(mCore->With([](CameraState& aState) { return aState.SetText("Uart1BaudRate", "Baud115200"); })
                    .IsOk());
    Write(cUart1Data, 1);
    EXPECT_THAT(mClock->Times(), ElementsAre(cSlowByte, cFastByte));
}

// Actions of a real clock may come before their time by its grain.
TEST_F(CameraCoreTest, ATimerThatComesTooEarlyDoesNothingYet)
{
    Write(cInterruptEnable, cUart0TransmitDone);
    Write(cUart0Data, 1);
    mClock->RunFirst(cSlowByte - Time(1));
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    EXPECT_EQ(0U, GetSent(Port::Uart0));
    mClock->mNow = cSlowByte;
    EXPECT_EQ(1U, GetSent(Port::Uart0)) << "an access does what has become due";
    EXPECT_THAT(mListener.TakeEvents(), SizeIs(1));
}

TEST_F(CameraCoreTest, AnAccessFindsWhatHasBecomeDueDone)
{
    Write(cUart0Data, 1);
    mClock->mNow = cSlowByte; // the timer has not run yet
    EXPECT_EQ(1U, GetSent(Port::Uart0));
}

TEST_F(CameraCoreTest, WhatAnAccessRaisesIsDeliveredBeforeItReturns)
{
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCore->Plug(Port::Uart1, lPeer);
    EXPECT_EQ(1, lPeer->GetPlugged());
    mCore->With([](CameraState& aState) { static_cast<void>(aState.SetText("DeviceUserID", "x")); });
    EXPECT_THAT(mListener.TakeChanges(), ElementsAre("DeviceUserID"));
}

TEST_F(CameraCoreTest, APeerOnAPortThatTheCameraLacksHearsNothing)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUartCount = 1;
    mCore = std::make_shared<CameraCore>(lConfiguration, mClock);
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCore->Plug(Port::Uart1, lPeer);
    EXPECT_EQ(0, lPeer->GetPlugged());
}

TEST_F(CameraCoreTest, TimersAndLinesOutliveTheCamera)
{
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCore->Plug(Port::Uart0, lPeer);
    Write(cUart0Data, 1);
    mCore.reset();
    mClock->RunFirst(cSlowByte);
    const uint8_t lByte = 1;
    lPeer->GetLine()->Send(&lByte, 1);
    EXPECT_THAT(mClock->Times(), IsEmpty());
    EXPECT_THAT(lPeer->GetBytes(), IsEmpty());
}

} // namespace
