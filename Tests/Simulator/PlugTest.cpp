#include "Simulator/CameraFixture.h"

#include "Simulator/RecordingPeer.h"

#include <Simulator/Peers/LoopbackPeer.h>

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class PlugTest : public CameraFixture
{
};

TEST_F(PlugTest, ALoopbackSendsEverythingBackAtTheLineRate)
{
    Make();
    mCamera->Plug(Port::Uart0, std::make_shared<LoopbackPeer>());
    Write(cInterruptEnable, cUart0Receive);
    Write(cUart0Data, 'x');
    mClock->Advance(Time(1041666) * 2 - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(0x9000), ElementsAre(2, 0, 0, 0, 'x', 0, 0, 0));
}

TEST_F(PlugTest, ALoopbackCanAnswerLater)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    mCamera->Plug(Port::Bulk3, std::make_shared<LoopbackPeer>(5ms));
    Notify(3);
    EXPECT_EQ(Send(3, Message({1, 2})), Status::Ok);
    mClock->Advance(5ms - 1ns);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mClock->Advance(1ns);
    EXPECT_THAT(TakeData(cUpstreamEvent + 3), ElementsAre(1, 2));
}

TEST_F(PlugTest, AllPortsLoopBackAtOnce)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
    {
        mCamera->Plug(BulkPortOf(lBulk), std::make_shared<LoopbackPeer>());
        Notify(lBulk);
    }
    for (size_t lBulk = 0; lBulk < cBulkCount; ++lBulk)
    {
        const Bytes lBytes(20, static_cast<uint8_t>(lBulk));
        EXPECT_EQ(Send(lBulk, Message(lBytes)), Status::Ok);
        EXPECT_EQ(TakeData(static_cast<uint16_t>(cUpstreamEvent + lBulk)), lBytes);
    }
}

TEST_F(PlugTest, PeersHearThatTheyArePluggedAndUnplugged)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    const auto lFirst = std::make_shared<RecordingPeer>();
    const auto lSecond = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Bulk1, lFirst);
    EXPECT_EQ(lFirst->GetPlugged(), 1);
    EXPECT_EQ(Send(1, Message({1})), Status::Ok);
    mCamera->Plug(Port::Bulk1, lSecond);
    EXPECT_EQ(lFirst->GetUnplugged(), 1);
    EXPECT_EQ(Send(1, Message({2})), Status::Ok);
    mCamera->Plug(Port::Bulk1, nullptr);
    EXPECT_EQ(lSecond->GetUnplugged(), 1);
    EXPECT_EQ(Send(1, Message({3})), Status::Ok);
    EXPECT_THAT(lFirst->GetBytes(), ElementsAre(1));
    EXPECT_THAT(lSecond->GetBytes(), ElementsAre(2));
    EXPECT_THAT(mCamera->GetWire(Port::Bulk1), ElementsAre(1, 2, 3));
}

TEST_F(PlugTest, AnUnpluggedLineIsDead)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Notify(1);
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Bulk1, lPeer);
    const std::shared_ptr<SerialLine> lLine = lPeer->GetLine();
    const uint8_t lByte = 5;
    lLine->Send(&lByte, 1);
    lLine->Send(nullptr, 0);
    EXPECT_THAT(TakeData(cUpstreamEvent + 1), ElementsAre(5));
    mCamera->Plug(Port::Bulk1, std::make_shared<RecordingPeer>());
    lLine->Send(&lByte, 1);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mCamera->RemoveListener(&mListener);
    mCamera.reset();
    lLine->Send(&lByte, 1);
    EXPECT_EQ(lLine->Now(), Time(0));
}

TEST_F(PlugTest, ALineKnowsTheCamerasTime)
{
    Make();
    const auto lPeer = std::make_shared<RecordingPeer>();
    mCamera->Plug(Port::Uart1, lPeer);
    mClock->Advance(7ms);
    EXPECT_EQ(lPeer->GetLine()->Now(), Time(7ms));
}

TEST_F(PlugTest, APortWithoutAPeerIsSilent)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    Notify(2);
    EXPECT_EQ(Send(2, Message({1})), Status::Ok);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
}

namespace
{

/// Removes itself, or another listener, from inside a callback.
class RemovingListener : public CameraListener
{
public:
    RemovingListener(CameraModel& aCamera, CameraListener* aOther) : mCamera(aCamera), mOther(aOther) {}

    void OnDeviceEvent(const DeviceEvent& /*aEvent*/) override
    {
        ++mCalls;
        mCamera.RemoveListener(mOther != nullptr ? mOther : this);
    }
    void OnFeatureChanged(const std::string& /*aName*/) override {}

    int GetCalls() const { return mCalls; }

private:
    CameraModel& mCamera;
    CameraListener* const mOther;
    int mCalls = 0;
};

} // namespace

TEST_F(PlugTest, AListenerMayRemoveItselfOrAnotherWhileItIsCalled)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    mCamera->RemoveListener(&mListener);
    RemovingListener lFirst(*mCamera, nullptr);
    RemovingListener lSecond(*mCamera, &mListener);
    mCamera->AddListener(&lFirst);
    mCamera->AddListener(&lSecond);
    mCamera->AddListener(&mListener);
    mCamera->AddListener(&mListener);
    mCamera->AddListener(nullptr);
    Write(cInterruptEnable, cUart0TransmitDone);
    Write(cUart0Data, 1);
    Write(cUart0Data, 2);
    EXPECT_EQ(lFirst.GetCalls(), 1);
    EXPECT_EQ(lSecond.GetCalls(), 2);
    EXPECT_THAT(mListener.TakeEvents(), IsEmpty());
    mCamera->RemoveListener(&lSecond);
}

namespace
{

/// Answers an event with another register access.
class ReactingListener : public CameraListener
{
public:
    explicit ReactingListener(CameraModel& aCamera) : mCamera(aCamera) {}

    void OnDeviceEvent(const DeviceEvent& /*aEvent*/) override
    {
        if (++mCalls < 5)
        {
            EXPECT_TRUE(mCamera.WriteRegister(cUart0Data, static_cast<uint32_t>(mCalls)).IsOk());
            EXPECT_EQ(mCamera.GetWire(Port::Uart0).size(), static_cast<size_t>(mCalls) + 1);
        }
        mCamera.WaitForListeners(); // returns at once here
    }
    void OnFeatureChanged(const std::string& /*aName*/) override {}

private:
    CameraModel& mCamera;
    int mCalls = 0;
};

} // namespace

TEST_F(PlugTest, AListenerMayUseTheCameraFromInside)
{
    mConfiguration.mUnlimitedLineRate = true;
    Make();
    ReactingListener lListener(*mCamera);
    mCamera->AddListener(&lListener);
    Write(cInterruptEnable, cUart0TransmitDone);
    Write(cUart0Data, 0);
    mCamera->WaitForListeners();
    EXPECT_THAT(mCamera->GetWire(Port::Uart0), ElementsAre(0, 1, 2, 3, 4));
    EXPECT_THAT(mListener.TakeEvents(), SizeIs(5));
    mCamera->RemoveListener(&lListener);
}
