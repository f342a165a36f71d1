#include "Simulator/RecordingPeer.h"

#include <KySerial/DeviceProtocol.h>
#include <Simulator/Camera/CameraState.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace KyDeviceProtocol;
using namespace KySimulator;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Time cByteAt9600(1041666);
constexpr Time cByteAt115200(86805);

class DeadLine final : public SerialLine
{
public:
    void Send(const uint8_t* /*aData*/, size_t /*aSize*/, Time /*aDelay*/) override {}
    Time Now() const override { return Time(0); }
};

/// What a state gives its surroundings, each as a word.
std::vector<std::string> Words(const std::vector<Output>& aOutputs)
{
    std::vector<std::string> lWords;
    for (const Output& lOutput : aOutputs)
    {
        if (std::holds_alternative<DeviceEvent>(lOutput))
        {
            lWords.emplace_back("event");
        }
        else if (std::holds_alternative<FeatureChange>(lOutput))
        {
            lWords.push_back(std::get<FeatureChange>(lOutput).mName);
        }
        else
        {
            constexpr const char* cNews[] = {"plugged", "unplugged", "bytes"};
            lWords.emplace_back(cNews[std::get<PeerNews>(lOutput).mWhat.index()]);
        }
    }
    return lWords;
}

class CameraStateTest : public testing::Test
{
protected:
    void Write(uint32_t aAddress, uint32_t aValue)
    {
        EXPECT_TRUE(mState.WriteRegister(aAddress, aValue).IsOk());
    }

    const std::shared_ptr<RecordingPeer> mPeer = std::make_shared<RecordingPeer>();
    const std::shared_ptr<SerialLine> mLine = std::make_shared<DeadLine>();
    const uint8_t mByte = 7;
    CameraState mState{CameraConfiguration()};
};

TEST_F(CameraStateTest, ACameraAtRestHasNothingToDo)
{
    EXPECT_EQ(cNever, mState.NextDue());
    mState.Step(1s);
    EXPECT_THAT(Words(mState.TakeOutputs()), IsEmpty());
}

// An application may bring a clock of its own.
TEST_F(CameraStateTest, TimeDoesNotGoBack)
{
    mState.Step(10ms);
    mState.Step(5ms);
    Write(cUart0Data, 1);
    EXPECT_EQ(Time(10ms) + cByteAt9600, mState.NextDue());
}

TEST_F(CameraStateTest, TheEarliestOfAllPortsIsDueNext)
{
    Write(cUart0Data, 1);
    EXPECT_TRUE(mState.SetText("Uart1BaudRate", "Baud115200").IsOk());
    Write(cUart1Data, 1);
    EXPECT_EQ(cByteAt115200, mState.NextDue());
    mState.Step(cByteAt115200);
    EXPECT_EQ(cByteAt9600, mState.NextDue());
    mState.FindBulk(Port::Bulk5)->Inject(&mByte, 1, Time(100));
    EXPECT_EQ(cByteAt9600, mState.NextDue()) << "that byte ends later";
    mState.Step(cByteAt9600);
    EXPECT_EQ(cByteAt115200 + Time(100) + cByteAt9600, mState.NextDue());
}

TEST_F(CameraStateTest, AnInterruptCarriesItsStatusTheLowByteFirst)
{
    Write(cInterruptEnable, cUart1TransmitDone);
    Write(cUart1Data, 1);
    mState.Step(cByteAt9600);
    const std::vector<Output> lOutputs = mState.TakeOutputs();
    ASSERT_THAT(Words(lOutputs), ElementsAre("event"));
    const auto& lEvent = std::get<DeviceEvent>(lOutputs[0]);
    EXPECT_EQ(cInterruptEvent, lEvent.mId);
    EXPECT_EQ(cByteAt9600, lEvent.mTimestamp);
    EXPECT_THAT(lEvent.mData, ElementsAre(cUart1TransmitDone, 0, 0, 0));
    EXPECT_THAT(Words(mState.TakeOutputs()), IsEmpty()) << "outputs are taken once";
}

TEST_F(CameraStateTest, AnUpstreamEventHasTheNumberOfItsPort)
{
    EXPECT_TRUE(mState.SetText("EventSelector", "Bulk6UpstreamData").IsOk());
    EXPECT_TRUE(mState.SetText("EventNotification", "On").IsOk());
    mState.TakeOutputs();
    mState.Plug(Port::Bulk6, mPeer, mLine);
    mState.ArriveFrom(mLine.get(), Port::Bulk6, &mByte, 1, Time(0));
    mState.Step(1s);
    const std::vector<Output> lOutputs = mState.TakeOutputs();
    ASSERT_THAT(Words(lOutputs), ElementsAre("plugged", "event"));
    EXPECT_EQ(cUpstreamEvent + 6, std::get<DeviceEvent>(lOutputs[1]).mId);
    EXPECT_THAT(std::get<DeviceEvent>(lOutputs[1]).mData, ElementsAre(7));
}

TEST_F(CameraStateTest, APeerHearsOfItsLineItsBytesAndItsEnd)
{
    mState.Plug(Port::Uart0, mPeer, mLine);
    Write(cUart0Data, 1);
    mState.Step(1s);
    mState.Plug(Port::Uart0, std::make_shared<RecordingPeer>(), std::make_shared<DeadLine>());
    mState.Plug(Port::Uart0, nullptr, nullptr);
    mState.Plug(Port::Uart0, nullptr, nullptr);
    const std::vector<Output> lOutputs = mState.TakeOutputs();
    EXPECT_THAT(Words(lOutputs), ElementsAre("plugged", "bytes", "unplugged", "plugged", "unplugged"));
    EXPECT_EQ(mPeer, std::get<PeerNews>(lOutputs[2]).mPeer) << "the former one goes first";
}

TEST_F(CameraStateTest, APortWithoutAPeerGivesNobodyItsBytes)
{
    Write(cUart0Data, 1);
    mState.Step(1s);
    EXPECT_THAT(Words(mState.TakeOutputs()), IsEmpty());
    EXPECT_EQ(1U, mState.Find(Port::Uart0)->GetCounters().mSent);
}

TEST_F(CameraStateTest, OnlyTheLineOfThePresentPeerBringsBytes)
{
    const DeadLine lOther;
    mState.Plug(Port::Uart0, mPeer, mLine);
    mState.ArriveFrom(&lOther, Port::Uart0, &mByte, 1, Time(0));
    mState.ArriveFrom(mLine.get(), Port::Uart1, &mByte, 1, Time(0));
    mState.ArriveFrom(mLine.get(), Port::Uart0, nullptr, 1, Time(0));
    mState.ArriveFrom(mLine.get(), static_cast<Port>(10), &mByte, 1, Time(0));
    EXPECT_EQ(cNever, mState.NextDue());
    mState.ArriveFrom(mLine.get(), Port::Uart0, &mByte, 1, Time(0));
    EXPECT_EQ(cByteAt9600, mState.NextDue());
}

TEST_F(CameraStateTest, APortIsFoundWhereTheCameraHasIt)
{
    CameraConfiguration lConfiguration;
    lConfiguration.mUartCount = 1;
    lConfiguration.mBulk[0].mFeatures = false; // its registers are left
    lConfiguration.mBulk[3].mFeatures = false;
    CameraState lState(lConfiguration);
    for (int32_t lPort = -1; lPort <= 10; ++lPort)
    {
        const bool lExists = lPort >= 0 && lPort < 10 && lPort != 1 && lPort != 5;
        EXPECT_EQ(lExists, lState.Find(static_cast<Port>(lPort)) != nullptr) << lPort;
        EXPECT_EQ(lExists && lPort >= 2, lState.FindBulk(static_cast<Port>(lPort)) != nullptr) << lPort;
    }
    lConfiguration.mBulk0Registers = false;
    EXPECT_EQ(nullptr, CameraState(lConfiguration).Find(Port::Bulk0));
}

} // namespace
