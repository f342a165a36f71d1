#include "RecordingListener.h"

#include <Simulator/Ports/OutputQueue.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

using namespace KySimulator;
using testing::ElementsAre;

namespace
{

/// Runs a function of the test in each callback.
class ActingListener : public CameraListener
{
public:
    void OnDeviceEvent(const DeviceEvent& /*aEvent*/) override {}
    void OnFeatureChanged(const std::string& aName) override { mAct(aName); }

    std::function<void(const std::string&)> mAct;
};

class OutputQueueTest : public testing::Test
{
protected:
    void Post(const std::string& aName) { mQueue.Post({FeatureChange{aName}}); }

    OutputQueue mQueue;
    RecordingListener mListener;
};

TEST_F(OutputQueueTest, ListenersGetEverythingInOrderOnceItIsDrained)
{
    RecordingListener lOther;
    mQueue.AddListener(&mListener);
    mQueue.AddListener(&mListener); // has no effect
    mQueue.AddListener(&lOther);
    mQueue.AddListener(nullptr); // has no effect
    Post("a");
    Post("b");
    EXPECT_TRUE(mListener.TakeChanges().empty());
    mQueue.Drain();
    EXPECT_THAT(mListener.TakeChanges(), ElementsAre("a", "b"));
    EXPECT_THAT(lOther.TakeChanges(), ElementsAre("a", "b"));
    mQueue.WaitUntilDrained();
}

TEST_F(OutputQueueTest, OutputOfACallbackIsLeftToTheLoopThatCalledIt)
{
    ActingListener lActing;
    std::vector<std::string> lNames;
    lActing.mAct = [&](const std::string& aName)
    {
        lNames.push_back(aName + "(");
        if (aName == "a")
        {
            Post("b");
            mQueue.Drain();
            mQueue.WaitUntilDrained(); // returns at once
        }
        lNames.push_back(")");
    };
    mQueue.AddListener(&lActing);
    Post("a");
    mQueue.Drain();
    EXPECT_THAT(lNames, ElementsAre("a(", ")", "b(", ")"));
}

TEST_F(OutputQueueTest, ListenerThatIsRemovedByAnotherHearsNothingMore)
{
    ActingListener lActing;
    lActing.mAct = [&](const std::string&) { mQueue.RemoveListener(&mListener); };
    mQueue.AddListener(&lActing);
    mQueue.AddListener(&mListener);
    Post("a");
    mQueue.Drain();
    EXPECT_TRUE(mListener.TakeChanges().empty());
}

TEST_F(OutputQueueTest, RemovalWaitsForACallThatRunsOnAnotherThread)
{
    std::promise<void> lInside;
    std::promise<void> lGoOn;
    std::atomic<bool> lLeft{false};
    ActingListener lActing;
    lActing.mAct = [&](const std::string&)
    {
        lInside.set_value();
        lGoOn.get_future().wait();
        lLeft = true;
    };
    mQueue.AddListener(&lActing);
    Post("a");
    std::thread lDrainer([this] { mQueue.Drain(); });
    lInside.get_future().wait();
    std::thread lRemover(
        [&]
        {
            mQueue.RemoveListener(&lActing);
            EXPECT_TRUE(lLeft);
        });
    mQueue.Drain();                                             // another thread drains: returns at once
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // most likely it waits by now
    lGoOn.set_value();
    mQueue.WaitUntilDrained();
    lRemover.join();
    lDrainer.join();
}

TEST_F(OutputQueueTest, ShutQueueDropsEverything)
{
    mQueue.AddListener(&mListener);
    Post("a");
    mQueue.Shut();
    Post("b");
    mQueue.Drain();
    EXPECT_TRUE(mListener.TakeChanges().empty());
}

} // namespace
